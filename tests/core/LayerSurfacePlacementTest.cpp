#include <gtest/gtest.h>

#include "core/render/LayerSurfacePlacement.h"

using namespace lorvane;

TEST(LayerSurfacePlacement, TheLevelChoosesTheLayer) {
    EXPECT_EQ(layerSurfacePlacement(OverlayWindowLevel::floating, OverlayDisplayMode::compact,
                                     OverlayPosition::top, 800).layer,
              LayerShellLayer::top);
    EXPECT_EQ(layerSurfacePlacement(OverlayWindowLevel::desktop, OverlayDisplayMode::compact,
                                     OverlayPosition::top, 800).layer,
              LayerShellLayer::bottom);
}

TEST(LayerSurfacePlacement, EdgeBandsHangFromTheirEdgeWithTheInset) {
    const auto top =
        layerSurfacePlacement(OverlayWindowLevel::floating, OverlayDisplayMode::compact, OverlayPosition::top, 800);
    EXPECT_TRUE(top.anchorTop && top.anchorLeft && top.anchorRight);
    EXPECT_FALSE(top.anchorBottom);
    EXPECT_EQ(top.marginTop, 28);
    EXPECT_EQ(top.height, 150);
    EXPECT_EQ(top.exclusiveZone, 0);

    const auto bottom =
        layerSurfacePlacement(OverlayWindowLevel::desktop, OverlayDisplayMode::compact, OverlayPosition::bottom, 800);
    EXPECT_TRUE(bottom.anchorBottom && bottom.anchorLeft && bottom.anchorRight);
    EXPECT_FALSE(bottom.anchorTop);
    EXPECT_EQ(bottom.marginBottom, 28);
    EXPECT_EQ(bottom.height, 150);
}

TEST(LayerSurfacePlacement, TheCentreBandIsCentredByTheCompositorAtTheComputedHeight) {
    for (const auto& [visible, height] : {std::pair{600.0, 190}, {1000.0, 250}, {1400.0, 280}}) {
        const auto centre = layerSurfacePlacement(OverlayWindowLevel::floating, OverlayDisplayMode::compact,
                                                  OverlayPosition::center, visible);
        EXPECT_TRUE(centre.anchorLeft && centre.anchorRight);
        EXPECT_FALSE(centre.anchorTop || centre.anchorBottom);
        EXPECT_EQ(centre.height, height) << visible;
        EXPECT_EQ(centre.marginTop + centre.marginBottom, 0);
    }
}

TEST(LayerSurfacePlacement, FogFillsTheWholeOutput) {
    const auto fog = layerSurfacePlacement(OverlayWindowLevel::desktop, OverlayDisplayMode::fullscreenFog,
                                           OverlayPosition::top, 800);
    EXPECT_TRUE(fog.anchorTop && fog.anchorBottom && fog.anchorLeft && fog.anchorRight);
    EXPECT_EQ(fog.height, 0);
    EXPECT_EQ(fog.exclusiveZone, -1);
    EXPECT_EQ(fog.layer, LayerShellLayer::bottom);
}
