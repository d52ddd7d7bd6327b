#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVFrame;

namespace marlowick {

// Writes a take while it is being captured: a QuickTime movie with the video track first and then stereo
// 48 kHz AAC tracks at 160 kbit/s, in the order the caller numbers them.
//
// The movie is written in fragments, each starting at a keyframe and keyframes at least once a second,
// and every fragment goes to the file as soon as it is complete: a crash or a power cut loses at most
// the last second or so, and what is on disk always opens. `finalise` then rewrites the finished take as
// an ordinary movie, in place.
//
// Video is HEVC where the GPU's encoder opens (NVENC, VAAPI), and H.264 from libx264's fastest preset
// otherwise: HEVC in software can't keep up with a 1080p screen at 60 fps on two cores.
//
// Failures are MediaError naming the file; the partial file stays. One thread at a time.
class RecordingWriter {
public:
    static constexpr int sampleRate = 48000;     // audio timestamps count samples at this rate
    static constexpr int videoTimeScale = 90000; // video timestamps count ticks of 1/90000 s

    struct Settings {
        int width = 0;
        int height = 0;
        double frameRate = 60;
        int audioTracks = 0;
        bool allowHardware = true;
    };

    RecordingWriter(const std::filesystem::path& path, const Settings& settings);
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    // The format of the pictures `writeVideo` takes, at the settings' size.
    AVPixelFormat pixelFormat() const;
    // The FFmpeg encoder in use, as "libx264" or "hevc_vaapi".
    std::string encoderName() const;

    // One picture; its `pts` counts ticks of 1/videoTimeScale from the movie's start and must rise.
    void writeVideo(AVFrame* picture);
    // `frames` stereo frames of interleaved float samples, placed right after the track's last ones;
    // null samples write silence.
    void writeAudio(int track, const float* samples, std::int64_t frames);
    // Frames written so far to a track, which is also where the next ones go on its clock.
    std::int64_t audioFrames(int track) const;

    // Drains the encoders and completes the fragmented file.
    void finish();

    // Rewrites a movie (fragmented or not) as an ordinary one with the same tracks and packets, through
    // a scratch file beside it that replaces it only once it is complete and on disk. On a failure the
    // movie is left as it was.
    static void finalise(const std::filesystem::path& path);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
