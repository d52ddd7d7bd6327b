#pragma once

#include "model/Url.h"

#include <optional>
#include <string>

namespace marlowick {

// Cutting of long pauses. The removals themselves are stored in `Project.trim`.
struct SilenceTrim {
    bool isEnabled = false;
    double threshold = 0.08;     // silent below this fraction of the reference level
    double minimumSilence = 0.7; // seconds a silence must last to be cut
    double padding = 0.12;       // seconds of air kept at each end of a cut

    friend bool operator==(const SilenceTrim&, const SilenceTrim&) = default;
};

// Background music. The file stays where it is; it is not copied into the package.
struct MusicBed {
    Url url;
    std::string name;
    double gain = 0.35;
    double fadeIn = 1.0;  // seconds
    double fadeOut = 2.0; // seconds
    bool loops = true;
    double duckUnderVoice = 0.8; // 0 to 1
    double startOffset = 0;      // seconds of the file skipped at its start

    // A new bed for a chosen file: named after the file without its extension, with the usual levels.
    static MusicBed forFile(const Url& url);

    friend bool operator==(const MusicBed&, const MusicBed&) = default;
};

struct AudioSettings {
    double systemGain = 1.0;
    double voiceGain = 1.0;
    bool enhanceVoice = true;
    double noiseReduction = 0.4;
    double presence = 0.4;
    double compression = 0.4;
    double ducking = 0.6;
    bool clickSounds = false;
    double clickGain = 0.35;
    bool normalize = true;
    SilenceTrim silence;
    std::optional<MusicBed> music;

    // Whether the source's audio can be played as it is, with no render. The amounts of the voice chain
    // and the silence parameters don't matter while their switches are off.
    bool isPassthrough() const;

    friend bool operator==(const AudioSettings&, const AudioSettings&) = default;
};

} // namespace marlowick
