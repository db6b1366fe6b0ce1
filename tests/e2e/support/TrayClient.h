#pragma once
// Reads and clicks a tray menu exported over D-Bus (StatusNotifierItem + com.canonical.dbusmenu), as
// a desktop's tray host would. The items are found through the test StatusNotifier watcher.

#include <QDBusConnection>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>
#include <vector>

namespace lorvane::test {

struct MenuNode {
    int id = 0;
    QVariantMap properties;
    std::vector<MenuNode> children;

    QString label() const { return properties.value(QStringLiteral("label")).toString(); }
    bool isSeparator() const { return properties.value(QStringLiteral("type")).toString() == QStringLiteral("separator"); }
    bool enabled() const { return properties.value(QStringLiteral("enabled"), true).toBool(); }
    bool visible() const { return properties.value(QStringLiteral("visible"), true).toBool(); }
    bool checkable() const { return properties.contains(QStringLiteral("toggle-type")); }
    bool checked() const { return properties.value(QStringLiteral("toggle-state")).toInt() == 1; }
    // The first item with this label, here or below; null when there is none.
    const MenuNode* find(const QString& label) const;
    // The first item whose label starts with `prefix`.
    const MenuNode* findPrefix(const QString& prefix) const;
    // The labels of the direct children ("---" for separators).
    QStringList childLabels() const;
};

class TrayClient {
public:
    explicit TrayClient(QDBusConnection bus) : bus_(std::move(bus)) {}

    // The items registered with the watcher ("service" or "service/path").
    QStringList registeredItems() const;
    // The bus name of the first registered item.
    std::optional<QString> itemService() const;
    // A property of the item (org.kde.StatusNotifierItem), read afresh.
    QVariant itemProperty(const QString& name) const;
    // The title of the item's tool tip.
    QString toolTipTitle() const;
    // The whole menu, read afresh; nothing when the item or its menu does not answer.
    std::optional<MenuNode> layout() const;
    // Sends a click to an item, as a tray host does when the user chooses it.
    bool click(int id) const;
    // Asks the host-side "about to show" of a submenu (some toolkits fill menus lazily); 0 is the
    // whole menu, as a tray host sends before it shows it.
    void aboutToShow(int id) const;
    // Tells the item that the host closed a menu (dbusmenu's "closed" event).
    bool closed(int id) const;

private:
    QString menuPath() const;
    bool event(int id, const QString& eventId) const;
    QDBusConnection bus_;
};

}  // namespace lorvane::test
