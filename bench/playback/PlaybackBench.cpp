// What playback detection costs: the core's decision over a handful of readings; the latency from a
// player's PlaybackStatus signal to the snapshot (and so to the tray's first line); and the monitor's
// share of one core over a stretch of real time with five players on the bus and a few hundred
// processes around (LORVANE_BENCH_MONITOR_SECONDS, default 60).
#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QtTestSupport.h"
#include "TestPlayerProcess.h"
#include "core/app/MenuState.h"
#include "core/playback/PlaybackChoice.h"
#include "platform/linux/LinuxPlaybackMonitor.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

// Idle processes of ours, so that the machine holds a few hundred more.
class IdleProcesses {
public:
    explicit IdleProcesses(int count) {
        const pid_t parent = ::getpid();
        for (int i = 0; i < count; ++i) {
            const pid_t child = ::fork();
            if (child == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                if (::getppid() != parent) ::_exit(0);
                ::execlp("sleep", "sleep", "3600", static_cast<char*>(nullptr));
                ::_exit(127);
            }
            if (child > 0) children_.push_back(child);
        }
    }
    ~IdleProcesses() {
        for (const pid_t child : children_) ::kill(child, SIGKILL);
        for (const pid_t child : children_) ::waitpid(child, nullptr, 0);
    }

private:
    std::vector<pid_t> children_;
};

std::size_t processCount() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (!name.empty() && std::all_of(name.begin(), name.end(), ::isdigit)) ++count;
    }
    return count;
}

double processCpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class FixedOutputVolume final : public OutputVolume {
public:
    double systemOutputVolume() const override { return 0.8; }
};

// The monitor on a private bus with five players: Spotify playing, four others paused or stopped.
struct MonitorRig {
    SessionBus bus;
    std::optional<BusConnection> connection;
    FixedOutputVolume volume;
    std::vector<std::unique_ptr<TestPlayerProcess>> players;
    std::vector<MusicPlaybackSnapshot> reports;
    std::unique_ptr<LinuxPlaybackMonitor> monitor;

    bool make() {
        if (!bus.isRunning()) return false;
        connection.emplace(bus.address());
        const std::vector<std::vector<std::string>> arguments{
            {"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "spotify", "--status", "Playing"},
            {"--name", "vlc", "--identity", "VLC media player", "--desktop-entry", "vlc", "--status", "Paused"},
            {"--name", "elisa", "--identity", "Elisa", "--desktop-entry", "org.kde.elisa"},
            {"--name", "rhythmbox", "--identity", "Rhythmbox", "--desktop-entry", "org.gnome.Rhythmbox3"},
            {"--name", "firefox.instance_1_2", "--identity", "Mozilla Firefox", "--desktop-entry", "firefox"},
        };
        for (const auto& argument : arguments) {
            players.push_back(std::make_unique<TestPlayerProcess>(bus.address(), argument));
            if (!players.back()->isReady()) return false;
        }
        monitor = std::make_unique<LinuxPlaybackMonitor>(
            LinuxPlaybackMonitor::Callbacks{[] { return EnabledPlayers::all(); },
                                            [this](const MusicPlaybackSnapshot& s) { reports.push_back(s); },
                                            {}},
            volume, connection->connection());
        monitor->start();
        return waitUntil([&] { return !reports.empty() && reports.back().state == MusicPlaybackState::playing; },
                         10s);
    }
};

void BM_Decision(benchmark::State& state) {
    std::vector<PlayerReading> readings{
        {MusicPlayer::spotify, MusicPlaybackState::paused, 0.5, 1},
        {PlaybackPlayer::other("vlc", "VLC media player"), MusicPlaybackState::playing, 1.0, 2},
        {PlaybackPlayer::other("org.kde.elisa", "Elisa"), MusicPlaybackState::stopped, std::nullopt, 3},
        {PlaybackPlayer::other("org.gnome.Rhythmbox3", "Rhythmbox"), MusicPlaybackState::paused, 0.7, 4},
        {PlaybackPlayer::other("firefox", "Mozilla Firefox"), MusicPlaybackState::playing, 1.0, 5},
    };
    const EnabledPlayers enabled = EnabledPlayers::all();
    for (auto _ : state) benchmark::DoNotOptimize(playbackSnapshot(readings, enabled, 0.8));
}

// From the moment the player is told to change (it then emits PlaybackStatus) to the snapshot, and so
// the tray's first line, on this thread. An upper bound: it includes the player reading its command.
void BM_SignalToSnapshotLatency(benchmark::State& state) {
    ensureApplication();
    MonitorRig rig;
    if (!rig.make()) {
        state.SkipWithError("could not set up the bus, the players or the monitor");
        return;
    }
    TestPlayerProcess& spotify = *rig.players.front();
    std::vector<double> latencies;
    bool play = false;
    for (auto _ : state) {
        // Paused, Spotify still comes first: a paused named player beats the paused VLC.
        const std::string expected = play ? "Spotify: Playing" : "Spotify: Paused";
        const auto start = std::chrono::steady_clock::now();
        if (!spotify.command(play ? "play" : "pause")) {
            state.SkipWithError("the player did not answer");
            return;
        }
        // Sleep in the event loop until the bus wakes it, so the figure has no polling step in it.
        auto seen = [&] { return playbackStatusTitle(rig.reports.back().player, rig.reports.back().state) == expected; };
        QTimer limit;
        limit.setSingleShot(true);
        limit.start(5000);
        while (!seen() && limit.isActive()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (!seen()) {
            state.SkipWithError("no snapshot");
            return;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        latencies.push_back(seconds * 1000.0);
        play = !play;
    }
    std::sort(latencies.begin(), latencies.end());
    if (!latencies.empty()) {
        state.counters["median_ms"] = latencies[latencies.size() / 2];
        state.counters["worst_ms"] = latencies.back();
    }
}

// The started monitor on Qt's event loop for a stretch of real time.
void BM_DetectionCpu(benchmark::State& state) {
    ensureApplication();
    IdleProcesses idle(static_cast<int>(state.range(0)));
    MonitorRig rig;
    if (!rig.make()) {
        state.SkipWithError("could not set up the bus, the players or the monitor");
        return;
    }
    const char* configured = std::getenv("LORVANE_BENCH_MONITOR_SECONDS");
    const double seconds = configured ? std::atof(configured) : 60.0;
    double cpu = 0;
    double wall = 0;
    for (auto _ : state) {
        const double cpuBefore = processCpuSeconds();
        const auto wallBefore = std::chrono::steady_clock::now();
        QEventLoop loop;
        QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
        loop.exec();
        cpu = processCpuSeconds() - cpuBefore;
        wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
        state.SetIterationTime(wall);
    }
    state.counters["cpu_percent_of_one_core"] = 100.0 * cpu / wall;
    state.counters["machine_processes"] = static_cast<double>(processCount());
    state.counters["players"] = static_cast<double>(rig.players.size());
}

}  // namespace

BENCHMARK(BM_Decision)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_SignalToSnapshotLatency)->Iterations(40)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DetectionCpu)->Arg(400)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
