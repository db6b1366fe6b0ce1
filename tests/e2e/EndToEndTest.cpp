// The real program on a private desktop: Xvfb and openbox, a private session bus with a
// StatusNotifier watcher (the tray menu is read and clicked over D-Bus, as a tray host would), a
// private PulseAudio server that a test player plays real sound into, and the test MPRIS player.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <cmath>

#include "AppDesktop.h"
#include "CoreApplicationEnvironment.h"
#include "TestPlayerProcess.h"
#include "support/PulsePlayer.h"

using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

char programName[] = "app_e2e_tests";
[[maybe_unused]] auto* const environment =
    ::testing::AddGlobalTestEnvironment(new CoreApplicationEnvironment(programName));

const std::string settingsTitle = "Lorvane Settings";

// Threads of a process with this name.
int threadsNamed(qint64 pid, const QString& name) {
    int count = 0;
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks + QLatin1Char('/') + task + QStringLiteral("/comm"));
        if (comm.open(QIODevice::ReadOnly) && QString::fromUtf8(comm.readAll()).trimmed() == name) ++count;
    }
    return count;
}

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktop.ready()) << desktop.error();
        ASSERT_TRUE(desktop.launchAndWaitForTray(lorvane)) << lorvane.output().toStdString();
    }
    void TearDown() override {
        // Quitting by signal stops the monitors and ends the program normally.
        if (lorvane.running()) {
            EXPECT_EQ(lorvane.terminate(), 0) << lorvane.output().toStdString();
        }
    }

    // The current label of the first menu item whose label starts with `prefix`.
    QString menuLabel(const QString& prefix) {
        const auto menu = desktop.tray().layout();
        if (!menu) return {};
        const MenuNode* node = menu->findPrefix(prefix);
        return node ? node->label() : QString();
    }
    bool waitForMenuLabel(const QString& label, std::chrono::milliseconds bound = 20s) {
        return waitFor([&] {
            const auto menu = desktop.tray().layout();
            return menu && menu->find(label);
        }, bound);
    }
    bool clickMenu(const QString& label) {
        const auto menu = desktop.tray().layout();
        if (!menu) return false;
        const MenuNode* node = menu->find(label);
        return node && desktop.tray().click(node->id);
    }
    std::optional<bool> menuChecked(const QString& label) {
        const auto menu = desktop.tray().layout();
        if (!menu) return std::nullopt;
        const MenuNode* node = menu->find(label);
        if (!node) return std::nullopt;
        return node->checked();
    }
    QVariant storedSetting(const QString& key) const {
        QSettings settings(desktop.settingsFile(), QSettings::IniFormat);
        return settings.value(key);
    }

    // The overlay band: the window titled "Lorvane" as wide as the screen.
    std::optional<unsigned long> overlayWindow(bool onlyVisible) {
        for (unsigned long window : desktop.windowsNamed("Lorvane", onlyVisible)) {
            const auto geometry = desktop.geometry(window);
            if (geometry && geometry->width >= 1000) return window;
        }
        return std::nullopt;
    }
    bool waitForOverlay(bool visible, std::chrono::milliseconds bound = 20s) {
        return waitFor([&] { return overlayWindow(true).has_value() == visible; }, bound);
    }

    // Sound that a music player would make, and Spotify saying it plays.
    void startMusic() {
        ASSERT_TRUE(desktop.pulse());
        sound = std::make_unique<PulsePlayer>(PulsePlayer::musicLike());
        ASSERT_TRUE(sound->waitUntilPlaying(10s)) << sound->why();
        spotify = std::make_unique<TestPlayerProcess>(
            desktop.bus().address(),
            std::vector<std::string>{"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "spotify",
                                     "--status", "Playing", "--volume", "0.8"});
        ASSERT_TRUE(spotify->isReady()) << spotify->error();
    }

    AppDesktop desktop;
    ChildProcess lorvane;
    std::unique_ptr<PulsePlayer> sound;
    std::unique_ptr<TestPlayerProcess> spotify;
};

}  // namespace

