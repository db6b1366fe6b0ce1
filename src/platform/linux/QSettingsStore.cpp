#include "platform/linux/QSettingsStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>

#include "core/Logging.h"
#include "platform/linux/UserFiles.h"

namespace lorvane {

namespace {

QString qKey(const std::string& key) { return QString::fromStdString(key); }

// Larger settings files are not ours: they read as the defaults instead of stalling the start.
constexpr qint64 maxFileBytes = 4 * 1024 * 1024;

// QSettings turns a value spelled "@Variant(...)" or "@DateTime(...)" into a QVariant through
// QDataStream, whose length fields a hand-made file can set to gigabytes. This program writes only
// booleans, strings and string lists, so no line of its own spells one; a line that could (with the
// quotes QSettings drops left out, through an escape that may spell a letter, or across a continued
// line) is left out, and its key reads as the default.
bool mayHoldTypedValue(QByteArrayView line) {
    const QByteArrayView text = line.trimmed();
    if (text.endsWith('\\')) return true;
    QByteArray unquoted;
    unquoted.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') continue;
        if (c != '\\' || i + 1 >= text.size()) {
            unquoted.append(c);
            continue;
        }
        const char next = text[++i];
        if (next == 'x' || next == 'X' || (next >= '0' && next <= '7')) return true;
        // Any other escape read as its letter: the check errs towards leaving a line out.
        unquoted.append(next);
    }
    return unquoted.contains("@Variant(") || unquoted.contains("@DateTime(");
}

// The file's lines without those that may hold a typed value; `dropped` counts them.
QByteArray withoutTypedValues(const QByteArray& bytes, int& dropped) {
    QByteArray kept;
    kept.reserve(bytes.size());
    dropped = 0;
    for (const QByteArray& line : bytes.split('\n')) {
        if (mayHoldTypedValue(line)) {
            ++dropped;
            continue;
        }
        kept.append(line);
        kept.append('\n');
    }
    return kept;
}

}  // namespace

QString QSettingsStore::standardFileName() {
    // QSettings' native user location on Linux, without a QSettings object (which would read the file).
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Tarnhollow/Lorvane.conf");
}

QSettingsStore::QSettingsStore() : QSettingsStore(standardFileName()) {}

QSettingsStore::QSettingsStore(const QString& fileName, const QString& home)
    : fileName_(fileName), home_(home.isEmpty() ? QDir::homePath() : home) {
    retry_.setSingleShot(true);
    retry_.setInterval(std::chrono::seconds(5));
    QObject::connect(&retry_, &QTimer::timeout, [this] { flush(); });
    read();
}

QSettingsStore::~QSettingsStore() = default;

void QSettingsStore::setRetryInterval(std::chrono::milliseconds interval) { retry_.setInterval(interval); }

void QSettingsStore::read() {
    switch (userfiles::kindAt(fileName_)) {
        case userfiles::Kind::missing:
            return;
        case userfiles::Kind::notRegular:
            // A FIFO or a device would block or never end: never opened, read as the defaults.
            qCWarning(lcSettings).noquote() << "The settings file" << fileName_
                                            << "is not a regular file; using the default settings.";
            // Saving would be refused too: say so from the start.
            problem_ = QStringLiteral("“%1” is not a regular file, so Lorvane does not replace it.").arg(fileName_);
            return;
        case userfiles::Kind::regular:
            break;
    }
    const auto bytes = userfiles::readRegularFile(fileName_, maxFileBytes);
    if (!bytes) {
        qCWarning(lcSettings).noquote() << "The settings file" << fileName_
                                        << "cannot be read; using the default settings.";
        return;
    }
    int dropped = 0;
    const QByteArray plain = withoutTypedValues(*bytes, dropped);
    if (dropped > 0) {
        qCWarning(lcSettings).noquote() << "The settings file" << fileName_ << "has" << dropped
                                        << "line(s) this program never writes; they read as the defaults.";
    }
    // QSettings parses a private copy, so neither its lock nor its cache ever touches the real file.
    QTemporaryDir scratch;
    if (!scratch.isValid()) return;
    const QString copy = scratch.filePath(QStringLiteral("read.conf"));
    {
        QFile file(copy);
        if (!file.open(QIODevice::WriteOnly)) return;
        file.write(plain);
    }
    QSettings parsed(copy, QSettings::IniFormat);
    if (parsed.status() != QSettings::NoError) {
        // Everything reads as the defaults; the file is replaced only by the next assignment.
        qCWarning(lcSettings).noquote() << "The settings file" << fileName_
                                        << "could not be parsed; using the default settings.";
        return;
    }
    for (const QString& key : parsed.allKeys()) values_.insert(key, parsed.value(key));
}

