#include "support/SessionBus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

namespace lorvane::test {

namespace {

constexpr auto startBound = std::chrono::seconds(10);
constexpr auto stopBound = std::chrono::seconds(3);

std::string configuration(const std::string& socketPath) {
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>unix:path=" + socketPath + "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
}

bool waitForExit(pid_t process, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        const pid_t done = ::waitpid(process, nullptr, WNOHANG);
        if (done == process || (done < 0 && errno == ECHILD)) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace

SessionBus::SessionBus() {
    char pattern[] = "/tmp/lorvane-bus-XXXXXX";
    if (!::mkdtemp(pattern)) {
        error_ = std::string("mkdtemp: ") + std::strerror(errno);
        return;
    }
    directory_ = pattern;
    const std::string configPath = directory_ + "/session.conf";
    {
        std::ofstream config(configPath);
        config << configuration(directory_ + "/socket");
        if (!config) {
            error_ = "cannot write " + configPath;
            return;
        }
    }

    int addressPipe[2];
    if (::pipe2(addressPipe, O_CLOEXEC) != 0) {
        error_ = std::string("pipe: ") + std::strerror(errno);
        return;
    }
    const std::string configArgument = "--config-file=" + configPath;
    const std::string logPath = directory_ + "/daemon.log";
    const pid_t parent = ::getpid();
    daemon_ = ::fork();
    if (daemon_ == 0) {
        // Only async-signal-safe calls from here on.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        ::dup2(addressPipe[1], 3);  // dup2 clears close-on-exec on the copy
        const int devNull = ::open("/dev/null", O_RDWR);
        if (devNull >= 0) {
            ::dup2(devNull, 0);
            ::dup2(devNull, 1);
        }
        const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (log >= 0) ::dup2(log, 2);
        ::closefrom(4);
        ::execlp("dbus-daemon", "dbus-daemon", configArgument.c_str(), "--nofork", "--nopidfile",
                 "--print-address=3", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(addressPipe[1]);
    if (daemon_ < 0) {
        error_ = std::string("fork: ") + std::strerror(errno);
        ::close(addressPipe[0]);
        return;
    }

    // The daemon prints its address once it listens.
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + startBound;
    while (line.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd readable{addressPipe[0], POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
        char buffer[512];
        const ssize_t got = ::read(addressPipe[0], buffer, sizeof buffer);
        if (got <= 0) break;
        line.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(addressPipe[0]);
    const auto end = line.find('\n');
    if (end == std::string::npos || end == 0) {
        error_ = "dbus-daemon did not print its address";
        std::ifstream log(logPath);
        std::string said((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
        if (!said.empty()) error_ += ": " + said;
        stop();
        return;
    }
    address_ = line.substr(0, end);
}

SessionBus::~SessionBus() {
    stop();
    if (exported_) {
        if (previousAddress_) {
            ::setenv("DBUS_SESSION_BUS_ADDRESS", previousAddress_->c_str(), 1);
        } else {
            ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        }
    }
    if (!directory_.empty()) {
        ::unlink((directory_ + "/socket").c_str());
        ::unlink((directory_ + "/session.conf").c_str());
        ::unlink((directory_ + "/daemon.log").c_str());
        ::rmdir(directory_.c_str());
    }
}

void SessionBus::exportAddress() {
    if (!exported_) {
        if (const char* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS")) previousAddress_ = previous;
        exported_ = true;
    }
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), 1);
}

void SessionBus::stop() {
    if (daemon_ <= 0) return;
    ::kill(daemon_, SIGTERM);
    if (!waitForExit(daemon_, stopBound)) {
        ::kill(daemon_, SIGKILL);
        waitForExit(daemon_, stopBound);
    }
    daemon_ = -1;
}

}  // namespace lorvane::test
