// The finished sound from real files: which track is the voice, padding and ducking, cuts, the music
// bed, clicks, and the final level. Sources are written by our own AAC writer and read back.

#include "audio/AudioRenderer.h"
#include "media/AudioFile.h"
#include "support/TempDir.h"
#include "support/Tones.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

// Settings that leave the sound as it is, to look at one stage at a time.
AudioSettings plain() {
    AudioSettings a;
    a.enhanceVoice = false;
    a.normalize = false;
    a.ducking = 0;
    return a;
}

class Render : public ::testing::Test {
protected:
    TempDir dir;
    AudioRenderer renderer;

    fs::path track(const std::string& name, const std::vector<float>& samples) {
        const fs::path path = dir / (name + ".m4a");
        AudioFile::writeAac(path, samples);
        return path;
    }

    fs::path movie(const std::vector<float>& system, const std::vector<float>& voice) {
        const fs::path out = dir / "take.mov";
        const std::string command = "ffmpeg -v error -y -i '" + track("system", system).string() + "' -i '" +
                                    track("voice", voice).string() + "' -map 0:a -map 1:a -c copy '" +
                                    out.string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return out;
    }

    std::vector<float> rendered(const fs::path& source, const AudioSettings& settings,
                                const std::vector<double>& clicks = {},
                                const std::optional<TimeMap>& trim = {}) {
        const fs::path out = dir / "mix.m4a";
        renderer.render(source, settings, clicks, trim, out);
        return AudioFile::trackCount(out) == 0 ? std::vector<float>{} : AudioFile::decodeTrack(out, 0);
    }
};

} // namespace

TEST_F(Render, ALoneTrackIsTheVoiceOnlyWhileTheVoiceIsEnhanced) {
    const fs::path one = track("one", tone(1000, 0.1, 1));
    AudioSettings settings = plain();
    settings.systemGain = 2;
    settings.voiceGain = 3;
    EXPECT_NEAR(level(rendered(one, settings), 0.2, 0.8), 0.2 / std::sqrt(2), 0.01);
    settings.enhanceVoice = true; // with its amounts at 0 only the high-pass runs, far below 1 kHz
    settings.noiseReduction = 0;
    settings.presence = 0;
    settings.compression = 0;
    EXPECT_NEAR(level(rendered(one, settings), 0.2, 0.8), 0.3 / std::sqrt(2), 0.01);
}

TEST_F(Render, ProgressRunsFromStartToEnd) {
    std::vector<double> heard;
    renderer.render(track("one", tone(1000, 0.1, 3)), plain(), {}, std::nullopt, dir / "mix.m4a",
                    [&](double f) { heard.push_back(f); });
    ASSERT_GE(heard.size(), 4u);
    EXPECT_EQ(heard.front(), 0);
    EXPECT_EQ(heard.back(), 1);
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
}

TEST_F(Render, AShortVoiceIsPaddedAndTheSystemDucksUnderIt) {
    const fs::path take = movie(tone(1000, 0.2, 3), tone(300, 0.3, 1));
    AudioSettings settings = plain();
    const std::vector<float> flat = rendered(take, settings);
    EXPECT_NEAR(static_cast<double>(flat.size()) / 48000, 3, 0.03);
    settings.ducking = 1;
    const std::vector<float> ducked = rendered(take, settings);
    // While the voice speaks the system drops to 15%; once it has been quiet a while, it is back.
    EXPECT_NEAR(level(ducked, 0.4, 0.9), std::sqrt(0.3 * 0.3 / 2 + 0.03 * 0.03 / 2), 0.01);
    EXPECT_NEAR(level(flat, 0.4, 0.9), std::sqrt(0.3 * 0.3 / 2 + 0.2 * 0.2 / 2), 0.01);
    EXPECT_NEAR(level(ducked, 2.5, 2.9), 0.2 / std::sqrt(2), 0.01);
}

TEST_F(Render, CutsTheMixAndCanLeaveNothing) {
    const fs::path one = track("one", tone(1000, 0.1, 2));
    const std::vector<float> cut = rendered(one, plain(), {}, TimeMap({{0.5, 1.5}}, 2));
    EXPECT_NEAR(static_cast<double>(cut.size()) / 48000, 1, 0.03);
    const AudioRenderer::Result none =
        renderer.render(one, plain(), {}, TimeMap({{0, 5}}, 2), dir / "none.m4a");
    EXPECT_EQ(none.duration, 0);
    EXPECT_TRUE(fs::exists(dir / "none.m4a"));

    const std::vector<float> samples = tone(100, 1, 1);
    EXPECT_EQ(AudioRenderer::applyTrim(TimeMap({{0.25, 0.5}}, 1), samples, 48000).size(), 36000u);
    EXPECT_TRUE(AudioRenderer::applyTrim(TimeMap({{0, 1}}, 1), samples, 48000).empty());
}

