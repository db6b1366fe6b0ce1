// A long live run of the whole program on a private desktop (Xvfb + openbox, private bus and sound
// server, a test MPRIS player playing music-like sound): every minute, the program's resident
// memory, open files and threads, then the growth over the run. A benchmark, not a test.
//
//   build/bench/app/live_soak [MINUTES]      (default 60; bench/live_soak.sh wraps it)

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "AppDesktop.h"
#include "ProcessStats.h"
#include "TestPlayerProcess.h"
#include "support/PulsePlayer.h"

using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

using lorvane::bench::residentMegabytes;

qsizetype entries(qint64 pid, const char* what) {
    return QDir(QStringLiteral("/proc/%1/%2").arg(pid).arg(what))
        .entryList(QDir::AllEntries | QDir::NoDotAndDotDot)
        .size();
}

void sleepTurning(std::chrono::milliseconds duration) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < duration.count()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        std::this_thread::sleep_for(50ms);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int minutes = argc > 1 ? std::atoi(argv[1]) : 60;
    AppDesktop desktop;
    if (!desktop.ready()) {
        std::fprintf(stderr, "no private desktop: %s\n", desktop.error().c_str());
        return 1;
    }
    ChildProcess lorvane;
    if (!desktop.launchAndWaitForTray(lorvane)) {
        std::fprintf(stderr, "Lorvane did not start\n");
        return 1;
    }
    PulsePlayer sound(PulsePlayer::musicLike());
    TestPlayerProcess spotify(desktop.bus().address(), {"--name", "spotify", "--identity", "Spotify", "--desktop-entry",
                                                        "spotify", "--status", "Playing", "--volume", "0.8"});
    const bool live = sound.waitUntilPlaying(10s) && spotify.isReady() &&
                      waitFor(
                          [&] {
                              const auto menu = desktop.tray().layout();
                              return menu && menu->findPrefix(QStringLiteral("Audio Analysis: Live ")) != nullptr;
                          },
                          30s);
    if (!live) {
        std::fprintf(stderr, "the wave did not go live\n");
        return 1;
    }
    sleepTurning(5s);
    const qint64 pid = lorvane.pid();
    std::printf("%6s %10s %6s %8s\n", "minute", "rss_MB", "files", "threads");
    double firstRss = 0;
    qsizetype firstFiles = 0, firstThreads = 0;
    double rss = 0;
    qsizetype files = 0, threads = 0;
    for (int minute = 0; minute <= minutes; ++minute) {
        if (minute > 0) sleepTurning(60s);
        if (!lorvane.running()) {
            std::fprintf(stderr, "Lorvane ended after %d minutes\n", minute);
            return 1;
        }
        rss = residentMegabytes(pid);
        files = entries(pid, "fd");
        threads = entries(pid, "task");
        if (minute == 0) {
            firstRss = rss;
            firstFiles = files;
            firstThreads = threads;
        }
        std::printf("%6d %10.1f %6lld %8lld\n", minute, rss, static_cast<long long>(files),
                    static_cast<long long>(threads));
        std::fflush(stdout);
    }
    std::printf("growth over %d minutes: resident %+.1f MB (%+.2f MB per 10 min), open files %+lld, threads %+lld\n",
                minutes, rss - firstRss, minutes > 0 ? (rss - firstRss) * 10.0 / minutes : 0.0,
                static_cast<long long>(files - firstFiles), static_cast<long long>(threads - firstThreads));
    lorvane.terminate();
    return 0;
}
