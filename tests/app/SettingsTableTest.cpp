// The one table of settings and commands, and the surfaces that read it.

#include <gtest/gtest.h>

#include <set>

#include "core/app/MenuState.h"
#include "core/app/SettingsTable.h"
#include "core/app/StatusMenuLayout.h"

using namespace lorvane;

namespace {

// Every entry of the menu, submenus flattened, separators left out.
void flatten(const std::vector<MenuEntry>& entries, std::vector<const MenuEntry*>& into) {
    for (const MenuEntry& entry : entries) {
        if (entry.isSeparator()) continue;
        into.push_back(&entry);
        flatten(entry.submenu, into);
    }
}

std::vector<const MenuEntry*> flatMenu(const std::vector<MenuEntry>& menu) {
    std::vector<const MenuEntry*> entries;
    flatten(menu, entries);
    return entries;
}

const MenuEntry* entryTitled(const std::vector<const MenuEntry*>& entries, std::string_view title) {
    for (const MenuEntry* entry : entries) {
        if (entry->title == title) return entry;
    }
    return nullptr;
}

std::vector<SettingContext> everyContext() {
    std::vector<SettingContext> contexts;
    for (bool responsive : {false, true}) {
        for (OverlayDisplayMode mode : allCases<OverlayDisplayMode>()) {
            for (MusicPlaybackState state : allCases<MusicPlaybackState>()) {
                for (AudioCaptureStatus status : allCases<AudioCaptureStatus>()) {
                    contexts.push_back({responsive, mode, state, status});
                }
            }
        }
    }
    return contexts;
}

}  // namespace

TEST(SettingsTable, EveryKeyHasOneRowInKeyOrder) {
    const auto& table = settingsTable();
    ASSERT_EQ(table.size(), caseCount<SettingKey>());
    for (SettingKey key : allCases<SettingKey>()) {
        EXPECT_EQ(table[caseIndex(key)].key, key) << rawValue(key);
        EXPECT_EQ(&setting(key), &table[caseIndex(key)]);
    }
    for (PreferenceKey key : allCases<PreferenceKey>()) {
        EXPECT_EQ(setting(key).preference, key) << rawValue(key);
    }
}

TEST(SettingsTable, DefaultsAreTheStoresDefaults) {
    OverlayPreferences empty(std::make_shared<MemoryKeyValueStore>());
    EXPECT_EQ(empty.overlayEnabled(), defaultToggle(PreferenceKey::overlayEnabled));
    EXPECT_EQ(empty.autoShow(), defaultToggle(PreferenceKey::autoShow));
    EXPECT_EQ(empty.avoidsCoveringWindows(), defaultToggle(PreferenceKey::avoidsCoveringWindows));
    EXPECT_EQ(empty.audioResponsive(), defaultToggle(PreferenceKey::audioResponsive));
    EXPECT_EQ(empty.displayMode(), defaultChoice<OverlayDisplayMode>(PreferenceKey::displayMode));
    EXPECT_EQ(empty.position(), defaultChoice<OverlayPosition>(PreferenceKey::position));
    EXPECT_EQ(empty.color(), defaultChoice<WaveColor>(PreferenceKey::color));
    EXPECT_EQ(empty.renderer(), defaultChoice<RendererChoice>(PreferenceKey::renderer));
    EXPECT_EQ(defaultChoice<RendererChoice>(PreferenceKey::renderer), RendererChoice::automatic);
    // And those are the documented ones.
    EXPECT_TRUE(defaultToggle(PreferenceKey::autoShow));
    EXPECT_EQ(defaultChoice<OverlayPosition>(PreferenceKey::position), OverlayPosition::center);
    EXPECT_EQ(defaultChoice<WaveColor>(PreferenceKey::color), WaveColor::cyan);
}

TEST(SettingsTable, ChoicesListEveryCaseInOrder) {
    const auto& modes = setting(SettingKey::displayMode).options;
    ASSERT_EQ(modes.size(), caseCount<OverlayDisplayMode>());
    for (OverlayDisplayMode mode : allCases<OverlayDisplayMode>()) {
        EXPECT_EQ(modes[caseIndex(mode)].rawValue, rawValue(mode));
        EXPECT_EQ(modes[caseIndex(mode)].menuTitle, title(mode));
    }
    const auto& positions = setting(SettingKey::position).options;
    ASSERT_EQ(positions.size(), caseCount<OverlayPosition>());
    EXPECT_EQ(positions[0].windowTitle, "Top");
    EXPECT_EQ(positions[1].windowTitle, "Center");
    EXPECT_EQ(positions[2].windowTitle, "Bottom");
    for (OverlayPosition position : allCases<OverlayPosition>()) {
        EXPECT_EQ(positions[caseIndex(position)].rawValue, rawValue(position));
        EXPECT_EQ(positions[caseIndex(position)].menuTitle, title(position));
    }
    const auto& drawing = setting(SettingKey::renderer).options;
    ASSERT_EQ(drawing.size(), caseCount<RendererChoice>());
    for (RendererChoice choice : allCases<RendererChoice>()) {
        EXPECT_EQ(drawing[caseIndex(choice)].rawValue, rawValue(choice));
        EXPECT_TRUE(drawing[caseIndex(choice)].menuTitle.empty()) << "the drawing path is not in the tray menu";
    }
    const auto& colors = setting(SettingKey::color).options;
    ASSERT_EQ(colors.size(), caseCount<WaveColor>());
    for (WaveColor color : allCases<WaveColor>()) {
        EXPECT_EQ(colors[caseIndex(color)].rawValue, rawValue(color));
        EXPECT_EQ(colors[caseIndex(color)].windowTitle, displayName(color));
    }
}

