#include "core/app/StatusMenuLayout.h"

#include "core/OverlayPreferences.h"

namespace lorvane {

namespace {

MenuEntry item(std::string title, std::optional<MenuCommand> command, std::optional<MenuItemKey> key,
               std::string keyEquivalent = {}) {
    MenuEntry entry;
    entry.title = std::move(title);
    entry.command = command;
    entry.key = key;
    entry.keyEquivalent = std::move(keyEquivalent);
    return entry;
}

MenuEntry separator() {
    MenuEntry entry;
    entry.kind = MenuEntry::Kind::separator;
    return entry;
}

MenuEntry submenu(std::string title, std::optional<MenuItemKey> key, std::vector<MenuEntry> children) {
    MenuEntry entry;
    entry.kind = MenuEntry::Kind::submenu;
    entry.title = std::move(title);
    entry.key = key;
    entry.submenu = std::move(children);
    return entry;
}

// Three blocks (solid, gradient, contrast) split by separators, each in the colours' case order.
std::vector<MenuEntry> colorEntries() {
    std::vector<MenuEntry> entries;
    for (WaveColorGroup colorGroup : allCases<WaveColorGroup>()) {
        if (colorGroup != WaveColorGroup::solid) entries.push_back(separator());
        for (WaveColor color : allCases<WaveColor>()) {
            if (group(color) != colorGroup) continue;
            MenuEntry entry = item(std::string(displayName(color)), MenuCommand::selectWaveColor, std::nullopt);
            entry.color = color;
            entries.push_back(std::move(entry));
        }
    }
    return entries;
}

}  // namespace

std::vector<MenuEntry> statusMenuLayout() {
    using C = MenuCommand;
    using K = MenuItemKey;
    std::vector<MenuEntry> menu;

    MenuEntry playback = item("Music Player: Detecting", std::nullopt, K::playbackStatus);
    playback.enabled = false;
    menu.push_back(playback);
    MenuEntry audio = item("Audio Response: Waiting for Playback", std::nullopt, K::audioStatus);
    audio.enabled = false;
    menu.push_back(audio);
    MenuEntry permission = item("Open System Audio Permissions...", C::openAudioCaptureSettings, K::audioPermission);
    permission.hidden = true;
    menu.push_back(permission);
    menu.push_back(separator());

    menu.push_back(item("Open Settings...", C::openSettingsWindow, std::nullopt, ","));
    menu.push_back(separator());

    menu.push_back(item("Show Waveform", C::toggleOverlayEnabled, K::overlayEnabled, "w"));
    menu.push_back(item("Show Automatically with Music Players", C::toggleAutoShow, K::autoShow));
    menu.push_back(item("Keep on Desktop Layer", C::toggleAvoidCovering, K::avoidCovering));
    menu.push_back(item("React to Volume and Rhythm", C::toggleAudioResponsive, K::audioResponsive));
    menu.push_back(item("Retry Audio Detection", C::retryAudioCapture, K::retryAudio));
    menu.push_back(submenu("Display Mode", std::nullopt,
                           {item(std::string(title(OverlayDisplayMode::compact)), C::selectCompactMode, K::compactMode),
                            item(std::string(title(OverlayDisplayMode::fullscreenFog)), C::selectFullscreenMode, K::fullscreenMode)}));
    menu.push_back(submenu("Position", K::position,
                           {item(std::string(title(OverlayPosition::top)), C::selectTopPosition, K::topPosition),
                            item(std::string(title(OverlayPosition::center)), C::selectCenterPosition, K::centerPosition),
                            item(std::string(title(OverlayPosition::bottom)), C::selectBottomPosition, K::bottomPosition)}));
    menu.push_back(submenu("Color", std::nullopt, colorEntries()));
    menu.push_back(separator());

    menu.push_back(item("Launch at Login", C::toggleLaunchAtLogin, K::launchAtLogin));
    menu.push_back(separator());

    menu.push_back(item("Quit Lorvane", C::quitApplication, std::nullopt, "q"));
    return menu;
}

}  // namespace lorvane
