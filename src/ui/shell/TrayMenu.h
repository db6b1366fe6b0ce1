#pragma once
// The tray icon and its menu, built from the menu layout. A refresh touches an item only when its
// value differs, so a desktop's tray host (which mirrors the menu over D-Bus) is not flooded.
//
// The icon is made only once the desktop has a tray to show it in: Qt decides once, when the first
// icon is made, whether it exports it over D-Bus (StatusNotifierItem), so making it before a panel
// has started would leave it invisible for the whole session.

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <array>
#include <map>
#include <memory>

#include "core/app/AppServices.h"

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace lorvane {

class TrayHostWatch;

class TrayMenu final : public QObject, public StatusMenuPresenting {
    Q_OBJECT
public:
    explicit TrayMenu(MenuCommandHandler handler, QObject* parent = nullptr);
    ~TrayMenu() override;

    void apply(const MenuState& state) override;
    void setEvents(StatusMenuEvents events) override;

    QMenu* menu() const { return menu_.get(); }
    // Null until the desktop has a tray.
    QSystemTrayIcon* trayIcon() const { return trayIcon_; }
    // The icon's one-line tool tip.
    QString toolTip() const { return toolTip_; }
    // Whether the desktop shows tray icons, as far as is known.
    bool hasTrayHost() const { return hasTrayHost_; }
    // The item kept for a key, or null once it is gone.
    QAction* action(MenuItemKey key) const;
    QAction* colorAction(WaveColor color) const;
    // How many item properties the refreshes have changed so far.
    int appliedChanges() const { return appliedChanges_; }

    // A menu left open this long without a word from the tray host counts as closed.
    static constexpr int openMenuBoundMs = 60'000;

private:
    void build(QMenu* into, const std::vector<MenuEntry>& entries);
    void makeTrayIcon();
    void trayHostChanged(bool announceAlways = false);
    void menuVisibilityChanged(bool open);
    void setText(MenuItemKey key, const std::string& text);
    void setChecked(QAction* action, bool checked);
    void setChecked(MenuItemKey key, bool checked) { setChecked(action(key), checked); }
    void setEnabled(MenuItemKey key, bool enabled);
    void setVisible(MenuItemKey key, bool visible);

    MenuCommandHandler handler_;
    StatusMenuEvents events_;
    std::unique_ptr<QMenu> menu_;
    QSystemTrayIcon* trayIcon_ = nullptr;
    TrayHostWatch* hostWatch_ = nullptr;
    bool hasTrayHost_ = true;
    bool menuOpen_ = false;
    QTimer openMenuBound_;
    QString toolTip_ = QStringLiteral("Lorvane");
    std::optional<MenuState> shown_;
    std::array<QPointer<QAction>, caseCount<MenuItemKey>()> items_;
    std::map<WaveColor, QPointer<QAction>> colorItems_;
    int appliedChanges_ = 0;
};

}  // namespace lorvane
