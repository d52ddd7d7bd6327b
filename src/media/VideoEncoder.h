#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

namespace marlowick {

// Writes frames of straight BGRA into a movie: H.264 or HEVC (4:2:0, BT.709) in MP4 or QuickTime, or
// ProRes 4444 with its alpha kept (10-bit 4:4:4 with alpha) in QuickTime. Failures are MediaError, naming
// the file; a failure part way leaves the partial file for the caller to remove. One thread at a time.
class VideoEncoder {
public:
    enum class Codec { h264, hevc, prores4444 };
    enum class Container { mp4, mov };

    struct Settings {
        Codec codec = Codec::h264;
        Container container = Container::mp4;
        int width = 0;
        int height = 0;
        double frameRate = 30; // nominal, for rate control; each frame carries its own time
    };

    VideoEncoder(const std::filesystem::path& path, const Settings& settings);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // One frame of the settings' size, rows `stride` bytes apart, row 0 at the top, shown from `time`
    // seconds on the movie's clock. Times must rise from frame to frame.
    void encode(const std::uint8_t* bgra, int stride, double time);
    // Drains the encoder and completes the file.
    void finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
