#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

namespace marlowick {

// Reading and writing sound in the single working format: mono 32-bit float at 48000 Hz. Failures are
// MediaError, naming the file and FFmpeg's reason.
namespace AudioFile {

constexpr int sampleRate = 48000;

// How many audio streams the file has. Recordings hold system audio first, then the microphone.
std::size_t trackCount(const std::filesystem::path& path);

// The container's duration in seconds; 0 when it doesn't say.
double duration(const std::filesystem::path& path);

// The file's `track`-th audio stream (in file order), mixed down to one channel and resampled to 48 kHz.
std::vector<float> decodeTrack(const std::filesystem::path& path, std::size_t track);

// The same samples handed over in order, a chunk at a time, for work that needn't hold a whole track;
// `rate` resamples to another rate instead (speech recognition takes 16 kHz).
void decodeTrack(const std::filesystem::path& path, std::size_t track,
                 const std::function<void(std::span<const float>)>& consume, int rate = sampleRate);

// Writes the samples as AAC, 48 kHz, one channel, 192000 bits a second, in an MPEG-4 audio file
// (".m4a"), replacing any file there with a new one of the same permissions. A failure half way leaves
// the partial file for the caller.
// `progress`, when given, hears the fraction of the samples encoded so far, now and then.
void writeAac(const std::filesystem::path& path, std::span<const float> samples,
              const std::function<void(double)>& progress = {});

} // namespace AudioFile

} // namespace marlowick
