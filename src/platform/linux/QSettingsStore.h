#pragma once
// The preferences store on Linux: QSettings' INI file under the user's XDG configuration
// directory (~/.config/Tarnhollow/Lorvane.conf). Every write is flushed at once.

#include <QSettings>
#include <memory>

#include "core/KeyValueStore.h"

namespace lorvane {

class QSettingsStore final : public KeyValueStore {
public:
    // The standard per-user location for organisation "Tarnhollow", application "Lorvane".
    QSettingsStore();
    // A given file, for tests.
    explicit QSettingsStore(const QString& fileName);

    std::optional<Value> object(const std::string& key) const override;
    std::optional<StringArray> stringArray(const std::string& key) const override;
    void setBool(const std::string& key, bool value) override;
    void setString(const std::string& key, const std::string& value) override;
    void setStringArray(const std::string& key, const StringArray& value) override;

    // True when the last write reached the disk.
    bool lastWriteSucceeded() const { return lastWriteSucceeded_; }
    QString fileName() const { return settings_->fileName(); }

private:
    void write(const std::string& key, const QVariant& value);

    std::unique_ptr<QSettings> settings_;
    bool readFailed_ = false;
    bool lastWriteSucceeded_ = true;
};

}  // namespace lorvane
