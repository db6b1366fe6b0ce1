// Helper of bench/capture_cpu.sh: runs one side of the CPU measurement as its own process, against
// whatever PulseAudio server the environment names.
//
//   capture_probe play SECONDS      plays a music-like signal into the default sink
//   capture_probe capture SECONDS [FRAGMENT_MS]
//                                   runs Lorvane's capture and analysis, frames delivered to a main loop

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "core/Clock.h"
#include "platform/linux/PulseCaptureSource.h"
#include "support/ManualMainQueue.h"
#include "support/PulsePlayer.h"

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: %s play|capture SECONDS [FRAGMENT_MS]\n", argv[0]);
        return 2;
    }
    const std::string mode = argv[1];
    const auto duration = std::chrono::milliseconds(static_cast<long>(std::atof(argv[2]) * 1000));

    if (mode == "play") {
        // A music player's usual buffer: it does not ask the server for low latency itself.
        lorvane::test::PulsePlayer player(lorvane::test::PulsePlayer::musicLike(), {}, 0.2);
        if (!player.waitUntilPlaying(std::chrono::seconds(5))) {
            std::fprintf(stderr, "cannot play: %s\n", player.why().c_str());
            return 1;
        }
        const auto end = std::chrono::steady_clock::now() + duration;
        while (!player.failed() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        return player.failed() ? 1 : 0;
    }

    if (mode == "capture") {
        lorvane::test::ManualMainQueue queue;
        lorvane::SteadyClock clock;
        long frames = 0;
        bool failed = false;
        auto monitor = lorvane::makePulseAudioLevelMonitor(
            [&](const lorvane::AudioVisualizationFrame&) { ++frames; },
            [&](lorvane::AudioCaptureFailure failure) {
                std::fprintf(stderr, "capture failed: %s\n", std::string(lorvane::rawValue(failure)).c_str());
                failed = true;
            },
            queue, clock,
            argc == 4 ? std::atof(argv[3]) / 1000 : lorvane::PulseCaptureSource::defaultFragmentSeconds);
        monitor->start();
        // The main thread sleeps until a frame is posted, like the application's event loop.
        queue.runUntil([&] { return failed; }, duration);
        monitor->stop();
        std::printf("%ld frames in %.1f s\n", frames, static_cast<double>(duration.count()) / 1000);
        return failed ? 1 : 0;
    }

    std::fprintf(stderr, "unknown mode %s\n", mode.c_str());
    return 2;
}
