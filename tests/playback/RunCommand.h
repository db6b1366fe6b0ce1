#pragma once
// Runs a command with extra environment, collects its standard output, and kills it when it
// outlives the bound.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace lorvane::test {

struct CommandResult {
    int exitCode = -1;  // -1 when it did not end by itself within the bound
    std::string output;
};

inline CommandResult runCommand(std::vector<std::string> arguments, const std::vector<std::string>& extraEnvironment,
                                std::chrono::milliseconds bound) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) environment.emplace_back(*entry);
    environment.insert(environment.end(), extraEnvironment.begin(), extraEnvironment.end());
    std::vector<char*> environmentPointers;
    for (auto& entry : environment) environmentPointers.push_back(entry.data());
    environmentPointers.push_back(nullptr);
    std::vector<char*> argumentPointers;
    for (auto& argument : arguments) argumentPointers.push_back(argument.data());
    argumentPointers.push_back(nullptr);

    CommandResult result;
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) return result;
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(output[1], 1);
        ::execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        ::_exit(127);
    }
    ::close(output[1]);
    if (child < 0) {
        ::close(output[0]);
        return result;
    }
    const auto deadline = std::chrono::steady_clock::now() + bound;
    bool timedOut = false;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        pollfd readable{output[0], POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
        char buffer[1024];
        const ssize_t got = ::read(output[0], buffer, sizeof buffer);
        if (got <= 0) break;
        result.output.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(output[0]);
    if (timedOut) ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!timedOut && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    return result;
}

}  // namespace lorvane::test
