#include "core/DesktopEntry.h"

#include <cstdint>
#include <sstream>

namespace lorvane::desktopentry {

namespace {

bool isReserved(char c) {
    switch (c) {
        case ' ': case '\t': case '\n': case '"': case '\'': case '\\': case '>': case '<': case '~': case '|':
        case '&': case ';': case '$': case '*': case '?': case '#': case '(': case ')': case '`':
            return true;
        default:
            return false;
    }
}

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

bool isValidUtf8(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        int extra = 0;
        std::uint32_t code = 0;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            extra = 1;
            code = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            code = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            code = c & 0x07;
        } else {
            return false;
        }
        if (i + static_cast<std::size_t>(extra) >= text.size()) return false;
        for (int k = 1; k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past Unicode are not text.
        static const std::uint32_t minimum[] = {0, 0x80, 0x800, 0x10000};
        if (code < minimum[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += static_cast<std::size_t>(extra) + 1;
    }
    return true;
}

bool expressible(const std::string& text) {
    for (char c : text) {
        if (isControl(static_cast<unsigned char>(c))) return false;
    }
    return isValidUtf8(text);
}

std::string trim(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return {};
    const auto end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

}  // namespace

std::optional<std::string> quoteExecArgument(const std::string& argument) {
    if (!expressible(argument)) return std::nullopt;
    bool needsQuotes = argument.empty();
    // A literal percent sign is also quoted: some launchers read field codes before quotes.
    for (char c : argument) needsQuotes = needsQuotes || isReserved(c) || c == '%';
    std::string out;
    if (needsQuotes) out += '"';
    for (char c : argument) {
        if (needsQuotes && (c == '"' || c == '`' || c == '$' || c == '\\')) out += '\\';
        if (c == '%') out += '%';
        out += c;
    }
    if (needsQuotes) out += '"';
    return out;
}

std::optional<std::string> execValue(const std::vector<std::string>& arguments) {
    if (arguments.empty()) return std::nullopt;
    std::string joined;
    for (const std::string& argument : arguments) {
        const auto quoted = quoteExecArgument(argument);
        if (!quoted) return std::nullopt;
        if (!joined.empty()) joined += ' ';
        joined += *quoted;
    }
    return escapeStringValue(joined);
}

std::optional<std::string> escapeStringValue(const std::string& text) {
    if (!expressible(text)) return std::nullopt;
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            out += "\\\\";
        } else if (i == 0 && text[i] == ' ') {
            // A leading blank would be trimmed by readers.
            out += "\\s";
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string unescapeStringValue(const std::string& value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        const char next = value[++i];
        switch (next) {
            case 's': out += ' '; break;
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            case '\\': out += '\\'; break;
            default:
                out += '\\';
                out += next;
        }
    }
    return out;
}

std::optional<std::vector<std::string>> parseExecValue(const std::string& value) {
    const std::string text = unescapeStringValue(value);
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    bool dropArgument = false;
    std::size_t i = 0;
    const auto finish = [&] {
        if (inArgument && !dropArgument) arguments.push_back(current);
        current.clear();
        inArgument = false;
        dropArgument = false;
    };
    while (i < text.size()) {
        const char c = text[i];
        if (c == ' ') {
            finish();
            ++i;
            continue;
        }
        if (c == '"') {
            inArgument = true;
            ++i;
            bool closed = false;
            while (i < text.size()) {
                const char q = text[i];
                if (q == '"') {
                    closed = true;
                    ++i;
                    break;
                }
                if (q == '\\') {
                    if (i + 1 >= text.size()) return std::nullopt;
                    const char escaped = text[i + 1];
                    if (escaped != '"' && escaped != '`' && escaped != '$' && escaped != '\\') return std::nullopt;
                    current += escaped;
                    i += 2;
                    continue;
                }
                if (q == '%') {
                    if (i + 1 < text.size() && text[i + 1] == '%') {
                        current += '%';
                        i += 2;
                        continue;
                    }
                    return std::nullopt;  // field codes are not allowed inside quotes
                }
                current += q;
                ++i;
            }
            if (!closed) return std::nullopt;
            continue;
        }
        if (c == '%') {
            if (i + 1 >= text.size()) return std::nullopt;
            const char code = text[i + 1];
            if (code == '%') {
                current += '%';
                inArgument = true;
            } else {
                // A field code stands for something only the launcher knows; it makes no argument here.
                if (!inArgument) dropArgument = true;
                inArgument = true;
            }
            i += 2;
            continue;
        }
        if (isReserved(c) || isControl(static_cast<unsigned char>(c))) return std::nullopt;
        current += c;
        inArgument = true;
        ++i;
    }
    finish();
    if (arguments.empty()) return std::nullopt;
    return arguments;
}

std::optional<std::string> ParsedEntry::value(const std::string& key) const {
    const auto group = groups.find("Desktop Entry");
    if (group == groups.end()) return std::nullopt;
    const auto found = group->second.find(key);
    if (found == group->second.end()) return std::nullopt;
    return found->second;
}

ParsedEntry parse(const std::string& text) {
    ParsedEntry entry;
    std::istringstream in(text);
    std::string line;
    std::string group;
    bool sawGroup = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const std::string trimmed = trim(line);
        if (trimmed.empty() || trimmed[0] == '#') continue;
        if (trimmed[0] == '[') {
            if (trimmed.back() != ']') {
                ++entry.malformedLines;
                continue;
            }
            group = trimmed.substr(1, trimmed.size() - 2);
            if (!sawGroup) entry.firstGroup = group;
            sawGroup = true;
            entry.groups[group];
            continue;
        }
        const auto equals = trimmed.find('=');
        if (equals == std::string::npos || equals == 0 || !sawGroup) {
            ++entry.malformedLines;
            continue;
        }
        const std::string key = trim(trimmed.substr(0, equals));
        const std::string value = trim(trimmed.substr(equals + 1));
        auto& keys = entry.groups[group];
        if (keys.count(key)) {
            ++entry.duplicateKeys;
            continue;  // the first one counts
        }
        keys[key] = value;
    }
    return entry;
}

}  // namespace lorvane::desktopentry
