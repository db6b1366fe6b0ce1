#pragma once
// Stand-ins for the parts the controller drives, recording what was asked of them. They replace
// windows, the tray and the monitors so that the controller's decisions can be checked one by one.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Clock.h"
#include "core/KeyValueStore.h"
#include "core/app/AppDelegate.h"
#include "support/ManualMainQueue.h"

namespace lorvane::test {

// One shared journal, so the order of calls across parts can be checked.
struct Journal {
    std::vector<std::string> calls;
    void note(std::string call) { calls.push_back(std::move(call)); }
    long count(const std::string& call) const { return std::count(calls.begin(), calls.end(), call); }
    void clear() { calls.clear(); }
};

class FakeOverlay final : public OverlayPresenting {
public:
    explicit FakeOverlay(Journal& journal) : journal_(journal) {}
    void applyWindowLevel() override { journal_.note("overlay.applyWindowLevel"); }
    void reposition() override { journal_.note("overlay.reposition"); }
    void orderFrontRegardless() override {
        journal_.note("overlay.orderFront");
        visible = true;
    }
    void orderOut() override {
        journal_.note("overlay.orderOut");
        visible = false;
    }
    bool visible = false;

private:
    Journal& journal_;
};

class FakeSettingsWindow final : public SettingsWindowPresenting {
public:
    FakeSettingsWindow(Journal& journal, SettingsActions actions, bool launchAtLogin)
        : actions(std::move(actions)), launchAtLoginEnabled(launchAtLogin), journal_(journal) {}
    void present() override {
        journal_.note("settings.present");
        ++presentCount;
    }
    SettingsActions actions;
    bool launchAtLoginEnabled;
    int presentCount = 0;

private:
    Journal& journal_;
};

class FakeStatusMenu final : public StatusMenuPresenting {
public:
    FakeStatusMenu(Journal& journal, MenuCommandHandler handler) : handler(std::move(handler)), journal_(journal) {}
    void apply(const MenuState& state) override {
        journal_.note("menu.apply");
        last = state;
        ++applyCount;
    }
    void setEvents(StatusMenuEvents value) override { events = std::move(value); }
    // As a tray host does before it shows the menu, and after it closed it.
    void open() {
        if (events.menuVisibilityChanged) events.menuVisibilityChanged(true);
    }
    void close() {
        if (events.menuVisibilityChanged) events.menuVisibilityChanged(false);
    }
    MenuCommandHandler handler;
    StatusMenuEvents events;
    std::optional<MenuState> last;
    int applyCount = 0;

private:
    Journal& journal_;
};

class FakePlaybackMonitor final : public PlaybackMonitoring {
public:
    FakePlaybackMonitor(Journal& journal, EnabledPlayersSupplier players, SnapshotCallback callback,
                        PlayerSeenCallback seen)
        : enabledPlayers(std::move(players)),
          snapshotDidChange(std::move(callback)),
          playerSeen(std::move(seen)),
          journal_(journal) {}
    void start() override { journal_.note("playback.start"); }
    void stop() override { journal_.note("playback.stop"); }

