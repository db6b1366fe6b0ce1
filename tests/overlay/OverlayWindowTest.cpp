// The overlay window on a real X desktop (Xvfb + openbox): its X11 state, where it lands on screens
// with panels and on two monitors, what happens when screens change, clicks passing through it, its
// translucency with and without a compositor, and its frame source.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>
#include <algorithm>
#include <functional>
#include <memory>

#include "X11Probe.h"
#include "support/EventLoopWait.h"
#include "support/XSession.h"
#include "ui/OverlayWindow.h"
#include "ui/OverlayWindowFactory.h"
#include "ui/VisualizerPainter.h"

using namespace lorvane;
using lorvane::test::X11Probe;
using lorvane::test::XRect;
using lorvane::test::XWindow;

lorvane::test::XSession& overlaySession();

namespace {

using lorvane::test::waitUntil;


// Runs the event loop for `milliseconds` (used only to show that nothing happens meanwhile).
void idle(int milliseconds) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::ptrdiff_t indexOf(const std::vector<XWindow>& list, XWindow window) {
    const auto found = std::find(list.begin(), list.end(), window);
    return found == list.end() ? -1 : found - list.begin();
}

// Qt's screens are exactly these, in this order (the first being the primary one).
bool screensAre(const std::vector<QRect>& expected) {
    const auto screens = QGuiApplication::screens();
    if (screens.size() != static_cast<qsizetype>(expected.size())) return false;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (screens[static_cast<qsizetype>(i)]->geometry() != expected[i]) return false;
    }
    return QGuiApplication::primaryScreen() == screens.front();
}

std::string describeScreens() {
    std::string text;
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect g = screen->geometry();
        text += screen->name().toStdString() + " " + std::to_string(g.x()) + "," + std::to_string(g.y()) + " " +
                std::to_string(g.width()) + "x" + std::to_string(g.height()) +
                (screen == QGuiApplication::primaryScreen() ? " (primary); " : "; ");
    }
    return text;
}

std::string describe(const std::optional<std::vector<unsigned long>>& values) {
    if (!values) return "none";
    std::string text;
    for (unsigned long v : *values) text += std::to_string(v) + " ";
    return text;
}

class OverlayOnDesktop : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(probe.isConnected());
        useMonitors({{0, 0, 1920, 1080}});
        probe.warpPointer(400, 400);
        controller = makeOverlayWindowController(preferences, model, clock);
    }

    void TearDown() override {
        controller.reset();
        for (XWindow window : created) probe.destroy(window);
    }

    void useMonitors(const std::vector<lorvane::test::XSession::Monitor>& monitors) {
        ASSERT_TRUE(overlaySession().setMonitors(monitors));
        std::vector<QRect> expected;
        for (const auto& m : monitors) expected.emplace_back(m.x, m.y, m.width, m.height);
        ASSERT_TRUE(waitUntil([&] { return screensAre(expected); })) << "Qt did not see the monitors: " << describeScreens();
    }

    OverlayWindow& window() { return *controller; }
    XWindow id() { return static_cast<XWindow>(window().winId()); }
    XRect placed() { return probe.geometryOnRoot(id()); }

    void showAndWait() {
        controller->showOverlay();
        ASSERT_TRUE(waitUntil([&] { return probe.isViewable(id()) && window().framesDrawn() > 0; }));
    }

    XWindow application(const XRect& rect) {
        const XWindow w = probe.createApplicationWindow(rect);
        created.push_back(w);
        EXPECT_TRUE(waitUntil([&] { return probe.isViewable(w) && probe.activeWindow() == w; }));
        return w;
    }

    XWindow topPanel(int thickness) {
        const XWindow panel = probe.createTopPanel(0, 1920, thickness);
        created.push_back(panel);
        EXPECT_TRUE(waitUntil([&] {
            const auto area = probe.cardinals(probe.root(), "_NET_WORKAREA");
            return area && area->size() >= 4 && (*area)[1] == static_cast<unsigned long>(thickness);
        })) << "the window manager did not take the panel's strut: work area "
            << describe(probe.cardinals(probe.root(), "_NET_WORKAREA"));
        return panel;
    }

    bool stackedBelow(XWindow lower, XWindow upper) {
        const auto order = probe.stackingOrder();
        const auto a = indexOf(order, lower), b = indexOf(order, upper);
        return a >= 0 && b >= 0 && a < b;
    }

    X11Probe probe;
    std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>();
    std::shared_ptr<OverlayPreferences> preferences = std::make_shared<OverlayPreferences>(store);
    std::shared_ptr<VisualizerModel> model = std::make_shared<VisualizerModel>();
    SteadyClock clock;
    std::unique_ptr<OverlayWindow> controller;
    std::vector<XWindow> created;
};

}  // namespace

