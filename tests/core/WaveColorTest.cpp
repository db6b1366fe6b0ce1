#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "core/WaveColor.h"

using namespace lorvane;

namespace {
RgbaColor bytes(int r, int g, int b) { return RgbaColor::fromBytes(r, g, b); }
}  // namespace

TEST(WaveColor, SeventeenCasesInTableOrderWithRawValuesAndNames) {
    const auto cases = allCases<WaveColor>();
    ASSERT_EQ(cases.size(), 17u);
    EXPECT_EQ(rawValue(cases[0]), "black");
    EXPECT_EQ(rawValue(cases[13]), "candyPop");
    EXPECT_EQ(rawValue(cases[16]), "coralSky");
    EXPECT_EQ(displayName(WaveColor::candyPop), "Candy Pop");
    EXPECT_EQ(displayName(WaveColor::limePulse), "Lime Pulse");
    EXPECT_EQ(displayName(WaveColor::mintGrape), "Mint Grape");
    EXPECT_EQ(displayName(WaveColor::coralSky), "Coral Sky");
    EXPECT_EQ(displayName(WaveColor::cyan), "Cyan");
}

TEST(WaveColor, ColorListsHaveTheTabledLengthsAndValues) {
    for (WaveColor c : allCases<WaveColor>()) {
        const std::size_t n = colors(c).size();
        switch (group(c)) {
            case WaveColorGroup::solid: EXPECT_EQ(n, 1u); break;
            case WaveColorGroup::gradient: EXPECT_EQ(n, 3u); break;
            case WaveColorGroup::contrast: EXPECT_EQ(n, c == WaveColor::coralSky ? 3u : 4u); break;
        }
        for (const RgbaColor& colour : colors(c)) EXPECT_EQ(colour.alpha, 1.0);
    }
    EXPECT_EQ(colors(WaveColor::black)[0].red, 15.0 / 255.0);
    EXPECT_EQ(colors(WaveColor::sunset)[1], colors(WaveColor::pink)[0]);
    EXPECT_EQ(colors(WaveColor::limePulse)[1], colors(WaveColor::green)[0]);
    EXPECT_EQ(colors(WaveColor::sunset)[0], bytes(255, 138, 91));
    EXPECT_NE(colors(WaveColor::sunset)[0], colors(WaveColor::orange)[0]);
    EXPECT_EQ(colors(WaveColor::mintGrape)[3], bytes(47, 208, 211));
}

TEST(WaveColor, FromCapitalisedOrEmptyRawValueGivesNothing) {
    EXPECT_EQ(fromRawValue<WaveColor>("Cyan"), std::nullopt);
    EXPECT_EQ(fromRawValue<WaveColor>(""), std::nullopt);
    EXPECT_EQ(fromRawValue<WaveColor>("cyan"), WaveColor::cyan);
}

TEST(WaveColor, SolidSchemeReturnsItsColourEverywhere) {
    const RgbaColor pink = colors(WaveColor::pink)[0];
    for (double p : {-1.0, 0.0, 0.3, 1.0, 7.0, std::nan(""), -HUGE_VAL, HUGE_VAL}) {
        EXPECT_EQ(colorAt(WaveColor::pink, p), pink) << p;
    }
}

TEST(WaveColor, AuroraAtHalfIsExactlyItsSecondColour) {
    EXPECT_EQ(colorAt(WaveColor::aurora, 0.5), bytes(61, 139, 255));
}

TEST(WaveColor, LimePulseAtOneSixthIsTheHalfwayBlendOfItsFirstTwo) {
    const RgbaColor a = bytes(223, 255, 133), b = bytes(61, 223, 76);
    const RgbaColor got = colorAt(WaveColor::limePulse, 1.0 / 6.0);
    EXPECT_NEAR(got.red, (a.red + b.red) / 2, 1e-12);
    EXPECT_NEAR(got.green, (a.green + b.green) / 2, 1e-12);
    EXPECT_NEAR(got.blue, (a.blue + b.blue) / 2, 1e-12);
    EXPECT_EQ(got.alpha, 1.0);
}

TEST(WaveColor, PositionsBeyondTheEndsGiveTheEndColours) {
    for (WaveColor c : allCases<WaveColor>()) {
        const auto list = colors(c);
        EXPECT_EQ(colorAt(c, 2), list.back()) << rawValue(c);
        EXPECT_EQ(colorAt(c, 1), list.back()) << rawValue(c);
        EXPECT_EQ(colorAt(c, -1), list.front()) << rawValue(c);
        EXPECT_EQ(colorAt(c, std::nan("")), list.front()) << rawValue(c);
    }
}

TEST(WaveColorGroup, IteratesSolidGradientContrastAndPartitionsTheColours) {
    const auto groups = allCases<WaveColorGroup>();
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[0], WaveColorGroup::solid);
    EXPECT_EQ(groups[1], WaveColorGroup::gradient);
    EXPECT_EQ(groups[2], WaveColorGroup::contrast);
    EXPECT_EQ(members(WaveColorGroup::solid).size(), 9u);
    EXPECT_EQ(members(WaveColorGroup::gradient).size(), 4u);
    EXPECT_EQ(members(WaveColorGroup::contrast).size(), 4u);
    std::multiset<WaveColor> all;
    for (WaveColorGroup g : groups) {
        for (WaveColor c : members(g)) all.insert(c);
    }
    ASSERT_EQ(all.size(), 17u);
    for (WaveColor c : allCases<WaveColor>()) EXPECT_EQ(all.count(c), 1u);
    EXPECT_EQ(members(WaveColorGroup::gradient).front(), WaveColor::aurora);
    EXPECT_EQ(title(WaveColorGroup::solid), "Solid Colors");
    EXPECT_EQ(title(WaveColorGroup::gradient), "Gradients");
    EXPECT_EQ(title(WaveColorGroup::contrast), "Contrast");
}