TEST_F(EndToEnd, TheTrayIsExportedWithTheWholeMenu) {
    EXPECT_EQ(desktop.tray().toolTipTitle(),
              QString::fromUtf8("Music Player: Not Running \u2014 Audio Analysis: Waiting for Playback"));
    EXPECT_EQ(desktop.tray().itemProperty(QStringLiteral("Title")).toString(), "Lorvane");
    const auto menu = desktop.tray().layout();
    ASSERT_TRUE(menu);
    const QStringList expected{"Music Player: Not Running",
                               "Audio Analysis: Waiting for Playback",
                               "Open System Audio Permissions...",
                               "---",
                               "Open Settings...",
                               "---",
                               "Show Waveform",
                               "Show Automatically with Music Players",
                               "Keep on Desktop Layer",
                               "React to Volume and Rhythm",
                               "Retry Audio Detection",
                               "Display Mode",
                               "Position",
                               "Color",
                               "---",
                               "Launch at Login",
                               "---",
                               "Quit Lorvane"};
    EXPECT_EQ(menu->childLabels(), expected);
    EXPECT_FALSE(menu->find("Open System Audio Permissions...")->visible());
    EXPECT_FALSE(menu->find("Retry Audio Detection")->enabled());
    EXPECT_TRUE(menu->find("Show Waveform")->checkable());
    EXPECT_TRUE(menu->find("Show Waveform")->checked());
    EXPECT_TRUE(menu->find("Center of Screen")->checked());
    EXPECT_TRUE(menu->find("Cyan")->checked());
    EXPECT_EQ(menu->find("Color")->childLabels().size(), 19);
}

TEST_F(EndToEnd, TheSettingsWindowOpensOnceAtLaunchOnTheCurrentDesktop) {
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).size() == 1; }));
    const unsigned long window = desktop.windowsNamed(settingsTitle, true).front();
    const auto geometry = desktop.geometry(window);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->width, 620);
    EXPECT_EQ(geometry->height, 470);
    // Like any window, on the desktop the user is on (openbox would show "all desktops" as 0xFFFFFFFF).
    const std::string current = desktop.x().run({"xprop", "-root", "_NET_CURRENT_DESKTOP"}).output;
    const auto equals = current.find("= ");
    ASSERT_NE(equals, std::string::npos) << current;
    const std::string expected = "= " + std::to_string(std::stoul(current.substr(equals + 2)));
    EXPECT_TRUE(waitFor([&] { return desktop.property(window, "_NET_WM_DESKTOP").find(expected) != std::string::npos; }))
        << desktop.property(window, "_NET_WM_DESKTOP") << " vs " << current;
    EXPECT_EQ(desktop.property(window, "_NET_WM_DESKTOP").find("4294967295"), std::string::npos);
    EXPECT_NE(desktop.property(window, "WM_CLASS").find("\"lorvane\""), std::string::npos);
}

TEST_F(EndToEnd, StartingASecondInstanceBringsUpTheSettingsWindowAndEnds) {
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).size() == 1; }));
    const unsigned long window = desktop.windowsNamed(settingsTitle, true).front();
    // Close it as a user would, with Ctrl+W.
    desktop.x().run({"xdotool", "windowactivate", "--sync", std::to_string(window)});
    desktop.x().run({"xdotool", "key", "ctrl+w"});
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).empty(); }));

    ChildProcess second;
    ASSERT_TRUE(desktop.launch(second));
    EXPECT_EQ(second.waitForExit(20s), 0) << second.output().toStdString();
    EXPECT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).size() == 1; }));
    EXPECT_TRUE(lorvane.running());
    EXPECT_EQ(desktop.tray().registeredItems().size(), 1);
}

TEST_F(EndToEnd, OpenSettingsFromTheMenuBringsTheWindowBack) {
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).size() == 1; }));
    const unsigned long window = desktop.windowsNamed(settingsTitle, true).front();
    desktop.x().run({"xdotool", "windowactivate", "--sync", std::to_string(window)});
    desktop.x().run({"xdotool", "key", "ctrl+w"});
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).empty(); }));
    ASSERT_TRUE(clickMenu("Open Settings..."));
    EXPECT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle, true).size() == 1; }));
}

TEST_F(EndToEnd, MusicShowsTheWaveAndPausingHidesIt) {
    startMusic();
    ASSERT_TRUE(waitForMenuLabel("Spotify: Playing")) << menuLabel("Spotify").toStdString();
    EXPECT_TRUE(waitForOverlay(true));
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }))
        << menuLabel("Audio Analysis").toStdString();
    EXPECT_TRUE(menuLabel("Audio Analysis: Live ").contains(QRegularExpression("^Audio Analysis: Live [0-9]+%$")));
    const auto overlay = overlayWindow(true);
    ASSERT_TRUE(overlay);
    const auto band = desktop.geometry(*overlay);
    ASSERT_TRUE(band);
    EXPECT_EQ(band->width, 1920);
    EXPECT_EQ(desktop.property(*overlay, "_NET_WM_DESKTOP").find("= 4294967295") != std::string::npos, true);

    ASSERT_TRUE(spotify->command("pause"));
    EXPECT_TRUE(waitForMenuLabel("Spotify: Paused"));
    EXPECT_TRUE(waitForOverlay(false));
    EXPECT_TRUE(waitForMenuLabel("Audio Analysis: Waiting for Playback"));
}

