#include "ui/shell/TrayMenu.h"

#include <QAction>
#include <QCursor>
#include <QKeySequence>
#include <QMenu>
#include <QSystemTrayIcon>

#include "ui/shell/WaveformIcon.h"

namespace lorvane {

namespace {

QString qText(const std::string& text) { return QString::fromStdString(text); }

// Items that carry a check mark.
bool isCheckable(const MenuEntry& entry) { return entry.toggle != MenuEntry::Toggle::none; }

}  // namespace

TrayMenu::TrayMenu(MenuCommandHandler handler, QObject* parent)
    : QObject(parent), handler_(std::move(handler)), menu_(std::make_unique<QMenu>()) {
    build(menu_.get(), statusMenuLayout());

    trayIcon_ = new QSystemTrayIcon(this);
    trayIcon_->setIcon(waveformTrayIcon());
    trayIcon_->setToolTip(QStringLiteral("Lorvane"));
    trayIcon_->setContextMenu(menu_.get());
    // A plain click opens the same menu, as a status item does.
    connect(trayIcon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && menu_ && !menu_->isVisible()) menu_->popup(QCursor::pos());
    });
    trayIcon_->show();
}

TrayMenu::~TrayMenu() {
    // The icon must let go of the menu before the menu goes.
    if (trayIcon_) trayIcon_->setContextMenu(nullptr);
}

void TrayMenu::build(QMenu* into, const std::vector<MenuEntry>& entries) {
    for (const MenuEntry& entry : entries) {
        if (entry.isSeparator()) {
            into->addSeparator();
            continue;
        }
        QAction* action = nullptr;
        if (entry.kind == MenuEntry::Kind::submenu) {
            QMenu* submenu = into->addMenu(qText(entry.title));
            build(submenu, entry.submenu);
            action = submenu->menuAction();
        } else {
            action = into->addAction(qText(entry.title));
            action->setCheckable(isCheckable(entry));
            if (!entry.keyEquivalent.empty()) {
                action->setShortcut(QKeySequence(QStringLiteral("Ctrl+") + qText(entry.keyEquivalent).toUpper()));
            }
            if (entry.color) action->setData(QString::fromUtf8(rawValue(*entry.color).data()));
            if (entry.command) {
                const MenuCommand command = *entry.command;
                connect(action, &QAction::triggered, this, [this, action, command] {
                    std::optional<std::string> represented;
                    const QVariant data = action->data();
                    if (data.typeId() == QMetaType::QString) represented = data.toString().toStdString();
                    if (handler_) handler_(command, represented);
                });
            }
        }
        action->setEnabled(entry.enabled);
        action->setVisible(!entry.hidden);
        if (entry.key) items_[caseIndex(*entry.key)] = action;
        if (entry.color) colorItems_[*entry.color] = action;
    }
}

QAction* TrayMenu::action(MenuItemKey key) const { return items_[caseIndex(key)]; }

QAction* TrayMenu::colorAction(WaveColor color) const {
    const auto found = colorItems_.find(color);
    return found == colorItems_.end() ? nullptr : found->second.data();
}

void TrayMenu::setText(MenuItemKey key, const std::string& text) {
    QAction* item = action(key);
    if (!item) return;
    const QString value = qText(text);
    if (item->text() == value) return;
    item->setText(value);
    ++appliedChanges_;
}

void TrayMenu::setChecked(QAction* item, bool checked) {
    if (!item || item->isChecked() == checked) return;
    item->setChecked(checked);
    ++appliedChanges_;
}

void TrayMenu::setEnabled(MenuItemKey key, bool enabled) {
    QAction* item = action(key);
    if (!item || item->isEnabled() == enabled) return;
    item->setEnabled(enabled);
    ++appliedChanges_;
}

void TrayMenu::setVisible(MenuItemKey key, bool visible) {
    QAction* item = action(key);
    if (!item || item->isVisible() == visible) return;
    item->setVisible(visible);
    ++appliedChanges_;
}

void TrayMenu::apply(const MenuState& state) {
    using K = MenuItemKey;
    setText(K::playbackStatus, state.playbackStatusTitle);
    setText(K::audioStatus, state.audioStatusTitle);
    setVisible(K::audioPermission, !state.audioPermissionHidden);
    setEnabled(K::retryAudio, state.retryAudioEnabled);
    setChecked(K::overlayEnabled, state.overlayEnabledChecked);
    setChecked(K::autoShow, state.autoShowChecked);
    setChecked(K::avoidCovering, state.avoidCoveringChecked);
    setChecked(K::audioResponsive, state.audioResponsiveChecked);
    setChecked(K::compactMode, state.compactModeChecked);
    setChecked(K::fullscreenMode, state.fullscreenModeChecked);
    setEnabled(K::position, state.positionEnabled);
    setChecked(K::topPosition, state.topPositionChecked);
    setChecked(K::centerPosition, state.centerPositionChecked);
    setChecked(K::bottomPosition, state.bottomPositionChecked);
    for (const auto& [color, item] : colorItems_) setChecked(item, state.colorChecked[caseIndex(color)]);
    setChecked(K::launchAtLogin, state.launchAtLoginChecked);
}

}  // namespace lorvane
