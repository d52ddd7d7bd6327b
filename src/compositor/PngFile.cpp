#include "compositor/PngFile.h"

#include "model/Uuid.h"

#include <cairo.h>

#include <cerrno>
#include <cstdio>
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
    // The file is opened here rather than by Cairo, so that a failure has the system's reason.
    const auto fail = [&](int code) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw std::runtime_error("can't write " + path.string() + ": " +
                                 std::system_category().message(code));
    };
    std::FILE* file = std::fopen(partial.c_str(), "wb");
    if (file == nullptr) {
        fail(errno);
    }
    const cairo_status_t written = cairo_surface_write_to_png_stream(
        surface.get(),
        [](void* closure, const unsigned char* data, unsigned int length) {
            return std::fwrite(data, 1, length, static_cast<std::FILE*>(closure)) == length
                       ? CAIRO_STATUS_SUCCESS
                       : CAIRO_STATUS_WRITE_ERROR;
        },
        file);
    const int writeError = errno;
    if (std::fclose(file) != 0 || written != CAIRO_STATUS_SUCCESS) {
        fail(written != CAIRO_STATUS_SUCCESS ? writeError : errno);
    }
    std::error_code error;
    std::filesystem::rename(partial, path, error);
    if (error) {
        fail(error.value());
    }
}

} // namespace marlowick
