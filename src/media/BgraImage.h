#pragma once

#include <cstdint>
#include <vector>

namespace marlowick {

// Pixels as 8-bit B, G, R, A in memory, row 0 at the top, rows `stride` bytes apart.
struct BgraImage {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<std::uint8_t> bytes;

    static BgraImage blank(int width, int height) {
        return {width, height, width * 4,
                std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4)};
    }
    std::uint8_t* row(int y) { return bytes.data() + static_cast<std::ptrdiff_t>(y) * stride; }
    const std::uint8_t* row(int y) const { return bytes.data() + static_cast<std::ptrdiff_t>(y) * stride; }
};

} // namespace marlowick
