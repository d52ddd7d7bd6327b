#pragma once

#include "model/PixelRect.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace marlowick {

// Writes frames of straight BGRA into a movie: H.264 or HEVC (4:2:0, BT.709) in MP4 or QuickTime, or
// ProRes 4444 with its alpha kept (10-bit 4:4:4 with alpha) in QuickTime. Audio tracks of other files can
// be carried along as they are stored, without decoding: their packets are woven in by time as the video
// is written, and whatever is left follows when the video is finished.
//
// H.264 and HEVC go to the GPU's encoder when FFmpeg finds one that opens (NVENC, then VAAPI), and to
// libx264/libx265 otherwise; the only difference the caller sees is speed.
//
// Failures are MediaError, naming the file; a failure part way leaves the partial file for the caller to
// remove. One thread at a time.
class VideoEncoder {
public:
    enum class Codec { h264, hevc, prores4444 };
    enum class Container { mp4, mov };

    // The `track`-th audio stream (in file order) of `file`.
    struct AudioTrack {
        std::filesystem::path file;
        std::size_t track = 0;
    };

    // The byte order of the frames handed to `encode`: BGRA as screens and Cairo give them, or RGBA as a
    // GL framebuffer stores them.
    enum class PixelOrder { bgra, rgba };

    struct Settings {
        Codec codec = Codec::h264;
        Container container = Container::mp4;
        int width = 0;
        int height = 0;
        double frameRate = 30; // nominal, for rate control; each frame carries its own time
        int timeScale = 90000; // ticks a second of the video's timestamps
        std::vector<AudioTrack> audio;
        bool allowHardware = true;
        PixelOrder input = PixelOrder::bgra;
    };

    VideoEncoder(const std::filesystem::path& path, const Settings& settings);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // Whether the container can store that track's compressed sound as it is. Throws MediaError when the
    // file or the track can't be read.
    static bool canCarry(Container container, const AudioTrack& track);

    // One frame of the settings' size in the settings' byte order, straight alpha, rows `stride` bytes apart,
    // row 0 at the top, shown from `time` seconds on the movie's clock. Times must rise from frame to frame;
    // a time is rounded to the time scale, and one that rounds onto the last frame's tick moves a tick on.
    void encode(const std::uint8_t* bgra, int stride, double time);

    // The same for a picture that differs from the last one encoded only within `areas` (none: the same
    // picture again). The picture is converted in tiles: every pixel of the tiles that meet an area must be
    // current in `bgra`, and no other pixel is read. The first frame must be named whole.
    void encodeChanged(const std::uint8_t* bgra, int stride, double time,
                       const std::vector<PixelRect>& areas);
    // The tiles that meet any of `areas` in a picture of the settings' size, as few rectangles: the pixels
    // `encodeChanged` reads.
    static std::vector<PixelRect> tilesMeeting(const std::vector<PixelRect>& areas, int width, int height);

    // Drains the encoder, copies the rest of the audio and completes the file. False, with the file left
    // incomplete, when `stop` was requested before the end (it is tested between audio packets).
    bool finish(std::stop_token stop = {});

    // The FFmpeg encoder in use, as "libx264" or "h264_nvenc".
    std::string encoderName() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
