// When the sound needs no render, and how the mix settings read.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

AudioSettings passthrough() {
    AudioSettings a;
    a.enhanceVoice = false;
    a.normalize = false;
    a.ducking = 0;
    return a;
}

} // namespace

TEST(AudioSettings, PassthroughNeedsEveryProcessingSwitchOff) {
    EXPECT_FALSE(AudioSettings{}.isPassthrough());
    AudioSettings a = passthrough();
    EXPECT_TRUE(a.isPassthrough());
    a.noiseReduction = 1;
    a.presence = 0;
    a.clickGain = 2;
    a.silence.threshold = 0.5;
    EXPECT_TRUE(a.isPassthrough()); // amounts don't matter while their switches are off

    auto changed = [](auto change) {
        AudioSettings s = passthrough();
        change(s);
        return s.isPassthrough();
    };
    EXPECT_FALSE(changed([](AudioSettings& s) { s.ducking = 0.01; }));
    EXPECT_FALSE(changed([](AudioSettings& s) { s.systemGain = 1.0000001; }));
    EXPECT_FALSE(changed([](AudioSettings& s) { s.voiceGain = 0.5; }));
    EXPECT_FALSE(changed([](AudioSettings& s) { s.clickSounds = true; }));
    EXPECT_FALSE(changed([](AudioSettings& s) { s.silence.isEnabled = true; }));
    EXPECT_FALSE(changed([](AudioSettings& s) {
        s.music = MusicBed::forFile(Url{"file:///m.mp3"});
        s.music->gain = 0;
    }));
}

TEST(AudioSettings, AChosenMusicFileIsNamedAfterTheFileWithoutItsExtension) {
    const MusicBed bed = MusicBed::forFile(Url::fileUrl("/home/me/Music/Slow Morning.v2.m4a"));
    EXPECT_EQ(bed.name, "Slow Morning.v2");
    EXPECT_EQ(bed.url.path(), "/home/me/Music/Slow Morning.v2.m4a");
}

TEST(AudioSettingsCoding, OnlyMusicMayBeMissingInsideAnAudioObject) {
    const Json json = toJson(AudioSettings{});
    EXPECT_EQ(json.size(), 11u);
    EXPECT_EQ(fromJson<AudioSettings>(json), AudioSettings{});

    Json withNull = json;
    withNull["music"] = nullptr;
    EXPECT_FALSE(fromJson<AudioSettings>(withNull).music.has_value());

    for (const auto& item : json.items()) {
        Json missing = json;
        missing.erase(item.key());
        EXPECT_THROW(fromJson<AudioSettings>(missing), CodingError) << item.key();
    }
    Json noPadding = json;
    noPadding["silence"].erase("padding");
    EXPECT_THROW(fromJson<AudioSettings>(noPadding), CodingError);

    AudioSettings withMusic;
    withMusic.music = MusicBed::forFile(Url{"file:///music/bed.wav"});
    const Json musicJson = toJson(withMusic);
    EXPECT_EQ(fromJson<AudioSettings>(musicJson), withMusic);
    Json musicMissingKey = musicJson;
    musicMissingKey["music"].erase("startOffset");
    EXPECT_THROW(fromJson<AudioSettings>(musicMissingKey), CodingError);
}
