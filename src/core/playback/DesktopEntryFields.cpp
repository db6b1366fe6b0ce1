#include "core/playback/DesktopEntryFields.h"

#include "core/MusicPlayer.h"

namespace lorvane {

namespace {

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

std::string unescaped(std::string_view value) {
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            result += value[i];
            continue;
        }
        const char next = value[++i];
        switch (next) {
            case 's':
                result += ' ';
                break;
            case 'n':
            case 't':
            case 'r':
                result += ' ';  // a name shown on one line
                break;
            default:
                result += next;
        }
    }
    return boundedUtf8(result);
}

}  // namespace

DesktopEntryFields parseDesktopEntry(std::string_view text) {
    DesktopEntryFields fields;
    bool inMainGroup = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = trimmed(line.substr(0, equals));
        const std::string_view value = trimmed(line.substr(equals + 1));
        if (key == "Name" && fields.name.empty()) fields.name = unescaped(value);
        if (key == "Icon" && fields.icon.empty()) fields.icon = unescaped(value);
    }
    return fields;
}

}  // namespace lorvane
