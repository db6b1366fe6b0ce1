#include "platform/linux/QSettingsStore.h"

#include <QFile>
#include <QStringList>

namespace lorvane {

namespace {
QString qKey(const std::string& key) { return QString::fromStdString(key); }
}  // namespace

QSettingsStore::QSettingsStore()
    : QSettingsStore(QSettings(QSettings::NativeFormat, QSettings::UserScope, "Tarnhollow", "Lorvane").fileName()) {}

QSettingsStore::QSettingsStore(const QString& fileName)
    : settings_(std::make_unique<QSettings>(fileName, QSettings::IniFormat)) {
    readFailed_ = settings_->status() != QSettings::NoError;
}

std::optional<KeyValueStore::Value> QSettingsStore::object(const std::string& key) const {
    if (readFailed_ || !settings_->contains(qKey(key))) return std::nullopt;
    const QVariant value = settings_->value(qKey(key));
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

void QSettingsStore::write(const std::string& key, const QVariant& value) {
    if (readFailed_) {
        // The file could not be parsed: everything read as the defaults, and QSettings would not write
        // over it. Replace it with a fresh file from this assignment on.
        const QString name = settings_->fileName();
        settings_.reset();
        QFile::remove(name);
        settings_ = std::make_unique<QSettings>(name, QSettings::IniFormat);
        readFailed_ = false;
    }
    settings_->setValue(qKey(key), value);
    settings_->sync();
    lastWriteSucceeded_ = settings_->status() == QSettings::NoError;
}

}  // namespace lorvane
