#pragma once
// Helpers for tests that need Qt's event loop and a D-Bus connection of their own.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QEventLoop>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <chrono>
#include <functional>
#include <string>

namespace lorvane::test {

// One QCoreApplication for the whole test program, made on first use (on the main thread).
inline void ensureApplication() {
    if (QCoreApplication::instance()) return;
    static int argc = 1;
    static char name[] = "playback_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

// Runs the event loop until `done` or the bound passes; true when `done` became true.
inline bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return done();
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

// A named connection to the bus at `address`, closed when this goes.
class BusConnection {
public:
    explicit BusConnection(const std::string& address)
        : name_(QStringLiteral("lorvane-test-") + QUuid::createUuid().toString(QUuid::WithoutBraces)),
          connection_(QDBusConnection::connectToBus(QString::fromStdString(address), name_)) {}
    ~BusConnection() { QDBusConnection::disconnectFromBus(name_); }
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    const QDBusConnection& connection() const { return connection_; }

private:
    QString name_;
    QDBusConnection connection_;
};

}  // namespace lorvane::test
