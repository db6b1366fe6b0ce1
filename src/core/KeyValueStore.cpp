#include "core/KeyValueStore.h"

#include <cctype>

namespace lorvane {

std::optional<KeyValueStore::StringArray> KeyValueStore::stringArray(const std::string& key) const {
    const auto value = object(key);
    if (!value) return std::nullopt;
    if (const auto* array = std::get_if<StringArray>(&*value)) return *array;
    return std::nullopt;
}

std::optional<std::string> KeyValueStore::string(const std::string& key) const {
    const auto value = object(key);
    if (!value) return std::nullopt;
    if (const auto* text = std::get_if<std::string>(&*value)) return *text;
    return std::nullopt;
}

bool KeyValueStore::boolean(const std::string& key) const {
    const auto value = object(key);
    if (!value) return false;
    if (const auto* flag = std::get_if<bool>(&*value)) return *flag;
    if (const auto* number = std::get_if<double>(&*value)) return *number != 0.0;
    if (const auto* text = std::get_if<std::string>(&*value)) return affirmativeString(*text);
    return false;
}

bool affirmativeString(const std::string& text) {
    std::size_t i = 0;
    const auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    while (i < text.size() && std::isspace(at(i))) ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    while (i < text.size() && text[i] == '0') ++i;
    if (i >= text.size()) return false;
    const char c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

std::optional<KeyValueStore::Value> MemoryKeyValueStore::object(const std::string& key) const {
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

}  // namespace lorvane