TEST_F(OverlayOnDesktop, ConstructionNeverShowsThePanel) {
    idle(200);
    EXPECT_FALSE(window().isVisible());
    EXPECT_FALSE(probe.isViewable(id()));
    EXPECT_EQ(window().framesDrawn(), 0);
    EXPECT_FALSE(window().isTicking());
}

TEST_F(OverlayOnDesktop, FloatingPanelIsFramelessOnEveryDesktopOutOfTaskbarsAndTakesNoFocus) {
    preferences->setAvoidsCoveringWindows(false);
    controller->applyWindowLevel();
    const XWindow app = application({100, 100, 800, 600});
    showAndWait();

    const auto state = probe.atomNames(id(), "_NET_WM_STATE");
    EXPECT_TRUE(contains(state, "_NET_WM_STATE_ABOVE"));
    EXPECT_TRUE(contains(state, "_NET_WM_STATE_SKIP_TASKBAR"));
    EXPECT_TRUE(contains(state, "_NET_WM_STATE_SKIP_PAGER"));
    EXPECT_EQ(probe.atomNames(id(), "_NET_WM_WINDOW_TYPE"), std::vector<std::string>{"_NET_WM_WINDOW_TYPE_NORMAL"});
    EXPECT_EQ(probe.cardinals(id(), "_NET_WM_DESKTOP"), std::vector<unsigned long>{0xFFFFFFFF});
    EXPECT_EQ(probe.cardinals(id(), "_NET_FRAME_EXTENTS"), (std::vector<unsigned long>{0, 0, 0, 0}));
    EXPECT_EQ(probe.depth(id()), 32);
    EXPECT_EQ(probe.acceptsFocus(id()), false);
    EXPECT_TRUE(probe.inputShape(id()).empty());
    EXPECT_TRUE(waitUntil([&] { return probe.inputShape(probe.frame(id())).empty(); }))
        << "the window manager's frame keeps an input region";
    EXPECT_EQ(probe.activeWindow(), app);
    EXPECT_TRUE(stackedBelow(app, id()));

    // Raising the application keeps it under the floating wave.
    probe.raise(app);
    idle(100);
    EXPECT_TRUE(stackedBelow(app, id()));

    // On every desktop: still on screen after switching to another one.
    ASSERT_EQ(overlaySession().run({"xdotool", "set_desktop", "2"}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return probe.cardinals(probe.root(), "_NET_CURRENT_DESKTOP") ==
                                       std::vector<unsigned long>{2}; }));
    EXPECT_TRUE(waitUntil([&] { return !probe.isViewable(probe.frame(app)); }));
    EXPECT_TRUE(probe.isViewable(id()));
    overlaySession().run({"xdotool", "set_desktop", "0"});
}

