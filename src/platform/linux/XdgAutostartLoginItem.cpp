#include "platform/linux/XdgAutostartLoginItem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTextStream>

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

}  // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : XdgAutostartLoginItem(std::move(executable), defaultUserDirectory(), defaultSystemDirectories()) {}

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable, QString userDirectory, QStringList systemDirectories)
    : executable_(std::move(executable)),
      userDirectory_(std::move(userDirectory)),
      systemDirectories_(std::move(systemDirectories)) {}

QString XdgAutostartLoginItem::userEntryPath() const {
    return userDirectory_ + QLatin1Char('/') + QLatin1String(entryFileName);
}

QString XdgAutostartLoginItem::execValue(const QString& executable) {
    // Arguments with reserved characters are double-quoted, with " ` $ \ escaped inside the quotes;
    // the value as a whole then escapes each backslash once more.
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`%");
    bool needsQuotes = executable.isEmpty();
    for (QChar c : executable) needsQuotes = needsQuotes || reserved.contains(c);
    QString argument = executable;
    if (needsQuotes) {
        QString quoted;
        for (QChar c : executable) {
            if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\')) {
                quoted += QLatin1Char('\\');
            }
            // A literal percent sign in Exec is written twice.
            if (c == QLatin1Char('%')) quoted += QLatin1Char('%');
            quoted += c;
        }
        argument = QLatin1Char('"') + quoted + QLatin1Char('"');
    }
    argument.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    return argument;
}

XdgAutostartLoginItem::EntryState XdgAutostartLoginItem::readEntry(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return {};
    EntryState state;
    bool inMainGroup = false;
    bool sawMainGroup = false;
    QTextStream in(&file);
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        if (line.startsWith(QLatin1Char('['))) {
            inMainGroup = line == QStringLiteral("[Desktop Entry]");
            sawMainGroup = sawMainGroup || inMainGroup;
            continue;
        }
        if (!inMainGroup) continue;
        const auto equals = line.indexOf(QLatin1Char('='));
        if (equals < 0) continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        // Hidden=true means deleted; GNOME's own switch turns an entry off the same way.
        if (key == QStringLiteral("Hidden") && value == QStringLiteral("true")) state.hidden = true;
        if (key == QStringLiteral("X-GNOME-Autostart-enabled") && value == QStringLiteral("false")) state.hidden = true;
    }
    // A file that is no desktop entry at all starts nothing.
    state.present = sawMainGroup;
    if (!sawMainGroup) state.hidden = false;
    return state;
}

XdgAutostartLoginItem::EntryState XdgAutostartLoginItem::effectiveEntry() const {
    if (QFileInfo::exists(userEntryPath())) return readEntry(userEntryPath());
    for (const QString& dir : systemDirectories_) {
        const QString path = dir + QLatin1Char('/') + QLatin1String(entryFileName);
        if (QFileInfo::exists(path)) return readEntry(path);
    }
    return {};
}

QString XdgAutostartLoginItem::fingerprint() const {
    QString print;
    QStringList paths{userEntryPath()};
    for (const QString& dir : systemDirectories_) paths << dir + QLatin1Char('/') + QLatin1String(entryFileName);
    for (const QString& path : paths) {
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
        const EntryState entry = effectiveEntry();
        cachedEnabled_ = entry.present && !entry.hidden;
        cachedFingerprint_ = print;
    }
    return cachedEnabled_;
}

std::optional<std::string> XdgAutostartLoginItem::writeUserEntry(bool hidden) {
    if (!QDir().mkpath(userDirectory_)) {
        return describe(QStringLiteral("The folder “%1” could not be created.").arg(userDirectory_));
    }
    QSaveFile file(userEntryPath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        return describe(QStringLiteral("“%1” could not be written: %2").arg(userEntryPath(), file.errorString()));
    }
    QString text = QStringLiteral(
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Lorvane\n"
        "Comment=Shows an audio wave while music plays\n"
        "Icon=lorvane\n"
        "Terminal=false\n");
    text += QStringLiteral("Exec=") + execValue(executable_) + QLatin1Char('\n');
    text += hidden ? QStringLiteral("Hidden=true\n") : QStringLiteral("X-GNOME-Autostart-enabled=true\n");
    file.write(text.toUtf8());
    // Written to a temporary file and renamed over the entry, so a login never sees half an entry.
    if (!file.commit()) {
        return describe(QStringLiteral("“%1” could not be written: %2").arg(userEntryPath(), file.errorString()));
    }
    cachedFingerprint_.clear();
    return std::nullopt;
}

std::optional<std::string> XdgAutostartLoginItem::registerItem() { return writeUserEntry(false); }

std::optional<std::string> XdgAutostartLoginItem::unregisterItem() {
    QFile file(userEntryPath());
    if (file.exists() && !file.remove()) {
        return describe(QStringLiteral("“%1” could not be removed: %2").arg(userEntryPath(), file.errorString()));
    }
    cachedFingerprint_.clear();
    // A system-wide entry would still start the program: hide it for this user.
    if (isEnabled()) return writeUserEntry(true);
    return std::nullopt;
}

}  // namespace lorvane
