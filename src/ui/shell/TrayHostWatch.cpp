#include "ui/shell/TrayHostWatch.h"

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

}  // namespace lorvane