TEST_F(OverlayOnDesktop, DesktopLevelSitsBelowEveryApplicationWindow) {
    ASSERT_TRUE(preferences->avoidsCoveringWindows());
    const XWindow app = application({100, 100, 800, 600});
    showAndWait();
    EXPECT_EQ(window().level(), OverlayWindowLevel::desktop);
    EXPECT_EQ(probe.atomNames(id(), "_NET_WM_WINDOW_TYPE"), std::vector<std::string>{"_NET_WM_WINDOW_TYPE_DESKTOP"});
    const auto state = probe.atomNames(id(), "_NET_WM_STATE");
    EXPECT_FALSE(contains(state, "_NET_WM_STATE_ABOVE"));
    EXPECT_TRUE(contains(state, "_NET_WM_STATE_SKIP_TASKBAR"));
    EXPECT_EQ(probe.cardinals(id(), "_NET_WM_DESKTOP"), std::vector<unsigned long>{0xFFFFFFFF});
    EXPECT_TRUE(stackedBelow(id(), app));
    EXPECT_EQ(probe.activeWindow(), app);
}

TEST_F(OverlayOnDesktop, FogMovesAShownFloatingPanelDownToTheDesktopAndBack) {
    preferences->setAvoidsCoveringWindows(false);
    controller->applyWindowLevel();
    const XWindow app = application({100, 100, 800, 600});
    showAndWait();
    ASSERT_TRUE(stackedBelow(app, id()));

    preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    controller->applyWindowLevel();
    controller->reposition();
    EXPECT_TRUE(waitUntil([&] {
        return probe.isViewable(id()) &&
               probe.atomNames(id(), "_NET_WM_WINDOW_TYPE") ==
                   std::vector<std::string>{"_NET_WM_WINDOW_TYPE_DESKTOP"} &&
               stackedBelow(id(), app) && placed() == XRect{0, 0, 1920, 1080};
    })) << "at " << placed().x << "," << placed().y << " " << placed().width << "x" << placed().height;
    EXPECT_FALSE(preferences->avoidsCoveringWindows());
    EXPECT_EQ(probe.cardinals(id(), "_NET_WM_DESKTOP"), std::vector<unsigned long>{0xFFFFFFFF});
    EXPECT_TRUE(waitUntil([&] { return probe.inputShape(probe.frame(id())).empty(); }));

    preferences->setDisplayMode(OverlayDisplayMode::compact);
    controller->applyWindowLevel();
    controller->reposition();
    EXPECT_TRUE(waitUntil([&] {
        return probe.isViewable(id()) &&
               contains(probe.atomNames(id(), "_NET_WM_STATE"), "_NET_WM_STATE_ABOVE") && stackedBelow(app, id());
    }));
}

TEST_F(OverlayOnDesktop, CompactBandsLandInsideTheVisibleFrameOfAScreenWithAPanel) {
    topPanel(40);
    const struct {
        OverlayPosition position;
        XRect expected;
    } cases[] = {
        {OverlayPosition::top, {0, 40 + 28, 1920, 150}},
        {OverlayPosition::center, {0, 40 + 520 - 130, 1920, 260}},  // 1040 x 0.25 = 260
        {OverlayPosition::bottom, {0, 1080 - 28 - 150, 1920, 150}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(rawValue(c.position)));
        preferences->setPosition(c.position);
        controller->showOverlay();
        EXPECT_TRUE(waitUntil([&] { return probe.isViewable(id()) && placed() == c.expected; }))
            << "at " << placed().x << "," << placed().y << " " << placed().width << "x" << placed().height;
        controller->hideOverlay();
        EXPECT_TRUE(waitUntil([&] { return !probe.isViewable(id()); }));
    }
}

TEST_F(OverlayOnDesktop, BandFollowsTheWorkAreaOfTheCurrentDesktop) {
    // The panel reserves its space on the first desktop only (it is not sticky).
    topPanel(40);
    preferences->setPosition(OverlayPosition::top);
    showAndWait();
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 68, 1920, 150}; }));
    // On another desktop the whole height is free: the band moves up without being shown again.
    ASSERT_EQ(overlaySession().run({"xdotool", "set_desktop", "1"}).status, 0);
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 28, 1920, 150}; }))
        << "at " << placed().x << "," << placed().y << " " << placed().width << "x" << placed().height;
    ASSERT_EQ(overlaySession().run({"xdotool", "set_desktop", "0"}).status, 0);
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 68, 1920, 150}; }));
}

