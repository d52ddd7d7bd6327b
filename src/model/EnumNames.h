#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace marlowick {

// Maps an enumeration to the strings that stand for its cases in files. Specialise with a static
// `names` array of (case, string) pairs in declaration order; that order is also `allCases`.
template <class E> struct EnumNames;

template <class E>
concept NamedEnum = requires {
    EnumNames<E>::names;
};

template <NamedEnum E> constexpr std::string_view enumName(E value) {
    for (const auto& [e, name] : EnumNames<E>::names) {
        if (e == value) {
            return name;
        }
    }
    return {};
}

template <NamedEnum E> constexpr std::optional<E> enumFromName(std::string_view name) {
    for (const auto& [e, n] : EnumNames<E>::names) {
        if (n == name) {
            return e;
        }
    }
    return std::nullopt;
}

template <NamedEnum E> constexpr auto allCases() {
    std::array<E, EnumNames<E>::names.size()> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i) {
        cases[i] = EnumNames<E>::names[i].first;
    }
    return cases;
}

} // namespace marlowick
