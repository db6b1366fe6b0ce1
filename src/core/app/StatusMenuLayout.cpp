#include "core/app/StatusMenuLayout.h"

#include "core/app/SettingsTable.h"

namespace lorvane {

namespace {

MenuEntry item(std::string title, std::optional<MenuCommand> command, std::optional<MenuItemKey> key) {
    MenuEntry entry;
    entry.title = std::move(title);
    entry.command = command;
    entry.key = key;
    return entry;
}

MenuEntry separator() {
    MenuEntry entry;
    entry.kind = MenuEntry::Kind::separator;
    return entry;
}

// The flags a fresh program shows before its first refresh.
const SettingContext& initialContext() {
    static const SettingContext context{};
    return context;
}

// A toggle or a command, as the table describes it.
MenuEntry entryFor(SettingKey key) {
    const SettingDefinition& definition = setting(key);
    MenuEntry entry = item(std::string(definition.menuTitle), definition.menuCommand, definition.menuItem);
    if (definition.presentation == SettingPresentation::toggle) entry.toggle = MenuEntry::Toggle::check;
    entry.hidden = !holds(definition.menuShownWhen, initialContext());
    return entry;
}

// An exclusive choice: a submenu of radio items, one per option.
MenuEntry choiceSubmenu(SettingKey key) {
    const SettingDefinition& definition = setting(key);
    MenuEntry entry;
    entry.kind = MenuEntry::Kind::submenu;
    entry.title = std::string(definition.menuTitle);
    entry.key = definition.menuItem;
    for (const SettingOption& option : definition.options) {
        MenuEntry child = item(std::string(option.menuTitle), option.menuCommand, option.menuItem);
        child.toggle = MenuEntry::Toggle::radio;
        entry.submenu.push_back(std::move(child));
    }
    return entry;
}

// Three blocks (solid, gradient, contrast) split by separators, each in the colours' case order.
MenuEntry colorSubmenu() {
    MenuEntry entry = choiceSubmenu(SettingKey::color);
    std::vector<MenuEntry> children;
    std::optional<WaveColorGroup> lastGroup;
    const auto& options = setting(SettingKey::color).options;
    for (std::size_t i = 0; i < options.size(); ++i) {
        const auto color = fromRawValue<WaveColor>(options[i].rawValue);
        if (!color) continue;
        if (lastGroup && group(*color) != *lastGroup) children.push_back(separator());
        lastGroup = group(*color);
        MenuEntry child = std::move(entry.submenu[i]);
        child.color = *color;
        children.push_back(std::move(child));
    }
    entry.submenu = std::move(children);
    return entry;
}

}  // namespace

std::vector<MenuEntry> statusMenuLayout() {
    using K = MenuItemKey;
    using S = SettingKey;
    std::vector<MenuEntry> menu;

    MenuEntry playback = item("Music Player: Detecting", std::nullopt, K::playbackStatus);
    playback.enabled = false;
    menu.push_back(playback);
    MenuEntry audio = item("Audio Response: Waiting for Playback", std::nullopt, K::audioStatus);
    audio.enabled = false;
    menu.push_back(audio);
    menu.push_back(entryFor(S::openAudioCaptureSettings));
    menu.push_back(separator());

    menu.push_back(entryFor(S::openSettings));
    menu.push_back(separator());

    menu.push_back(entryFor(S::overlayEnabled));
    menu.push_back(entryFor(S::autoShow));
    menu.push_back(entryFor(S::avoidsCoveringWindows));
    menu.push_back(entryFor(S::audioResponsive));
    menu.push_back(entryFor(S::retryAudioCapture));
    menu.push_back(choiceSubmenu(S::displayMode));
    menu.push_back(choiceSubmenu(S::position));
    menu.push_back(colorSubmenu());
    menu.push_back(separator());

    menu.push_back(entryFor(S::launchAtLogin));
    menu.push_back(separator());

    menu.push_back(entryFor(S::quit));
    return menu;
}

}  // namespace lorvane
