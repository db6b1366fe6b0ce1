// The whole program on a private desktop (Xvfb + openbox, private bus and sound server):
//   - time from launch to the tray icon (its StatusNotifier registration) and to the settings window;
//   - resident memory while the wave shows live music (LORVANE_BENCH_LIVE_SECONDS, default 600);
//   - CPU of the program over 60 s while music plays (compact band, 1920x1080) and while nothing plays;
//   - the program live next to cava on the same desktop and music (BM_LiveAgainstCava, needs cava):
//     each alone for LORVANE_BENCH_SECONDS (default 60), with the sound server's and the X server's
//     CPU in each phase, and the ratios.
// Run: build/bench/app/app_bench [--benchmark_filter=...]. LORVANE_RENDERER=gl|cpu is passed on to
// the program (under Xvfb it draws on the CPU by itself: the OpenGL there is software).

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "AppDesktop.h"
#include "ProcessStats.h"
#include "TestPlayerProcess.h"
#include "support/PulsePlayer.h"

using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

using lorvane::bench::cpuSeconds;
using lorvane::bench::residentMegabytes;

// CPU seconds per thread name (threads of the same name, such as llvmpipe's, are added up).
std::map<std::string, double> cpuSecondsByThread(qint64 pid) {
    std::map<std::string, double> byName;
    const QString taskRoot = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString& task : QDir(taskRoot).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        std::ifstream comm((taskRoot + "/" + task + "/comm").toStdString());
        std::string name;
        std::getline(comm, name);
        // llvmpipe-0, llvmpipe-1, ... are one renderer.
        if (const auto dash = name.find('-'); dash != std::string::npos && name.rfind("llvmpipe", 0) == 0) {
            name = name.substr(0, dash);
        }
        byName[name] += cpuSeconds(pid, task.toLongLong());
    }
    return byName;
}

void sleepTurning(std::chrono::milliseconds duration) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < duration.count()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        std::this_thread::sleep_for(50ms);
    }
}

bool waitForLive(AppDesktop& desktop) {
    return waitFor([&] {
        const auto menu = desktop.tray().layout();
        const MenuNode* audio = menu ? menu->findPrefix(QStringLiteral("Audio Analysis: Live ")) : nullptr;
        return audio != nullptr;
    }, 30s);
}

struct Music {
    explicit Music(AppDesktop& desktop)
        : sound(PulsePlayer::musicLike()),
          spotify(desktop.bus().address(), {"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "spotify",
                                            "--status", "Playing", "--volume", "0.8"}) {}
    bool ready() { return sound.waitUntilPlaying(10s) && spotify.isReady(); }
    PulsePlayer sound;
    TestPlayerProcess spotify;
};

