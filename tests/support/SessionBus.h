#pragma once
// A private D-Bus session bus for one test: its own dbus-daemon listening on a socket in a fresh
// temporary directory, with a configuration that lets every client own and call anything.
//
//   lorvane::test::SessionBus bus;           // starts the daemon (check isRunning())
//   bus.address();                           // "unix:path=/tmp/lorvane-bus-XXXXXX/socket,guid=..."
//   bus.exportAddress();                     // DBUS_SESSION_BUS_ADDRESS of this process and its children
//
// The destructor stops the daemon, waits for it, removes the directory and restores
// DBUS_SESSION_BUS_ADDRESS. The daemon is also killed by the kernel if the test process dies first
// (it gets SIGKILL when its parent thread ends), so no bus outlives its test. Connect to the bus
// with a named connection (QDBusConnection::connectToBus(address, name)) or through the exported
// variable in child processes; QDBusConnection::sessionBus() reads the variable only once per process.

#include <sys/types.h>

#include <optional>
#include <string>

namespace lorvane::test {

class SessionBus {
public:
    SessionBus();
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    bool isRunning() const { return daemon_ > 0 && !address_.empty(); }
    // The daemon's address, empty when it could not start; then error() says why.
    const std::string& address() const { return address_; }
    const std::string& error() const { return error_; }
    pid_t daemonProcess() const { return daemon_; }

    // Points DBUS_SESSION_BUS_ADDRESS at this bus until the bus is destroyed.
    void exportAddress();

private:
    void stop();

    std::string directory_;
    std::string address_;
    std::string error_;
    pid_t daemon_ = -1;
    bool exported_ = false;
    std::optional<std::string> previousAddress_;
};

}  // namespace lorvane::test
