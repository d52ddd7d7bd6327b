#pragma once

#include "model/AudioSettings.h"
#include "model/TimeMap.h"
#include "model/TypedError.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <vector>

namespace marlowick {

// The sound can't be read or written. The text is FFmpeg's reason, or the step that failed.
enum class RenderErrorKind { readFailed, writeFailed, noAudioTracks };
using RenderError = TypedError<RenderErrorKind>;

// A render stopped through its stop token before it wrote anything. Not a failure: whoever asked for the
// stop knows why, so it has no wording for a person.
class RenderCancelled : public std::runtime_error {
public:
    RenderCancelled()
        : std::runtime_error("the render was stopped") {}
};

// Turns the sound of a recorded movie and the project's audio settings into one finished mono track:
// the voice chain, the gains, ducking, the mix, the cut, the music bed, the clicks, and the final level,
// written as AAC in an ".m4a". Whole tracks are held in memory as mono 32-bit floats at 48000 Hz.
//
// A movie's audio tracks are, in order, the system audio and the microphone. With one track only, it is
// the voice when voice enhancement is on and the system audio otherwise; `extractVoice`, `waveform` and
// the silence detector always take it as the voice.
//
// Stateless and synchronous; any thread. Nothing is cancelled part way.
struct AudioRenderer {
    static constexpr int sampleRate = 48000;

    struct Result {
        std::filesystem::path url;
        double duration = 0; // seconds: samples written over 48000
    };

    // `clickTimes` are output seconds: the `down` events of the telemetry already moved through the cuts.
    // `progress`, when given, hears the fraction done (0 to 1) now and then, on the calling thread.
    // `stop` is tested at the same moments (between stages, and about once a second of sound while
    // encoding); a stopped render throws RenderCancelled and leaves what `to` held as it was.
    Result render(const std::filesystem::path& source, const AudioSettings& settings,
                  std::span<const double> clickTimes, const std::optional<TimeMap>& trim,
                  const std::filesystem::path& to, const std::function<void(double)>& progress = {},
                  std::stop_token stop = {}) const;

    // The voice as recorded (track 1 of two, else track 0), uncut and unprocessed, for transcription.
    std::filesystem::path extractVoice(const std::filesystem::path& source,
                                       const std::filesystem::path& to) const;

    // The peak of each of `buckets` strides of the voice, scaled so the loudest is 1 (near-silence stays
    // as it is).
    std::vector<float> waveform(const std::filesystem::path& source, int buckets,
                                const std::optional<TimeMap>& trim) const;

    // The samples of one audio track, mono at 48000 Hz.
    std::vector<float> decodeForAnalysis(const std::filesystem::path& source, std::size_t track) const;

    // The samples inside the map's kept ranges, end to end.
    static std::vector<float> applyTrim(const TimeMap& trim, std::span<const float> samples,
                                        double sampleRate);

    // The voice chain in place: high-pass at 85 Hz, the expander, the presence lift, the compressor.
    static void enhance(std::vector<float>& voice, const AudioSettings& settings);

    // The bed over `length` samples: offset, looped or not, at its gain, faded in and out over the length.
    std::vector<float> loadMusic(const MusicBed& bed, std::size_t length) const;
};

} // namespace marlowick
