#pragma once

#include <cstdint>
#include <filesystem>

namespace marlowick {

// Writes straight-alpha BGRA pixels (row 0 at the top) as a PNG. The file appears whole or not at all:
// it is written beside the target and renamed into place. Throws std::runtime_error on failure.
void writePng(const std::filesystem::path& path, int width, int height, const std::uint8_t* bgra, int stride);

} // namespace marlowick
