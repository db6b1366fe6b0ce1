#include "support/XSession.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>

extern char** environ;

namespace lorvane::test {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

// Reads what `fd` delivers until EOF or the deadline; false on timeout.
bool readAll(int fd, std::string& out, Clock::time_point deadline) {
    char buffer[4096];
    for (;;) {
        const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(left * 1000) + 1);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return true;
        out.append(buffer, static_cast<std::size_t>(n));
    }
}

// Waits for `pid` to end within `timeout` seconds; its exit status, or -1 if it is still running.
int waitFor(pid_t pid, double timeout) {
    const auto start = Clock::now();
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (done < 0) return 0;  // not our child any more
        if (secondsSince(start) > timeout) return -1;
        pause(5);
    }
}

}  // namespace

XSession::XSession() : XSession(Options{}) {}

XSession::XSession(Options options) : options_(options) {
    char pattern[] = "/tmp/lorvane-xsession-XXXXXX";
    if (!mkdtemp(pattern)) {
        error_ = "cannot create a runtime directory";
        return;
    }
    runtimeDirectory_ = pattern;
    chmod(runtimeDirectory_.c_str(), 0700);

    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        error_ = "cannot create a pipe";
        return;
    }
    // Xvfb picks a free display number and writes it to fd 3 once it accepts connections.
    const std::string screen =
        std::to_string(options_.width) + "x" + std::to_string(options_.height) + "x24";
    server_ = spawn({"Xvfb", "-displayfd", "3", "-screen", "0", screen, "-nolisten", "tcp", "-noreset"}, pipeFds[1],
                    "xvfb.log");
    close(pipeFds[1]);
    std::string number;
    const auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<int>(options_.startTimeout * 1000));
    while (number.find('\n') == std::string::npos) {
        std::string chunk;
        const bool ended = readAll(pipeFds[0], chunk, std::min(deadline, Clock::now() + std::chrono::milliseconds(50)));
        number += chunk;
        if (ended || Clock::now() > deadline) break;
    }
    close(pipeFds[0]);
    while (!number.empty() && (number.back() == '\n' || number.back() == ' ')) number.pop_back();
    if (server_ < 0 || number.empty()) {
        error_ = "Xvfb did not start (see " + runtimeDirectory_ + "/xvfb.log)";
        return;
    }
    display_ = ":" + number;

    if (options_.windowManager) {
        windowManager_ = spawn({"openbox", "--sm-disable"}, -1, "openbox.log");
        if (windowManager_ < 0 || !waitForWindowManager(options_.startTimeout)) {
            error_ = "openbox did not start (see " + runtimeDirectory_ + "/openbox.log)";
            return;
        }
    }
    running_ = true;
}

XSession::~XSession() {
    stop(compositor_);
    stop(windowManager_);
    stop(server_);
    if (!runtimeDirectory_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(runtimeDirectory_, ignored);
    }
}

void XSession::exportEnvironment() const {
    setenv("DISPLAY", display_.c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("XDG_RUNTIME_DIR", runtimeDirectory_.c_str(), 1);
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("QT_SCREEN_SCALE_FACTORS");
    unsetenv("QT_AUTO_SCREEN_SCALE_FACTOR");
}

pid_t XSession::spawn(const std::vector<std::string>& argv, int keepFd, const std::string& logName) const {
    // Everything the child needs is prepared before fork().
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const std::string key = text.substr(0, text.find('='));
        if (key == "DISPLAY" || key == "HOME" || key == "XDG_RUNTIME_DIR" || key == "XDG_CONFIG_HOME" ||
            key == "XDG_CACHE_HOME" || key == "WAYLAND_DISPLAY")
            continue;
        environment.push_back(text);
    }
    if (!display_.empty()) environment.push_back("DISPLAY=" + display_);
    environment.push_back("HOME=" + runtimeDirectory_);
    environment.push_back("XDG_RUNTIME_DIR=" + runtimeDirectory_);
    environment.push_back("XDG_CONFIG_HOME=" + runtimeDirectory_ + "/config");
    environment.push_back("XDG_CACHE_HOME=" + runtimeDirectory_ + "/cache");
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::vector<std::string> arguments = argv;
    std::vector<char*> args;
    for (auto& argument : arguments) args.push_back(argument.data());
    args.push_back(nullptr);
    const std::string logPath = runtimeDirectory_ + "/" + logName;
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid != 0) return pid;
    // Child: die with the test process, keep only stdio and the requested descriptor (as fd 3).
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    const int null = open("/dev/null", O_RDONLY);
    const int log = logName.empty() ? -1 : open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(null, 0);
    dup2(log >= 0 ? log : null, 1);
    dup2(log >= 0 ? log : null, 2);
    if (keepFd >= 0) dup2(keepFd, 3);
    for (int fd = keepFd >= 0 ? 4 : 3; fd < 1024; ++fd) close(fd);
    execvpe(args[0], args.data(), envp.data());
    _exit(127);
}

void XSession::stop(pid_t& pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (waitFor(pid, 3) < 0) {
        kill(pid, SIGKILL);
        waitFor(pid, 3);
    }
    pid = -1;
}

