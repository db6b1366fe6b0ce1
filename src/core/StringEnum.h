#pragma once
// Enumerations with string raw values. Each enumeration specialises EnumTraits with the raw
// values in case order; the helpers below give allCases, rawValue and fromRawValue for all of them.

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace lorvane {

template <typename E>
struct EnumTraits;  // static constexpr std::array<std::string_view, N> rawValues;

template <typename E>
constexpr std::size_t caseCount() {
    return EnumTraits<E>::rawValues.size();
}

template <typename E>
constexpr std::array<E, caseCount<E>()> allCases() {
    std::array<E, caseCount<E>()> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i) cases[i] = static_cast<E>(i);
    return cases;
}

template <typename E>
constexpr std::size_t caseIndex(E value) {
    return static_cast<std::size_t>(value);
}

template <typename E>
constexpr std::string_view rawValue(E value) {
    return EnumTraits<E>::rawValues[caseIndex(value)];
}

// Exact, case-sensitive match; anything else gives no value.
template <typename E>
constexpr std::optional<E> fromRawValue(std::string_view raw) {
    const auto& values = EnumTraits<E>::rawValues;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] == raw) return static_cast<E>(i);
    }
    return std::nullopt;
}

}  // namespace lorvane
