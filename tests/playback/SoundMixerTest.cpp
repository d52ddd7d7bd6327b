#include "playback/SoundMixer.h"
#include "media/AudioFile.h"
#include "media/AudioReader.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// A sound whose every sample tells its own time: t / 10, as 32-bit float PCM at 48 kHz.
std::filesystem::path makeRamp(const TempDir& dir, const std::string& name, double seconds) {
    const auto path = dir / name;
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i \"aevalsrc=t/10:s=48000:d=" + std::to_string(seconds) +
        "\" -c:a pcm_f32le '" + path.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test sound");
    }
    return path;
}

} // namespace

// The mix at an item's time holds the source's sound at the time the segments map it to, after seeks
// anywhere and when read on across a cut; a pre-trimmed mix adds in as it is.
TEST(SoundMixer, PlaysEachSoundAtTheTimeTheSegmentsGiveIt) {
    TempDir dir;
    const auto source = makeRamp(dir, "source.wav", 5);
    PlaybackComposition composition;
    composition.segments = {{0, 1.0, 0}, {1.6, 0.8, 1.0}, {3.6, 1.0, 1.8}};
    composition.audio = {{source, 0, false}};
    SoundMixer mixer(composition);
    ASSERT_FALSE(mixer.silent());

    auto sourceTime = [&](double t) {
        for (const auto& s : composition.segments) {
            if (t < s.compositionStart + s.duration) {
                return s.sourceStart + (t - s.compositionStart);
            }
        }
        return -1.0;
    };
    std::mt19937 random(7);
    std::uniform_real_distribution<double> anywhere(0, 2.75);
    std::vector<float> piece(480);
    for (int i = 0; i < 20; ++i) {
        const double t = anywhere(random);
        mixer.seek(t);
        mixer.read(piece);
        for (std::size_t k = 0; k < piece.size(); k += 97) {
            const double at = t + static_cast<double>(k) / AudioFile::sampleRate;
            EXPECT_NEAR(piece[k], sourceTime(at) / 10, 1e-4) << "at " << at;
        }
    }

    // Read on from just before the first cut to past the second: every sample from where it belongs.
    mixer.seek(0.9);
    std::vector<float> across(static_cast<std::size_t>(1.1 * AudioFile::sampleRate));
    mixer.read(across);
    for (std::size_t k = 0; k < across.size(); k += 41) {
        const double at = 0.9 + static_cast<double>(k) / AudioFile::sampleRate;
        ASSERT_NEAR(across[k], sourceTime(at) / 10, 1e-4) << "at " << at;
    }
    // Past the end: silence.
    mixer.seek(2.795);
    mixer.read(piece);
    EXPECT_NEAR(piece[0], 4.595 / 10, 1e-4);
    EXPECT_EQ(piece[479], 0.0F);

    // A processed mix is played whole from 0 and added to the cut sound.
    PlaybackComposition withMix = composition;
    withMix.audio.push_back({makeRamp(dir, "mix.wav", 2.8), 0, true});
    SoundMixer mixed(withMix);
    mixed.seek(1.2);
    mixed.read(piece);
    EXPECT_NEAR(piece[0], (1.8 + 1.2) / 10, 1e-4);
}

// A compressed track read on from a seek is the same sound as the whole track decoded, sample for sample
// in place (AAC is decoded afresh after a seek, so the first frame's worth may differ slightly).
TEST(SoundMixer, ReadsCompressedSoundFromAnyTimeInPlace) {
    TempDir dir;
    std::vector<float> tone(static_cast<std::size_t>(3 * AudioFile::sampleRate));
    for (std::size_t i = 0; i < tone.size(); ++i) {
        tone[i] = 0.5F * static_cast<float>(
                             std::sin(2 * M_PI * 440 * static_cast<double>(i) / AudioFile::sampleRate));
    }
    const auto path = dir / "tone.m4a";
    AudioFile::writeAac(path, tone);
    const std::vector<float> whole = AudioFile::decodeTrack(path, 0);

    AudioReader reader(path, 0);
    std::vector<float> piece(4800);
    for (const double t : {0.0, 0.7311, 1.25, 2.0417}) {
        reader.seek(t);
        ASSERT_EQ(reader.read(piece), piece.size());
        const auto first = static_cast<std::size_t>(std::llround(t * AudioFile::sampleRate));
        double worst = 0;
        for (std::size_t k = 2048; k < piece.size(); ++k) {
            worst = std::max(worst, static_cast<double>(std::abs(piece[k] - whole[first + k])));
        }
        EXPECT_LT(worst, 0.01) << "after a seek to " << t;
    }
    // The end: what is left, then nothing.
    reader.seek(static_cast<double>(whole.size() - 100) / AudioFile::sampleRate);
    EXPECT_EQ(reader.read(piece), 100U);
    EXPECT_EQ(reader.read(piece), 0U);
}
