#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/render/OverlayWindowController.h"

using namespace lorvane;

namespace {

// Screens and pointer supplied by the test.
class StubScreens final : public ScreenEnvironment {
public:
    std::vector<ScreenInfo> screens() const override { return list; }
    std::optional<std::size_t> mainScreen() const override { return main; }
    PointF pointerLocation() const override { return pointer; }

    std::vector<ScreenInfo> list;
    std::optional<std::size_t> main;
    PointF pointer;
};

// An overlay window that records what the placement asks of it, in order.
class RecordingOverlay final : public OverlayWindowController {
public:
    RecordingOverlay(std::shared_ptr<const OverlayPreferences> preferences, std::unique_ptr<ScreenEnvironment> screens,
                     std::vector<std::string>* log)
        : OverlayWindowController(std::move(preferences), std::move(screens)), log_(log) {
        place();
    }
    bool isVisible() const { return visible; }

    std::optional<OverlayWindowLevel> level;
    std::optional<RectF> frame;
    bool visible = false;

protected:
    void setLevel(OverlayWindowLevel value) override {
        level = value;
        log_->push_back("level " + std::string(rawValue(value)));
    }
    void setFrame(const RectF& value) override {
        frame = value;
        log_->push_back("frame");
    }
    void orderFrontWithoutActivating() override {
        visible = true;
        log_->push_back("front");
    }
    void withdraw() override {
        visible = false;
        log_->push_back("out");
    }

private:
    std::vector<std::string>* log_;
};

// A 1920 x 1080 screen at the origin with a 30-point panel at the top and a 60-point dock at the left.
ScreenInfo laptopScreen() { return {{0, 0, 1920, 1080}, {60, 30, 1860, 1050}}; }
ScreenInfo rightScreen() { return {{1920, 0, 2560, 1440}, {1920, 0, 2560, 1400}}; }

struct Fixture {
    std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>();
    std::shared_ptr<OverlayPreferences> preferences = std::make_shared<OverlayPreferences>(store);
    std::vector<std::string> log;
    StubScreens* screens = nullptr;
    std::unique_ptr<RecordingOverlay> controller;
    RecordingOverlay* panel = nullptr;

    explicit Fixture(std::vector<ScreenInfo> list = {laptopScreen()}, std::optional<std::size_t> main = 0,
                     PointF pointer = {500, 500}) {
        auto ownedScreens = std::make_unique<StubScreens>();
        screens = ownedScreens.get();
        screens->list = std::move(list);
        screens->main = main;
        screens->pointer = pointer;
        controller = std::make_unique<RecordingOverlay>(preferences, std::move(ownedScreens), &log);
        panel = controller.get();
    }
};

}  // namespace

TEST(OverlayPlacement, CenterBandHeightIsAQuarterBetween190And280) {
    EXPECT_DOUBLE_EQ(centerBandHeight(600), 190);
    EXPECT_DOUBLE_EQ(centerBandHeight(1000), 250);
    EXPECT_DOUBLE_EQ(centerBandHeight(1400), 280);
}

TEST(OverlayPlacement, CompactFramesByPositionInsideTheVisibleFrame) {
    const ScreenInfo screen = laptopScreen();
    // Top: 150 high, its top edge 28 below the visible frame's top edge.
    EXPECT_EQ(overlayFrame(screen, OverlayDisplayMode::compact, OverlayPosition::top), (RectF{0, 58, 1920, 150}));
    // Bottom: its bottom edge 28 above the visible frame's bottom edge (1080).
    EXPECT_EQ(overlayFrame(screen, OverlayDisplayMode::compact, OverlayPosition::bottom),
              (RectF{0, 1080 - 28 - 150, 1920, 150}));
    // Centre: 1050 x 0.25 = 262.5 high, centred on the visible frame's middle (30 + 525).
    EXPECT_EQ(overlayFrame(screen, OverlayDisplayMode::compact, OverlayPosition::center),
              (RectF{0, 555 - 131.25, 1920, 262.5}));
}