TEST_F(EndToEnd, AnOtherPlayerShowsTheWaveUnderItsOwnNameAndIsRemembered) {
    ASSERT_TRUE(desktop.pulse());
    sound = std::make_unique<PulsePlayer>(PulsePlayer::musicLike());
    ASSERT_TRUE(sound->waitUntilPlaying(10s)) << sound->why();
    TestPlayerProcess music(desktop.bus().address(),
                            {"--name", "Music", "--identity", "Music", "--desktop-entry", "org.gnome.Music",
                             "--status", "Playing", "--volume", "0.8"});
    ASSERT_TRUE(music.isReady()) << music.error();
    // GNOME Music is "Music", not Apple Music.
    ASSERT_TRUE(waitForMenuLabel("Music: Playing")) << menuLabel("Music").toStdString();
    EXPECT_TRUE(waitForOverlay(true));
    EXPECT_TRUE(waitFor([&] { return storedSetting("seenOtherPlayers").toString() == "org.gnome.Music"; }))
        << storedSetting("seenOtherPlayers").toString().toStdString();

    ASSERT_TRUE(music.command("pause"));
    EXPECT_TRUE(waitForMenuLabel("Music: Paused"));
    EXPECT_TRUE(waitForOverlay(false));
}

TEST_F(EndToEnd, MenuChoicesChangeTheSettingsFileAndTheWindow) {
    startMusic();
    ASSERT_TRUE(waitForOverlay(true));
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }));

    // Colour: the wave starts cyan; the file records the new choice and the wave turns pink.
    const auto cyanish = [](const AppDesktop::Colour& c) { return c.green > c.red + 60 && c.blue > c.red + 60; };
    const auto pinkish = [](const AppDesktop::Colour& c) { return c.red > c.green + 60 && c.blue > c.green; };
    const auto waveColour = [&]() -> std::optional<AppDesktop::Colour> {
        const auto overlay = overlayWindow(true);
        const auto area = overlay ? desktop.geometry(*overlay) : std::nullopt;
        return area ? desktop.vividColour(*area) : std::nullopt;
    };
    EXPECT_TRUE(waitFor([&] {
        const auto colour = waveColour();
        return colour && colour->pixels > 50 && cyanish(*colour);
    }));
    ASSERT_TRUE(clickMenu("Pink"));
    EXPECT_TRUE(waitFor([&] { return storedSetting("waveColor").toString() == "pink"; }));
    EXPECT_TRUE(waitFor([&] { return menuChecked("Pink") == true && menuChecked("Cyan") == false; }));
    std::optional<AppDesktop::Colour> colour;
    EXPECT_TRUE(waitFor([&] {
        colour = waveColour();
        return colour && colour->pixels > 50 && pinkish(*colour);
    })) << (colour ? QStringLiteral("bright pixels %1 average %2 %3 %4")
                         .arg(colour->pixels)
                         .arg(colour->red)
                         .arg(colour->green)
                         .arg(colour->blue)
                         .toStdString()
                   : std::string("no picture"));

    // Position: a 150-high band at the top of the screen.
    ASSERT_TRUE(clickMenu("Top of Screen"));
    EXPECT_TRUE(waitFor([&] { return storedSetting("overlayPosition").toString() == "top"; }));
    EXPECT_TRUE(waitFor([&] {
        const auto overlay = overlayWindow(true);
        const auto area = overlay ? desktop.geometry(*overlay) : std::nullopt;
        return area && area->height == 150 && area->y < 200;
    }));

    // Display mode: the fog covers the whole screen and position no longer applies.
    ASSERT_TRUE(clickMenu("Fullscreen Fog"));
    EXPECT_TRUE(waitFor([&] { return storedSetting("overlayDisplayMode").toString() == "fullscreenFog"; }));
    EXPECT_TRUE(waitFor([&] {
        const auto overlay = overlayWindow(true);
        const auto area = overlay ? desktop.geometry(*overlay) : std::nullopt;
        return area && area->width == 1920 && area->height == 1080;
    }));
    EXPECT_TRUE(waitFor([&] {
        const auto menu = desktop.tray().layout();
        return menu && !menu->find("Position")->enabled() && menu->find("Top of Screen")->checked();
    }));
}

TEST_F(EndToEnd, KillingTheSoundServerFallsBackWhileTheWaveKeepsShowing) {
    startMusic();
    ASSERT_TRUE(waitForOverlay(true));
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }));
    sound.reset();
    desktop.pulse()->kill();
    EXPECT_TRUE(waitForMenuLabel("Audio Analysis: Fixed-Level Fallback"))
        << menuLabel("Audio Analysis").toStdString();
    EXPECT_TRUE(overlayWindow(true).has_value());
    EXPECT_TRUE(waitForMenuLabel("Spotify: Playing"));
}

