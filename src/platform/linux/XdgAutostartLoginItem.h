#pragma once
// Launch at login through an XDG autostart entry: the program is started at login exactly when an
// entry "com.tarnhollow.Lorvane.desktop" is in the user's autostart folder (or a system one), is not
// hidden, and its Exec line names a program that exists. The entry starts the program in the tray
// (`--background`), after the panel. An entry written by earlier versions as "lorvane.desktop" is
// recognised and replaced.

#include <QFileSystemWatcher>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/app/AppServices.h"

namespace lorvane {

class XdgAutostartLoginItem final : public LoginItemService {
public:
    static constexpr const char* entryFileName = "com.tarnhollow.Lorvane.desktop";
    static constexpr const char* legacyEntryFileName = "lorvane.desktop";
    static constexpr const char* backgroundOption = "--background";

    // The user's folder ($XDG_CONFIG_HOME/autostart) and the system ones ($XDG_CONFIG_DIRS/*/autostart),
    // starting `executable`.
    explicit XdgAutostartLoginItem(QString executable);
    // Given folders and home (links are written through only into it), for tests.
    XdgAutostartLoginItem(QString executable, QString userDirectory, QStringList systemDirectories,
                          QString home = QString());

    bool isEnabled() const override;
    std::optional<std::string> registerItem() override;
    std::optional<std::string> unregisterItem() override;

    // Replaces a user entry of ours under the old name by one under the new name (same on/off state,
    // this program's path). Answers whether an entry was replaced.
    bool migrateLegacyEntry();

    // Calls `changed` whenever the entry or the program it starts may have changed on disk (edited,
    // removed or deleted by hand), so what shows the tick can read it again.
    void watch(std::function<void()> changed);

    // The program runs from a build tree (not installed): an entry written now starts that build.
    void setDevelopmentBuild(bool developmentBuild) { developmentBuild_ = developmentBuild; }
    bool isDevelopmentBuild() const { return developmentBuild_; }
    // One line for the settings window while the login entry starts a development build; empty otherwise.
    QString developmentBuildWarning() const;

    QString userEntryPath() const;
    QString legacyUserEntryPath() const;
    // The Exec= value for a program path alone, quoted and escaped as desktop entries require; empty
    // when the path holds a character no desktop entry can carry.
    static QString execValue(const QString& executable);
    // The whole entry this program writes; nothing when its path cannot be written into an entry.
    std::optional<QString> entryText(bool hidden) const;

private:
    struct EntryState {
        bool present = false;
        bool hidden = false;
        QString program;  // the Exec line's program, as written
        QString name;
    };
    static EntryState readEntry(const QString& path);
    // The entry that decides: the user's when present, else the first system one.
    EntryState effectiveEntry() const;
    std::optional<std::string> writeUserEntry(bool hidden);
    std::optional<std::string> removeLegacyEntry();
    QString fingerprint() const;
    QStringList candidatePaths() const;
    void rewatch();

    QString executable_;
    QString userDirectory_;
    QStringList systemDirectories_;
    QString home_;
    bool developmentBuild_ = false;
    // The entry is re-read whenever a candidate file changes; reading it costs a few stat calls.
    mutable QString cachedFingerprint_;
    mutable EntryState cachedEntry_;
    std::unique_ptr<QFileSystemWatcher> watcher_;
    std::function<void()> changed_;
};

}  // namespace lorvane
