#include "captions/CaptionTranscriber.h"

#include "captions/CaptionText.h"
#include "captions/TranscriptionError.h"
#include "media/AudioFile.h"
#include "media/MediaInfo.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include <err.h>
#include <pocketsphinx.h>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

std::atomic<SpeechAuthorization> authorization{SpeechAuthorization::granted};

// The models take 16 kHz mono; the decoder counts 10 ms frames.
constexpr int recognitionRate = 16000;
constexpr double frameSeconds = 0.01;
// As much sound as the decoder is handed at once, and so how often its voice activity is looked at:
// the same 2048 samples (0.128 s) the library's own continuous tool reads.
constexpr std::size_t blockSamples = 2048;
constexpr double shortestWord = 0.08;

// Room noise is kept out first by the voice activity detector (below): on generated brown, pink and white
// noise, steady or in bursts like typing and knocks, it heard no speech at all. What noise gets past it,
// noise swelling and fading like a voice, the recogniser turns into one word held for seconds, with a
// posterior near 1; no word is spoken for 2 s, so such a word is dropped. The posterior itself tells
// little: words of generated speech that came out right went as low as 0.006 ("a", "new"), so only words
// below 0.003, which the recogniser itself all but rules out, are dropped for it.
constexpr double lowestConfidence = 0.003;
constexpr double longestWord = 2.0;

// The voice activity detector keeps the library's own threshold (2.0): on ten minutes of generated speech
// a stricter 3.0 cost 1.8 points of word error rate, and takes that start with seconds of silence, of
// exact zeros or of a noise floor, were heard the same either way.

// PocketSphinx reports through one process-wide callback, and on a fatal error (a damaged model file)
// calls exit(). The callback keeps the last error's words for the thread that caused it and, when that
// thread is inside `survive`, jumps back there instead of letting the process end.
thread_local std::jmp_buf* fatalGuard = nullptr;
thread_local std::string lastError;

void onSphinxMessage(void*, err_lvl_t level, const char* format, ...) {
    if (level < ERR_ERROR) {
        return;
    }
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    lastError.assign(text);
    while (!lastError.empty() && (lastError.back() == '\n' || lastError.back() == ' ')) {
        lastError.pop_back();
    }
    if (level == ERR_FATAL && fatalGuard != nullptr) {
        std::longjmp(*fatalGuard, 1);
    }
}

void quietLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        err_set_logfp(nullptr);
        err_set_callback(onSphinxMessage, nullptr);
    });
}

// Runs `call`, which calls into PocketSphinx with nothing to destroy on the way, and says whether it came
// back; false after a fatal error, whose words are in lastError. What the library had allocated on the
// way is lost, once, for a model that can't be used.
template <class Call> bool survive(Call&& call) {
    std::jmp_buf guard;
    if (setjmp(guard) != 0) {
        fatalGuard = nullptr;
        return false;
    }
    fatalGuard = &guard;
    call();
    fatalGuard = nullptr;
    return true;
}

struct ConfigRelease {
    void operator()(cmd_ln_t* config) const { cmd_ln_free_r(config); }
};
struct DecoderRelease {
    void operator()(ps_decoder_t* decoder) const { ps_free(decoder); }
};
using Config = std::unique_ptr<cmd_ln_t, ConfigRelease>;
using Decoder = std::unique_ptr<ps_decoder_t, DecoderRelease>;

Decoder makeDecoder(const SpeechModel& model) {
    quietLibrary();
    const std::string acoustic = model.acousticModel.string();
    const std::string language = model.languageModel.string();
    const std::string dictionary = model.dictionary.string();
    cmd_ln_t* rawConfig = nullptr;
    ps_decoder_t* rawDecoder = nullptr;
    const bool came = survive([&] {
        rawConfig = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", acoustic.c_str(), "-lm", language.c_str(),
                                "-dict", dictionary.c_str(), nullptr);
        if (rawConfig != nullptr) {
            rawDecoder = ps_init(rawConfig);
        }
    });
    // The decoder keeps a reference to the configuration of its own.
    const Config config(came ? rawConfig : nullptr);
    if (!came || rawDecoder == nullptr) {
        throw TranscriptionError(TranscriptionErrorKind::recognizerUnavailable, lastError);
    }
    return Decoder(rawDecoder);
}

// Thrown through the media layer's decoding to stop it early; never leaves this file.
struct Stopped {};

// Feeds a decoder block by block and ends an utterance wherever its voice activity detector hears speech
// turn to silence, as the library's continuous tool does, so that a long file is decoded as many short
// searches.
class Listener {
public:
    explicit Listener(ps_decoder_t& decoder)
        : m_decoder(decoder) {
        m_block.reserve(blockSamples);
        check(ps_start_utt(&m_decoder), "can't start listening");
    }

    void add(std::span<const float> samples) {
        for (const float sample : samples) {
            const float scaled = std::clamp(sample, -1.0f, 1.0f) * 32767.0f;
            m_block.push_back(static_cast<int16>(std::lrint(scaled)));
            if (m_block.size() == blockSamples) {
                feed();
            }
        }
    }

    // Decodes what is left and returns every word heard.
    std::vector<CaptionTrack::Word> finish() {
        if (!m_block.empty()) {
            feed();
        }
        check(ps_end_utt(&m_decoder), "can't finish the last stretch of speech");
        if (m_inSpeech) {
            collect();
        }
        return std::move(m_words);
    }