TEST_F(OverlayOnDesktop, FullscreenFogCoversTheWholeScreenPanelIncludedWithABlurRequest) {
    topPanel(40);
    preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    showAndWait();
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 0, 1920, 1080}; }));
    EXPECT_TRUE(probe.hasProperty(id(), "_KDE_NET_WM_BLUR_BEHIND_REGION"));

    preferences->setDisplayMode(OverlayDisplayMode::compact);
    controller->applyWindowLevel();
    controller->reposition();
    EXPECT_TRUE(waitUntil([&] { return !probe.hasProperty(id(), "_KDE_NET_WM_BLUR_BEHIND_REGION"); }));
}

TEST_F(OverlayOnDesktop, ShowsOnTheScreenUnderThePointer) {
    useMonitors({{0, 0, 1920, 1080}, {1920, 0, 1920, 1080}});
    probe.warpPointer(2500, 500);
    showAndWait();
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{1920, 540 - 135, 1920, 270}; }));
    controller->hideOverlay();
    // Between shows it does not follow the pointer; at the next show it does.
    probe.warpPointer(300, 300);
    idle(100);
    EXPECT_EQ(window().geometry().x(), 1920);
    showAndWait();
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 540 - 135, 1920, 270}; }));
}

TEST_F(OverlayOnDesktop, PointerOutsideEveryScreenUsesTheMainScreen) {
    // The first monitor is the primary screen; here it is the right-hand one.
    useMonitors({{1920, 0, 1920, 1080}, {0, 0, 1920, 1080}});
    ASSERT_EQ(QGuiApplication::primaryScreen()->geometry(), QRect(1920, 0, 1920, 1080)) << describeScreens();
    probe.warpPointer(100, 1150);  // below both monitors, still on the X screen
    ASSERT_FALSE(QGuiApplication::screenAt(QPoint(100, 1150)));
    preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    showAndWait();
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{1920, 0, 1920, 1080}; }));
}

TEST_F(OverlayOnDesktop, ScreenChangesPlaceThePanelAgain) {
    useMonitors({{0, 0, 1920, 1080}, {1920, 0, 1920, 1080}});
    probe.warpPointer(2500, 500);
    showAndWait();
    ASSERT_TRUE(waitUntil([&] { return placed().x == 1920; }));

    // The right-hand display goes away: the pointer is now off every screen, so the main one is used.
    useMonitors({{0, 0, 1920, 1080}});
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 540 - 135, 1920, 270}; }))
        << "at " << placed().x << "," << placed().y << " " << placed().width << "x" << placed().height;

    // The remaining display changes resolution: 900 x 0.25 = 225, centred on 450.
    useMonitors({{0, 0, 1600, 900}});
    EXPECT_TRUE(waitUntil([&] { return placed() == XRect{0, 338, 1600, 225}; }))
        << "at " << placed().x << "," << placed().y << " " << placed().width << "x" << placed().height;
    EXPECT_TRUE(probe.isViewable(id()));
}

TEST_F(OverlayOnDesktop, ClicksOnTheWaveReachTheWindowBelow) {
    preferences->setAvoidsCoveringWindows(false);
    controller->applyWindowLevel();
    const XWindow app = application({0, 200, 1920, 700});
    showAndWait();
    ASSERT_TRUE(stackedBelow(app, id()));
    const XRect band = placed();
    const int x = band.x + band.width / 2, y = band.y + band.height / 2;
    const XRect target = probe.geometryOnRoot(app);
    ASSERT_TRUE(x >= target.x && x < target.x + target.width && y >= target.y && y < target.y + target.height);
    probe.takeButtonPresses(app);
    ASSERT_EQ(overlaySession().run({"xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1"}).status,
              0);
    EXPECT_TRUE(waitUntil([&] { return probe.takeButtonPresses(app) == 1; }));
}

