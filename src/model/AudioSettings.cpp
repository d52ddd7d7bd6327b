#include "model/AudioSettings.h"

#include "model/ModelCoding.h"

namespace marlowick {

MusicBed MusicBed::forFile(const Url& url) {
    MusicBed bed;
    bed.url = url;
    bed.name = url.path().stem().string();
    return bed;
}

bool AudioSettings::isPassthrough() const {
    return !enhanceVoice && ducking == 0 && !clickSounds && !normalize && systemGain == 1 && voiceGain == 1 &&
           !silence.isEnabled && !music.has_value();
}

Json Coder<SilenceTrim>::encode(const SilenceTrim& s) {
    return {{"isEnabled", s.isEnabled},
            {"threshold", toJson(s.threshold)},
            {"minimumSilence", toJson(s.minimumSilence)},
            {"padding", toJson(s.padding)}};
}

SilenceTrim Coder<SilenceTrim>::decode(const JsonReader& r) {
    return {r.decode<bool>("isEnabled"), r.decode<double>("threshold"), r.decode<double>("minimumSilence"),
            r.decode<double>("padding")};
}

Json Coder<MusicBed>::encode(const MusicBed& m) {
    return {{"url", toJson(m.url)},
            {"name", m.name},
            {"gain", toJson(m.gain)},
            {"fadeIn", toJson(m.fadeIn)},
            {"fadeOut", toJson(m.fadeOut)},
            {"loops", m.loops},
            {"duckUnderVoice", toJson(m.duckUnderVoice)},
            {"startOffset", toJson(m.startOffset)}};
}

MusicBed Coder<MusicBed>::decode(const JsonReader& r) {
    return {r.decode<Url>("url"),
            r.decode<std::string>("name"),
            r.decode<double>("gain"),
            r.decode<double>("fadeIn"),
            r.decode<double>("fadeOut"),
            r.decode<bool>("loops"),
            r.decode<double>("duckUnderVoice"),
            r.decode<double>("startOffset")};
}

Json Coder<AudioSettings>::encode(const AudioSettings& a) {
    Json j = {{"systemGain", toJson(a.systemGain)}, {"voiceGain", toJson(a.voiceGain)},
              {"enhanceVoice", a.enhanceVoice},     {"noiseReduction", toJson(a.noiseReduction)},
              {"presence", toJson(a.presence)},     {"compression", toJson(a.compression)},
              {"ducking", toJson(a.ducking)},       {"clickSounds", a.clickSounds},
              {"clickGain", toJson(a.clickGain)},   {"normalize", a.normalize},
              {"silence", toJson(a.silence)}};
    if (a.music) {
        j["music"] = toJson(*a.music);
    }
    return j;
}

AudioSettings Coder<AudioSettings>::decode(const JsonReader& r) {
    // Inside an `audio` object every key but `music` is required: the tolerance for older files is the
    // missing `audio` object as a whole.
    AudioSettings a;
    a.systemGain = r.decode<double>("systemGain");
    a.voiceGain = r.decode<double>("voiceGain");
    a.enhanceVoice = r.decode<bool>("enhanceVoice");
    a.noiseReduction = r.decode<double>("noiseReduction");
    a.presence = r.decode<double>("presence");
    a.compression = r.decode<double>("compression");
    a.ducking = r.decode<double>("ducking");
    a.clickSounds = r.decode<bool>("clickSounds");
    a.clickGain = r.decode<double>("clickGain");
    a.normalize = r.decode<bool>("normalize");
    a.silence = r.decode<SilenceTrim>("silence");
    a.music = r.decodeIfPresent<MusicBed>("music");
    return a;
}

} // namespace marlowick
