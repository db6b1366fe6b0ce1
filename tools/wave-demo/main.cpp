// lorvane-wave-demo: plays a recording's analysis through the real overlay window, so the wave can
// be watched before the whole program exists. The sound itself is not played.
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "RecordingPlayer.h"
#include "core/Clock.h"
#include "core/KeyValueStore.h"
#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "platform/wayland/LayerShellOverlayWindow.h"
#include "platform/wayland/OverlayControllerFactory.h"
#include "platform/wayland/OverlayPathSelection.h"

namespace {

using namespace lorvane;

constexpr const char* usage =
    "Usage: lorvane-wave-demo [OPTIONS] FILE\n"
    "\n"
    "Shows the overlay wave driven by the analysis of FILE (any recording libsndfile reads; other\n"
    "rates are resampled to 48000 Hz), in real time, without playing the sound.\n"
    "\n"
    "  --mode compact|fullscreenFog   display mode (default compact)\n"
    "  --position top|center|bottom   band position (default center)\n"
    "  --color NAME                   wave colour, e.g. cyan, aurora, candyPop (default cyan)\n"
    "  --above                        float above windows instead of sitting on the desktop\n"
    "  --fixed                        audio response off: the wave ignores the analysis\n"
    "  --loop                         start again at the end\n"
    "  --seconds N                    quit after N seconds\n"
    "\n"
    "Exit status: 0 when the recording was shown, 1 when it could not be read or shown, 2 on a usage error.\n";

int fail(const std::string& message, int status) {
    std::fprintf(stderr, "lorvane-wave-demo: %s\n", message.c_str());
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    auto store = std::make_shared<MemoryKeyValueStore>();
    double seconds = -1;
    bool loop = false;
    std::string path;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        auto value = [&](const char* what) -> const char* {
            if (i + 1 >= argc) {
                std::exit(fail(std::string(arg) + " needs " + what + " (try --help)", 2));
            }
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            std::fputs(usage, stdout);
            return 0;
        } else if (arg == "--mode") {
            const auto mode = fromRawValue<OverlayDisplayMode>(value("a mode"));
            if (!mode) return fail("--mode is compact or fullscreenFog", 2);
            store->setString(OverlayPreferences::displayModeKey, std::string(rawValue(*mode)));
        } else if (arg == "--position") {
            const auto position = fromRawValue<OverlayPosition>(value("a position"));
            if (!position) return fail("--position is top, center or bottom", 2);
            store->setString(OverlayPreferences::positionKey, std::string(rawValue(*position)));
        } else if (arg == "--color") {
            const auto color = fromRawValue<WaveColor>(value("a colour name"));
            if (!color) return fail("unknown colour (the names are the palette's raw values, e.g. aurora)", 2);
            store->setString(OverlayPreferences::colorKey, std::string(rawValue(*color)));
        } else if (arg == "--above") {
            store->setBool(OverlayPreferences::avoidsCoveringWindowsKey, false);
        } else if (arg == "--fixed") {
            store->setBool(OverlayPreferences::audioResponsiveKey, false);
        } else if (arg == "--loop") {
            loop = true;
        } else if (arg == "--seconds") {
            char* end = nullptr;
            const char* text = value("a number of seconds");
            seconds = std::strtod(text, &end);
            if (end == text || *end != '\0' || !(seconds > 0)) return fail("--seconds takes a positive number", 2);
        } else if (arg.size() > 1 && arg.front() == '-') {
            return fail("unknown option '" + std::string(arg) + "' (try --help)", 2);
        } else if (!path.empty()) {
            return fail("one recording at a time (try --help)", 2);
        } else {
            path = arg;
        }
    }
    if (path.empty()) return fail("no recording given (try --help)", 2);
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return fail("no graphical session (neither DISPLAY nor WAYLAND_DISPLAY is set)", 1);
    // The same overlay path as the program's: a layer surface where the compositor offers one.
    const OverlayPathChoice overlayPath = selectOverlayPath();

    QGuiApplication app(argc, argv);
    auto preferences = std::make_shared<OverlayPreferences>(store);
    auto model = std::make_shared<VisualizerModel>();
    std::string error;
    std::string notice;
    auto player = tools::RecordingPlayer::open(
        path,
        {[&](const AudioVisualizationFrame& frame) { model->updateLiveFrame(frame); },
         [&](AudioCaptureFailure failure) { model->useFallbackAudio(failure); }},
        error, &notice);
    if (!player) return fail(error, 1);
    if (!notice.empty()) std::fprintf(stderr, "lorvane-wave-demo: %s\n", notice.c_str());

    SteadyClock clock;
    auto controller = makeOverlayController(overlayPath.path, preferences, model, clock);
    controller->showOverlay();
    std::printf("showing %s (%.1f s)\n", path.c_str(), player->duration());
    std::fflush(stdout);

    QElapsedTimer playback;
    playback.start();
    double offset = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const double now = playback.nsecsElapsed() / 1e9;
        if (seconds > 0 && now >= seconds) {
            app.quit();
            return;
        }
        if (!player->advanceTo(now - offset)) {
            if (!loop) {
                app.quit();
                return;
            }
            player->rewind();
            offset = now;
        }
    });
    ticker.start(10);
    const int status = app.exec();
    if (const auto* layer = dynamic_cast<const LayerShellOverlayWindow*>(controller.get())) {
        const auto& pacing = layer->livePacing();
        std::printf("live frames: %lld published, %lld drawn, %lld repeated, %lld skipped\n", pacing.published,
                    pacing.drawn, pacing.repeated, pacing.skipped);
    }
    controller->hideOverlay();
    return status;
}