TEST_F(OverlayOnDesktop, TranslucentOnlyWhenACompositorBlendsTheWindow) {
    ASSERT_EQ(overlaySession().run({"xsetroot", "-solid", "#2050a0"}).status, 0);
    preferences->setAvoidsCoveringWindows(false);
    preferences->setPosition(OverlayPosition::top);
    controller->applyWindowLevel();
    showAndWait();
    const XRect band = placed();
    // The compact canvas leaves 6 points above the wave: only the background is drawn there.
    const int marginY = band.y + 2;
    auto near = [](unsigned long pixel, int r, int g, int b) {
        return std::abs(int((pixel >> 16) & 0xFF) - r) <= 2 && std::abs(int((pixel >> 8) & 0xFF) - g) <= 2 &&
               std::abs(int(pixel & 0xFF) - b) <= 2;
    };
    const int darkR = int(std::lround(opaqueBackground.red * 255)), darkG = int(std::lround(opaqueBackground.green * 255)),
              darkB = int(std::lround(opaqueBackground.blue * 255));
    EXPECT_FALSE(window().isTranslucent());
    EXPECT_TRUE(waitUntil([&] { return near(probe.screenPixel(40, marginY), darkR, darkG, darkB); }))
        << std::hex << probe.screenPixel(40, marginY);

    if (!overlaySession().startCompositor()) GTEST_SKIP() << "xcompmgr is not installed";
    EXPECT_TRUE(waitUntil([&] { return window().isTranslucent(); }));
    // Now the margin shows whatever the compositor shows beside the window: the desktop background.
    const auto blended = [&] {
        const unsigned long desktop = probe.screenPixel(40, band.y - 10);
        return !near(desktop, darkR, darkG, darkB) &&
               near(probe.screenPixel(40, marginY), int(desktop >> 16), int((desktop >> 8) & 0xFF),
                    int(desktop & 0xFF));
    };
    EXPECT_TRUE(waitUntil(blended)) << std::hex << probe.screenPixel(40, marginY) << " beside "
                                    << probe.screenPixel(40, band.y - 10);
    overlaySession().stopCompositor();
    EXPECT_TRUE(waitUntil([&] { return !window().isTranslucent(); }));
}

TEST_F(OverlayOnDesktop, DrawsOnlyWhileOnScreenAtMostThirtyTimesASecond) {
    showAndWait();
    ASSERT_TRUE(waitUntil([&] { return window().framesDrawn() >= 3; }));
    EXPECT_TRUE(window().isTicking());
    QElapsedTimer timer;
    const long long before = window().framesDrawn();
    timer.start();
    idle(1000);
    const double seconds = timer.nsecsElapsed() / 1e9;
    const long long drawn = window().framesDrawn() - before;
    EXPECT_LE(drawn, static_cast<long long>(std::ceil(seconds * 30)) + 1);
    EXPECT_GE(drawn, 2);

    controller->hideOverlay();
    ASSERT_TRUE(waitUntil([&] { return !probe.isViewable(id()); }));
    EXPECT_FALSE(window().isTicking());
    const long long hidden = window().framesDrawn();
    idle(300);
    EXPECT_EQ(window().framesDrawn(), hidden);
}

TEST(FrameTicker, PacesFramesAtLeastOneThirtiethApartWithoutCatchUpBursts) {
    const double interval = 1.0 / 30;
    EXPECT_DOUBLE_EQ(FrameTicker::nextDue(10.0, 10.001), 10.0 + interval);
    // Late by more than a frame: the next frame is a full interval from now, not a burst.
    EXPECT_DOUBLE_EQ(FrameTicker::nextDue(10.0, 10.5), 10.5 + interval);
    EXPECT_EQ(FrameTicker::delayMilliseconds(10.0 + interval, 10.0), 34);  // rounded up, never early
    EXPECT_EQ(FrameTicker::delayMilliseconds(10.0, 10.2), 0);
    // Over a simulated second with a timer that fires on time, at most 30 frames.
    double now = 0, due = interval;
    int frames = 0;
    while (true) {
        now += FrameTicker::delayMilliseconds(due, now) / 1000.0;
        if (now > 1.0) break;
        ++frames;
        due = FrameTicker::nextDue(due, now);
    }
    EXPECT_LE(frames, 30);
    EXPECT_GE(frames, 29);
}

