// Texts of the settings window that do not need a window.

#include <gtest/gtest.h>

#include "core/app/SettingsText.h"

using namespace lorvane;

TEST(SettingsText, TabsInOrderWithTheirLabels) {
    const auto tabs = allCases<SettingsTab>();
    ASSERT_EQ(tabs.size(), 4u);
    EXPECT_EQ(tabs[0], SettingsTab::display);
    EXPECT_EQ(label(SettingsTab::display), "Waveform");
    EXPECT_EQ(label(SettingsTab::players), "Players");
    EXPECT_EQ(label(SettingsTab::audio), "Audio");
    EXPECT_EQ(label(SettingsTab::general), "General");
}

TEST(SettingsText, AudioStatusTextHasTheLiveFormWithAMiddleDot) {
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::live, 0.125), "Live Audio and Rhythm \xC2\xB7 13%");
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::live, 1.0), "Live Audio and Rhythm \xC2\xB7 100%");
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::waiting, 0.5), "Waiting for Playback");
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::fallback, 0.5), "Fixed-Level Fallback");
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::permissionRequired, 0.5), "System Audio Permission Required");
    EXPECT_EQ(audioStatusText(AudioCaptureStatus::protectedAudio, 0.5), "Protected or Muted Audio");
}

TEST(SettingsText, VersionTextShowsADashForMissingValues) {
    EXPECT_EQ(versionText("1.4.2", "37"), "Version 1.4.2 (Build 37)");
    EXPECT_EQ(versionText(std::nullopt, std::nullopt), "Version - (Build -)");
    EXPECT_EQ(versionText("", "9"), "Version - (Build 9)");
    EXPECT_EQ(versionText("2.0", std::nullopt), "Version 2.0 (Build -)");
}
