#include "TestPlayerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace lorvane::test {

TestPlayerProcess::TestPlayerProcess(const std::string& busAddress, const std::vector<std::string>& arguments) {
    // A command written to a player that has died must fail, not kill the test with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    // Everything the child needs is prepared before fork: afterwards only async-signal-safe calls.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) {
        if (std::strncmp(*entry, "DBUS_SESSION_BUS_ADDRESS=", 25) != 0) environment.emplace_back(*entry);
    }
    environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress);
    std::vector<char*> environmentPointers;
    for (auto& entry : environment) environmentPointers.push_back(entry.data());
    environmentPointers.push_back(nullptr);

    std::vector<std::string> argumentStrings{LORVANE_TEST_MPRIS_PLAYER};
    argumentStrings.insert(argumentStrings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argumentPointers;
    for (auto& argument : argumentStrings) argumentPointers.push_back(argument.data());
    argumentPointers.push_back(nullptr);

    int toChild[2];
    int fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0) {
        error_ = std::string("pipe: ") + std::strerror(errno);
        return;
    }
    if (::pipe2(fromChild, O_CLOEXEC) != 0) {
        error_ = std::string("pipe: ") + std::strerror(errno);
        ::close(toChild[0]);
        ::close(toChild[1]);
        return;
    }
    const pid_t parent = ::getpid();
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        ::dup2(toChild[0], 0);
        ::dup2(fromChild[1], 1);
        ::closefrom(3);
        ::execve(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    input_ = toChild[1];
    output_ = fromChild[0];
    if (process_ < 0) {
        error_ = std::string("fork: ") + std::strerror(errno);
        return;
    }

    std::string line;
    if (!readLine(line, readyBound)) {
        error_ = "the player did not get ready";
        return;
    }
    if (!line.starts_with("ready ")) {
        error_ = "unexpected first line: " + line;
        return;
    }
    busName_ = line.substr(6);
    ready_ = true;
}

TestPlayerProcess::~TestPlayerProcess() {
    kill();
    if (input_ >= 0) ::close(input_);
    if (output_ >= 0) ::close(output_);
}

bool TestPlayerProcess::readLine(std::string& line, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        const auto end = buffered_.find('\n');
        if (end != std::string::npos) {
            line = buffered_.substr(0, end);
            buffered_.erase(0, end + 1);
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || output_ < 0) return false;
        pollfd readable{output_, POLLIN, 0};
        const int ready = ::poll(&readable, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        char buffer[512];
        const ssize_t got = ::read(output_, buffer, sizeof buffer);
        if (got <= 0) return false;
        buffered_.append(buffer, static_cast<std::size_t>(got));
    }
}

bool TestPlayerProcess::command(const std::string& line) {
    if (!ready_ || input_ < 0) return false;
    const std::string text = line + "\n";
    if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return false;
    std::string answer;
    if (!readLine(answer, commandBound)) {
        error_ = "no answer to: " + line;
        return false;
    }
    if (answer != "ok") error_ = answer;
    return answer == "ok";
}

void TestPlayerProcess::kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
    ready_ = false;
}

}  // namespace lorvane::test
