#pragma once

#include "media/BgraImage.h"
#include "model/PictureChange.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace marlowick {

// Reads the first video stream of a movie, frame by frame. Times are seconds on the recording's clock:
// the stream's timestamps in its time base, less the stream's start. One thread at a time.
class VideoDecoder {
public:
    // Opens the movie; throws MediaError when it can't be read or has no decodable video.
    explicit VideoDecoder(const std::filesystem::path& movie);
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    int width() const;
    int height() const;
    double frameRate() const; // the stream's average, or its nominal rate
    double duration() const;  // seconds
    // Ticks a second of the stream's timestamps: the exact clock its frame times were counted on.
    int timeScale() const;

    struct Frame {
        double time; // seconds on the recording's clock
        BgraImage image;
    };

    // The next frame in presentation order, or none at the end of the stream.
    std::optional<Frame> next();
    // The next frame that `wanted` accepts by its time, converted into `image` (whose memory is reused
    // when it has the frame's size), with its time; none at the end. Frames it refuses are decoded, as
    // the frames after them may need, but never converted. With `change` given, it is set to where the
    // picture differs from the one handed out before (everywhere for the first, or after a seek), and only
    // those areas of `image` are sure to hold the new picture: the rest may keep whatever it held. A picture
    // identical to the one before is not converted at all. Screen recordings hold many such frames, and
    // many more that differ in a few places.
    std::optional<double> next(BgraImage& image, const std::function<bool(double)>& wanted,
                               PictureChange* change = nullptr);
    // The same, for a caller that keeps pictures in several images: once `change` is known, `place` is
    // asked for the image to convert into, which must hold the picture handed out before wherever the
    // change doesn't reach. A picture identical to the one before asks for none.
    std::optional<double> next(const std::function<bool(double)>& wanted,
                               const std::function<BgraImage&(const PictureChange&)>& place,
                               PictureChange& change);
    // Moves so that `next` yields the frame showing at `time` (the last one starting at or before it).
    void seek(double time);
    // The frame showing at `time`: the last frame that starts at or before it, or the first frame for a
    // time before the start. None for an empty stream.
    std::optional<Frame> frameAt(double time);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