TEST_F(Render, TheMusicBedLoopsAndFadesOverTheOutput) {
    MusicBed bed = MusicBed::forFile(Url::fileUrl(track("music", tone(440, 0.5, 0.5))));
    bed.gain = 1;
    bed.fadeIn = 0.25;
    bed.fadeOut = 0.5;
    const std::vector<float> looped = renderer.loadMusic(bed, 96000);
    ASSERT_EQ(looped.size(), 96000u);
    EXPECT_NEAR(level(looped, 0.05, 0.1), 0.5 / std::sqrt(2) * 0.3, 0.05); // rising
    EXPECT_NEAR(level(looped, 0.9, 1.4), 0.5 / std::sqrt(2), 0.02);        // looped on past its end
    EXPECT_LT(level(looped, 1.98, 2.0), 0.02);                             // faded out at the mix's end
    EXPECT_EQ(looped.back(), 0.0f);

    bed.loops = false;
    const std::vector<float> once = renderer.loadMusic(bed, 96000);
    EXPECT_EQ(level(once, 0.6, 1.4), 0); // silence after the file's end
    bed.startOffset = 30;                // past its end: plays from the start
    EXPECT_NEAR(level(renderer.loadMusic(bed, 96000), 0.3, 0.45), 0.5 / std::sqrt(2), 0.02);
    EXPECT_TRUE(renderer.loadMusic(bed, 0).empty());
}

TEST_F(Render, ClicksOutsideTheMixAddNothing) {
    const fs::path one = track("one", tone(1000, 0.1, 1));
    AudioSettings settings = plain();
    settings.clickSounds = true;
    const std::vector<float> without = rendered(one, plain());
    EXPECT_EQ(rendered(one, settings, {-1, 5}), without);
    EXPECT_GT(level(rendered(one, settings, {0.5}), 0.5, 0.51), level(without, 0.5, 0.51) + 0.03);
}

TEST_F(Render, NormaliseLevelsThePeakOrElseTheMixIsClamped) {
    const fs::path take = movie(tone(500, 0.7, 1), tone(500, 0.7, 1));
    AudioSettings settings = plain();
    EXPECT_NEAR(peak(rendered(take, settings)), 1.0, 0.05); // 1.4 clamped to 1
    settings.normalize = true;
    EXPECT_NEAR(peak(rendered(take, settings)), 0.89, 0.03);
}

TEST_F(Render, VoiceAndWaveformTakeTheSecondTrack) {
    const fs::path take = movie(tone(1000, 0.5, 1), tone(300, 0.25, 1, 0.5));
    renderer.extractVoice(take, dir / "voice-only.m4a");
    const std::vector<float> voice = AudioFile::decodeTrack(dir / "voice-only.m4a", 0);
    EXPECT_NEAR(level(voice, 0.1, 0.4), 0.25 / std::sqrt(2), 0.01);
    const std::vector<float> wave = renderer.waveform(take, 10, std::nullopt);
    ASSERT_EQ(wave.size(), 10u);
    EXPECT_GT(wave[2], 0.85); // the loudest stride may be the codec's overshoot where the voice stops
    EXPECT_LT(wave[8], 0.05);

    EXPECT_THROW(renderer.render(dir / "missing.mov", plain(), {}, {}, dir / "x.m4a"), RenderError);
}

TEST_F(Render, AStopEndsTheRenderAndLeavesTheTargetAsItWas) {
    const fs::path one = track("one", tone(1000, 0.1, 3));
    const fs::path target = dir / "stopped.m4a";
    writeText(target, "earlier");
    std::stop_source stop;
    // Stopped half way through the encoding, as a newer preview stops an older one.
    const auto stopHalfWay = [&](double fraction) {
        if (fraction >= 0.5) {
            stop.request_stop();
        }
    };
    EXPECT_THROW(renderer.render(one, plain(), {}, std::nullopt, target, stopHalfWay, stop.get_token()),
                 RenderCancelled);
    EXPECT_TRUE(readText(target) == "earlier");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()),
              2); // the track, the target
}
