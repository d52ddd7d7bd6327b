#include "compositor/PixelTransfer.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace marlowick {

namespace {

constexpr std::size_t ringSize = 3;
// Reads in flight before the oldest is mapped: one frame of delay is enough for the copy to finish
// behind the next draw.
constexpr std::size_t readsInFlight = 1;

// Copies `areas` of an image whose rows lie `stride` bytes apart from `from` to `to`, each to its own place.
// `to` holds the whole image; `from` holds it from byte `fromStart` on.
void copyAreas(std::uint8_t* to, const std::uint8_t* from, std::size_t fromStart, std::size_t stride,
               const std::vector<PixelRect>& areas) {
    for (const PixelRect& area : areas) {
        for (int y = area.y; y < area.bottom(); ++y) {
            const std::size_t offset =
                static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(area.x) * 4;
            std::memcpy(to + offset, from + (offset - fromStart), static_cast<std::size_t>(area.width) * 4);
        }
    }
}

GlBuffer newBuffer() {
    GLuint name = 0;
    glGenBuffers(1, &name);
    return GlBuffer(name);
}

} // namespace

PixelTransfer::PixelTransfer(bool streaming)
    : m_streaming(streaming) {
    if (m_streaming) {
        for (std::size_t i = 0; i < ringSize; ++i) {
            m_unpack.push_back(newBuffer());
            m_pack.push_back(newBuffer());
        }
    }
}

PixelTransfer::~PixelTransfer() {
    for (PendingRead& read : m_pending) {
        glDeleteSync(read.fence);
    }
}

bool PixelTransfer::isSoftwareRenderer(const char* renderer) {
    const std::string_view name = renderer == nullptr ? "" : renderer;
    return name.find("llvmpipe") != std::string_view::npos ||
           name.find("softpipe") != std::string_view::npos || name.find("swrast") != std::string_view::npos;
}

void PixelTransfer::upload(BgraTexture& texture, const std::uint8_t* bgra, int width, int height,
                           int stride) {
    if (!m_streaming || texture.width() != width || texture.height() != height) {
        texture.upload(bgra, width, height, stride);
        return;
    }
    uploadAreas(texture, bgra, stride, {{0, 0, width, height}});
}

void PixelTransfer::uploadAreas(BgraTexture& texture, const std::uint8_t* bgra, int stride,
                                const std::vector<PixelRect>& areas) {
    if (!m_streaming) {
        for (const PixelRect& area : areas) {
            texture.update(bgra, stride, area);
        }
        return;
    }
    const auto bytes = static_cast<GLsizeiptr>(stride) * texture.height();
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, m_unpack[m_nextUnpack].get());
    m_nextUnpack = (m_nextUnpack + 1) % m_unpack.size();
    // Orphaning the storage lets the driver hand out fresh memory while an earlier copy still reads the old.
    glBufferData(GL_PIXEL_UNPACK_BUFFER, bytes, nullptr, GL_STREAM_DRAW);
    auto* mapped = static_cast<std::uint8_t*>(
        glMapBufferRange(GL_PIXEL_UNPACK_BUFFER, 0, bytes, GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_BUFFER_BIT));
    if (mapped == nullptr) {
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        for (const PixelRect& area : areas) {
            texture.update(bgra, stride, area);
        }
        return;
    }
    // The areas go to the places they have in the image, so the buffer reads as the image would.
    copyAreas(mapped, bgra, 0, static_cast<std::size_t>(stride), areas);
    glUnmapBuffer(GL_PIXEL_UNPACK_BUFFER);
    for (const PixelRect& area : areas) {
        texture.update(nullptr, stride, area); // from the bound buffer
    }
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

std::vector<std::uint64_t> PixelTransfer::read(int width, int height, std::uint8_t* destination,
                                               std::uint64_t tag) {
    return readAreas(width, height, {{0, 0, width, height}}, destination, tag);
}

std::vector<std::uint64_t> PixelTransfer::readAreas(int width, int height,
                                                    const std::vector<PixelRect>& areas,
                                                    std::uint8_t* destination, std::uint64_t tag) {
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ROW_LENGTH, width);
    auto readEach = [&](std::uint8_t* base) {
        for (const PixelRect& area : areas) {
            glPixelStorei(GL_PACK_SKIP_PIXELS, area.x);
            glPixelStorei(GL_PACK_SKIP_ROWS, area.y);
            glReadPixels(area.x, area.y, area.width, area.height, GL_RGBA, GL_UNSIGNED_BYTE, base);
        }
        glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
        glPixelStorei(GL_PACK_SKIP_ROWS, 0);
        glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    };
    if (!m_streaming) {
        readEach(destination);
        return {tag};
    }
    const auto bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    const GLuint buffer = m_pack[m_nextPack].get();
    m_nextPack = (m_nextPack + 1) % m_pack.size();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
    glBufferData(GL_PIXEL_PACK_BUFFER, static_cast<GLsizeiptr>(bytes), nullptr, GL_STREAM_READ);
    readEach(nullptr); // into the bound buffer, each area at its place in the frame
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    m_pending.push_back(
        {buffer, glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0), destination, width, areas, tag});
    glFlush(); // start the copy now, not at the next implicit flush

    std::vector<std::uint64_t> done;
    while (m_pending.size() > readsInFlight) {
        complete(m_pending.front());
        done.push_back(m_pending.front().tag);
        m_pending.pop_front();
    }
    return done;
}

std::vector<std::uint64_t> PixelTransfer::flush() {
    std::vector<std::uint64_t> done;
    while (!m_pending.empty()) {
        complete(m_pending.front());
        done.push_back(m_pending.front().tag);
        m_pending.pop_front();
    }
    return done;
}

void PixelTransfer::complete(PendingRead& read) {
    glClientWaitSync(read.fence, GL_SYNC_FLUSH_COMMANDS_BIT, GL_TIMEOUT_IGNORED);
    glDeleteSync(read.fence);
    read.fence = nullptr;
    if (read.areas.empty()) {
        return;
    }
    // Only the rows the areas span are mapped.
    const auto rowBytes = static_cast<std::size_t>(read.width) * 4;
    int top = read.areas.front().y;
    int bottom = read.areas.front().bottom();
    for (const PixelRect& area : read.areas) {
        top = std::min(top, area.y);
        bottom = std::max(bottom, area.bottom());
    }
    const std::size_t start = static_cast<std::size_t>(top) * rowBytes;
    const std::size_t length = static_cast<std::size_t>(bottom - top) * rowBytes;
    glBindBuffer(GL_PIXEL_PACK_BUFFER, read.buffer);
    const auto* mapped =
        static_cast<const std::uint8_t*>(glMapBufferRange(GL_PIXEL_PACK_BUFFER, static_cast<GLintptr>(start),
                                                          static_cast<GLsizeiptr>(length), GL_MAP_READ_BIT));
    if (mapped == nullptr) {
        glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
        throw CompositorError(CompositorError::Kind::noFramebuffer,
                              "the GPU gave no buffer to read a frame from");
    }
    copyAreas(read.destination, mapped, start, rowBytes, read.areas);
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
}

} // namespace marlowick
