#pragma once
// The user's running processes as read from /proc: process name, and for sandboxed applications
// the Flatpak application id or the snap name. Reads as little as it can, since the monitor may
// scan twice a second: the directory listing every time; owner and short name when a process is
// first seen and then only every `nameRefreshScans` scans (a process that execs another program
// keeps its number but changes its name); the sandbox details only when the name changes, and only
// for processes that live in another mount namespace than ours.

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
    // A known process's owner and name are read again on one scan in this many.
    static constexpr std::uint64_t nameRefreshScans = 10;

    // `procRoot` is a directory shaped like /proc; `owner` the user whose processes count
    // (the real user id when absent).
    explicit ProcessTable(std::string procRoot = "/proc", std::optional<uid_t> owner = std::nullopt);

    // Every process of the owner, in directory order.
    std::vector<ProcessInfo> processes();
    // One process of the owner, read afresh, without scanning the others.
    std::optional<ProcessInfo> process(std::int32_t processIdentifier);

private:
    struct Details {
        bool owned = false;  // processes of other users are remembered too, so they cost nothing later
        std::string name;
        std::optional<std::string> applicationIdentifier;
        std::uint64_t seenInScan = 0;
    };

    // Reads owner and name into `details` (and the sandbox when the name is new); false when the
    // process is gone.
    bool read(int rootFd, const char* entryName, Details& details);
    std::optional<std::string> sandboxIdentifier(int rootFd, const char* entryName);
    bool isInOwnMountNamespace(int rootFd, const char* entryName);

    std::string procRoot_;
    uid_t owner_;
    std::optional<std::string> ownMountNamespace_;
    bool ownMountNamespaceRead_ = false;
    std::uint64_t scans_ = 0;
    // What earlier scans learnt, so the sandbox details are read once per process.
    std::unordered_map<std::int32_t, Details> known_;
};

}  // namespace lorvane
