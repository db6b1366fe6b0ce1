#include <gtest/gtest.h>

#include "core/app/OverlayPath.h"

using namespace lorvane;

namespace {
const std::vector<std::string> swayGlobals{"wl_compositor", "wl_shm", "xdg_wm_base", "zwlr_layer_shell_v1",
                                           "wl_seat", "wl_output"};
const std::vector<std::string> westonGlobals{"wl_compositor", "wl_shm", "xdg_wm_base", "wl_seat", "wl_output",
                                             "weston_desktop_shell"};

OverlayPathInputs wayland(std::vector<std::string> globals) {
    OverlayPathInputs inputs;
    inputs.waylandDisplay = "wayland-1";
    inputs.x11Display = ":0";
    inputs.waylandGlobals = std::move(globals);
    return inputs;
}
}  // namespace

TEST(OverlayPath, RawValuesMatchTheOverrideVariable) {
    EXPECT_EQ(rawValue(OverlayPath::layerShell), "layer-shell");
    EXPECT_EQ(fromRawValue<OverlayPath>("x11"), OverlayPath::x11);
    EXPECT_FALSE(fromRawValue<OverlayPath>("wayland").has_value());
}

TEST(OverlayPath, WaylandWithLayerShellRunsQtOnWaylandWithALayerSurface) {
    const auto choice = chooseOverlayPath(wayland(swayGlobals));
    EXPECT_EQ(choice.path, OverlayPath::layerShell);
    EXPECT_EQ(choice.qtPlatform, "wayland");
    EXPECT_NE(choice.reason.find("layer-shell"), std::string::npos);
}

TEST(OverlayPath, WaylandWithoutLayerShellRunsOnXWayland) {
    const auto choice = chooseOverlayPath(wayland(westonGlobals));
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_EQ(choice.qtPlatform, "xcb");
    EXPECT_NE(choice.reason.find("XWayland"), std::string::npos);
}

TEST(OverlayPath, AnUnreachableCompositorFallsBackToXWayland) {
    auto inputs = wayland({});
    inputs.waylandGlobals.reset();
    const auto choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_EQ(choice.qtPlatform, "xcb");
}

TEST(OverlayPath, AnX11SessionStaysAsItIs) {
    OverlayPathInputs inputs;
    inputs.x11Display = ":0";
    const auto choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_TRUE(choice.qtPlatform.empty());
    // Globals without a Wayland session do not count.
    inputs.waylandGlobals = swayGlobals;
    EXPECT_EQ(chooseOverlayPath(inputs).path, OverlayPath::x11);
}

TEST(OverlayPath, TheUsersPlatformIsNeverOverwritten) {
    auto inputs = wayland(westonGlobals);
    inputs.qtPlatform = "wayland";
    auto choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_TRUE(choice.qtPlatform.empty());

    inputs = wayland(swayGlobals);
    inputs.qtPlatform = "xcb";
    choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11) << "Qt on xcb cannot carry a layer surface";
    EXPECT_TRUE(choice.qtPlatform.empty());

    inputs.qtPlatform = "wayland-egl";
    choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::layerShell);
    EXPECT_TRUE(choice.qtPlatform.empty());
}

TEST(OverlayPath, TheOverrideWinsWhereItCanWork) {
    auto inputs = wayland(swayGlobals);
    inputs.overlayOverride = "x11";
    auto choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_EQ(choice.qtPlatform, "xcb");
    EXPECT_NE(choice.reason.find("LORVANE_OVERLAY"), std::string::npos);

    inputs.overlayOverride = "layer-shell";
    EXPECT_EQ(chooseOverlayPath(inputs).path, OverlayPath::layerShell);

    // Asked for where the compositor has no layer-shell: the X11 overlay, and the log says why.
    inputs = wayland(westonGlobals);
    inputs.overlayOverride = "layer-shell";
    choice = chooseOverlayPath(inputs);
    EXPECT_EQ(choice.path, OverlayPath::x11);
    EXPECT_NE(choice.reason.find("LORVANE_OVERLAY"), std::string::npos);

    // An unknown value is ignored.
    inputs = wayland(swayGlobals);
    inputs.overlayOverride = "gnome";
    EXPECT_EQ(chooseOverlayPath(inputs).path, OverlayPath::layerShell);
}
