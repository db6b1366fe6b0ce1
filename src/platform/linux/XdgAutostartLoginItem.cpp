#include "platform/linux/XdgAutostartLoginItem.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include "core/DesktopEntry.h"
#include "core/Logging.h"
#include "platform/linux/UserFiles.h"

namespace lorvane {

namespace {

QString defaultUserDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

QStringList defaultSystemDirectories() {
    QString dirs = qEnvironmentVariable("XDG_CONFIG_DIRS");
    if (dirs.isEmpty()) dirs = QStringLiteral("/etc/xdg");
    QStringList result;
    for (const QString& dir : dirs.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        result << dir + QStringLiteral("/autostart");
    }
    return result;
}

std::string describe(const QString& text) { return text.toStdString(); }

// The program an Exec line starts, as a launcher would find it; empty when there is none.
QString resolveProgram(const QString& program) {
    if (program.isEmpty()) return {};
    if (program.contains(QLatin1Char('/'))) {
        const QFileInfo info(program);
        return info.isFile() && info.isExecutable() ? info.absoluteFilePath() : QString();
    }
    return QStandardPaths::findExecutable(program);
}

}  // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : XdgAutostartLoginItem(std::move(executable), defaultUserDirectory(), defaultSystemDirectories()) {}

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable, QString userDirectory, QStringList systemDirectories,
                                             QString home)
    : executable_(std::move(executable)),
      userDirectory_(std::move(userDirectory)),
      systemDirectories_(std::move(systemDirectories)),
      home_(home.isEmpty() ? QDir::homePath() : std::move(home)) {}

QString XdgAutostartLoginItem::userEntryPath() const {
    return userDirectory_ + QLatin1Char('/') + QLatin1String(entryFileName);
}

QString XdgAutostartLoginItem::legacyUserEntryPath() const {
    return userDirectory_ + QLatin1Char('/') + QLatin1String(legacyEntryFileName);
}

QString XdgAutostartLoginItem::execValue(const QString& executable) {
    const auto value = desktopentry::execValue({executable.toStdString()});
    return value ? QString::fromStdString(*value) : QString();
}

std::optional<QString> XdgAutostartLoginItem::entryText(bool hidden) const {
    const auto exec = desktopentry::execValue({executable_.toStdString(), backgroundOption});
    if (!exec) return std::nullopt;
    QString text = QStringLiteral(
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Lorvane\n"
        "Comment=Shows an audio wave while music plays\n"
        "Icon=com.tarnhollow.Lorvane\n");
    text += QStringLiteral("Exec=") + QString::fromStdString(*exec) + QLatin1Char('\n');
    text += QStringLiteral(
        "Terminal=false\n"
        // Tray programs start once the panel that hosts their icon is up.
        "X-GNOME-Autostart-Phase=Applications\n"
        "X-GNOME-Autostart-Delay=5\n"
        "X-KDE-autostart-after=panel\n");
    text += hidden ? QStringLiteral("Hidden=true\n") : QStringLiteral("X-GNOME-Autostart-enabled=true\n");
    return text;
}

XdgAutostartLoginItem::EntryState XdgAutostartLoginItem::readEntry(const QString& path) {
    if (userfiles::kindAt(path) != userfiles::Kind::regular) return {};
    const auto bytes = userfiles::readRegularFile(path, 64 * 1024);
    if (!bytes) return {};
    const auto entry = desktopentry::parse(bytes->toStdString());
    // A file that is no desktop entry at all starts nothing.
    if (!entry.isDesktopEntry()) return {};
    EntryState state;
    state.present = true;
    // Hidden=true means deleted; GNOME's own switch turns an entry off the same way.
    state.hidden = entry.value("Hidden") == std::optional<std::string>("true") ||
                   entry.value("X-GNOME-Autostart-enabled") == std::optional<std::string>("false");
    if (const auto name = entry.value("Name")) state.name = QString::fromStdString(desktopentry::unescapeStringValue(*name));
    if (const auto exec = entry.value("Exec")) {
        if (const auto arguments = desktopentry::parseExecValue(*exec)) {
            state.program = QString::fromStdString(arguments->front());
        }
    }
    return state;
}

QStringList XdgAutostartLoginItem::candidatePaths() const {
    QStringList paths{userEntryPath(), legacyUserEntryPath()};
    for (const QString& dir : systemDirectories_) paths << dir + QLatin1Char('/') + QLatin1String(entryFileName);
    return paths;
}

XdgAutostartLoginItem::EntryState XdgAutostartLoginItem::effectiveEntry() const {
    const QStringList paths = candidatePaths();
    for (int i = 0; i < paths.size(); ++i) {
        if (userfiles::kindAt(paths[i]) == userfiles::Kind::missing) continue;
        EntryState state = readEntry(paths[i]);
        // Under the old name only an entry of ours counts; another program's "lorvane.desktop" is left be.
        if (paths[i] == legacyUserEntryPath() && (!state.present || state.name != QStringLiteral("Lorvane"))) continue;
        return state;
    }
    return {};
}

