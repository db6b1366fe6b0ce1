#include "platform/linux/MprisSignalRelay.h"

#include <QStringList>
#include <vector>

#include "platform/linux/MprisBus.h"

namespace lorvane {

namespace {

struct PropertyRead {
    QString name;
    bool text;  // else a double
};

const std::vector<PropertyRead>& propertiesRead(const QString& interface) {
    static const std::vector<PropertyRead> root{{QStringLiteral("Identity"), true},
                                                {QStringLiteral("DesktopEntry"), true}};
    static const std::vector<PropertyRead> player{{QStringLiteral("PlaybackStatus"), true},
                                                  {QStringLiteral("Volume"), false}};
    return interface == mpris::rootInterface ? root : player;
}

}  // namespace

QVariantMap MprisSignalReceiver::keptProperties(const QString& interface, const QVariantMap& changed) {
    QVariantMap kept;
    for (const PropertyRead& read : propertiesRead(interface)) {
        if (read.text) {
            if (const auto text = mpris::stringProperty(changed, read.name)) kept.insert(read.name, *text);
        } else if (const auto number = mpris::doubleProperty(changed, read.name)) {
            kept.insert(read.name, *number);
        }
    }
    return kept;
}

void MprisSignalReceiver::handle(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || arguments.at(0).metaType() != QMetaType::fromType<QString>()) return;
    const QString interface = arguments.at(0).toString();
    if (interface != mpris::playerInterface && interface != mpris::rootInterface) return;
    const auto changed = mpris::asPropertyMap(arguments.at(1));
    if (!changed) return;
    QVariantMap kept = keptProperties(interface, *changed);
    if (kept.isEmpty()) return;
    QMetaObject::invokeMethod(
        context_,
        [deliver = deliver_, sender = message.service(), interface, kept = std::move(kept)] {
            deliver(sender, interface, kept);
        },
        Qt::QueuedConnection);
}

MprisSignalRelay::MprisSignalRelay(const QDBusConnection& bus, QObject* context, MprisSignalReceiver::Deliver deliver)
    : bus_(bus), receiver_(new MprisSignalReceiver(context, std::move(deliver))) {
    thread_.setObjectName(QStringLiteral("lorvane-mpris"));
    receiver_->moveToThread(&thread_);
    thread_.start();
    // QtDBus delivers to the thread the receiver lives in.
    bus_.connect(QString(), mpris::objectPath, mpris::propertiesInterface, QStringLiteral("PropertiesChanged"),
                 receiver_, SLOT(handle(QDBusMessage)));
}

MprisSignalRelay::~MprisSignalRelay() {
    bus_.disconnect(QString(), mpris::objectPath, mpris::propertiesInterface, QStringLiteral("PropertiesChanged"),
                    receiver_, SLOT(handle(QDBusMessage)));
    thread_.quit();
    thread_.wait();
    delete receiver_;
}

}  // namespace lorvane