TEST(SettingsTable, TheMenuShowsEveryMenuEntryOfTheTableAsTheTableSays) {
    const auto menu = statusMenuLayout();
    const auto entries = flatMenu(menu);
    std::set<const MenuEntry*> matched;
    for (const SettingDefinition& definition : settingsTable()) {
        if (definition.menuTitle.empty()) continue;
        const MenuEntry* entry = entryTitled(entries, definition.menuTitle);
        ASSERT_TRUE(entry) << definition.menuTitle;
        matched.insert(entry);
        EXPECT_EQ(entry->command, definition.menuCommand) << definition.menuTitle;
        EXPECT_EQ(entry->key, definition.menuItem) << definition.menuTitle;
        switch (definition.presentation) {
            case SettingPresentation::toggle:
                EXPECT_EQ(entry->toggle, MenuEntry::Toggle::check) << definition.menuTitle;
                break;
            case SettingPresentation::exclusiveChoice: {
                EXPECT_EQ(entry->kind, MenuEntry::Kind::submenu);
                std::vector<const MenuEntry*> children;
                flatten(entry->submenu, children);
                ASSERT_EQ(children.size(), definition.options.size()) << definition.menuTitle;
                for (std::size_t i = 0; i < children.size(); ++i) {
                    EXPECT_EQ(children[i]->title, definition.options[i].menuTitle);
                    EXPECT_EQ(children[i]->command, definition.options[i].menuCommand);
                    EXPECT_EQ(children[i]->toggle, MenuEntry::Toggle::radio);
                    matched.insert(children[i]);
                }
                break;
            }
            case SettingPresentation::command:
                EXPECT_EQ(entry->toggle, MenuEntry::Toggle::none) << definition.menuTitle;
                break;
            case SettingPresentation::playerList:
                ADD_FAILURE() << "the player list is not a menu entry";
                break;
        }
    }
    // The only menu entries not from the table are the two status lines.
    std::vector<std::string> others;
    for (const MenuEntry* entry : entries) {
        if (!matched.contains(entry)) others.push_back(entry->title);
    }
    EXPECT_EQ(others, (std::vector<std::string>{"Music Player: Detecting", "Audio Response: Waiting for Playback"}));
}

TEST(SettingsTable, TheMenuStateFollowsTheTableRulesInEveryContext) {
    for (const SettingContext& context : everyContext()) {
        MemoryKeyValueStore store;
        store.setBool(OverlayPreferences::audioResponsiveKey, context.audioResponsive);
        store.setString(OverlayPreferences::displayModeKey, std::string(rawValue(context.displayMode)));
        OverlayPreferences preferences(std::make_shared<MemoryKeyValueStore>(store));
        MenuInputs inputs;
        inputs.playbackState = context.playbackState;
        inputs.captureStatus = context.captureStatus;
        const MenuState state = makeMenuState(inputs, preferences);
        EXPECT_EQ(state.retryAudioEnabled, isEnabled(SettingKey::retryAudioCapture, context));
        EXPECT_EQ(state.positionEnabled, isEnabled(SettingKey::position, context));
        EXPECT_EQ(state.audioPermissionHidden, !isShownInMenu(SettingKey::openAudioCaptureSettings, context));
    }
}

TEST(SettingsTable, RetryNeedsAPlayingPlayerAndAudioResponse) {
    for (const SettingContext& context : everyContext()) {
        const bool expected = context.audioResponsive && context.playbackState == MusicPlaybackState::playing;
        EXPECT_EQ(isEnabled(SettingKey::retryAudioCapture, context), expected);
    }
    // The permission command stays usable in the window; the menu shows it only when it matters.
    SettingContext context;
    context.captureStatus = AudioCaptureStatus::fallback;
    EXPECT_TRUE(isEnabled(SettingKey::openAudioCaptureSettings, context));
    EXPECT_FALSE(isShownInMenu(SettingKey::openAudioCaptureSettings, context));
    context.captureStatus = AudioCaptureStatus::permissionRequired;
    EXPECT_TRUE(isShownInMenu(SettingKey::openAudioCaptureSettings, context));
}
