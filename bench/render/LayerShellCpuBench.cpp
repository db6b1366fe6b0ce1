// The layer-shell overlay's CPU use under a headless sway run as the test user, with the band drawn
// on the CPU into shared memory and with OpenGL (Mesa's software rasteriser here): the wave demo
// plays music-like sound in a loop, and the demo's and sway's CPU are read from /proc over the
// measured seconds. Arguments: the drawing path (0 cpu, 1 gl), the mode (0 compact, 1 fog), seconds.
#include <benchmark/benchmark.h>
#include <sndfile.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/WaylandUserSession.h"

namespace {

using lorvane::test::SwaySession;

double processCpuSeconds(qint64 pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')');
    if (close == std::string::npos) return 0;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14 || i == 15) ticks += std::stod(field);  // utime, stime
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

void spin(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

// Three seconds of a bass line with a kick on every beat, handed to the session's user.
QString writeMusic(const SwaySession& session) {
    const QString path = session.runtimeDirectory() + "/music.wav";
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.toLocal8Bit().constData(), SFM_WRITE, &info);
    if (!file) return {};
    const long frames = 3 * info.samplerate;
    std::vector<float> data(static_cast<std::size_t>(frames) * 2);
    for (long i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / info.samplerate;
        const double value = 0.3 * std::sin(2 * M_PI * 110 * t) +
                             0.6 * std::exp(-std::fmod(t, 0.5) * 30) * std::sin(2 * M_PI * 55 * t);
        data[static_cast<std::size_t>(2 * i)] = data[static_cast<std::size_t>(2 * i + 1)] = static_cast<float>(value);
    }
    const bool ok = sf_writef_float(file, data.data(), frames) == frames;
    sf_close(file);
    if (!ok) return {};
    session.handOver(path);
    return path;
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
    const QString music = writeMusic(sway);
    if (music.isEmpty()) return state.SkipWithError("cannot write the music");
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("LORVANE_RENDERER"), gl ? QStringLiteral("gl") : QStringLiteral("cpu"));
    QStringList arguments{"--mode", fog ? "fullscreenFog" : "compact", "--position", "center", "--loop", music};
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO), arguments, extra);
    if (!demo->waitForStarted(10000)) return state.SkipWithError("the demo did not start");
    spin(3);  // settle
    for (auto _ : state) {
        const double demo0 = processCpuSeconds(demo->processId());
        const double sway0 = processCpuSeconds(sway.compositorPid());
        QElapsedTimer wall;
        wall.start();
        spin(seconds);
        const double elapsed = wall.nsecsElapsed() / 1e9;
        state.SetIterationTime(elapsed);
        state.counters["demo_cpu_%"] = 100 * (processCpuSeconds(demo->processId()) - demo0) / elapsed;
        state.counters["sway_cpu_%"] = 100 * (processCpuSeconds(sway.compositorPid()) - sway0) / elapsed;
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