QString XdgAutostartLoginItem::fingerprint() const {
    QString print;
    for (const QString& path : candidatePaths()) {
        const QFileInfo info(path);
        if (!info.exists()) {
            print += QStringLiteral("-|");
            continue;
        }
        print += QString::number(info.lastModified().toMSecsSinceEpoch()) + QLatin1Char(':') +
                 QString::number(info.size()) + QLatin1Char(':') +
                 QString::number(info.fileTime(QFileDevice::FileMetadataChangeTime).toMSecsSinceEpoch()) +
                 QLatin1Char('|');
    }
    return print;
}

bool XdgAutostartLoginItem::isEnabled() const {
    const QString print = fingerprint();
    if (print != cachedFingerprint_) {
        cachedEntry_ = effectiveEntry();
        cachedFingerprint_ = print;
    }
    // The program the entry starts may have been deleted or moved since: an entry that starts nothing is off.
    return cachedEntry_.present && !cachedEntry_.hidden && !resolveProgram(cachedEntry_.program).isEmpty();
}

void XdgAutostartLoginItem::watch(std::function<void()> changed) {
    changed_ = std::move(changed);
    watcher_ = std::make_unique<QFileSystemWatcher>();
    const auto notice = [this] {
        rewatch();
        if (changed_) changed_();
    };
    QObject::connect(watcher_.get(), &QFileSystemWatcher::directoryChanged, notice);
    QObject::connect(watcher_.get(), &QFileSystemWatcher::fileChanged, notice);
    rewatch();
}

void XdgAutostartLoginItem::rewatch() {
    if (!watcher_) return;
    // Removed files drop out of the watch list; what exists now is watched afresh.
    QStringList paths{userDirectory_, QFileInfo(userDirectory_).absolutePath()};
    isEnabled();
    const QString program = resolveProgram(cachedEntry_.program);
    if (!program.isEmpty()) paths << program << QFileInfo(program).absolutePath();
    QStringList wanted;
    for (const QString& path : paths) {
        if (QFileInfo::exists(path) && !wanted.contains(path)) wanted << path;
    }
    const QStringList current = watcher_->files() + watcher_->directories();
    for (const QString& path : current) {
        if (!wanted.contains(path)) watcher_->removePath(path);
    }
    for (const QString& path : wanted) {
        if (!current.contains(path)) watcher_->addPath(path);
    }
}

QString XdgAutostartLoginItem::developmentBuildWarning() const {
    if (!developmentBuild_ || !isEnabled()) return {};
    if (QFileInfo(resolveProgram(cachedEntry_.program)) != QFileInfo(executable_)) return {};
    return QStringLiteral("Launch at Login starts the development build at “%1”.").arg(executable_);
}

std::optional<std::string> XdgAutostartLoginItem::writeUserEntry(bool hidden) {
    const auto text = entryText(hidden);
    if (!text) {
        const QString message =
            QStringLiteral("The program's path “%1” holds characters that a login entry cannot carry.").arg(executable_);
        qCWarning(lcSettings).noquote() << "Autostart entry not written:" << message;
        return describe(message);
    }
    if (const auto error = userfiles::writeAtomically(userEntryPath(), text->toUtf8(), home_)) {
        qCWarning(lcSettings).noquote() << "Autostart entry not written:" << *error;
        return describe(*error);
    }
    cachedFingerprint_.clear();
    const auto legacy = removeLegacyEntry();
    rewatch();
    return legacy;
}

std::optional<std::string> XdgAutostartLoginItem::removeLegacyEntry() {
    if (userfiles::kindAt(legacyUserEntryPath()) == userfiles::Kind::missing) return std::nullopt;
    if (readEntry(legacyUserEntryPath()).name != QStringLiteral("Lorvane")) return std::nullopt;
    cachedFingerprint_.clear();
    if (const auto error = userfiles::remove(legacyUserEntryPath())) {
        qCWarning(lcSettings).noquote() << "Old autostart entry not removed:" << *error;
        return describe(*error);
    }
    return std::nullopt;
}

bool XdgAutostartLoginItem::migrateLegacyEntry() {
    if (userfiles::kindAt(userEntryPath()) != userfiles::Kind::missing) return false;
    if (userfiles::kindAt(legacyUserEntryPath()) == userfiles::Kind::missing) return false;
    const EntryState legacy = readEntry(legacyUserEntryPath());
    if (!legacy.present || legacy.name != QStringLiteral("Lorvane")) return false;
    if (writeUserEntry(legacy.hidden)) return false;
    qCDebug(lcSettings).noquote() << "Replaced the autostart entry" << legacyUserEntryPath() << "by" << userEntryPath();
    return true;
}

std::optional<std::string> XdgAutostartLoginItem::registerItem() { return writeUserEntry(false); }

std::optional<std::string> XdgAutostartLoginItem::unregisterItem() {
    for (const QString& path : {userEntryPath(), legacyUserEntryPath()}) {
        if (path == legacyUserEntryPath()) {
            if (const auto error = removeLegacyEntry()) return error;
            continue;
        }
        if (const auto error = userfiles::remove(path)) {
            qCWarning(lcSettings).noquote() << "Autostart entry not removed:" << *error;
            return describe(*error);
        }
    }
    cachedFingerprint_.clear();
    // A system-wide entry would still start the program: hide it for this user.
    if (isEnabled()) return writeUserEntry(true);
    return std::nullopt;
}

}  // namespace lorvane
