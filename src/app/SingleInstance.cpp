#include "app/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace lorvane {

SingleInstance::SingleInstance(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {}

SingleInstance::~SingleInstance() {
    if (!bus_.isConnected()) return;
    bus_.unregisterObject(QString::fromLatin1(objectPath));
    if (ownsName_) bus_.unregisterService(QString::fromLatin1(serviceName));
}

SingleInstance::Outcome SingleInstance::claim() {
    if (!bus_.isConnected()) return Outcome::noBus;
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
        const QDBusMessage call =
            QDBusMessage::createMethodCall(service, path, QString::fromLatin1(interfaceName), QStringLiteral("Reopen"));
        // The event loop keeps turning while waiting, so an instance in this very process can answer.
        const QDBusMessage reply = bus_.call(call, QDBus::BlockWithGui, 5000);
        if (reply.type() == QDBusMessage::ReplyMessage) {
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

void SingleInstance::Reopen() {
    if (reopenRequested) reopenRequested();
}

}  // namespace lorvane