bool XSession::waitForWindowManager(double timeout) {
    const auto start = Clock::now();
    Display* x = nullptr;
    while (!x && secondsSince(start) < timeout) {
        x = XOpenDisplay(display_.c_str());
        if (!x) pause(20);
    }
    if (!x) return false;
    const Atom check = XInternAtom(x, "_NET_SUPPORTING_WM_CHECK", False);
    const Atom workarea = XInternAtom(x, "_NET_WORKAREA", False);
    bool ready = false;
    while (!ready && secondsSince(start) < timeout) {
        Atom type;
        int format;
        unsigned long count, after;
        unsigned char* data = nullptr;
        // The window manager is up once it has announced itself and published the work area.
        if (XGetWindowProperty(x, DefaultRootWindow(x), check, 0, 1, False, XA_WINDOW, &type, &format, &count, &after,
                               &data) == Success &&
            count == 1) {
            XFree(data);
            data = nullptr;
            if (XGetWindowProperty(x, DefaultRootWindow(x), workarea, 0, 4, False, XA_CARDINAL, &type, &format, &count,
                                   &after, &data) == Success &&
                count == 4)
                ready = true;
        }
        if (data) XFree(data);
        if (!ready) pause(20);
    }
    XCloseDisplay(x);
    return ready;
}

bool XSession::waitForCompositor(bool wanted, double timeout) {
    Display* x = XOpenDisplay(display_.c_str());
    if (!x) return false;
    const Atom selection = XInternAtom(x, "_NET_WM_CM_S0", False);
    const auto start = Clock::now();
    bool reached = false;
    while (secondsSince(start) < timeout) {
        if ((XGetSelectionOwner(x, selection) != None) == wanted) {
            reached = true;
            break;
        }
        pause(20);
    }
    XCloseDisplay(x);
    return reached;
}

XSession::CommandResult XSession::run(const std::vector<std::string>& argv, double timeout) const {
    CommandResult result;
    int pipeFds[2];
    if (argv.empty() || pipe(pipeFds) != 0) return result;
    // The child writes to fd 3 of its own, which run() makes its stdout below.
    std::vector<std::string> wrapped{"sh", "-c", "exec \"$@\" 1>&3", "sh"};
    wrapped.insert(wrapped.end(), argv.begin(), argv.end());
    const pid_t pid = spawn(wrapped, pipeFds[1], "commands.log");
    close(pipeFds[1]);
    const auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<int>(timeout * 1000));
    const bool finished = readAll(pipeFds[0], result.output, deadline);
    close(pipeFds[0]);
    if (pid < 0) return result;
    const int status = waitFor(pid, finished ? std::max(0.0, timeout) : 0.0);
    if (status < 0) {
        kill(pid, SIGKILL);
        waitFor(pid, 3);
        result.status = -1;
        return result;
    }
    result.status = status;
    return result;
}

bool XSession::setMonitors(const std::vector<Monitor>& monitors) {
    // The output the first monitor keeps (Xvfb calls its only output "screen").
    std::string output = "screen";
    const CommandResult listing = run({"xrandr"});
    std::istringstream lines(listing.output);
    for (std::string line; std::getline(lines, line);) {
        const auto at = line.find(" connected");
        if (at != std::string::npos) {
            output = line.substr(0, at);
            break;
        }
    }
    bool ok = true;
    for (auto name = monitorNames_.rbegin(); name != monitorNames_.rend(); ++name) {
        ok &= run({"xrandr", "--delmonitor", *name}).status == 0;
    }
    monitorNames_.clear();
    // Fresh names each time: clients see the old monitors go and new ones come, as when displays are
    // unplugged and plugged in (Qt does not always pick up a changed geometry under a kept name).
    ++monitorGeneration_;
    for (std::size_t i = 0; i < monitors.size(); ++i) {
        const Monitor& m = monitors[i];
        // Physical size at 96 dots per inch, so Qt sees ordinary pixel densities.
        const std::string geometry = std::to_string(m.width) + "/" + std::to_string(m.width * 254 / 960) + "x" +
                                     std::to_string(m.height) + "/" + std::to_string(m.height * 254 / 960) + "+" +
                                     std::to_string(m.x) + "+" + std::to_string(m.y);
        const std::string name = "lorvane" + std::to_string(monitorGeneration_) + "-" + std::to_string(i);
        // The first monitor is the primary one ("*").
        ok &= run({"xrandr", "--setmonitor", (i == 0 ? "*" : "") + name, geometry, i == 0 ? output : "none"})
                  .status == 0;
        monitorNames_.push_back(name);
    }
    return ok;
}

bool XSession::startCompositor() {
    if (compositor_ > 0) return true;
    compositor_ = spawn({"xcompmgr"}, -1, "xcompmgr.log");
    if (compositor_ < 0) return false;
    if (!waitForCompositor(true, options_.startTimeout)) {
        stop(compositor_);
        return false;
    }
    return true;
}

void XSession::stopCompositor() {
    stop(compositor_);
    waitForCompositor(false, options_.startTimeout);
}

}  // namespace lorvane::test