TEST_F(EndToEnd, ASoundServerThatDiesIsExplainedAndCaptureIsLiveAgainWhenItReturnsWithoutRetry) {
    startMusic();
    ASSERT_TRUE(waitForOverlay(true));
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }));
    sound.reset();
    desktop.pulse()->kill();
    ASSERT_TRUE(waitForMenuLabel("Audio Analysis: Fixed-Level Fallback")) << menuLabel("Audio Analysis").toStdString();
    // The tray's tool tip gives the reason in plain words, and a warning says it on stderr.
    EXPECT_TRUE(waitFor([&] {
        const QString tip = desktop.tray().toolTipTitle();
        return tip.contains(QStringLiteral("Fixed-Level Fallback (")) && tip.contains(QStringLiteral("sound server"));
    })) << desktop.tray().toolTipTitle().toStdString();
    EXPECT_TRUE(waitFor([&] { return lorvane.readOutput().contains(QStringLiteral("Audio capture failed: ")); }))
        << lorvane.output().toStdString();

    // The server comes back: capture is live again by itself, well before the 30 s back-off ends.
    ASSERT_TRUE(desktop.pulse()->restart());
    sound = std::make_unique<PulsePlayer>(PulsePlayer::musicLike());
    ASSERT_TRUE(sound->waitUntilPlaying(10s)) << sound->why();
    EXPECT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }, 10s))
        << menuLabel("Audio Analysis").toStdString();
    EXPECT_TRUE(waitFor([&] { return !desktop.tray().toolTipTitle().contains(QLatin1Char('(')); }))
        << desktop.tray().toolTipTitle().toStdString();
}

TEST_F(EndToEnd, CaptureAndTheOutputVolumeShareOneSoundServerConnectionThroughARestart) {
    startMusic();
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }));
    // While capturing and following the volume: one client of the program, one thread for it.
    EXPECT_EQ(desktop.pulse()->clientCount(static_cast<pid_t>(lorvane.pid())), 1);
    EXPECT_EQ(threadsNamed(lorvane.pid(), QStringLiteral("lorvane-pulse")), 1);
    sound.reset();
    desktop.pulse()->kill();
    ASSERT_TRUE(waitForMenuLabel("Audio Analysis: Fixed-Level Fallback")) << menuLabel("Audio Analysis").toStdString();
    ASSERT_TRUE(desktop.pulse()->restart());
    sound = std::make_unique<PulsePlayer>(PulsePlayer::musicLike());
    ASSERT_TRUE(sound->waitUntilPlaying(10s)) << sound->why();
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }, 10s))
        << menuLabel("Audio Analysis").toStdString();
    EXPECT_EQ(desktop.pulse()->clientCount(static_cast<pid_t>(lorvane.pid())), 1);
    EXPECT_EQ(threadsNamed(lorvane.pid(), QStringLiteral("lorvane-pulse")), 1);
    EXPECT_EQ(desktop.pulse()->recordStreamCount(), 1);
}

TEST_F(EndToEnd, TurningTheWaveformOffFromTheMenuHidesItAndIsStored) {
    startMusic();
    ASSERT_TRUE(waitForOverlay(true));
    ASSERT_TRUE(clickMenu("Show Waveform"));
    EXPECT_TRUE(waitForOverlay(false));
    EXPECT_TRUE(waitFor([&] { return storedSetting("overlayEnabled").toString() == "false"; }));
    EXPECT_TRUE(waitFor([&] { return menuChecked("Show Waveform") == false; }));
    EXPECT_TRUE(waitForMenuLabel("Audio Analysis: Waiting for Playback"));
    ASSERT_TRUE(clickMenu("Show Waveform"));
    EXPECT_TRUE(waitForOverlay(true));
}

TEST_F(EndToEnd, QuitFromTheMenuEndsTheProgram) {
    ASSERT_TRUE(clickMenu("Quit Lorvane"));
    EXPECT_EQ(lorvane.waitForExit(20s), 0);
}

TEST_F(EndToEnd, QuittingWhileLiveStopsCaptureAndEnds) {
    startMusic();
    ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith("%"); }));
    EXPECT_EQ(desktop.pulse()->recordStreamCount(), 1);
    ASSERT_TRUE(clickMenu("Quit Lorvane"));
    EXPECT_EQ(lorvane.waitForExit(20s), 0) << lorvane.output().toStdString();
    EXPECT_TRUE(waitFor([&] { return desktop.pulse()->recordStreamCount() == 0; }));
}
