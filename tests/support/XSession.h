#pragma once
// A private X desktop for end-to-end tests: a virtual X server (Xvfb) on a display number it picks
// itself, and by default the openbox window manager on it. Nothing is shared with the machine's own
// desktop or with other test programs running at the same time.
//
// Everything the session starts is stopped by its destructor, whatever the outcome of the test, and
// is killed by the kernel if the test process dies first (the children ask for SIGKILL when their
// parent goes away). Typical use, in a test program's main() before QGuiApplication exists:
//
//     lorvane::test::XSession session;           // Xvfb 1920x1080 + openbox
//     if (!session.isRunning()) { fprintf(stderr, "%s\n", session.error().c_str()); return 1; }
//     session.exportEnvironment();               // DISPLAY, QT_QPA_PLATFORM=xcb, ...
//     QGuiApplication app(argc, argv);
//
// X has one screen here; several monitors on it are made with RandR (setMonitors), which Qt reports
// as separate QScreens and which the window manager honours for struts and placement.

#include <string>
#include <sys/types.h>
#include <vector>

namespace lorvane::test {

class XSession {
public:
    struct Options {
        int width = 1920;
        int height = 1080;
        bool windowManager = true;  // openbox
        double startTimeout = 20;   // seconds for the server and the window manager to come up
    };
    struct Monitor {
        int x = 0, y = 0, width = 0, height = 0;
    };
    struct CommandResult {
        int status = -1;  // exit status; -1 when it could not run or was killed at the timeout
        std::string output;
    };

    XSession();
    explicit XSession(Options options);
    ~XSession();
    XSession(const XSession&) = delete;
    XSession& operator=(const XSession&) = delete;

    bool isRunning() const { return running_; }
    const std::string& error() const { return error_; }
    const std::string& display() const { return display_; }  // ":N"
    const std::string& runtimeDirectory() const { return runtimeDirectory_; }
    pid_t serverPid() const { return server_; }  // the X server's process, e.g. to measure its CPU time

    // Points this process at the session: DISPLAY, QT_QPA_PLATFORM=xcb, no WAYLAND_DISPLAY and a
    // private XDG_RUNTIME_DIR. Call before creating the QGuiApplication.
    void exportEnvironment() const;

    // Runs a program against the session's display (PATH lookup), waiting at most `timeout` seconds.
    CommandResult run(const std::vector<std::string>& argv, double timeout = 10) const;

    // Replaces the monitors of the one X screen (RandR 1.5 monitors). The first one keeps the real
    // output and is the primary monitor.
    bool setMonitors(const std::vector<Monitor>& monitors);

    // Starts or stops the xcompmgr compositing manager; false when it is not installed or did not
    // take the compositing selection in time.
    bool startCompositor();
    void stopCompositor();

private:
    pid_t spawn(const std::vector<std::string>& argv, int keepFd, const std::string& logName) const;
    bool waitForWindowManager(double timeout);
    bool waitForCompositor(bool running, double timeout);
    void stop(pid_t& pid);

    Options options_;
    bool running_ = false;
    std::string error_;
    std::string display_;
    std::string runtimeDirectory_;
    pid_t server_ = -1;
    pid_t windowManager_ = -1;
    pid_t compositor_ = -1;
    std::vector<std::string> monitorNames_;
    int monitorGeneration_ = 0;
};

}  // namespace lorvane::test
