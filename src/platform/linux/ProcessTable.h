#pragma once
// The user's running processes as read from /proc: process name, and for sandboxed applications
// the Flatpak application id or the snap name. Reads as little as it can: one stat and the short
// name per process, and the sandbox details only once per process and only for processes that
// live in another mount namespace than ours.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace lorvane {

struct ProcessInfo {
    std::int32_t processIdentifier = 0;
    std::string name;                                  // /proc/<pid>/comm
    std::optional<std::string> applicationIdentifier;  // Flatpak application id or snap name

    friend bool operator==(const ProcessInfo&, const ProcessInfo&) = default;
};

class ProcessTable {
public:
    // `procRoot` is a directory shaped like /proc; `owner` the user whose processes count
    // (the real user id when absent).
    explicit ProcessTable(std::string procRoot = "/proc", std::optional<uid_t> owner = std::nullopt);

    // Every process of the owner, in directory order.
    std::vector<ProcessInfo> processes();
    // One process of the owner, without scanning the others.
    std::optional<ProcessInfo> process(std::int32_t processIdentifier);

private:
    struct Details {
        std::string name;
        std::optional<std::string> applicationIdentifier;
    };

    std::optional<ProcessInfo> read(int rootFd, std::int32_t processIdentifier, const char* entryName,
                                    std::unordered_map<std::int32_t, Details>& seen);
    std::optional<std::string> sandboxIdentifier(int rootFd, const char* entryName);
    bool isInOwnMountNamespace(int rootFd, const char* entryName);

    std::string procRoot_;
    uid_t owner_;
    std::optional<std::string> ownMountNamespace_;
    bool ownMountNamespaceRead_ = false;
    // What earlier scans learnt, so the sandbox details are read once per process.
    std::unordered_map<std::int32_t, Details> known_;
};

}  // namespace lorvane