void BM_LaunchToTrayAndSettingsWindow(benchmark::State& state) {
    AppDesktop desktop;
    if (!desktop.ready()) return state.SkipWithError(desktop.error().c_str());
    double trayTotal = 0, windowTotal = 0;
    for (auto _ : state) {
        ChildProcess lorvane;
        QElapsedTimer clock;
        clock.start();
        if (!desktop.launch(lorvane)) return state.SkipWithError("launch failed");
        double tray = -1, window = -1;
        waitFor([&] {
            if (tray < 0 && !desktop.tray().registeredItems().isEmpty()) tray = clock.nsecsElapsed() / 1e6;
            if (window < 0 && !desktop.windowsNamed("Lorvane Settings", true).empty()) window = clock.nsecsElapsed() / 1e6;
            return tray >= 0 && window >= 0;
        }, 30s);
        if (tray < 0 || window < 0) return state.SkipWithError("no tray icon or settings window");
        state.SetIterationTime(std::max(tray, window) / 1000.0);
        trayTotal += tray;
        windowTotal += window;
        lorvane.terminate();
        waitFor([&] { return desktop.tray().registeredItems().isEmpty(); }, 10s);
    }
    state.counters["tray_ms"] = benchmark::Counter(trayTotal, benchmark::Counter::kAvgIterations);
    state.counters["settings_window_ms"] = benchmark::Counter(windowTotal, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_LaunchToTrayAndSettingsWindow)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_ResidentMemoryWhileLive(benchmark::State& state) {
    const int seconds = qEnvironmentVariableIsSet("LORVANE_BENCH_LIVE_SECONDS")
                            ? qEnvironmentVariableIntValue("LORVANE_BENCH_LIVE_SECONDS")
                            : 600;
    for (auto _ : state) {
        AppDesktop desktop;
        if (!desktop.ready()) return state.SkipWithError(desktop.error().c_str());
        ChildProcess lorvane;
        if (!desktop.launchAndWaitForTray(lorvane)) return state.SkipWithError("launch failed");
        Music music(desktop);
        if (!music.ready() || !waitForLive(desktop)) return state.SkipWithError("the wave did not go live");
        sleepTurning(5s);
        const double start = residentMegabytes(lorvane.pid());
        double peak = start;
        for (int elapsed = 0; elapsed < seconds; elapsed += 10) {
            sleepTurning(10s);
            peak = std::max(peak, residentMegabytes(lorvane.pid()));
        }
        const double end = residentMegabytes(lorvane.pid());
        state.counters["rss_start_MB"] = start;
        state.counters["rss_end_MB"] = end;
        state.counters["rss_peak_MB"] = peak;
        state.counters["live_seconds"] = seconds;
        state.counters["rss_growth_MB_per_10min"] = (end - start) * 600.0 / std::max(1, seconds);
        lorvane.terminate();
    }
}
BENCHMARK(BM_ResidentMemoryWhileLive)->Iterations(1)->Unit(benchmark::kSecond);

void cpuOverAMinute(benchmark::State& state, bool playing) {
    for (auto _ : state) {
        AppDesktop desktop;
        if (!desktop.ready()) return state.SkipWithError(desktop.error().c_str());
        ChildProcess lorvane;
        // Started as at login, in the tray only: the settings window's preview would draw too.
        if (!desktop.launchAndWaitForTray(lorvane, std::chrono::seconds(30), {QStringLiteral("--background")})) {
            return state.SkipWithError("launch failed");
        }
        std::unique_ptr<Music> music;
        if (playing) {
            music = std::make_unique<Music>(desktop);
            if (!music->ready() || !waitForLive(desktop)) return state.SkipWithError("the wave did not go live");
        }
        // Let start-up work settle, then measure one minute.
        sleepTurning(5s);
        const double before = cpuSeconds(lorvane.pid());
        const auto threadsBefore = cpuSecondsByThread(lorvane.pid());
        QElapsedTimer clock;
        clock.start();
        sleepTurning(60s);
        const double used = cpuSeconds(lorvane.pid()) - before;
        const double wall = clock.nsecsElapsed() / 1e9;
        state.counters["cpu_percent_of_one_core"] = 100.0 * used / wall;
        // Where it goes: the main thread (Qt, the controller, the tray), the sample thread (analysis),
        // the GL driver's threads (software rendering under Xvfb) and the rest.
        for (const auto& [name, seconds] : cpuSecondsByThread(lorvane.pid())) {
            const auto earlier = threadsBefore.find(name);
            const double share = 100.0 * (seconds - (earlier == threadsBefore.end() ? 0.0 : earlier->second)) / wall;
            if (share >= 0.5) state.counters["cpu%_" + name] = share;
        }
        state.counters["rss_MB"] = residentMegabytes(lorvane.pid());
        lorvane.terminate();
    }
}

double measuredSeconds() {
    return qEnvironmentVariableIsSet("LORVANE_BENCH_SECONDS") ? qEnvironmentVariableIntValue("LORVANE_BENCH_SECONDS")
                                                              : 60;
}

// CPU seconds of several processes.
std::vector<double> cpuOf(const std::vector<qint64>& pids) {
    std::vector<double> result;
    for (qint64 pid : pids) result.push_back(cpuSeconds(pid));
    return result;
}

// Percentages of one core of each process over `seconds` of turning the event loop.
std::vector<double> measureShares(const std::vector<qint64>& pids, double seconds) {
    const auto before = cpuOf(pids);
    QElapsedTimer clock;
    clock.start();
    sleepTurning(std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));
    const double wall = clock.nsecsElapsed() / 1e9;
    const auto after = cpuOf(pids);
    std::vector<double> shares;
    for (std::size_t i = 0; i < pids.size(); ++i) shares.push_back(100.0 * (after[i] - before[i]) / wall);
    return shares;
}

