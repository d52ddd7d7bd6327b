#pragma once

#include "captions/Locale.h"
#include "captions/SpeechModels.h"
#include "model/CaptionTrack.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

namespace marlowick {

// Whether this session may recognise speech. Linux has no system permission for it, so it is granted
// unless the session (or a test) denies it.
enum class SpeechAuthorization { granted, denied };

// Turns the speech in a recording into timed words, on this machine only, with PocketSphinx. No state of
// its own beyond the process-wide authorisation: every operation is static and may be called from any
// thread at once; each transcription makes, uses and frees its own decoder. Failures are
// TranscriptionError, or the media layer's MediaError for a file that can't be read.
class CaptionTranscriber {
public:
    // The session's authorisation. Linux asks nobody, so requesting it only reports the status; the
    // session sets it (from a setting, or in a test) with setAuthorization. Atomic; any thread.
    static SpeechAuthorization requestAuthorization();
    static bool isAuthorized();
    static void setAuthorization(SpeechAuthorization status);

    // The locales with a complete model under `roots`, sorted by display name.
    static std::vector<Locale> onDeviceLocales(const SpeechRoots& roots = SpeechRoots::standard());

    // The installed locale that best suits the user's preferred languages (see chooseLocale); "en-US"
    // when none is installed.
    static Locale defaultLocale(const SpeechRoots& roots = SpeechRoots::standard(),
                                const Environment& environment = processEnvironment());

    // The words spoken in the file's first audio track, in order. Times are seconds on the file's own clock
    // (the track's first sample is 0); a word lasts at least 0.08 s; confidence is the recogniser's
    // posterior probability, 0 to 1; the text is lower case except where a sentence starts (after a pause
    // of at least 0.6 s) and the pronoun "I", with a full stop ending each sentence. Silence and noise give
    // no words.
    //
    // Checks in this order: the locale (`locale`, else defaultLocale), permission (permissionDenied, before
    // the file is opened), the file (MediaError when it can't be read; noAudioTrack), the locale's models
    // (onDeviceUnavailable, naming the language), the decoder (recognizerUnavailable where the models are
    // damaged), then the decoding itself (failed, with the recogniser's reason).
    //
    // Blocks the calling thread for about a fifth of the sound's length. `progress`, when given, hears the
    // fraction of the file's duration heard so far, on the calling thread, about once a second of sound.
    // A stop requested through `stop` ends the work within a second of sound and returns the words of the
    // stretches already finished, without throwing: the caller who asked to stop knows the list is partial.
    static std::vector<CaptionTrack::Word> transcribe(const std::filesystem::path& path,
                                                      const std::optional<Locale>& locale = std::nullopt,
                                                      std::stop_token stop = {},
                                                      const std::function<void(double)>& progress = {},
                                                      const SpeechRoots& roots = SpeechRoots::standard());
};

} // namespace marlowick
