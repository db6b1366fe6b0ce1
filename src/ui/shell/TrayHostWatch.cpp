#include "ui/shell/TrayHostWatch.h"

#include <xcb/xcb.h>

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <cstdlib>
#include <memory>
#include <string>

#include "core/Logging.h"

namespace lorvane {

namespace {
const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString watcherInterface = QStringLiteral("org.kde.StatusNotifierWatcher");
}  // namespace

TrayHostWatch::TrayHostWatch(QDBusConnection bus, QObject* parent)
    : QObject(parent),
      bus_(bus),
      watcher_(watcherService, bus, QDBusServiceWatcher::WatchForOwnerChange) {
    // A new owner is a (re)started watcher: ask it afresh. No owner: no host.
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) {
                if (newOwner.isEmpty()) {
                    watcherLeft();
                } else {
                    ask();
                }
            });
    bus_.connect(watcherService, watcherPath, watcherInterface, QStringLiteral("StatusNotifierHostRegistered"), this,
                 SLOT(ask()));
    bus_.connect(watcherService, watcherPath, watcherInterface, QStringLiteral("StatusNotifierHostUnregistered"), this,
                 SLOT(ask()));
    ask();
}

void TrayHostWatch::ask() {
    const std::uint64_t question = ++question_;
    if (!bus_.isConnected()) return answered(question, false);
    QDBusMessage call = QDBusMessage::createMethodCall(watcherService, watcherPath,
                                                      QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    call << watcherInterface << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(call, 5000), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this, question](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *call;
        // No watcher, a watcher that does not answer, or a wrong type: no host.
        const bool registered = !reply.isError() && reply.value().variant().toBool();
        answered(question, registered);
    });
}

void TrayHostWatch::watcherLeft() { answered(++question_, false); }

void TrayHostWatch::answered(std::uint64_t question, bool registered) {
    if (question != question_) return;
    if (hostRegistered_ == registered) return;
    hostRegistered_ = registered;
    qCDebug(lcTray) << "tray host" << (registered ? "present" : "absent");
    emit hostChanged(registered);
}

bool xembedTrayExists() {
    if (QGuiApplication::platformName() != QStringLiteral("xcb")) return false;
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection) return false;
    const std::string name = "_NET_SYSTEM_TRAY_S0";
    const xcb_intern_atom_cookie_t atomCookie =
        xcb_intern_atom(connection, 1, static_cast<std::uint16_t>(name.size()), name.c_str());
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(connection, atomCookie, nullptr), &std::free);
    // Asked "only if it exists": no atom means no tray ever ran on this display.
    if (!atom || atom->atom == XCB_ATOM_NONE) return false;
    std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr),
        &std::free);
    return owner && owner->owner != XCB_WINDOW_NONE;
}

}  // namespace lorvane
