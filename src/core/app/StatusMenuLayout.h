#pragma once
// The tray menu's structure: order, separators, submenus and initial flags; the entries themselves
// come from the settings table. No item has a key shortcut: none could fire from a tray menu.
// The toolkit menu is built from this list, so the structure is checked without a desktop.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/StringEnum.h"
#include "core/WaveColor.h"

namespace lorvane {

// What choosing a menu item does.
enum class MenuCommand {
    openAudioCaptureSettings,
    openSettingsWindow,
    toggleOverlayEnabled,
    toggleAutoShow,
    toggleAvoidCovering,
    toggleAudioResponsive,
    retryAudioCapture,
    selectCompactMode,
    selectFullscreenMode,
    selectTopPosition,
    selectCenterPosition,
    selectBottomPosition,
    selectWaveColor,
    toggleLaunchAtLogin,
    quitApplication,
};

template <>
struct EnumTraits<MenuCommand> {
    static constexpr std::array<std::string_view, 15> rawValues{
        "openAudioCaptureSettings", "openSettingsWindow",   "toggleOverlayEnabled", "toggleAutoShow",
        "toggleAvoidCovering",      "toggleAudioResponsive", "retryAudioCapture",    "selectCompactMode",
        "selectFullscreenMode",     "selectTopPosition",     "selectCenterPosition", "selectBottomPosition",
        "selectWaveColor",          "toggleLaunchAtLogin",   "quitApplication"};
};

// The items that every refresh may update (colour items are keyed by their colour instead).
enum class MenuItemKey {
    playbackStatus,
    audioStatus,
    audioPermission,
    overlayEnabled,
    autoShow,
    avoidCovering,
    audioResponsive,
    retryAudio,
    compactMode,
    fullscreenMode,
    position,
    topPosition,
    centerPosition,
    bottomPosition,
    launchAtLogin,
};

template <>
struct EnumTraits<MenuItemKey> {
    static constexpr std::array<std::string_view, 15> rawValues{
        "playbackStatus", "audioStatus",   "audioPermission", "overlayEnabled", "autoShow",
        "avoidCovering",  "audioResponsive", "retryAudio",    "compactMode",    "fullscreenMode",
        "position",       "topPosition",   "centerPosition",  "bottomPosition", "launchAtLogin"};
};

struct MenuEntry {
    enum class Kind { item, separator, submenu };
    // How the item shows a value: not at all, a check mark, or one of an exclusive group.
    enum class Toggle { none, check, radio };

    Kind kind = Kind::item;
    Toggle toggle = Toggle::none;
    std::string title;
    std::optional<MenuCommand> command;
    std::optional<MenuItemKey> key;
    // Colour items: the colour; its raw value is the item's represented object.
    std::optional<WaveColor> color;
    bool enabled = true;
    bool hidden = false;
    std::vector<MenuEntry> submenu;

    bool isSeparator() const { return kind == Kind::separator; }
};

// The whole menu, top to bottom. Titles, commands, kinds and rules come from the settings table.
std::vector<MenuEntry> statusMenuLayout();

}  // namespace lorvane
