#pragma once
// Receives the players' PropertiesChanged signals on a thread of its own, where QtDBus turns them into
// Qt values, and hands the main thread only the few properties the registry reads, each already cut
// to a bounded length. A player that sends huge texts then costs that thread, not the one that
// answers the desktop's menu calls.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QThread>
#include <QVariantMap>
#include <functional>

namespace lorvane {

// The part that lives on the relay's thread.
class MprisSignalReceiver final : public QObject {
    Q_OBJECT
public:
    using Deliver = std::function<void(const QString& sender, const QString& interface, const QVariantMap& properties)>;
    MprisSignalReceiver(QObject* context, Deliver deliver) : context_(context), deliver_(std::move(deliver)) {}

    // The properties of `interface` the registry reads, texts bounded; a value of another type is
    // left out, as it reads as absent either way.
    static QVariantMap keptProperties(const QString& interface, const QVariantMap& changed);

public slots:
    void handle(const QDBusMessage& message);

private:
    QObject* context_;
    Deliver deliver_;
};

class MprisSignalRelay {
public:
    // `deliver` runs on `context`'s thread, in the order the signals arrived, and not after `context`
    // is gone.
    MprisSignalRelay(const QDBusConnection& bus, QObject* context, MprisSignalReceiver::Deliver deliver);
    ~MprisSignalRelay();
    MprisSignalRelay(const MprisSignalRelay&) = delete;
    MprisSignalRelay& operator=(const MprisSignalRelay&) = delete;

private:
    QDBusConnection bus_;
    QThread thread_;
    MprisSignalReceiver* receiver_;
};

}  // namespace lorvane
