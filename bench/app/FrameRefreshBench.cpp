// What one audio frame costs the application shell: the controller takes the frame, the model
// publishes it, the tray menu applies what changed and the settings window's status row follows.
// Thirty of these run every second while music plays.
// Run: QT_QPA_PLATFORM=offscreen build/bench/app/app_frame_bench

#include <benchmark/benchmark.h>

#include <QApplication>
#include <cmath>

#include "app/AppFakes.h"
#include "ui/shell/SettingsWindow.h"
#include "ui/shell/TrayMenu.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

struct Shell {
    Shell()
        : h(std::make_shared<MemoryKeyValueStore>(), [](AppEnvironment& environment) {
              environment.factories.makeStatusMenu = [](MenuCommandHandler handler) {
                  return std::make_unique<TrayMenu>(std::move(handler));
              };
              environment.factories.makeSettingsWindow = [](OverlayPreferences& preferences, VisualizerModel& model,
                                                            PlaybackStatus& playbackStatus, SettingsActions actions,
                                                            bool launchAtLogin) {
                  return std::make_unique<SettingsWindow>(preferences, model, playbackStatus, std::move(actions),
                                                          launchAtLogin, QStringLiteral("Version 1 (Build 1)"));
              };
          }) {
        h.launch();
        h.play();
    }
    AppHarness h;
};

AudioVisualizationFrame frameAt(int index) {
    AudioVisualizationFrame frame;
    frame.level = 0.5 + 0.4 * std::sin(index * 0.37);
    frame.motionRate = 1.2;
    frame.beatPulse = (index % 15 == 0) ? 1.0 : 0.2;
    frame.spectrum.assign(96, 0.3);
    return frame;
}

// Every frame changes the level, as live music does.
void BM_FrameThroughControllerAndTray(benchmark::State& state) {
    Shell shell;
    auto run = shell.h.lastRun();
    int index = 0;
    for (auto _ : state) {
        run->frameDidChange(frameAt(index++));
        QCoreApplication::processEvents();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameThroughControllerAndTray);

// Frames whose rounded level stays the same: nothing in the menu changes.
void BM_FrameWithUnchangedPercentage(benchmark::State& state) {
    Shell shell;
    auto run = shell.h.lastRun();
    AudioVisualizationFrame frame = frameAt(0);
    for (auto _ : state) {
        run->frameDidChange(frame);
        QCoreApplication::processEvents();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameWithUnchangedPercentage);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
