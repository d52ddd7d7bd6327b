#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

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
// The screen's pictures reach it through a Converter into Pictures the caller allocates once and reuses, so
// that a capture holds a fixed number of them and the conversion runs on the grabbing thread while the
// writer encodes on another.
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

    // One picture in the encoder's format at the movie's size, its memory allocated once so that it can be
    // filled again and again. It may outlive the writer that made it.
    class Picture {
    public:
        ~Picture();
        Picture(const Picture&) = delete;
        Picture& operator=(const Picture&) = delete;

    private:
        friend class RecordingWriter;
        Picture() = default;
        AVFrame* m_frame = nullptr; // owned
    };

    // Turns the screen's pictures, 32-bit B, G, R, X pixels with row 0 at the top as an X server hands
    // them, into Pictures: at the movie's size pixel for pixel, at any other size scaled to it (bilinear).
    // Colours are BT.709 at limited range, as the movie's video is tagged. It needs nothing of the writer
    // once made, so it may run on another thread than the writer's and outlive it. One thread at a time.
    class Converter {
    public:
        ~Converter();
        Converter(const Converter&) = delete;
        Converter& operator=(const Converter&) = delete;

        // Fills `into` with the picture. The first picture of a size sets up its conversion. Throws
        // MediaError when there is no conversion from that size.
        void convert(const std::uint8_t* pixels, int stride, int width, int height, Picture& into);

    private:
        friend class RecordingWriter;
        struct State;
        explicit Converter(std::unique_ptr<State> state);
        std::unique_ptr<State> m_state;
    };

    // A picture for `writeVideo`, its content undefined. Throws MediaError when there is no memory for it.
    std::unique_ptr<Picture> makePicture() const;
    // A converter into this writer's pictures.
    std::unique_ptr<Converter> makeConverter() const;
    // The FFmpeg encoder in use, as "libx264" or "hevc_vaapi".
    std::string encoderName() const;

    // One picture at `ticks` of 1/videoTimeScale from the movie's start; the ticks must rise from picture
    // to picture. The picture may be filled again once this returns (an encoder that holds on to a
    // picture keeps the memory it had, and the next conversion takes fresh memory).
    void writeVideo(Picture& picture, std::int64_t ticks);
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
