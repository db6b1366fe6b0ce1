// CPU use of the whole overlay showing a live wave, on a private X server (Xvfb + openbox) with Mesa's
// software OpenGL: an upper bound of what a machine with a GPU pays. Run:
//   build/bench/render/overlay_cpu_bench                         (60 s per case)
//   build/bench/render/overlay_cpu_bench --benchmark_filter=Compact/10   (a shorter look)
// Counters: process_cpu = this process (drawing, including the software rasteriser's threads) as a
// percentage of one core; xserver_cpu = the X server presenting the frames; fps = frames drawn per
// second; interval_* = the spread of the intervals between frames put on screen. The model is fed
// as live capture feeds it: 20 ms sound blocks through the analysis and its 1/30 s schedule. Under
// Xvfb the OpenGL is software, so the overlay draws on the CPU; LORVANE_RENDERER=gl forces OpenGL.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>
#include <QTimer>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "ProcessStats.h"
#include "core/KeyValueStore.h"
#include "core/analysis/AudioAnalyzer.h"
#include "support/XSession.h"
#include "ui/OverlayWindow.h"
#include "ui/OverlayWindowFactory.h"

using namespace lorvane;

namespace {

lorvane::test::XSession* session = nullptr;

double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
}


// Runs the event loop (blocking, no polling of our own) for `seconds`.
void spin(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(static_cast<int>(seconds * 1000), Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

bool useMonitor(int width, int height) {
    if (!session->setMonitors({{0, 0, width, height}})) return false;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 10000) {
        const auto screens = QGuiApplication::screens();
        if (screens.size() == 1 && screens.front()->geometry() == QRect(0, 0, width, height)) return true;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return false;
}

void runOverlay(benchmark::State& state, OverlayDisplayMode mode, int width, int height) {
    if (!useMonitor(width, height)) {
        state.SkipWithError("the monitor did not come up");
        return;
    }
    auto store = std::make_shared<MemoryKeyValueStore>();
    auto preferences = std::make_shared<OverlayPreferences>(store);
    auto model = std::make_shared<VisualizerModel>();
    preferences->setDisplayMode(mode);
    preferences->setColor(WaveColor::aurora);
    SteadyClock clock;
    auto controller = makeOverlayWindowController(preferences, model, clock);
    auto& window = *controller;

    // Live capture as it happens: a 20 ms block of music-like sound every 20 ms through the real
    // analysis, which publishes on its 1/30 s schedule.
    AudioAnalyzer analyzer;
    analyzer.beginRun(clock.now());
    QTimer analysis;
    analysis.setTimerType(Qt::PreciseTimer);
    std::vector<float> block(960);
    long long written = 0;
    QObject::connect(&analysis, &QTimer::timeout, [&] {
        for (float& sample : block) {
            const double t = static_cast<double>(written++) / 48000.0;
            const double beat = std::fmod(t * 2, 1.0) < 0.1 ? 1.0 : 0.3;
            sample = static_cast<float>(beat * (0.3 * std::sin(2 * M_PI * 110 * t) + 0.1 * std::sin(2 * M_PI * 1760 * t)));
        }
        double squares = 0;
        for (float sample : block) squares += double(sample) * sample;
        const auto result = analyzer.process(ExtractedAudio{std::sqrt(squares / block.size()), block}, clock.now());
        if (result.outcome == AudioAnalyzer::Outcome::frame) model->updateLiveFrame(result.frame);
    });
    std::vector<double> presented;
    bool recording = false;
    window.framePresented = [&](double at) {
        if (recording) presented.push_back(at);
    };
    analysis.start(20);
    controller->showOverlay();
    spin(2);  // settle

    const double seconds = static_cast<double>(state.range(0));
    for (auto _ : state) {
        const double cpu0 = processCpuSeconds(), x0 = bench::cpuSeconds(session->serverPid());
        const long long frames0 = window.framesDrawn();
        QElapsedTimer wall;
        wall.start();
        presented.clear();
        recording = true;
        spin(seconds);
        recording = false;
        const double elapsed = wall.nsecsElapsed() / 1e9;
        state.SetIterationTime(elapsed);
        state.counters["process_cpu_%"] = 100 * (processCpuSeconds() - cpu0) / elapsed;
        state.counters["xserver_cpu_%"] = 100 * (bench::cpuSeconds(session->serverPid()) - x0) / elapsed;
        state.counters["fps"] = static_cast<double>(window.framesDrawn() - frames0) / elapsed;
        // Pacing: the spread of the intervals between frames put on screen.
        std::vector<double> intervals;
        for (std::size_t i = 1; i < presented.size(); ++i) intervals.push_back(presented[i] - presented[i - 1]);
        double mean = 0, squares = 0, longest = 0;
        for (double v : intervals) mean += v / static_cast<double>(intervals.size());
        for (double v : intervals) {
            squares += (v - mean) * (v - mean);
            longest = std::max(longest, v);
        }
        state.counters["interval_mean_ms"] = 1000 * mean;
        state.counters["interval_stddev_ms"] = intervals.empty() ? 0 : 1000 * std::sqrt(squares / intervals.size());
        state.counters["interval_max_ms"] = 1000 * longest;
        state.counters["drawing_path_cpu"] = window.drawingPath() == DrawingPath::cpu ? 1 : 0;
    }
    controller->hideOverlay();
    // Hidden: no frames, next to no CPU.
    const double cpu0 = processCpuSeconds();
    const long long frames0 = window.framesDrawn();
    spin(3);
    state.counters["hidden_cpu_%"] = 100 * (processCpuSeconds() - cpu0) / 3;
    state.counters["hidden_frames"] = static_cast<double>(window.framesDrawn() - frames0);
}

void Compact1920x1080(benchmark::State& state) { runOverlay(state, OverlayDisplayMode::compact, 1920, 1080); }
BENCHMARK(Compact1920x1080)->Arg(60)->Arg(10)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void Fog3840x2160(benchmark::State& state) { runOverlay(state, OverlayDisplayMode::fullscreenFog, 3840, 2160); }
BENCHMARK(Fog3840x2160)->Arg(60)->Arg(10)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    lorvane::test::XSession::Options options;
    options.width = 3840;
    options.height = 2160;
    lorvane::test::XSession x(options);
    if (!x.isRunning()) {
        std::fprintf(stderr, "no X session: %s\n", x.error().c_str());
        return 1;
    }
    session = &x;
    x.exportEnvironment();
    QGuiApplication app(argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
