#pragma once
// Names of the MPRIS media player interfaces and small helpers for talking to them with QtDBus.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <optional>

class QObject;

namespace lorvane::mpris {

inline const QString busNamePrefix = QStringLiteral("org.mpris.MediaPlayer2.");
inline const QString objectPath = QStringLiteral("/org/mpris/MediaPlayer2");
inline const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
inline const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
inline const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

inline const QString busService = QStringLiteral("org.freedesktop.DBus");
inline const QString busPath = QStringLiteral("/org/freedesktop/DBus");
inline const QString busInterface = QStringLiteral("org.freedesktop.DBus");

// Sends `message` without waiting; `onReply` gets the reply or the error on the main thread,
// unless `context` is destroyed first.
void callAsync(const QDBusConnection& bus, const QDBusMessage& message, int timeoutMilliseconds, QObject* context,
               std::function<void(const QDBusMessage&)> onReply);

QDBusMessage propertyGet(const QString& service, const QString& interface, const QString& property);
QDBusMessage propertyGetAll(const QString& service, const QString& interface);

// The value inside a D-Bus variant (or the value itself when it is not wrapped).
QVariant unwrapped(const QVariant& value);
// A message argument as a{sv}; nothing when it is of another shape.
std::optional<QVariantMap> asPropertyMap(const QVariant& value);
// The first argument of a reply as a{sv}; nothing when the reply is an error or of another shape.
std::optional<QVariantMap> propertyMap(const QDBusMessage& reply);
// The first argument of a Properties.Get reply; nothing on an error.
std::optional<QVariant> propertyValue(const QDBusMessage& reply);
// A string property, when present and a string, cut to `maxForeignTextBytes` of UTF-8.
std::optional<QString> stringProperty(const QVariantMap& properties, const QString& name);
// A double property, when present and a double (D-Bus "d"); anything else reads as absent.
std::optional<double> doubleProperty(const QVariantMap& properties, const QString& name);
// `text` cut to at most `maxForeignTextBytes` of UTF-8, between two characters.
QString boundedText(const QString& text);

}  // namespace lorvane::mpris
