// lorvane-test-sni-watcher: a minimal StatusNotifierWatcher for tests, so that a Qt program on the
// same session bus exports its tray icon and menu over D-Bus, where a test can read and click them.
//
// Qt exports its tray this way only when, at its start, the watcher already owns
// org.kde.StatusNotifierWatcher, answers IsStatusNotifierHostRegistered with true, and lists its
// properties in its introspection data; this watcher does all three (a host is announced at once).
//
// It uses DBUS_SESSION_BUS_ADDRESS. Once the name is owned it prints "ready"; every registration
// prints "registered <item>" and every item whose owner left the bus "unregistered <item>".

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QStringList>
#include <cstdio>

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

}  // namespace

class Watcher final : public QObject {
    Q_OBJECT
public:
    explicit Watcher(QDBusConnection bus) : bus_(bus), owners_(QString(), bus, QDBusServiceWatcher::WatchForUnregistration) {
        connect(&owners_, &QDBusServiceWatcher::serviceUnregistered, this, &Watcher::ownerLeft);
    }

    QStringList items() const { return items_; }

    void addItem(const QString& requested, const QString& sender) {
        // An item may give its bus name or only its object path (then the sender is the service).
        const QString service = requested.startsWith(QLatin1Char('/')) ? sender : requested;
        const QString item = requested.startsWith(QLatin1Char('/')) ? sender + requested : requested;
        if (items_.contains(item)) return;
        items_ << item;
        owners_.addWatchedService(service);
        say(QStringLiteral("registered ") + item);
        emit itemRegistered(item);
    }

signals:
    void itemRegistered(const QString& item);
    void itemUnregistered(const QString& item);

private:
    void ownerLeft(const QString& service) {
        for (const QString& item : QStringList(items_)) {
            if (item == service || item.startsWith(service + QLatin1Char('/'))) {
                items_.removeAll(item);
                say(QStringLiteral("unregistered ") + item);
                emit itemUnregistered(item);
            }
        }
        owners_.removeWatchedService(service);
    }

    QDBusConnection bus_;
    QDBusServiceWatcher owners_;
    QStringList items_;
};

class WatcherAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registeredStatusNotifierItems)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isStatusNotifierHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
public:
    explicit WatcherAdaptor(Watcher* watcher) : QDBusAbstractAdaptor(watcher), watcher_(watcher) {
        setAutoRelaySignals(false);
        connect(watcher, &Watcher::itemRegistered, this, &WatcherAdaptor::StatusNotifierItemRegistered);
        connect(watcher, &Watcher::itemUnregistered, this, &WatcherAdaptor::StatusNotifierItemUnregistered);
    }

    QStringList registeredStatusNotifierItems() const { return watcher_->items(); }
    bool isStatusNotifierHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }

public slots:
    void RegisterStatusNotifierItem(const QString& service, const QDBusMessage& message) {
        watcher_->addItem(service, message.service());
    }
    void RegisterStatusNotifierHost(const QString&) { emit StatusNotifierHostRegistered(); }

signals:
    void StatusNotifierItemRegistered(const QString& item);
    void StatusNotifierItemUnregistered(const QString& item);
    void StatusNotifierHostRegistered();

private:
    Watcher* watcher_;
};

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fputs("error: no session bus\n", stderr);
        return 1;
    }
    Watcher watcher(bus);
    new WatcherAdaptor(&watcher);
    if (!bus.registerObject(watcherPath, &watcher, QDBusConnection::ExportAdaptors) ||
        !bus.registerService(watcherService)) {
        std::fputs("error: cannot own org.kde.StatusNotifierWatcher\n", stderr);
        return 1;
    }
    say(QStringLiteral("ready"));
    return app.exec();
}

#include "main.moc"
