#pragma once
// The preferences store on Linux: an INI file under the user's XDG configuration directory
// (~/.config/Tarnhollow/Lorvane.conf) in QSettings' format. Values live in memory; every assignment
// is written at once through the program's safe file writer, under QSettings' lock file taken with
// a short bound. When the file cannot be written (locked, unwritable, a link that must not be
// followed, not a regular file) the values stay in memory, the write is retried later, and
// saveProblem() says why until a write succeeds.

#include <QString>
#include <QTimer>
#include <QVariantMap>
#include <chrono>

#include "core/KeyValueStore.h"

namespace lorvane {

class QSettingsStore final : public KeyValueStore {
public:
    // The standard per-user location for organisation "Tarnhollow", application "Lorvane".
    QSettingsStore();
    // A given file, for tests; `home` bounds where links may be written through (default: $HOME).
    explicit QSettingsStore(const QString& fileName, const QString& home = QString());
    ~QSettingsStore() override;

    // The standard file's path, computed from the environment without touching the file.
    static QString standardFileName();

    std::optional<Value> object(const std::string& key) const override;
    std::optional<StringArray> stringArray(const std::string& key) const override;
    void setBool(const std::string& key, bool value) override;
    void setString(const std::string& key, const std::string& value) override;
    void setStringArray(const std::string& key, const StringArray& value) override;
    std::optional<std::string> saveProblem() const override;

    // True when the last write reached the disk.
    bool lastWriteSucceeded() const { return lastWriteSucceeded_; }
    QString fileName() const { return fileName_; }
    // True while assignments are waiting in memory for a successful write.
    bool hasUnsavedChanges() const { return dirty_; }

    // How long a write waits for the lock, and how soon a failed write is tried again.
    void setLockBound(std::chrono::milliseconds bound) { lockBound_ = bound; }
    void setRetryInterval(std::chrono::milliseconds interval);

private:
    void read();
    void write(const std::string& key, const QVariant& value);
    void flush();
    std::optional<QString> save();
    void setProblem(const QString& problem);

    QString fileName_;
    QString home_;
    QVariantMap values_;
    bool lastWriteSucceeded_ = true;
    bool dirty_ = false;
    QString problem_;
    std::chrono::milliseconds lockBound_{25};
    QTimer retry_;
};

}  // namespace lorvane
