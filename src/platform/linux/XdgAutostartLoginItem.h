#pragma once
// Launch at login through an XDG autostart entry: the program is started at login exactly
// when an entry "lorvane.desktop" is in the user's autostart folder (or a system one) and is not hidden.

#include <QString>
#include <QStringList>
#include <optional>
#include <string>

#include "core/app/AppServices.h"

namespace lorvane {

class XdgAutostartLoginItem final : public LoginItemService {
public:
    static constexpr const char* entryFileName = "lorvane.desktop";

    // The user's folder ($XDG_CONFIG_HOME/autostart) and the system ones ($XDG_CONFIG_DIRS/*/autostart),
    // starting `executable`.
    explicit XdgAutostartLoginItem(QString executable);
    // Given folders, for tests.
    XdgAutostartLoginItem(QString executable, QString userDirectory, QStringList systemDirectories);

    bool isEnabled() const override;
    std::optional<std::string> registerItem() override;
    std::optional<std::string> unregisterItem() override;

    QString userEntryPath() const;
    // The Exec= value for a program path, quoted as desktop entries require.
    static QString execValue(const QString& executable);

private:
    struct EntryState {
        bool present = false;
        bool hidden = false;
    };
    static EntryState readEntry(const QString& path);
    // The entry that decides: the user's when present, else the first system one.
    EntryState effectiveEntry() const;
    std::optional<std::string> writeUserEntry(bool hidden);
    QString fingerprint() const;

    QString executable_;
    QString userDirectory_;
    QStringList systemDirectories_;
    // The answer is re-read whenever a candidate file changes; reading it costs a few stat calls.
    mutable QString cachedFingerprint_;
    mutable bool cachedEnabled_ = false;
};

}  // namespace lorvane
