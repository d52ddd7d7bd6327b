#include "compositor/PngFile.h"

#include "model/Uuid.h"

#include <cairo.h>

#include <memory>
#include <stdexcept>
#include <system_error>

namespace marlowick {

void writePng(const std::filesystem::path& path, int width, int height, const std::uint8_t* bgra,
              int stride) {
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height), &cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("no image of " + std::to_string(width) + "×" + std::to_string(height));
    }
    // Cairo keeps premultiplied alpha.
    const int cairoStride = cairo_image_surface_get_stride(surface.get());
    unsigned char* out = cairo_image_surface_get_data(surface.get());
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* from = bgra + static_cast<std::ptrdiff_t>(y) * stride;
        unsigned char* to = out + static_cast<std::ptrdiff_t>(y) * cairoStride;
        for (int x = 0; x < width * 4; x += 4) {
            const unsigned a = from[x + 3];
            for (int c = 0; c < 3; ++c) {
                to[x + c] = static_cast<unsigned char>((from[x + c] * a + 127) / 255);
            }
            to[x + 3] = static_cast<unsigned char>(a);
        }
    }
    cairo_surface_mark_dirty(surface.get());

    const std::filesystem::path partial =
        path.parent_path() / ("." + path.filename().string() + "-" + Uuid::random().toString());
    if (cairo_surface_write_to_png(surface.get(), partial.c_str()) != CAIRO_STATUS_SUCCESS) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw std::runtime_error("can't write " + path.string());
    }
    std::error_code error;
    std::filesystem::rename(partial, path, error);
    if (error) {
        std::filesystem::remove(partial, error);
        throw std::runtime_error("can't write " + path.string());
    }
}

} // namespace marlowick
