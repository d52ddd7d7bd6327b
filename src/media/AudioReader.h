#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>

namespace marlowick {

// One audio track of a file read from any time on, a piece at a time, in the working format (mono 32-bit
// float at 48000 Hz): what a player needs, which can't hold a long take's whole track. Times count as
// AudioFile::decodeTrack counts them: the track's first sample lies at 0. Failures are MediaError. One
// thread at a time.
class AudioReader {
public:
    // Opens the file's `track`-th audio stream (in file order), positioned at 0.
    AudioReader(const std::filesystem::path& path, std::size_t track);
    ~AudioReader();
    AudioReader(const AudioReader&) = delete;
    AudioReader& operator=(const AudioReader&) = delete;

    // The next `read` starts with the sample at `time` (to the nearest sample); silence before the track's
    // first sample.
    void seek(double time);
    // Fills `out` with the samples that follow; fewer only at the track's end, none after it.
    std::size_t read(std::span<float> out);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