TEST(OverlayPlacement, CenterBandOnVisibleHeightsOf600And1000And1400) {
    for (auto [height, band] : {std::pair{600.0, 190.0}, {1000.0, 250.0}, {1400.0, 280.0}}) {
        const ScreenInfo screen{{0, 0, 1280, height + 40}, {0, 40, 1280, height}};
        const RectF frame = overlayFrame(screen, OverlayDisplayMode::compact, OverlayPosition::center);
        EXPECT_DOUBLE_EQ(frame.height, band);
        EXPECT_DOUBLE_EQ(frame.y + frame.height / 2, 40 + height / 2);
    }
}

TEST(OverlayPlacement, BandSpansTheFullFrameWidthEvenBesideADock) {
    const RectF frame = overlayFrame(laptopScreen(), OverlayDisplayMode::compact, OverlayPosition::top);
    EXPECT_DOUBLE_EQ(frame.x, 0);
    EXPECT_DOUBLE_EQ(frame.width, 1920);
}

TEST(OverlayPlacement, FogCoversTheFullFrameIncludingPanels) {
    for (OverlayPosition position : allCases<OverlayPosition>()) {
        EXPECT_EQ(overlayFrame(rightScreen(), OverlayDisplayMode::fullscreenFog, position),
                  (RectF{1920, 0, 2560, 1440}));
    }
}

TEST(OverlayPlacement, TargetScreenIsUnderThePointerElseMainElseFirst) {
    const std::vector<ScreenInfo> screens{laptopScreen(), rightScreen()};
    EXPECT_EQ(targetScreenIndex(screens, 0, {2000, 100}), 1u);
    EXPECT_EQ(targetScreenIndex(screens, 0, {1919.5, 100}), 0u);
    EXPECT_EQ(targetScreenIndex(screens, 0, {1920, 100}), 1u);  // far edges are open
    EXPECT_EQ(targetScreenIndex(screens, 1, {100, 1200}), 1u);  // outside every frame: the main screen
    EXPECT_EQ(targetScreenIndex(screens, std::nullopt, {-50, -50}), 0u);
    EXPECT_EQ(targetScreenIndex(screens, 7, {-50, -50}), 0u);  // a stale main index is no screen
    EXPECT_EQ(targetScreenIndex({}, std::nullopt, {0, 0}), std::nullopt);
}

TEST(OverlayPlacement, LevelIsDesktopWhenAvoidingWindowsOrInFog) {
    EXPECT_EQ(overlayWindowLevel(false, OverlayDisplayMode::compact), OverlayWindowLevel::floating);
    EXPECT_EQ(overlayWindowLevel(true, OverlayDisplayMode::compact), OverlayWindowLevel::desktop);
    EXPECT_EQ(overlayWindowLevel(false, OverlayDisplayMode::fullscreenFog), OverlayWindowLevel::desktop);
    EXPECT_EQ(overlayWindowLevel(true, OverlayDisplayMode::fullscreenFog), OverlayWindowLevel::desktop);
}

TEST(OverlayWindowController, ConstructionAppliesLevelThenFrameAndNeverShows) {
    Fixture f;
    EXPECT_EQ(f.log, (std::vector<std::string>{"level desktop", "frame"}));
    EXPECT_FALSE(f.panel->visible);
    // Defaults: covering avoided, compact, centre.
    EXPECT_EQ(f.panel->frame, (RectF{0, 555 - 131.25, 1920, 262.5}));
    EXPECT_EQ(f.screens->screenParametersDidChange.observerCount(), 1u);
}

TEST(OverlayWindowController, FloatingInCompactMovesToTheDesktopInFogEvenWithoutAvoidingWindows) {
    Fixture f;
    f.preferences->setAvoidsCoveringWindows(false);
    f.controller->applyWindowLevel();
    EXPECT_EQ(f.panel->level, OverlayWindowLevel::floating);
    f.preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    f.controller->applyWindowLevel();
    EXPECT_EQ(f.panel->level, OverlayWindowLevel::desktop);
    EXPECT_FALSE(f.preferences->avoidsCoveringWindows());
}

