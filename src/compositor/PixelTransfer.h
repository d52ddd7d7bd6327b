#pragma once

#include "compositor/BgraTexture.h"
#include "compositor/CompositorError.h"
#include "compositor/GlName.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace marlowick {

// Moves frames between the CPU and the GPU without stalling the draw. With streaming on, uploads go
// through a ring of pixel unpack buffers, so the driver copies into the texture while the CPU goes on,
// and readbacks go into pixel pack buffers that are mapped a frame later, so the GPU copies frame n out
// while frame n + 1 draws. With it off, both are plain synchronous calls: on a software renderer the
// "GPU" is the CPU, and a buffer would only add a copy.
//
// Use with its GL context current, on one thread.
class PixelTransfer {
public:
    explicit PixelTransfer(bool streaming);
    ~PixelTransfer();
    PixelTransfer(const PixelTransfer&) = delete;
    PixelTransfer& operator=(const PixelTransfer&) = delete;

    // Whether the renderer named (as GL_RENDERER says) draws on the CPU, where streaming gains nothing.
    static bool isSoftwareRenderer(const char* renderer);

    bool streaming() const { return m_streaming; }

    // Replaces the texture's contents; the caller may reuse `bgra` as soon as this returns.
    void upload(BgraTexture& texture, const std::uint8_t* bgra, int width, int height, int stride);
    // Replaces only `areas` of a texture that already has the size of the image at `bgra`.
    void uploadAreas(BgraTexture& texture, const std::uint8_t* bgra, int stride,
                     const std::vector<PixelRect>& areas);

    // Reads the bound read framebuffer's `width` × `height` pixels as the framebuffer stores them, straight
    // R, G, B, A bytes (any other order costs Mesa a converting draw), row 0 first as drawn, into
    // `destination` (width·height·4 bytes), which must stay valid until its tag comes back. Returns
    // the tags of the reads now complete, oldest first: this one at once when not streaming, else the one
    // before it. `flush` completes the rest. Throws CompositorError when a buffer can't be mapped.
    std::vector<std::uint64_t> read(int width, int height, std::uint8_t* destination, std::uint64_t tag);
    // The same for `areas` of the framebuffer alone, each into its own place in `destination`; the rest of
    // `destination` is left as it is.
    std::vector<std::uint64_t> readAreas(int width, int height, const std::vector<PixelRect>& areas,
                                         std::uint8_t* destination, std::uint64_t tag);
    std::vector<std::uint64_t> flush();

private:
    struct PendingRead {
        GLuint buffer;
        GLsync fence;
        std::uint8_t* destination;
        int width;
        std::vector<PixelRect> areas;
        std::uint64_t tag;
    };
    void complete(PendingRead& read);

    bool m_streaming;
    std::vector<GlBuffer> m_unpack; // ring of upload buffers
    std::size_t m_nextUnpack = 0;
    std::vector<GlBuffer> m_pack; // ring of readback buffers, one more than may be in flight
    std::size_t m_nextPack = 0;
    std::deque<PendingRead> m_pending;
};

} // namespace marlowick
