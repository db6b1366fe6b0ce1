#include "app/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QTimer>

#include "core/Logging.h"

namespace lorvane {

SingleInstance::SingleInstance(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {}

SingleInstance::~SingleInstance() {
    if (!bus_.isConnected()) return;
    bus_.unregisterObject(QString::fromLatin1(objectPath));
    if (ownsName_) bus_.unregisterService(QString::fromLatin1(serviceName));
}

bool SingleInstance::callOwner(const QString& method) {
    const bool ping = method.isEmpty();
    const QDBusMessage call =
        ping ? QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), QString::fromLatin1(objectPath),
                                              QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping"))
             : QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), QString::fromLatin1(objectPath),
                                              QString::fromLatin1(interfaceName), method);
    // The event loop keeps turning while waiting, so an instance in this very process can answer.
    const QDBusMessage reply = bus_.call(call, QDBus::BlockWithGui, callTimeout_);
    return reply.type() == QDBusMessage::ReplyMessage;
}

SingleInstance::Outcome SingleInstance::claim(bool quietly) {
    if (!bus_.isConnected()) {
        qCWarning(lcTray) << "No D-Bus session bus: running without the single-instance guard, the tray icon and"
                             " music player detection.";
        return Outcome::noBus;
    }
    const QString service = QString::fromLatin1(serviceName);
    const QString path = QString::fromLatin1(objectPath);
    // The object is in place before the name, so whoever finds the name can call at once.
    bus_.registerObject(path, this, QDBusConnection::ExportScriptableSlots);
    // The owner may quit between our failed claim and our call: then claim again.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (bus_.registerService(service)) {
            ownsName_ = true;
            return Outcome::primary;
        }
        if (callOwner(quietly ? QString() : instanceMethod(InstanceAction::none))) {
            bus_.unregisterObject(path);
            return Outcome::handedOver;
        }
        if (bus_.interface() && bus_.interface()->isServiceRegistered(service).value()) {
            bus_.unregisterObject(path);
            return Outcome::unreachable;
        }
    }
    bus_.unregisterObject(path);
    return Outcome::unreachable;
}

SingleInstance::Outcome SingleInstance::send(InstanceAction action) {
    if (!bus_.isConnected()) return Outcome::noBus;
    const QString service = QString::fromLatin1(serviceName);
    if (!bus_.interface() || !bus_.interface()->isServiceRegistered(service).value()) return Outcome::notRunning;
    if (callOwner(instanceMethod(action))) return Outcome::handedOver;
    if (!bus_.interface()->isServiceRegistered(service).value()) return Outcome::notRunning;
    return Outcome::unreachable;
}

QString SingleInstance::unreachableExplanation() const {
    const QString service = QString::fromLatin1(serviceName);
    QString owner;
    if (bus_.isConnected() && bus_.interface()) {
        const QDBusReply<uint> pid = bus_.interface()->servicePid(service);
        if (pid.isValid()) {
            const QString exe = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid.value()));
            owner = exe.isEmpty() ? QStringLiteral("process %1").arg(pid.value())
                                  : QStringLiteral("process %1 (%2)").arg(QString::number(pid.value()), exe);
            return QStringLiteral(
                       "Lorvane is already running but does not answer: the session bus name %1 is owned by %2.\n"
                       "End that process (kill %3, or kill -9 %3 if it does not end) and start Lorvane again.\n")
                .arg(service, owner, QString::number(pid.value()));
        }
    }
    return QStringLiteral(
               "Lorvane is already running but does not answer: another program owns the session bus name %1.\n"
               "End the other Lorvane (or the program holding that name) and start Lorvane again.\n")
        .arg(service);
}

void SingleInstance::Reopen() {
    if (reopenRequested) reopenRequested();
}

void SingleInstance::ShowSettings() {
    if (showSettingsRequested) showSettingsRequested();
}

void SingleInstance::ToggleWave() {
    if (toggleWaveRequested) toggleWaveRequested();
}

void SingleInstance::Quit() {
    // After the reply has gone out, so the caller hears that the request arrived.
    if (quitRequested) QTimer::singleShot(0, this, [this] { if (quitRequested) quitRequested(); });
}

}  // namespace lorvane
