#pragma once

#include "capture/CaptureConfiguration.h"
#include "capture/CaptureError.h"
#include "capture/ScreenCapturer.h"
#include "media/RecordingWriter.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace marlowick {

// Receives the pictures and sound of a running capture and writes them into one movie: the video track,
// then system audio, then the microphone, each sound on a track of its own (see RecordingWriter for the
// format and why a crash loses at most the last second or so).
//
// The movie's timeline starts on the first complete video frame. Sound from before it, or stamped earlier
// than it, is refused; so is everything once `finish` has begun. All times are seconds on one clock, the
// steady clock (CLOCK_MONOTONIC): a picture at the moment it was grabbed, sound at the moment its first
// sample was captured (arrival time minus the stream's latency).
//
// The callers never wait for the encoder: a picture is converted on the caller's thread into one of a
// fixed number of frames and encoded on the sink's own thread, and when none is free the picture is
// dropped and counted. Sound goes through a bounded queue in the same way. A sound track with a gap (a
// device gone) is filled with silence, so that the tracks stay in step with the picture.
//
// Every few hundred frames' worth of time the sink checks the free space on the movie's disk; below the
// margin it stops taking anything and reports an interruption, and what was written is kept.
class RecordingSink {
public:
    enum class Output { screen, audio, microphone };

    struct Options {
        std::uint64_t minimumFreeBytes = 512ull << 20; // stop before the disk is full
        bool allowHardware = true;                     // the GPU's video encoder where one opens
        int queueDepth = 8;                            // pictures waiting for the encoder at most
    };

    // Removes any file at the configuration's `outputURL` and begins the movie there. Throws
    // CaptureError (writerFailed) when it can't.
    RecordingSink(const CaptureConfiguration& configuration, const Options& options);
    explicit RecordingSink(const CaptureConfiguration& configuration)
        : RecordingSink(configuration, Options{}) {}
    ~RecordingSink();
    RecordingSink(const RecordingSink&) = delete;
    RecordingSink& operator=(const RecordingSink&) = delete;

    // A picture of 32-bit BGRX pixels, row 0 at the top, grabbed at `time`. Incomplete pictures are
    // dropped and never start the movie. False when the picture was not taken. From one thread.
    bool appendVideo(const std::uint8_t* pixels, int stride, int width, int height, double time,
                     bool complete = true);
    // `frames` stereo frames of 48 kHz float samples, interleaved, the first captured at `time`. False when
    // refused or dropped. Each output from one thread.
    bool appendAudio(Output output, const float* samples, int frames, double time);
    // Pictures the caller could not grab in time before `time`, counted with the dropped ones.
    void countMissed(std::int64_t frames, double time);

    // Ends the movie and makes it an ordinary file; yields its length in seconds (0 when no picture ever
    // came). Throws CaptureError (writerFailed) when writing failed, the partial movie left on disk.
    double finish();

    std::optional<double> sessionStart() const;
    // The disk filling up or the writer failing part way; from then on nothing is taken.
    std::optional<CaptureError> interruption() const;
    CaptureStatistics statistics() const;
    std::string encoderName() const;
    // Troubles that didn't stop the take, each handed out once.
    std::vector<std::string> takeWarnings();

private:
    static constexpr int chunkFrames = 4096; // sound frames a queued piece holds at most
    static constexpr int chunkSlots = 32;    // queued pieces per track: about 2.7 s of sound

    struct Picture;
    struct SoundChunk {
        double time = 0;
        int frames = 0;
        std::vector<float> samples; // chunkFrames × 2, allocated once
    };
    struct SoundQueue {
        std::array<SoundChunk, chunkSlots> slots;
        int head = 0;  // the oldest waiting piece
        int count = 0; // pieces waiting
    };

    void run(std::stop_token stop);
    void writeSound(int track, const SoundChunk& chunk);
    void padSound(double untilSeconds);
    void checkDisk();
    void interrupt(const std::string& why, bool writerFailed);
    void countDropped(std::int64_t frames, double time); // under m_lock
    int trackOf(Output output) const;

    CaptureConfiguration m_configuration;
    Options m_options;
    std::unique_ptr<RecordingWriter> m_writer; // used by the sink's thread only once it runs
    int m_width = 0;                           // of the movie's pictures
    int m_height = 0;
    int m_systemTrack = -1; // the writer's sound track for each source, or -1 when not recorded
    int m_microphoneTrack = -1;

    mutable std::mutex m_lock;                // guards the fields down to m_warnings
    std::optional<double> m_sessionStart;     // time of the first written picture; written once
    std::optional<double> m_lastPresentation; // latest accepted time, of pictures and sound alike
    std::optional<double> m_lastVideoTime;    // of the latest accepted picture
    bool m_isFinished = false;
    std::optional<CaptureError> m_interruption;
    bool m_writerFailed = false; // the interruption is the writer's failure, not a full disk
    CaptureStatistics m_statistics;
    std::vector<std::string> m_warnings;

    std::mutex m_queueLock;                 // guards the queues below
    std::condition_variable m_queueChanged; // signalled on every change of them
    std::vector<Picture*> m_freePictures;   // ready to be filled by `appendVideo`
    std::vector<Picture*> m_readyPictures;  // waiting for the encoder, oldest first
    std::array<SoundQueue, 2> m_sound;
    bool m_draining = false; // `finish` asks the thread to write what is queued and end

    std::vector<std::unique_ptr<Picture>> m_pictures;        // all of them, owned here
    std::unique_ptr<RecordingWriter::Converter> m_converter; // used by the `appendVideo` thread only
    double m_lastVideoSeconds = -1; // movie time of the last encoded picture; sink thread only
    double m_nextDiskCheck = 0;     // sink thread only
    std::jthread m_thread;
};

} // namespace marlowick