    // The words of the utterances finished so far.
    std::vector<CaptionTrack::Word> wordsSoFar() { return std::move(m_words); }

    std::size_t samplesHeard() const { return m_heard; }

private:
    void check(int result, const char* what) {
        if (result < 0) {
            throw TranscriptionError(TranscriptionErrorKind::failed,
                                     lastError.empty() ? std::string(what) : lastError);
        }
    }

    void feed() {
        check(ps_process_raw(&m_decoder, m_block.data(), m_block.size(), FALSE, FALSE), "can't decode");
        m_heard += m_block.size();
        m_block.clear();
        const bool inSpeech = ps_get_in_speech(&m_decoder) != 0;
        if (inSpeech) {
            m_inSpeech = true;
        } else if (m_inSpeech) {
            // The frames the decoder numbers keep counting across utterances from the first sample it
            // was given, so every word's time is on the file's clock.
            check(ps_end_utt(&m_decoder), "can't finish a stretch of speech");
            collect();
            check(ps_start_utt(&m_decoder), "can't start listening");
            m_inSpeech = false;
        }
    }

    void collect() {
        logmath_t* logmath = ps_get_logmath(&m_decoder);
        for (ps_seg_t* segment = ps_seg_iter(&m_decoder); segment != nullptr;
             segment = ps_seg_next(segment)) {
            const std::optional<std::string> text = CaptionText::spokenWord(ps_seg_word(segment));
            if (!text) {
                continue;
            }
            int first = 0;
            int last = 0;
            ps_seg_frames(segment, &first, &last);
            const double confidence =
                std::clamp(logmath_exp(logmath, ps_seg_prob(segment, nullptr, nullptr, nullptr)), 0.0, 1.0);
            const double start = first * frameSeconds;
            // The last frame belongs to the word.
            const double end = std::max((last + 1) * frameSeconds, start + shortestWord);
            if (confidence < lowestConfidence || end - start > longestWord) {
                continue;
            }
            m_words.push_back({*text, start, end, confidence});
        }
    }

    ps_decoder_t& m_decoder;
    std::vector<int16> m_block;
    std::size_t m_heard = 0;
    bool m_inSpeech = false; // whether the detector has heard speech since the utterance began
    std::vector<CaptionTrack::Word> m_words;
};

} // namespace

SpeechAuthorization CaptionTranscriber::requestAuthorization() {
    return authorization.load();
}

bool CaptionTranscriber::isAuthorized() {
    return authorization.load() == SpeechAuthorization::granted;
}

void CaptionTranscriber::setAuthorization(SpeechAuthorization status) {
    authorization.store(status);
}

std::vector<Locale> CaptionTranscriber::onDeviceLocales(const SpeechRoots& roots) {
    std::vector<Locale> locales;
    for (const SpeechModel& model : findSpeechModels(roots)) {
        locales.push_back(model.locale);
    }
    return locales;
}

Locale CaptionTranscriber::defaultLocale(const SpeechRoots& roots, const Environment& environment) {
    return chooseLocale(preferredLocales(environment), onDeviceLocales(roots)).value_or(Locale("en-US"));
}

std::vector<CaptionTrack::Word> CaptionTranscriber::transcribe(const fs::path& path,
                                                               const std::optional<Locale>& locale,
                                                               std::stop_token stop,
                                                               const std::function<void(double)>& progress,
                                                               const SpeechRoots& roots) {
    const Locale language = locale.value_or(defaultLocale(roots));
    if (!isAuthorized()) {
        throw TranscriptionError(TranscriptionErrorKind::permissionDenied);
    }
    const MediaInfo info = MediaInfo::of(path);
    if (info.audioTracks == 0) {
        throw TranscriptionError(TranscriptionErrorKind::noAudioTrack, path.string());
    }
    const std::vector<SpeechModel> models = findSpeechModels(roots);
    const auto model = std::find_if(models.begin(), models.end(),
                                    [&](const SpeechModel& m) { return m.locale == language; });
    if (model == models.end()) {
        throw TranscriptionError(TranscriptionErrorKind::onDeviceUnavailable, language.displayName());
    }
    const Decoder decoder = makeDecoder(*model);

    Listener listener(*decoder);
    const double totalSamples = info.duration * recognitionRate;
    std::size_t reported = 0;
    try {
        AudioFile::decodeTrack(
            path, 0,
            [&](std::span<const float> samples) {
                if (stop.stop_requested()) {
                    throw Stopped{};
                }
                listener.add(samples);
                if (progress && totalSamples > 0 && listener.samplesHeard() >= reported + recognitionRate) {
                    reported = listener.samplesHeard();
                    progress(std::min(1.0, static_cast<double>(reported) / totalSamples));
                }
            },
            recognitionRate);
    } catch (const Stopped&) {
        std::vector<CaptionTrack::Word> words = listener.wordsSoFar();
        CaptionText::shapeSentences(words);
        return words;
    }
    std::vector<CaptionTrack::Word> words = listener.finish();
    if (progress) {
        progress(1.0);
    }
    CaptionText::shapeSentences(words);
    return words;
}

} // namespace marlowick
