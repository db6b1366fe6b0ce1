#pragma once
// One private desktop with Lorvane running on it, for end-to-end tests: Xvfb with openbox, a private
// session bus with the test StatusNotifier watcher (so the tray is exported over D-Bus), optionally a
// private PulseAudio server, a fresh home folder, and the real program. Everything is stopped by the
// destructor, whatever the outcome, and dies with the test process.

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TrayClient.h"
#include "support/PulseServer.h"
#include "support/SessionBus.h"
#include "support/EventLoopWait.h"
#include "support/XSession.h"

namespace lorvane::test {

// Turns the event loop until `done` holds or the bound passes; answers `done()`.
// Polls every 20 ms: most conditions here ask the program over D-Bus.
inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    return waitUntil(done, bound, std::chrono::milliseconds(20));
}

// A child process that dies with the test process and is ended by the destructor.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool start(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment);
    // Waits for a line of standard output starting with `prefix`; lines read on the way are kept.
    bool waitForLine(const QString& prefix, std::chrono::milliseconds bound);
    QStringList lines() const { return lines_; }
    bool running() const { return process_ && process_->state() != QProcess::NotRunning; }
    qint64 pid() const { return process_ ? process_->processId() : -1; }
    // SIGTERM, then SIGKILL after the bound; answers the exit code (-1 when killed or never started).
    int terminate(std::chrono::milliseconds bound = std::chrono::seconds(10));
    // Waits for the process to end by itself; answers the exit code, or nothing at the bound.
    std::optional<int> waitForExit(std::chrono::milliseconds bound);
    QString output() const;
    // What it has written so far, reading what is waiting first.
    QString readOutput() {
        readAvailable();
        return output();
    }

private:
    void readAvailable();
    std::unique_ptr<QProcess> process_;
    QStringList lines_;
    QString partial_;
    QString errors_;
};

class AppDesktop {
public:
    struct Options {
        bool sound = true;  // a private PulseAudio server
        bool trayWatcher = true;  // a StatusNotifier watcher from the start
        int width = 1920;
        int height = 1080;
    };

    AppDesktop();
    explicit AppDesktop(Options options);
    ~AppDesktop();

    // True when the desktop (X, bus, watcher, sound) is up; otherwise error() says why.
    bool ready() const { return error_.empty(); }
    const std::string& error() const { return error_; }

    XSession& x() { return *x_; }
    SessionBus& bus() { return *bus_; }
    PulseServer* pulse() { return pulse_.get(); }
    QDBusConnection connection() const { return connection_; }
    TrayClient& tray() { return *tray_; }

    // The environment the program and the players see.
    QProcessEnvironment environment() const;
    QString programPath() const;
    QString home() const { return home_.path(); }
    // Lorvane's settings file in the private home.
    QString settingsFile() const;

    // The StatusNotifier watcher (the desktop's tray host), started and stopped as a panel would be.
    bool startTrayWatcher();
    void stopTrayWatcher();
    bool trayWatcherRunning() const { return watcher_ && watcher_->running(); }
    // The unique bus name of the connection a process holds, or nothing.
    std::optional<QString> uniqueNameOf(qint64 pid) const;

    // Starts Lorvane; answers false when it did not start.
    bool launch(ChildProcess& process, const QStringList& arguments = {}) const;
    // Lorvane started by launch(), waited for until its tray item is registered.
    bool launchAndWaitForTray(ChildProcess& process, std::chrono::milliseconds bound = std::chrono::seconds(30),
                              const QStringList& arguments = {}) const;

    // X queries through the session's own tools.
    std::vector<unsigned long> windowsNamed(const std::string& title, bool onlyVisible) const;
    std::vector<unsigned long> windowsOfClass(const std::string& windowClass, bool onlyVisible) const;
    bool isViewable(unsigned long window) const;
    struct Geometry {
        int x = 0, y = 0, width = 0, height = 0;
    };
    std::optional<Geometry> geometry(unsigned long window) const;
    std::string property(unsigned long window, const std::string& name) const;
    // The average colour (0...255) of the bright, saturated pixels of a screen rectangle, read from the
    // X server; nothing when the rectangle cannot be read.
    struct Colour {
        double red = 0, green = 0, blue = 0;
        int pixels = 0;
    };
    std::optional<Colour> vividColour(const Geometry& area) const;

private:
    Options options_;
    std::string error_;
    std::unique_ptr<XSession> x_;
    std::unique_ptr<SessionBus> bus_;
    std::unique_ptr<PulseServer> pulse_;
    QDBusConnection connection_{QString()};
    std::unique_ptr<TrayClient> tray_;
    QTemporaryDir home_;
    std::unique_ptr<ChildProcess> watcher_;
};

}  // namespace lorvane::test