TEST(OverlayWindowController, RepositionFollowsPositionAndMode) {
    Fixture f;
    f.preferences->setPosition(OverlayPosition::top);
    f.controller->reposition();
    EXPECT_EQ(f.panel->frame, (RectF{0, 58, 1920, 150}));
    f.preferences->setPosition(OverlayPosition::bottom);
    f.controller->reposition();
    EXPECT_EQ(f.panel->frame, (RectF{0, 902, 1920, 150}));
    f.preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    f.controller->reposition();
    EXPECT_EQ(f.panel->frame, (RectF{0, 0, 1920, 1080}));
}

TEST(OverlayWindowController, ShowGoesToThePointersScreenAndHideOrdersOut) {
    Fixture f({laptopScreen(), rightScreen()}, 0, {500, 500});
    f.preferences->setPosition(OverlayPosition::top);
    f.log.clear();
    f.screens->pointer = {3000, 700};
    f.controller->showOverlay();
    EXPECT_EQ(f.log, (std::vector<std::string>{"level desktop", "frame", "front"}));
    EXPECT_EQ(f.panel->frame, (RectF{1920, 28, 2560, 150}));
    EXPECT_TRUE(f.panel->isVisible());
    // Between shows the panel does not follow the pointer.
    f.screens->pointer = {100, 100};
    EXPECT_EQ(f.panel->frame, (RectF{1920, 28, 2560, 150}));
    f.controller->hideOverlay();
    EXPECT_FALSE(f.panel->isVisible());
    EXPECT_EQ(f.log.back(), "out");
}

TEST(OverlayWindowController, AsTheApplicationDrivesItFrontShowsWhereLevelAndRepositionPutIt) {
    Fixture f({laptopScreen(), rightScreen()}, 0, {500, 500});
    OverlayPresenting& overlay = *f.controller;
    f.log.clear();
    f.screens->pointer = {3000, 700};
    overlay.applyWindowLevel();
    overlay.reposition();
    overlay.orderFrontRegardless();
    EXPECT_EQ(f.log, (std::vector<std::string>{"level desktop", "frame", "front"}));
    EXPECT_EQ(f.panel->frame, (RectF{1920, 700 - 140, 2560, 280}));
    overlay.orderOut();
    EXPECT_FALSE(f.panel->isVisible());
}

TEST(OverlayWindowController, PointerOutsideEveryScreenUsesTheMainScreen) {
    Fixture f({laptopScreen(), rightScreen()}, 1, {-400, 5000});
    f.preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    f.controller->showOverlay();
    EXPECT_EQ(f.panel->frame, (RectF{1920, 0, 2560, 1440}));
    ASSERT_TRUE(f.controller->targetScreen().has_value());
    EXPECT_EQ(*f.controller->targetScreen(), rightScreen());
}

TEST(OverlayWindowController, WithoutScreensTheFrameIsLeftAsItIs) {
    Fixture f;
    const RectF before = *f.panel->frame;
    f.screens->list.clear();
    f.screens->main.reset();
    f.log.clear();
    f.controller->reposition();
    EXPECT_TRUE(f.log.empty());
    EXPECT_EQ(f.panel->frame, before);
    EXPECT_FALSE(f.controller->targetScreen().has_value());
}

TEST(OverlayWindowController, ScreenChangeReappliesLevelAndFrame) {
    Fixture f;
    f.log.clear();
    // The screen is rearranged: it is now the right-hand display only.
    f.screens->list = {rightScreen()};
    f.screens->main = 0;
    f.preferences->setAvoidsCoveringWindows(false);
    f.screens->screenParametersDidChange();
    EXPECT_EQ(f.log, (std::vector<std::string>{"level floating", "frame"}));
    EXPECT_EQ(f.panel->frame, (RectF{1920, 700 - 140, 2560, 280}));
}
