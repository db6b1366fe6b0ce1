// What the playback monitor costs: one tick in its three shapes (no players, one playing player,
// the /proc scan with a few hundred processes), and the whole monitor's share of one core over a
// stretch of real time (LORVANE_BENCH_MONITOR_SECONDS, default 60; scale the figure to any period).
#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "FakePlaybackServices.h"
#include "QtTestSupport.h"
#include "TestPlayerProcess.h"
#include "platform/linux/LinuxPlaybackMonitor.h"
#include "platform/linux/ProcessTable.h"
#include "platform/qt/QtMainQueue.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

// Idle processes of ours, so that /proc holds a few hundred of them.
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

std::size_t ownProcessCount() { return ProcessTable().processes().size(); }

double processCpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A monitor on a private bus with the real /proc, optionally with one playing Spotify.
struct MonitorRig {
    SessionBus bus;
    std::optional<BusConnection> connection;
    QtMainQueue queue;
    FakeOutputVolume volume{0.8};
    std::unique_ptr<TestPlayerProcess> player;
    std::vector<MusicPlaybackSnapshot> reports;
    std::unique_ptr<MusicPlaybackMonitor> monitor;

    bool make(bool withPlayer) {
        if (!bus.isRunning()) return false;
        connection.emplace(bus.address());
        if (withPlayer) {
            player = std::make_unique<TestPlayerProcess>(
                bus.address(), std::vector<std::string>{"--name", "spotify", "--identity", "Spotify", "--status",
                                                        "Playing", "--volume", "0.5"});
            if (!player->isReady()) return false;
        }
        LinuxPlaybackEnvironment environment;
        environment.bus = connection->connection();
        monitor = makeLinuxPlaybackMonitor(
            [] {
                return MusicPlayerSet{MusicPlayer::appleMusic, MusicPlayer::qqMusic, MusicPlayer::netEaseMusic,
                                      MusicPlayer::spotify};
            },
            [this](const MusicPlaybackSnapshot& snapshot) { reports.push_back(snapshot); }, volume, queue,
            environment);
        // Let the registry learn the bus before measuring.
        const MusicPlaybackSnapshot expected =
            withPlayer ? MusicPlaybackSnapshot{MusicPlayer::spotify, MusicPlaybackState::playing, 0.8}
                       : MusicPlaybackSnapshot::noPlayer();
        return waitUntil(
            [&] {
                tick();
                return !reports.empty() && reports.back() == expected;
            },
            10s);
    }

    // One whole tick: the question, its answer, and whatever the answer leads to.
    void tick() {
        monitor->checkPlaybackState();
        while (monitor->queryIsInFlight()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
};

void tickBenchmark(benchmark::State& state, bool withPlayer) {
    ensureApplication();
    IdleProcesses idle(static_cast<int>(state.range(0)));
    MonitorRig rig;
    if (!rig.make(withPlayer)) {
        state.SkipWithError("could not set up the bus, the player or the monitor");
        return;
    }
    for (auto _ : state) rig.tick();
    state.counters["own_processes"] = static_cast<double>(ownProcessCount());
}

void BM_TickWithNoPlayers(benchmark::State& state) { tickBenchmark(state, false); }
void BM_TickWithOnePlayingPlayer(benchmark::State& state) { tickBenchmark(state, true); }

void BM_ProcScan(benchmark::State& state) {
    IdleProcesses idle(static_cast<int>(state.range(0)));
    ProcessTable table;
    table.processes();  // what later scans remember
    std::size_t found = 0;
    for (auto _ : state) {
        found = table.processes().size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["own_processes"] = static_cast<double>(found);
}

void BM_ProcScanFirstTime(benchmark::State& state) {
    IdleProcesses idle(static_cast<int>(state.range(0)));
    std::size_t found = 0;
    for (auto _ : state) {
        ProcessTable table;
        found = table.processes().size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["own_processes"] = static_cast<double>(found);
}

// The started monitor on Qt's event loop, timer and all, for a stretch of real time.
void monitorShareOfOneCore(benchmark::State& state, bool withPlayer) {
    ensureApplication();
    IdleProcesses idle(static_cast<int>(state.range(0)));
    MonitorRig rig;
    if (!rig.make(withPlayer)) {
        state.SkipWithError("could not set up the bus, the player or the monitor");
        return;
    }
    const char* configured = std::getenv("LORVANE_BENCH_MONITOR_SECONDS");
    const double seconds = configured ? std::atof(configured) : 60.0;
    double cpu = 0;
    double wall = 0;
    for (auto _ : state) {
        rig.monitor->start();
        const double cpuBefore = processCpuSeconds();
        const auto wallBefore = std::chrono::steady_clock::now();
        QEventLoop loop;
        QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
        loop.exec();
        cpu = processCpuSeconds() - cpuBefore;
        wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
        rig.monitor->stop();
        state.SetIterationTime(wall);
    }
    state.counters["cpu_percent_of_one_core"] = 100.0 * cpu / wall;
    state.counters["cpu_seconds_per_5_minutes"] = cpu / wall * 300.0;
    state.counters["own_processes"] = static_cast<double>(ownProcessCount());
}

void BM_MonitorCpuNoPlayers(benchmark::State& state) { monitorShareOfOneCore(state, false); }
void BM_MonitorCpuOnePlayingPlayer(benchmark::State& state) { monitorShareOfOneCore(state, true); }

}  // namespace

BENCHMARK(BM_TickWithNoPlayers)->Arg(0)->Arg(300)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TickWithOnePlayingPlayer)->Arg(0)->Arg(300)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcScan)->Arg(0)->Arg(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcScanFirstTime)->Arg(0)->Arg(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MonitorCpuNoPlayers)->Arg(300)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_MonitorCpuOnePlayingPlayer)->Arg(300)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
