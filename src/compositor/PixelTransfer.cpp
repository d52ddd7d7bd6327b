#include "compositor/PixelTransfer.h"

#include <cstring>
#include <string_view>

namespace marlowick {

namespace {

constexpr std::size_t ringSize = 3;
// Reads in flight before the oldest is mapped: one frame of delay is enough for the copy to finish
// behind the next draw.
constexpr std::size_t readsInFlight = 1;

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
    if (!m_streaming) {
        texture.upload(bgra, width, height, stride);
        return;
    }
    const auto bytes = static_cast<GLsizeiptr>(stride) * height;
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, m_unpack[m_nextUnpack].get());
    m_nextUnpack = (m_nextUnpack + 1) % m_unpack.size();
    // Orphaning the storage lets the driver hand out fresh memory while an earlier copy still reads the old.
    glBufferData(GL_PIXEL_UNPACK_BUFFER, bytes, nullptr, GL_STREAM_DRAW);
    void* mapped =
        glMapBufferRange(GL_PIXEL_UNPACK_BUFFER, 0, bytes, GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_BUFFER_BIT);
    if (mapped == nullptr) {
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        texture.upload(bgra, width, height, stride);
        return;
    }
    std::memcpy(mapped, bgra, static_cast<std::size_t>(bytes));
    glUnmapBuffer(GL_PIXEL_UNPACK_BUFFER);
    texture.upload(nullptr, width, height, stride); // from offset 0 of the bound buffer
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

std::vector<std::uint64_t> PixelTransfer::read(int width, int height, std::uint8_t* destination,
                                               std::uint64_t tag) {
    const auto bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    if (!m_streaming) {
        glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, destination);
        return {tag};
    }
    const GLuint buffer = m_pack[m_nextPack].get();
    m_nextPack = (m_nextPack + 1) % m_pack.size();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
    glBufferData(GL_PIXEL_PACK_BUFFER, static_cast<GLsizeiptr>(bytes), nullptr, GL_STREAM_READ);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    m_pending.push_back({buffer, glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0), destination, bytes, tag});
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
    glBindBuffer(GL_PIXEL_PACK_BUFFER, read.buffer);
    const void* mapped =
        glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0, static_cast<GLsizeiptr>(read.bytes), GL_MAP_READ_BIT);
    if (mapped == nullptr) {
        glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
        throw CompositorError(CompositorError::Kind::noFramebuffer,
                              "the GPU gave no buffer to read a frame from");
    }
    std::memcpy(read.destination, mapped, read.bytes);
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
}

} // namespace marlowick