std::optional<KeyValueStore::Value> QSettingsStore::object(const std::string& key) const {
    const auto found = values_.constFind(qKey(key));
    if (found == values_.constEnd()) return std::nullopt;
    const QVariant& value = *found;
    switch (value.typeId()) {
        case QMetaType::Bool:
            return Value(value.toBool());
        case QMetaType::Int:
        case QMetaType::LongLong:
        case QMetaType::UInt:
        case QMetaType::ULongLong:
        case QMetaType::Double:
            return Value(value.toDouble());
        case QMetaType::QStringList:
        case QMetaType::QVariantList: {
            StringArray array;
            for (const QString& item : value.toStringList()) array.push_back(item.toStdString());
            return Value(array);
        }
        case QMetaType::UnknownType:
            // The INI form of an empty list.
            return Value(StringArray{});
        default:
            return Value(value.toString().toStdString());
    }
}

std::optional<KeyValueStore::StringArray> QSettingsStore::stringArray(const std::string& key) const {
    const auto value = object(key);
    if (!value) return std::nullopt;
    if (const auto* array = std::get_if<StringArray>(&*value)) return *array;
    // An INI file cannot tell a one-item list from a string: a string reads as a list of one.
    if (const auto* text = std::get_if<std::string>(&*value)) return StringArray{*text};
    return std::nullopt;
}

void QSettingsStore::setBool(const std::string& key, bool value) { write(key, value); }

void QSettingsStore::setString(const std::string& key, const std::string& value) {
    write(key, QString::fromStdString(value));
}

void QSettingsStore::setStringArray(const std::string& key, const StringArray& value) {
    QStringList list;
    for (const std::string& item : value) list.append(QString::fromStdString(item));
    write(key, list);
}

std::optional<std::string> QSettingsStore::saveProblem() const {
    if (problem_.isEmpty()) return std::nullopt;
    return problem_.toStdString();
}

void QSettingsStore::write(const std::string& key, const QVariant& value) {
    // An empty list round-trips through the INI file as an invalid value; keep it that way in memory too.
    values_.insert(qKey(key), value.typeId() == QMetaType::QStringList && value.toStringList().isEmpty()
                                  ? QVariant()
                                  : value);
    dirty_ = true;
    flush();
}

void QSettingsStore::flush() {
    if (!dirty_) return;
    const auto problem = save();
    lastWriteSucceeded_ = !problem;
    if (problem) {
        setProblem(*problem);
        // Retried later from the event loop; without one (a tool, a test) the next assignment retries.
        if (QCoreApplication::instance()) retry_.start();
        return;
    }
    dirty_ = false;
    retry_.stop();
    setProblem({});
}

std::optional<QString> QSettingsStore::save() {
    const QString lockPath = fileName_ + QStringLiteral(".lock");
    // Only a regular lock file can be a lock; anything else there would make the lock block or fail.
    if (userfiles::kindAt(lockPath) == userfiles::Kind::notRegular) {
        return QStringLiteral("“%1” is in the way of the settings file's lock.").arg(lockPath);
    }
    const QString folder = QFileInfo(fileName_).absolutePath();
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder)) {
        return QStringLiteral("The folder “%1” could not be created.").arg(folder);
    }
    // The same lock QSettings takes, with a bound: a stale or foreign lock costs a retry, not a freeze.
    QLockFile lock(lockPath);
    if (!lock.tryLock(static_cast<int>(lockBound_.count()))) {
        switch (lock.error()) {
            case QLockFile::LockFailedError:
                return QStringLiteral("The settings file is locked by another program (“%1”).").arg(lockPath);
            case QLockFile::PermissionError:
                return QStringLiteral("The folder “%1” is not writable.").arg(folder);
            default:
                return QStringLiteral("The settings file's lock “%1” cannot be taken.").arg(lockPath);
        }
    }
    // QSettings writes its INI form into a private folder; the bytes then replace the file atomically.
    QTemporaryDir scratch;
    if (!scratch.isValid()) return QStringLiteral("No temporary folder is available.");
    const QString copy = scratch.filePath(QStringLiteral("write.conf"));
    {
        QSettings out(copy, QSettings::IniFormat);
        for (auto it = values_.constBegin(); it != values_.constEnd(); ++it) out.setValue(it.key(), it.value());
        out.sync();
        if (out.status() != QSettings::NoError) return QStringLiteral("The settings could not be encoded.");
    }
    const auto bytes = userfiles::readRegularFile(copy, 64 * 1024 * 1024);
    if (!bytes) return QStringLiteral("The settings could not be encoded.");
    return userfiles::writeAtomically(fileName_, *bytes, home_);
}

void QSettingsStore::setProblem(const QString& problem) {
    if (problem == problem_) return;
    problem_ = problem;
    if (!problem.isEmpty()) {
        qCWarning(lcSettings).noquote() << "Settings cannot be saved:" << problem
                                        << "Changes are kept until the program ends and saved when possible.";
    } else {
        qCDebug(lcSettings) << "Settings saved again.";
    }
    if (saveProblemDidChange) saveProblemDidChange();
}

}  // namespace lorvane
