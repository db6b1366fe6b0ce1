#include "TrayClient.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

namespace lorvane::test {

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");
constexpr int callBound = 5000;

MenuNode readNode(const QDBusArgument& argument) {
    MenuNode node;
    argument.beginStructure();
    argument >> node.id >> node.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        node.children.push_back(readNode(child.variant().value<QDBusArgument>()));
    }
    argument.endArray();
    argument.endStructure();
    return node;
}

QVariant unwrap(const QVariant& value) {
    if (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>()) {
        return value.value<QDBusVariant>().variant();
    }
    return value;
}

}  // namespace

const MenuNode* MenuNode::find(const QString& wanted) const {
    for (const MenuNode& child : children) {
        if (child.label() == wanted) return &child;
        if (const MenuNode* below = child.find(wanted)) return below;
    }
    return nullptr;
}

const MenuNode* MenuNode::findPrefix(const QString& prefix) const {
    for (const MenuNode& child : children) {
        if (child.label().startsWith(prefix)) return &child;
        if (const MenuNode* below = child.findPrefix(prefix)) return below;
    }
    return nullptr;
}

QStringList MenuNode::childLabels() const {
    QStringList labels;
    for (const MenuNode& child : children) labels << (child.isSeparator() ? QStringLiteral("---") : child.label());
    return labels;
}

QStringList TrayClient::registeredItems() const {
    QDBusMessage call = QDBusMessage::createMethodCall(watcherService, watcherPath, propertiesInterface,
                                                      QStringLiteral("Get"));
    call << watcherService << QStringLiteral("RegisteredStatusNotifierItems");
    const QDBusMessage reply = bus_.call(call, QDBus::Block, callBound);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return unwrap(reply.arguments().first()).toStringList();
}

std::optional<QString> TrayClient::itemService() const {
    const QStringList items = registeredItems();
    if (items.isEmpty()) return std::nullopt;
    return items.first().section(QLatin1Char('/'), 0, 0);
}

QVariant TrayClient::itemProperty(const QString& name) const {
    const auto service = itemService();
    if (!service) return {};
    QDBusMessage call = QDBusMessage::createMethodCall(*service, QStringLiteral("/StatusNotifierItem"),
                                                      propertiesInterface, QStringLiteral("Get"));
    call << itemInterface << name;
    const QDBusMessage reply = bus_.call(call, QDBus::Block, callBound);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return unwrap(reply.arguments().first());
}

QString TrayClient::toolTipTitle() const {
    const QVariant value = itemProperty(QStringLiteral("ToolTip"));
    if (value.userType() != qMetaTypeId<QDBusArgument>()) return {};
    // (icon name, icon pixmaps a(iiay), title, description)
    const QDBusArgument argument = value.value<QDBusArgument>();
    QString iconName, title, description;
    argument.beginStructure();
    argument >> iconName;
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0, height = 0;
        QByteArray bytes;
        argument.beginStructure();
        argument >> width >> height >> bytes;
        argument.endStructure();
    }
    argument.endArray();
    argument >> title >> description;
    argument.endStructure();
    return title;
}

QString TrayClient::menuPath() const {
    const QVariant menu = itemProperty(QStringLiteral("Menu"));
    if (menu.userType() == qMetaTypeId<QDBusObjectPath>()) return menu.value<QDBusObjectPath>().path();
    return menu.toString();
}

std::optional<MenuNode> TrayClient::layout() const {
    const auto service = itemService();
    const QString path = menuPath();
    if (!service || path.isEmpty()) return std::nullopt;
    QDBusMessage call = QDBusMessage::createMethodCall(*service, path, menuInterface, QStringLiteral("GetLayout"));
    call << 0 << -1 << QStringList();
    const QDBusMessage reply = bus_.call(call, QDBus::Block, callBound);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) return std::nullopt;
    return readNode(reply.arguments().at(1).value<QDBusArgument>());
}

bool TrayClient::event(int id, const QString& eventId) const {
    const auto service = itemService();
    const QString path = menuPath();
    if (!service || path.isEmpty()) return false;
    QDBusMessage call = QDBusMessage::createMethodCall(*service, path, menuInterface, QStringLiteral("Event"));
    call << id << eventId << QVariant::fromValue(QDBusVariant(0)) << 0u;
    return bus_.call(call, QDBus::Block, callBound).type() == QDBusMessage::ReplyMessage;
}

bool TrayClient::click(int id) const { return event(id, QStringLiteral("clicked")); }

bool TrayClient::closed(int id) const { return event(id, QStringLiteral("closed")); }

void TrayClient::aboutToShow(int id) const {
    const auto service = itemService();
    const QString path = menuPath();
    if (!service || path.isEmpty()) return;
    QDBusMessage call = QDBusMessage::createMethodCall(*service, path, menuInterface, QStringLiteral("AboutToShow"));
    call << id;
    bus_.call(call, QDBus::Block, callBound);
}

}  // namespace lorvane::test
