// The layer-shell overlay's CPU use under a headless sway run as the test user, with the band drawn
// on the CPU into shared memory and with OpenGL (Mesa's software rasteriser here): the wave demo
// plays the Wayland tests' recording in a loop, and the demo's and sway's CPU are read from /proc over the
// measured seconds. Arguments: the drawing path (0 cpu, 1 gl), the mode (0 compact, 1 fog), seconds.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include "ProcessStats.h"
#include "WaylandTestSupport.h"
#include "support/WaylandUserSession.h"

namespace {

using lorvane::test::SwaySession;
namespace bench = lorvane::bench;

void spin(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

void LayerShellOverlay(benchmark::State& state) {
    const bool gl = state.range(0) == 1;
    const bool fog = state.range(1) == 1;
    const double seconds = static_cast<double>(state.range(2));
    SwaySession::Options options;
    options.width = fog ? 3840 : 1920;
    options.height = fog ? 2160 : 1080;
    SwaySession sway(options);
    if (!sway.isRunning()) return state.SkipWithError(sway.error().toStdString().c_str());
    const QString music = lorvane::test::writeDemoRecording(sway);
    if (music.isEmpty()) return state.SkipWithError("cannot write the music");
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("LORVANE_RENDERER"), gl ? QStringLiteral("gl") : QStringLiteral("cpu"));
    QStringList arguments{"--mode", fog ? "fullscreenFog" : "compact", "--position", "center", "--loop", music};
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO), arguments, extra);
    if (!demo->waitForStarted(10000)) return state.SkipWithError("the demo did not start");
    spin(3);  // settle
    for (auto _ : state) {
        const double demo0 = bench::cpuSeconds(static_cast<pid_t>(demo->processId()));
        const double sway0 = bench::cpuSeconds(static_cast<pid_t>(sway.compositorPid()));
        QElapsedTimer wall;
        wall.start();
        spin(seconds);
        const double elapsed = wall.nsecsElapsed() / 1e9;
        state.SetIterationTime(elapsed);
        state.counters["demo_cpu_%"] = 100 * (bench::cpuSeconds(static_cast<pid_t>(demo->processId())) - demo0) / elapsed;
        state.counters["sway_cpu_%"] = 100 * (bench::cpuSeconds(static_cast<pid_t>(sway.compositorPid())) - sway0) / elapsed;
    }
    if (demo->state() != QProcess::Running) state.SkipWithError("the demo ended early");
    demo->terminate();
    demo->waitForFinished(5000);
}
BENCHMARK(LayerShellOverlay)
    ->ArgNames({"gl", "fog", "seconds"})
    ->Args({0, 0, 10})
    ->Args({1, 0, 10})
    ->Args({0, 1, 10})
    ->Args({1, 1, 10})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
