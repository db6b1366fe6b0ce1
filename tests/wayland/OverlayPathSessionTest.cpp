// The overlay path chosen against real compositors: sway advertises wlr layer-shell, weston does not;
// under weston the wave demo runs on XWayland with the X11 overlay.
#include <gtest/gtest.h>

#include <QDir>

#include "WaylandTestSupport.h"
#include "core/app/OverlayPath.h"
#include "platform/wayland/WaylandGlobalsProbe.h"
#include "support/EventLoopWait.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

// The probe as start-up runs it, against the session's socket.
OverlayPathChoice chooseFor(const WaylandUserSession& session) {
    const QProcessEnvironment environment = session.environment();
    qputenv("XDG_RUNTIME_DIR", environment.value(QStringLiteral("XDG_RUNTIME_DIR")).toLocal8Bit());
    qputenv("WAYLAND_DISPLAY", environment.value(QStringLiteral("WAYLAND_DISPLAY")).toLocal8Bit());
    OverlayPathInputs inputs;
    inputs.waylandDisplay = environment.value(QStringLiteral("WAYLAND_DISPLAY")).toStdString();
    inputs.waylandGlobals = probeWaylandGlobals();
    qunsetenv("WAYLAND_DISPLAY");
    return chooseOverlayPath(inputs);
}

}  // namespace

TEST(OverlayPathSession, SwayAdvertisesLayerShell) {
    SwaySession sway;
    ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
    const auto choice = chooseFor(sway);
    EXPECT_EQ(choice.path, OverlayPath::layerShell) << choice.reason;
    EXPECT_EQ(choice.qtPlatform, "wayland");
}

TEST(OverlayPathSession, WestonHasNoLayerShellSoTheDemoRunsTheX11OverlayOnXWayland) {
    WestonSession weston(true);
    ASSERT_TRUE(weston.isRunning()) << weston.error().toStdString();
    const auto choice = chooseFor(weston);
    EXPECT_EQ(choice.path, OverlayPath::x11) << choice.reason;
    EXPECT_EQ(choice.qtPlatform, "xcb");

    const QString recording = writeDemoRecording(weston);
    ASSERT_FALSE(recording.isEmpty());
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("lorvane.overlay.info=true"));
    auto demo = weston.start(QStringLiteral(LORVANE_WAVE_DEMO), {"--loop", recording}, extra);
    ASSERT_TRUE(demo->waitForStarted(10000));
    QByteArray log;
    EXPECT_TRUE(waitForLog(*demo, log, "Overlay: x11 through XWayland")) << log.toStdString();

    // The X11 overlay window exists on weston's XWayland display.
    QByteArray windows;
    EXPECT_TRUE(waitUntil(
        [&] {
            const auto tree = weston.run(QStringLiteral("xwininfo"), {"-root", "-tree", "-display", weston.x11Display()});
            windows = tree.output;
            return windows.contains("\"Lorvane\"");
        },
        std::chrono::milliseconds(20000), std::chrono::milliseconds(200)))
        << "no Lorvane window on XWayland; xwininfo says: " << windows.toStdString() << "\ndemo: " << log.toStdString();
    EXPECT_EQ(demo->state(), QProcess::Running) << log.toStdString();
    stopProcess(*demo);
}
