#include "platform/linux/LinuxRunningApplications.h"

#include <unordered_map>
#include <utility>

namespace lorvane {

namespace {

std::optional<std::string> text(const std::optional<QString>& value) {
    if (!value) return std::nullopt;
    return value->toStdString();
}

RunningApplication fromPlayer(const MprisPlayerRegistry::Player& player) {
    return {player.processIdentifier.value_or(0), text(player.desktopEntry), text(player.identity)};
}

// What the player says wins; what it leaves out comes from its process.
void complete(RunningApplication& application, const ProcessInfo& process) {
    if (!application.bundleIdentifier) application.bundleIdentifier = process.applicationIdentifier;
    if (!application.localizedName) application.localizedName = process.name;
}

}  // namespace

LinuxRunningApplications::LinuxRunningApplications(std::shared_ptr<MprisPlayerRegistry> registry,
                                                   std::shared_ptr<ProcessTable> processes)
    : registry_(std::move(registry)), processes_(std::move(processes)) {}

std::vector<RunningApplication> LinuxRunningApplications::runningApplications() {
    std::vector<RunningApplication> applications;
    std::unordered_map<std::int32_t, std::size_t> byProcess;
    for (const auto& process : processes_->processes()) {
        byProcess.emplace(process.processIdentifier, applications.size());
        applications.push_back({process.processIdentifier, process.applicationIdentifier, process.name});
    }
    if (!registry_) return applications;

    std::unordered_map<std::int32_t, bool> described;  // a process with several player names keeps the first
    for (const auto* player : registry_->players()) {
        RunningApplication application = fromPlayer(*player);
        const auto found = player->processIdentifier ? byProcess.find(*player->processIdentifier) : byProcess.end();
        if (found == byProcess.end()) {
            applications.push_back(std::move(application));
            continue;
        }
        if (described[found->first]) continue;
        described[found->first] = true;
        RunningApplication& merged = applications[found->second];
        const ProcessInfo process{merged.processIdentifier, merged.localizedName.value_or(std::string()),
                                  merged.bundleIdentifier};
        complete(application, process);
        merged = std::move(application);
    }
    return applications;
}

std::optional<RunningApplication> LinuxRunningApplications::runningApplication(std::int32_t processIdentifier) {
    if (processIdentifier <= 0) return std::nullopt;
    if (registry_) {
        for (const auto* player : registry_->players()) {
            if (player->processIdentifier != processIdentifier) continue;
            RunningApplication application = fromPlayer(*player);
            if (!application.bundleIdentifier || !application.localizedName) {
                if (const auto process = processes_->process(processIdentifier)) complete(application, *process);
            }
            return application;
        }
    }
    const auto process = processes_->process(processIdentifier);
    if (!process) return std::nullopt;
    return RunningApplication{process->processIdentifier, process->applicationIdentifier, process->name};
}

}  // namespace lorvane
