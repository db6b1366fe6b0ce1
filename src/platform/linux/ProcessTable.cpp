#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace lorvane {

namespace {

// Reads up to `limit` bytes of a small file below `rootFd`; nothing when it cannot be read.
std::optional<std::string> readSmallFile(int rootFd, const std::string& path, std::size_t limit) {
    const int fd = ::openat(rootFd, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::nullopt;
    std::string text(limit, '\0');
    std::size_t filled = 0;
    while (filled < limit) {
        const ssize_t got = ::read(fd, text.data() + filled, limit - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        filled += static_cast<std::size_t>(got);
    }
    ::close(fd);
    text.resize(filled);
    return text;
}

std::optional<std::string> readLink(int rootFd, const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(rootFd, path.c_str(), target, sizeof target);
    if (length <= 0) return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

std::optional<std::int32_t> parseProcessIdentifier(std::string_view text) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value <= 0) return std::nullopt;
    return value;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// The "name" key of the [Application] group of a .flatpak-info key file.
std::optional<std::string> flatpakApplicationName(std::string_view info) {
    bool inApplication = false;
    while (!info.empty()) {
        const auto end = info.find('\n');
        const std::string_view line = trimmed(info.substr(0, end));
        info.remove_prefix(end == std::string_view::npos ? info.size() : end + 1);
        if (line.starts_with('[')) {
            inApplication = line == "[Application]";
            continue;
        }
        if (!inApplication || !line.starts_with("name")) continue;
        std::string_view rest = trimmed(line.substr(4));
        if (!rest.starts_with('=')) continue;
        rest = trimmed(rest.substr(1));
        if (!rest.empty()) return std::string(rest);
    }
    return std::nullopt;
}

// snapd runs each snap application in a cgroup scope named "snap.<snap>.<app>-<id>.scope".
std::optional<std::string> snapName(std::string_view cgroups) {
    const auto at = cgroups.find("/snap.");
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = cgroups.substr(at + 6);
    const auto dot = rest.find('.');
    if (dot == std::string_view::npos || dot == 0) return std::nullopt;
    return std::string(rest.substr(0, dot));
}

}  // namespace

ProcessTable::ProcessTable(std::string procRoot, std::optional<uid_t> owner)
    : procRoot_(std::move(procRoot)), owner_(owner ? *owner : ::getuid()) {}

bool ProcessTable::isInOwnMountNamespace(int rootFd, const char* entryName) {
    if (!ownMountNamespaceRead_) {
        ownMountNamespace_ = readLink(rootFd, "self/ns/mnt");
        ownMountNamespaceRead_ = true;
    }
    if (!ownMountNamespace_) return false;
    const auto theirs = readLink(rootFd, std::string(entryName) + "/ns/mnt");
    return theirs && *theirs == *ownMountNamespace_;
}

std::optional<std::string> ProcessTable::sandboxIdentifier(int rootFd, const char* entryName) {
    // Flatpak and snap applications always run in a mount namespace of their own.
    if (isInOwnMountNamespace(rootFd, entryName)) return std::nullopt;
    const std::string base(entryName);
    if (const auto info = readSmallFile(rootFd, base + "/root/.flatpak-info", 16384)) {
        if (auto name = flatpakApplicationName(*info)) return name;
    }
    if (const auto cgroups = readSmallFile(rootFd, base + "/cgroup", 4096)) {
        if (auto name = snapName(*cgroups)) return name;
    }
    return std::nullopt;
}

bool ProcessTable::read(int rootFd, const char* entryName, Details& details) {
    // One path walk per process: the short name's file carries the same owner as the process's
    // directory (both follow the process's effective user).
    char path[32];
    std::snprintf(path, sizeof path, "%s/comm", entryName);
    const int fd = ::openat(rootFd, path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return false;  // gone meanwhile
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        ::close(fd);
        return false;
    }
    if (status.st_uid != owner_) {
        ::close(fd);
        details.owned = false;
        return true;
    }
    char buffer[64];
    ssize_t got;
    do {
        got = ::read(fd, buffer, sizeof buffer);
    } while (got < 0 && errno == EINTR);
    ::close(fd);
    if (got < 0) return false;
    std::string_view name(buffer, static_cast<std::size_t>(got));
    if (!name.empty() && name.back() == '\n') name.remove_suffix(1);

    // The same process keeps its sandbox; a changed name (exec or a reused number) reads it anew.
    if (details.owned && details.name == name) return true;
    details.owned = true;
    details.applicationIdentifier = sandboxIdentifier(rootFd, entryName);
    details.name = std::string(name);
    return true;
}

std::vector<ProcessInfo> ProcessTable::processes() {
    std::vector<ProcessInfo> result;
    DIR* directory = ::opendir(procRoot_.c_str());
    if (!directory) return result;
    const int rootFd = ::dirfd(directory);
    const std::uint64_t scan = ++scans_;
    const std::uint64_t refreshTurn = scan % nameRefreshScans;
    result.reserve(known_.size());
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
        const auto processIdentifier = parseProcessIdentifier(entry->d_name);
        if (!processIdentifier) continue;
        const auto [found, isNew] = known_.try_emplace(*processIdentifier);
        Details& details = found->second;
        const bool due = isNew || static_cast<std::uint64_t>(*processIdentifier) % nameRefreshScans == refreshTurn;
        if (due && !read(rootFd, entry->d_name, details)) {
            known_.erase(found);
            continue;
        }
        details.seenInScan = scan;
        if (details.owned) result.push_back({*processIdentifier, details.name, details.applicationIdentifier});
    }
    ::closedir(directory);
    std::erase_if(known_, [scan](const auto& entry) { return entry.second.seenInScan != scan; });  // ended
    return result;
}

std::optional<ProcessInfo> ProcessTable::process(std::int32_t processIdentifier) {
    if (processIdentifier <= 0) return std::nullopt;
    const int rootFd = ::open(procRoot_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0) return std::nullopt;
    const std::string entryName = std::to_string(processIdentifier);
    const auto [found, isNew] = known_.try_emplace(processIdentifier);
    const bool present = read(rootFd, entryName.c_str(), found->second);
    ::close(rootFd);
    if (!present) {
        known_.erase(found);
        return std::nullopt;
    }
    if (isNew) found->second.seenInScan = scans_;
    if (!found->second.owned) return std::nullopt;
    return ProcessInfo{processIdentifier, found->second.name, found->second.applicationIdentifier};
}

}  // namespace lorvane
