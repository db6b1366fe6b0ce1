#pragma once
// The tray icon and its menu, built from the menu layout. A refresh touches an item only when its
// value differs, so a desktop's tray host (which mirrors the menu over D-Bus) is not flooded.

#include <QObject>
#include <QPointer>
#include <array>
#include <map>
#include <memory>

#include "core/app/AppServices.h"

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace lorvane {

class TrayMenu final : public QObject, public StatusMenuPresenting {
    Q_OBJECT
public:
    explicit TrayMenu(MenuCommandHandler handler, QObject* parent = nullptr);
    ~TrayMenu() override;

    void apply(const MenuState& state) override;

    QMenu* menu() const { return menu_.get(); }
    QSystemTrayIcon* trayIcon() const { return trayIcon_; }
    // The item kept for a key, or null once it is gone.
    QAction* action(MenuItemKey key) const;
    QAction* colorAction(WaveColor color) const;
    // How many item properties the refreshes have changed so far.
    int appliedChanges() const { return appliedChanges_; }

private:
    void build(QMenu* into, const std::vector<MenuEntry>& entries);
    void setText(MenuItemKey key, const std::string& text);
    void setChecked(QAction* action, bool checked);
    void setChecked(MenuItemKey key, bool checked) { setChecked(action(key), checked); }
    void setEnabled(MenuItemKey key, bool enabled);
    void setVisible(MenuItemKey key, bool visible);

    MenuCommandHandler handler_;
    std::unique_ptr<QMenu> menu_;
    QSystemTrayIcon* trayIcon_ = nullptr;
    std::array<QPointer<QAction>, caseCount<MenuItemKey>()> items_;
    std::map<WaveColor, QPointer<QAction>> colorItems_;
    int appliedChanges_ = 0;
};

}  // namespace lorvane
