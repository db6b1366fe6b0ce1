#include "ui/shell/TrayMenu.h"

#include <QAction>
#include <QActionGroup>
#include <QCursor>
#include <QDBusConnection>
#include <QLinearGradient>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>

#include "core/Logging.h"
#include "platform/x11/X11Desktop.h"
#include "ui/shell/TrayHostWatch.h"
#include "ui/shell/WaveformIcon.h"

namespace lorvane {

namespace {

QString qText(const std::string& text) { return QString::fromStdString(text); }

// A colour's swatch as a menu icon: its colours left to right in a rounded square, outlined so that
// black and white stay visible on any menu background.
QIcon swatchIcon(WaveColor color) {
    QIcon icon;
    for (int size : {16, 22, 32}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF square = QRectF(0, 0, size, size).adjusted(1, 1, -1, -1);
        QLinearGradient gradient(square.topLeft(), square.topRight());
        const auto stops = colors(color);
        for (std::size_t i = 0; i < stops.size(); ++i) {
            const double at = stops.size() == 1 ? 0.0 : static_cast<double>(i) / static_cast<double>(stops.size() - 1);
            gradient.setColorAt(at, QColor::fromRgbF(static_cast<float>(stops[i].red), static_cast<float>(stops[i].green),
                                                     static_cast<float>(stops[i].blue)));
        }
        QPainterPath shape;
        shape.addRoundedRect(square, size / 6.0, size / 6.0);
        painter.fillPath(shape, gradient);
        painter.setPen(QPen(QColor(128, 128, 128, 200), 1));
        painter.drawPath(shape);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

}  // namespace

TrayMenu::TrayMenu(MenuCommandHandler handler, QObject* parent)
    : QObject(parent), handler_(std::move(handler)), menu_(std::make_unique<QMenu>()) {
    build(menu_.get(), statusMenuLayout());

    // A tray host announces that it is about to show the menu (dbusmenu's AboutToShow) and that it
    // closed it; a menu popped up here does the same.
    connect(menu_.get(), &QMenu::aboutToShow, this, [this] { menuVisibilityChanged(true); });
    connect(menu_.get(), &QMenu::aboutToHide, this, [this] { menuVisibilityChanged(false); });
    openMenuBound_.setSingleShot(true);
    openMenuBound_.setInterval(openMenuBoundMs);
    connect(&openMenuBound_, &QTimer::timeout, this, [this] { menuVisibilityChanged(false); });

    // An older X11 tray shows the icon at once; otherwise wait for a StatusNotifier host.
    if (x11::xembedTrayRunning()) makeTrayIcon();
    hostWatch_ = new TrayHostWatch(QDBusConnection::sessionBus(), this);
    connect(hostWatch_, &TrayHostWatch::hostChanged, this, [this](bool registered) {
        if (registered) makeTrayIcon();
        trayHostChanged();
    });
}

TrayMenu::~TrayMenu() {
    // The icon must let go of the menu before the menu goes.
    if (trayIcon_) trayIcon_->setContextMenu(nullptr);
}

void TrayMenu::makeTrayIcon() {
    // Once made, Qt registers the icon again by itself whenever the watcher restarts.
    if (trayIcon_) return;
    trayIcon_ = new QSystemTrayIcon(this);
    trayIcon_->setIcon(waveformTrayIcon());
    trayIcon_->setToolTip(toolTip_);
    trayIcon_->setContextMenu(menu_.get());
    // A plain click opens the same menu, as a status item does.
    connect(trayIcon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && menu_ && !menu_->isVisible()) menu_->popup(QCursor::pos());
    });
    trayIcon_->show();
    qCDebug(lcTray) << "tray icon shown";
}

void TrayMenu::trayHostChanged(bool announceAlways) {
    const bool available = (hostWatch_ && hostWatch_->hostRegistered().value_or(false)) || x11::xembedTrayRunning();
    if (available == hasTrayHost_ && !announceAlways) return;
    hasTrayHost_ = available;
    if (!available) qCWarning(lcTray) << "no tray host: the desktop shows no tray icons";
    if (events_.trayHostChanged) events_.trayHostChanged(available);
}

void TrayMenu::setEvents(StatusMenuEvents events) {
    events_ = std::move(events);
    // Tell what is known already; an unanswered question is answered later.
    if (hostWatch_ && hostWatch_->hostRegistered()) trayHostChanged(true);
}

void TrayMenu::menuVisibilityChanged(bool open) {
    if (open) {
        openMenuBound_.start();
    } else {
        openMenuBound_.stop();
    }
    if (open == menuOpen_ && !open) return;
    menuOpen_ = open;
    if (events_.menuVisibilityChanged) events_.menuVisibilityChanged(open);
}

void TrayMenu::build(QMenu* into, const std::vector<MenuEntry>& entries) {
    QActionGroup* radioGroup = nullptr;
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
            action->setCheckable(entry.toggle != MenuEntry::Toggle::none);
            // The choices of one submenu form one exclusive group: radio items over dbusmenu.
            if (entry.toggle == MenuEntry::Toggle::radio) {
                if (!radioGroup) {
                    radioGroup = new QActionGroup(into);
                    radioGroup->setExclusionPolicy(QActionGroup::ExclusionPolicy::Exclusive);
                }
                radioGroup->addAction(action);
            }
            if (entry.color) {
                action->setData(QString::fromUtf8(rawValue(*entry.color).data()));
                action->setIcon(swatchIcon(*entry.color));
                action->setIconVisibleInMenu(true);
            }
            if (entry.command) {
                const MenuCommand command = *entry.command;
                connect(action, &QAction::triggered, this, [this, action, command] {
                    std::optional<std::string> represented;
                    const QVariant data = action->data();
                    if (data.typeId() == QMetaType::QString) represented = data.toString().toStdString();
                    const QPointer<TrayMenu> self(this);
                    if (handler_) handler_(command, represented);
                    // A click toggles the check by itself; show what the controller decided instead.
                    if (self && shown_) apply(*shown_);
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
    shown_ = state;
    setText(K::playbackStatus, state.playbackStatusTitle);
    setText(K::audioStatus, state.audioStatusTitle);
    setVisible(K::audioPermission, !state.audioPermissionHidden);
    setEnabled(K::retryAudio, state.retryAudioEnabled);
    setChecked(K::overlayEnabled, state.overlayEnabledChecked);
    setChecked(K::autoShow, state.autoShowChecked);
    setChecked(K::avoidCovering, state.avoidCoveringChecked);
    setChecked(K::audioResponsive, state.audioResponsiveChecked);
    // In an exclusive group, checking the new choice unchecks the old one.
    setChecked(K::compactMode, state.compactModeChecked);
    setChecked(K::fullscreenMode, state.fullscreenModeChecked);
    setEnabled(K::position, state.positionEnabled);
    setChecked(K::topPosition, state.topPositionChecked);
    setChecked(K::centerPosition, state.centerPositionChecked);
    setChecked(K::bottomPosition, state.bottomPositionChecked);
    for (const auto& [color, item] : colorItems_) {
        if (state.colorChecked[caseIndex(color)]) setChecked(item, true);
    }
    setChecked(K::launchAtLogin, state.launchAtLoginChecked);
    const QString toolTip = qText(state.toolTip);
    if (!toolTip.isEmpty() && toolTip != toolTip_) {
        toolTip_ = toolTip;
        if (trayIcon_) trayIcon_->setToolTip(toolTip_);
        ++appliedChanges_;
    }
}

}  // namespace lorvane