void BM_LiveAgainstCava(benchmark::State& state) {
    const QString cava = QStandardPaths::findExecutable(QStringLiteral("cava"));
    if (cava.isEmpty()) return state.SkipWithError("cava is not installed");
    const double seconds = measuredSeconds();
    for (auto _ : state) {
        AppDesktop desktop;
        if (!desktop.ready()) return state.SkipWithError(desktop.error().c_str());
        Music music(desktop);
        const qint64 sound = desktop.pulse()->pid(), x = desktop.x().serverPid();

        ChildProcess lorvane;
        if (!desktop.launchAndWaitForTray(lorvane, std::chrono::seconds(30), {QStringLiteral("--background")})) {
            return state.SkipWithError("launch failed");
        }
        if (!music.ready() || !waitForLive(desktop)) return state.SkipWithError("the wave did not go live");
        sleepTurning(5s);
        const auto threadsBefore = cpuSecondsByThread(lorvane.pid());
        const auto ours = measureShares({lorvane.pid(), sound, x}, seconds);
        for (const auto& [name, used] : cpuSecondsByThread(lorvane.pid())) {
            const auto earlier = threadsBefore.find(name);
            const double share = 100.0 * (used - (earlier == threadsBefore.end() ? 0.0 : earlier->second)) / seconds;
            if (share >= 0.1) state.counters["lorvane_cpu%_" + name] = share;
        }
        lorvane.terminate();

        // cava as a music visualiser on the same music: 30 frames a second from the sink's monitor.
        QFile config(desktop.home() + QStringLiteral("/cava.conf"));
        if (!config.open(QIODevice::WriteOnly)) return state.SkipWithError("cannot write cava's configuration");
        config.write("[general]\nframerate = 30\n[input]\nmethod = pulse\nsource = lorvane_null.monitor\n"
                     "[output]\nmethod = raw\nraw_target = /dev/null\ndata_format = binary\n");
        config.close();
        ChildProcess peer;
        if (!peer.start(cava, {QStringLiteral("-p"), config.fileName()}, desktop.environment())) {
            return state.SkipWithError("cava did not start");
        }
        sleepTurning(3s);
        const auto theirs = measureShares({peer.pid(), sound, x}, seconds);
        peer.terminate();

        state.counters["lorvane_cpu%"] = ours[0];
        state.counters["lorvane_sound_server_cpu%"] = ours[1];
        state.counters["lorvane_x_server_cpu%"] = ours[2];
        state.counters["cava_cpu%"] = theirs[0];
        state.counters["cava_sound_server_cpu%"] = theirs[1];
        state.counters["cava_x_server_cpu%"] = theirs[2];
        state.counters["ratio_program"] = theirs[0] > 0 ? ours[0] / theirs[0] : 0;
        // The program, the sound server and the X server, against cava, the sound server and the X server.
        const double ourSystem = ours[0] + ours[1] + ours[2], theirSystem = theirs[0] + theirs[1] + theirs[2];
        state.counters["ratio_system"] = theirSystem > 0 ? ourSystem / theirSystem : 0;
    }
}
BENCHMARK(BM_LiveAgainstCava)->Iterations(1)->Unit(benchmark::kSecond);

void BM_CpuWhileMusicPlays(benchmark::State& state) { cpuOverAMinute(state, true); }
void BM_CpuWhileNothingPlays(benchmark::State& state) { cpuOverAMinute(state, false); }
BENCHMARK(BM_CpuWhileMusicPlays)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_CpuWhileNothingPlays)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
