#include "platform/linux/MprisBus.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QObject>
#include <string>
#include <string_view>
#include <utility>

#include "core/MusicPlayer.h"

namespace lorvane::mpris {

void callAsync(const QDBusConnection& bus, const QDBusMessage& message, int timeoutMilliseconds, QObject* context,
               std::function<void(const QDBusMessage&)> onReply) {
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, timeoutMilliseconds), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [onReply = std::move(onReply)](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         onReply(finished->reply());
                     });
}

QDBusMessage propertyGet(const QString& service, const QString& interface, const QString& property) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, objectPath, propertiesInterface, QStringLiteral("Get"));
    message << interface << property;
    return message;
}

QDBusMessage propertyGetAll(const QString& service, const QString& interface) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(service, objectPath, propertiesInterface, QStringLiteral("GetAll"));
    message << interface;
    return message;
}

QVariant unwrapped(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QDBusVariant>()) return value.value<QDBusVariant>().variant();
    return value;
}

std::optional<QVariantMap> asPropertyMap(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QVariantMap>()) return value.toMap();
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) return std::nullopt;
    const auto argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != QLatin1String("a{sv}")) return std::nullopt;
    QVariantMap map;
    argument >> map;
    return map;
}

std::optional<QVariantMap> propertyMap(const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return asPropertyMap(reply.arguments().constFirst());
}

std::optional<QVariant> propertyValue(const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return unwrapped(reply.arguments().constFirst());
}

std::optional<QString> stringProperty(const QVariantMap& properties, const QString& name) {
    const auto found = properties.constFind(name);
    if (found == properties.constEnd()) return std::nullopt;
    const QVariant value = unwrapped(found.value());
    if (value.metaType() != QMetaType::fromType<QString>()) return std::nullopt;
    return boundedText(value.toString());
}

std::optional<double> doubleProperty(const QVariantMap& properties, const QString& name) {
    const auto found = properties.constFind(name);
    if (found == properties.constEnd()) return std::nullopt;
    const QVariant value = unwrapped(found.value());
    if (value.metaType() != QMetaType::fromType<double>()) return std::nullopt;
    return value.toDouble();
}

QString boundedText(const QString& text) {
    // A UTF-16 unit gives at most three UTF-8 bytes, so this much is always enough to fill the bound.
    constexpr qsizetype units = static_cast<qsizetype>(maxForeignTextBytes);
    QString head = text.size() > units ? text.left(units) : text;
    if (!head.isEmpty() && head.back().isHighSurrogate()) head.chop(1);
    const QByteArray utf8 = head.toUtf8();
    if (static_cast<std::size_t>(utf8.size()) <= maxForeignTextBytes) return head;
    const std::string cut = boundedUtf8(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
    return QString::fromUtf8(cut.data(), static_cast<qsizetype>(cut.size()));
}

}  // namespace lorvane::mpris