// This test desktop draws OpenGL in software (Mesa's llvmpipe): the overlay picks the CPU path by
// itself, draws the wave there, and follows the preference to the GL path and back.
TEST_F(OverlayOnDesktop, SoftwareOpenGlMakesTheOverlayDrawOnTheCpuUnlessAskedOtherwise) {
    if (!qEnvironmentVariableIsEmpty("LORVANE_RENDERER")) GTEST_SKIP() << "LORVANE_RENDERER chooses the path";
    ASSERT_TRUE(openGlRendererName().has_value());
    ASSERT_TRUE(isSoftwareOpenGl(*openGlRendererName())) << *openGlRendererName();
    EXPECT_EQ(window().drawingPath(), DrawingPath::cpu);

    ASSERT_EQ(overlaySession().run({"xsetroot", "-solid", "#000000"}).status, 0);
    preferences->setAvoidsCoveringWindows(false);
    preferences->setPosition(OverlayPosition::top);
    preferences->setColor(WaveColor::yellow);
    controller->applyWindowLevel();
    showAndWait();
    const XRect band = placed();
    // The middle bar's dot sits on the centre line in the palette's colour.
    const WaveLayout layout = window().view().layout({double(band.width), double(band.height - 12)}, 0.0);
    const WaveBar& middle = layout.bars[layout.bars.size() / 2];
    const int x = band.x + static_cast<int>(middle.x);
    const int y = band.y + 6 + static_cast<int>(layout.midY);
    auto yellowish = [&] {
        const unsigned long pixel = probe.screenPixel(x, y);
        return ((pixel >> 16) & 0xFF) > 120 && ((pixel >> 8) & 0xFF) > 100 && (pixel & 0xFF) < 80;
    };
    EXPECT_TRUE(waitUntil(yellowish)) << std::hex << probe.screenPixel(x, y);

    preferences->setRenderer(RendererChoice::gl);
    ASSERT_TRUE(waitUntil([&] { return window().drawingPath() == DrawingPath::gl; }));
    const long long before = window().framesDrawn();
    EXPECT_TRUE(waitUntil([&] { return window().framesDrawn() > before + 2 && probe.isViewable(id()); }));
    EXPECT_TRUE(waitUntil(yellowish)) << std::hex << probe.screenPixel(x, y);

    preferences->setRenderer(RendererChoice::automatic);
    EXPECT_TRUE(waitUntil([&] { return window().drawingPath() == DrawingPath::cpu; }));
}

// While live the overlay draws once per analysis frame and leaves the steady source off; without
// frames it goes back to the steady source.
TEST_F(OverlayOnDesktop, LiveFramesAreDrawnOncePerFrameAndTheSteadySourceResumesWhenTheyStop) {
    showAndWait();
    ASSERT_TRUE(waitUntil([&] { return window().isTicking(); }));
    std::vector<double> spectrum(96, 0.5);
    model->updateLiveFrame({0.6, 1.2, 0.3, spectrum});
    ASSERT_TRUE(waitUntil([&] { return !window().isTicking(); }));
    for (int i = 0; i < 12; ++i) {
        const long long before = window().framesDrawn();
        model->updateLiveFrame({0.6, 1.2 + 0.01 * i, 0.3, spectrum});
        ASSERT_TRUE(waitUntil([&] { return window().framesDrawn() > before; }));
        EXPECT_EQ(window().framesDrawn(), before + 1) << "frame " << i;
        EXPECT_FALSE(window().isTicking());
    }
    // Frames stop without the model leaving live (a stalled stream): the steady source takes over.
    EXPECT_TRUE(waitUntil([&] { return window().isTicking(); }));
    model->useFallbackAudio(std::nullopt);
    EXPECT_TRUE(window().isTicking());
}
