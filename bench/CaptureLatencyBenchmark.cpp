// From sound to wave: the time from writing a tone burst into the sink of a private PulseAudio server
// to the first frame, delivered on the main thread, whose level rose. Measured in steady state (the
// capture has been running for a while), one burst per iteration, 50 bursts; reports the median and
// the worst, for the capture's fragment size (20 ms) and others, behind a short and a long player buffer,
// with the capture on a connection of its own or, as in the program, on the connection it shares with
// the output volume.
//
//   build/bench/bench_capture

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "core/Clock.h"
#include "platform/linux/PulseCaptureSource.h"
#include "platform/linux/PulseOutputVolume.h"
#include "support/ManualMainQueue.h"
#include "support/PulsePlayer.h"
#include "support/PulseServer.h"

namespace {

using namespace std::chrono_literals;
using lorvane::test::PulsePlayer;
using lorvane::test::PulseServer;

std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// A faint hum (about -70 dBFS: level 0, but not silence, which would end the run after 4 s), and on
// request a 60 ms burst of 1 kHz at -10 dBFS; notes when the burst was written.
struct Bursts {
    std::atomic<bool> requested{false};
    std::atomic<std::int64_t> writtenAt{0};
    std::size_t remaining = 0;  // player thread only
    std::size_t phase = 0;
    std::uint64_t humPhase = 0;

    PulsePlayer::Generator generator() {
        return [this](float* out, std::size_t frames, std::uint64_t) {
            if (remaining == 0 && requested.exchange(false)) {
                remaining = PulsePlayer::sampleRate * 60 / 1000;
                phase = 0;
                writtenAt = nowNanoseconds();
            }
            for (std::size_t i = 0; i < frames; ++i) {
                float value = static_cast<float>(0.0004 * std::sin(2 * std::numbers::pi * 200 * humPhase++ / 48000.0));
                if (remaining > 0) {
                    value += static_cast<float>(0.4472 * std::sin(2 * std::numbers::pi * 1000 * phase++ / 48000.0));
                    --remaining;
                }
                out[2 * i] = value;
                out[2 * i + 1] = value;
            }
        };
    }
};

void BM_SoundToFrameLatency(benchmark::State& state) {
    PulseServer server;
    if (!server.running()) {
        state.SkipWithError("the private PulseAudio server did not start");
        return;
    }
    Bursts bursts;
    PulsePlayer player(bursts.generator(), {}, static_cast<double>(state.range(1)) / 1000);
    if (!player.waitUntilPlaying(5s)) {
        state.SkipWithError("the player did not start");
        return;
    }
    lorvane::test::ManualMainQueue queue;
    lorvane::SteadyClock clock;
    std::size_t frameCount = 0;
    double level = 0;
    double levelBeforeBurst = 0;
    std::int64_t roseAt = 0;
    bool failed = false;
    auto onFrame = [&](const lorvane::AudioVisualizationFrame& frame) {
        ++frameCount;
        level = frame.level;
        if (bursts.writtenAt != 0 && roseAt == 0 && frame.level > levelBeforeBurst + 0.05) {
            roseAt = nowNanoseconds();
        }
    };
    auto onFailure = [&](lorvane::AudioCaptureFailure) { failed = true; };
    const double fragmentSeconds = static_cast<double>(state.range(0)) / 1000;
    std::shared_ptr<lorvane::PulseConnection> connection;
    std::unique_ptr<lorvane::PulseOutputVolume> volume;
    if (state.range(2) != 0) {
        connection = std::make_shared<lorvane::PulseConnection>();
        volume = std::make_unique<lorvane::PulseOutputVolume>(connection);
    }
    auto monitor = connection ? lorvane::makePulseAudioLevelMonitor(onFrame, onFailure, queue, clock, connection,
                                                                    fragmentSeconds)
                              : lorvane::makePulseAudioLevelMonitor(onFrame, onFailure, queue, clock, fragmentSeconds);
    monitor->start();
    // Past the start-up wait, into steady state.
    if (!queue.runUntil([&] { return frameCount >= 90 || failed; }, 10s) || failed) {
        state.SkipWithError("no frames");
        return;
    }

    std::vector<double> latencies;
    // Bursts at random moments: the frame throttle (1/30 s) and the sink's blocks are not in step with them.
    std::minstd_rand random(42);
    std::uniform_int_distribution<int> offset(0, 50);
    for (auto _ : state) {
        queue.runUntil([&] { return level < 0.05 || failed; }, 3s);
        queue.runUntil([&] { return failed; }, std::chrono::milliseconds(offset(random)));
        levelBeforeBurst = level;
        roseAt = 0;
        bursts.writtenAt = 0;
        bursts.requested = true;
        if (!queue.runUntil([&] { return roseAt != 0 || failed; }, 3s) || failed) {
            state.SkipWithError("a burst was not seen");
            break;
        }
        const double seconds = static_cast<double>(roseAt - bursts.writtenAt) / 1e9;
        latencies.push_back(seconds);
        state.SetIterationTime(seconds);
    }
    monitor->stop();
    if (latencies.empty()) return;
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[latencies.size() / 2] * 1000;
    state.counters["worst_ms"] = latencies.back() * 1000;
    state.counters["best_ms"] = latencies.front() * 1000;
}

// Arguments: the capture fragment in milliseconds (the program uses 20), and the player's buffer in
// milliseconds. With a 10 ms player the sink runs at the player's pace whatever the capture asks;
// behind a 200 ms buffer, as music players keep, the capture's fragment sets the sink's pace, and the
// time includes the player's own buffer. The third argument puts the capture on the connection shared
// with the output volume (1), as the program does, or on one of its own (0).
BENCHMARK(BM_SoundToFrameLatency)
    ->ArgNames({"fragment_ms", "player_ms", "shared"})
    ->Args({10, 10, 0})
    ->Args({20, 10, 0})
    ->Args({30, 10, 0})
    ->Args({10, 200, 0})
    ->Args({20, 200, 0})
    ->Args({20, 10, 1})
    ->Args({20, 200, 1})
    ->Iterations(50)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