    EnabledPlayersSupplier enabledPlayers;
    SnapshotCallback snapshotDidChange;
    PlayerSeenCallback playerSeen;

private:
    Journal& journal_;
};

// One capture run. Its callbacks stay reachable after the controller dropped it (through the
// factory's record), to deliver late frames or failures as a real run might.
struct AudioRun {
    FrameCallback frameDidChange;
    FailureCallback captureDidFail;
    int starts = 0;
    int stops = 0;
    bool destroyed = false;
    // When set, start() reports this failure at once, from inside the call.
    std::optional<AudioCaptureFailure> failOnStart;
};

class FakeAudioMonitor final : public AudioLevelMonitoring {
public:
    FakeAudioMonitor(Journal& journal, std::shared_ptr<AudioRun> run) : run_(std::move(run)), journal_(journal) {}
    ~FakeAudioMonitor() override { run_->destroyed = true; }
    void start() override {
        journal_.note("audio.start");
        ++run_->starts;
        if (run_->failOnStart) {
            run_->captureDidFail(*run_->failOnStart);
            // Still alive here: the controller releases a dropped monitor only on a later turn.
            EXPECT_FALSE(run_->destroyed);
        }
    }
    void stop() override {
        journal_.note("audio.stop");
        ++run_->stops;
    }

private:
    std::shared_ptr<AudioRun> run_;
    Journal& journal_;
};

class FakeLoginItem final : public LoginItemService {
public:
    bool isEnabled() const override {
        ++reads;
        return enabled;
    }
    std::optional<std::string> registerItem() override {
        ++registerCalls;
        if (error) return error;
        // Some systems accept the registration but leave it waiting for the user's approval.
        if (!needsApproval) enabled = true;
        return std::nullopt;
    }
    std::optional<std::string> unregisterItem() override {
        ++unregisterCalls;
        if (error) return error;
        enabled = false;
        return std::nullopt;
    }
    bool enabled = false;
    bool needsApproval = false;
    std::optional<std::string> error;
    int registerCalls = 0;
    int unregisterCalls = 0;
    mutable int reads = 0;
};

class FakeAlerts final : public AlertPresenting {
public:
    void showWarning(const std::string& message, const std::string& informativeText) override {
        shown.emplace_back(message, informativeText);
    }
    std::vector<std::pair<std::string, std::string>> shown;
};

class FakeAudioSettings final : public AudioSettingsOpening {
public:
    void openAudioCaptureSettings() override { ++opened; }
    int opened = 0;
};

class FakeApplication final : public ApplicationTerminating {
public:
    void terminate() override { ++terminations; }
    int terminations = 0;
};

// A controller over fakes, with the store, the clock and the main queue under the test's hand.
class AppHarness {
public:
    // `adjust` may replace parts of the environment (for example the real tray or settings window).
    explicit AppHarness(std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>(),
                        const std::function<void(AppEnvironment&)>& adjust = {})
        : store(std::move(store)), clock(10'000.0), queue(&clock) {
        AppEnvironment environment;
        environment.defaults = this->store;
        environment.mainQueue = &queue;
        environment.steadyClock = &clock;
        environment.loginItem = &loginItem;
        environment.alerts = &alerts;
        environment.audioSettings = &audioSettings;
        environment.application = &application;
        environment.factories.makeOverlay = [this](OverlayPreferences&, VisualizerModel&) {
            journal.note("make.overlay");
            auto made = std::make_unique<FakeOverlay>(journal);
            overlay = made.get();
            return made;
        };
        environment.factories.makeSettingsWindow = [this](OverlayPreferences&, VisualizerModel&, PlaybackStatus&,
                                                          SettingsActions actions, bool launchAtLogin) {
            journal.note("make.settings");
            auto made = std::make_unique<FakeSettingsWindow>(journal, std::move(actions), launchAtLogin);
            settings = made.get();
            return made;
        };
        environment.factories.makeStatusMenu = [this](MenuCommandHandler handler) {
            journal.note("make.menu");
            auto made = std::make_unique<FakeStatusMenu>(journal, std::move(handler));
            menu = made.get();
            return made;
        };
        environment.factories.makePlaybackMonitor = [this](EnabledPlayersSupplier players, SnapshotCallback callback,
                                                           PlayerSeenCallback seen) {
            journal.note("make.playback");
            auto made =
                std::make_unique<FakePlaybackMonitor>(journal, std::move(players), std::move(callback), std::move(seen));
            playback = made.get();
            return made;
        };
        environment.factories.makeAudioLevelMonitor = [this](FrameCallback frame, FailureCallback failure) {
            journal.note("make.audio");
            auto run = std::make_shared<AudioRun>();
            run->frameDidChange = std::move(frame);
            run->captureDidFail = std::move(failure);
            run->failOnStart = nextFailOnStart;
            runs.push_back(run);
            return std::make_unique<FakeAudioMonitor>(journal, run);
        };
        if (adjust) adjust(environment);
        app = std::make_unique<AppDelegate>(std::move(environment));
    }

    // Launches and lets the queued opening of the settings window run.
    void launch() {
        app->applicationDidFinishLaunching();
        queue.runPending();
    }

    void snapshot(std::optional<MusicPlayer> player, MusicPlaybackState state, double volume = 0.5) {
        playback->snapshotDidChange({player, state, volume});
        queue.runPending();
    }
    void play(MusicPlayer player = MusicPlayer::spotify, double volume = 0.5) {
        snapshot(player, MusicPlaybackState::playing, volume);
    }

    std::shared_ptr<AudioRun> lastRun() const { return runs.empty() ? nullptr : runs.back(); }
    const MenuState& menuState() const { return *menu->last; }
    void advance(double seconds) { clock.advance(seconds); }

    std::shared_ptr<MemoryKeyValueStore> store;
    ManualClock clock;
    ManualMainQueue queue;
    Journal journal;
    FakeLoginItem loginItem;
    FakeAlerts alerts;
    FakeAudioSettings audioSettings;
    FakeApplication application;
    std::optional<AudioCaptureFailure> nextFailOnStart;

    FakeOverlay* overlay = nullptr;
    FakeSettingsWindow* settings = nullptr;
    FakeStatusMenu* menu = nullptr;
    FakePlaybackMonitor* playback = nullptr;
    std::vector<std::shared_ptr<AudioRun>> runs;
    std::unique_ptr<AppDelegate> app;
};

}  // namespace lorvane::test
