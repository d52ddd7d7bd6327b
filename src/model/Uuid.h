#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace marlowick {

// A 128-bit identifier. Written as its canonical 36-character form with upper-case hexadecimal digits;
// read from that form in either case.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    // A fresh random (version 4) identifier from the kernel's random source.
    static Uuid random();
    static std::optional<Uuid> parse(std::string_view text);
    std::string toString() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

} // namespace marlowick

template <> struct std::hash<marlowick::Uuid> {
    std::size_t operator()(const marlowick::Uuid& id) const noexcept;
};
