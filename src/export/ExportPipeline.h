#pragma once

#include "export/BoundedQueue.h"
#include "media/BgraImage.h"
#include "model/PictureChange.h"

#include <cstdint>
#include <exception>
#include <mutex>
#include <vector>

namespace marlowick {

// A picture of the recording on its way from the decoding stage to the compositing stage.
struct DecodedFrame {
    double outputTime; // seconds on the finished movie's clock
    BgraImage image;
    PictureChange change; // where the picture differs from the last one; `image` holds only those areas
};

// A drawn frame on its way from the compositing stage to the encoding stage.
struct FinishedFrame {
    double outputTime;                // seconds on the finished movie's clock
    std::vector<std::uint8_t> pixels; // RGBA as the framebuffer stores it, rows of the canvas's width
    std::vector<PixelRect> tiles;     // where the frame differs from the last; `pixels` holds only these
};

// The queues that join the three stages of an export (decoding, compositing, encoding), and the first
// failure of any of them. Buffers go back upstream through the `empty` queues, so that a frame's memory
// is reused rather than allocated again. Every member may be used from any thread.
struct ExportPipeline {
    // Frames waiting between two stages. Two or three keep each thread fed through the jitter of the next
    // one; more would only hold memory (a 4K frame is 33 MB).
    static constexpr std::size_t sourceFrames = 3;
    static constexpr std::size_t finishedFrames = 4;

    BoundedQueue<BgraImage> emptyImages{sourceFrames};
    BoundedQueue<DecodedFrame> decoded{sourceFrames};
    BoundedQueue<std::vector<std::uint8_t>> emptyOutputs{finishedFrames};
    BoundedQueue<FinishedFrame> finished{finishedFrames};

    ExportPipeline() {
        for (std::size_t i = 0; i < sourceFrames; ++i) {
            emptyImages.push({});
        }
        for (std::size_t i = 0; i < finishedFrames; ++i) {
            emptyOutputs.push({});
        }
    }

    // Stops every stage: each queue hands out and takes nothing more.
    void abandon() {
        emptyImages.abandon();
        decoded.abandon();
        emptyOutputs.abandon();
        finished.abandon();
    }

    // Keeps a stage's failure unless another came first, and stops every stage.
    void fail(std::exception_ptr failure) {
        {
            std::lock_guard lock(m_errorMutex);
            if (!m_error) {
                m_error = std::move(failure);
            }
        }
        abandon();
    }

    // Throws the first failure of a stage, if there was one.
    void rethrowFailure() {
        std::lock_guard lock(m_errorMutex);
        if (m_error) {
            std::rethrow_exception(m_error);
        }
    }

private:
    std::mutex m_errorMutex;
    std::exception_ptr m_error; // guarded by m_errorMutex
};

} // namespace marlowick
