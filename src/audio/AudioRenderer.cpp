#include "audio/AudioRenderer.h"

#include "audio/DSP.h"
#include "media/AudioFile.h"
#include "media/MediaError.h"
#include "model/FileOps.h"

#include <algorithm>
#include <cmath>
#include <future>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

std::size_t trackCount(const fs::path& source) {
    try {
        return AudioFile::trackCount(source);
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::readFailed, e.what());
    }
}

void write(std::span<const float> samples, const fs::path& to,
           const std::function<void(double)>& progress = {}) {
    // Written beside the target and renamed over it once whole, so a failure leaves what was there.
    try {
        fileops::StagedOutput output(to);
        AudioFile::writeAac(output.staging(), samples, progress);
        output.commit();
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::writeFailed, e.what());
    } catch (const std::filesystem::filesystem_error& e) {
        throw RenderError(RenderError::Kind::writeFailed, e.path1().string() + ": " + e.code().message());
    }
}

void scale(std::vector<float>& samples, double gain) {
    const auto g = static_cast<float>(gain);
    for (float& s : samples) {
        s *= g;
    }
}

// Track 1 when there are two or more, else track 0; none without audio.
std::optional<std::size_t> voiceTrack(std::size_t tracks) {
    if (tracks == 0) {
        return std::nullopt;
    }
    return tracks >= 2 ? 1 : 0;
}

} // namespace

std::vector<float> AudioRenderer::decodeForAnalysis(const fs::path& source, std::size_t track) const {
    try {
        return AudioFile::decodeTrack(source, track);
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::readFailed, e.what());
    }
}

std::vector<float> AudioRenderer::applyTrim(const TimeMap& trim, std::span<const float> samples,
                                            double rate) {
    const std::size_t n = samples.size();
    std::vector<float> kept;
    kept.reserve(n);
    for (const Range& range : trim.keptRanges()) {
        const auto a = std::min(static_cast<std::size_t>(std::max(rate * range.lower, 0.0)), n);
        const auto b = std::clamp(static_cast<std::size_t>(std::max(rate * range.upper, 0.0)), a, n);
        kept.insert(kept.end(), samples.begin() + static_cast<std::ptrdiff_t>(a),
                    samples.begin() + static_cast<std::ptrdiff_t>(b));
    }
    return kept;
}

void AudioRenderer::enhance(std::vector<float>& voice, const AudioSettings& settings) {
    Biquad::highPass(85, 0.707, sampleRate).process(voice);
    DSP::denoise(voice, settings.noiseReduction, sampleRate);
    if (settings.presence > 0) {
        Biquad::peaking(3000, 0.9, settings.presence * 6, sampleRate).process(voice);
    }
    DSP::compress(voice, settings.compression, sampleRate);
}

std::vector<float> AudioRenderer::loadMusic(const MusicBed& bed, std::size_t length) const {
    if (length < 1) {
        return {};
    }
    const fs::path file = bed.url.path();
    if (trackCount(file) == 0) {
        return {}; // a file without sound is no music, not a failure
    }
    std::vector<float> music = decodeForAnalysis(file, 0);
    const auto skip = static_cast<std::size_t>(std::max(bed.startOffset * sampleRate, 0.0));
    if (skip >= 1 && skip < music.size()) {
        music.erase(music.begin(), music.begin() + static_cast<std::ptrdiff_t>(skip));
    }
    if (music.empty()) {
        return {};
    }
    std::vector<float> out(length, 0.0f);
    const auto gain = static_cast<float>(bed.gain);
    for (std::size_t i = 0; i < length; ++i) {
        if (!bed.loops && i >= music.size()) {
            break;
        }
        out[i] = music[i % music.size()] * gain;
    }
    // Both fades run over the output's length, the fade-out ending on its last sample.
    const std::size_t fadeIn =
        std::min(length, static_cast<std::size_t>(std::max(bed.fadeIn * sampleRate, 0.0)));
    for (std::size_t i = 0; i < fadeIn; ++i) {
        out[i] *= static_cast<float>(static_cast<double>(i) /
                                     static_cast<double>(std::max<std::size_t>(fadeIn, 1)));
    }
    const std::size_t fadeOut =
        std::min(length, static_cast<std::size_t>(std::max(bed.fadeOut * sampleRate, 0.0)));
    for (std::size_t i = 0; i < fadeOut; ++i) {
        out[length - 1 - i] *= static_cast<float>(static_cast<double>(i) /
                                                  static_cast<double>(std::max<std::size_t>(fadeOut, 1)));
    }
    return out;
}

AudioRenderer::Result AudioRenderer::render(const fs::path& source, const AudioSettings& settings,
                                            std::span<const double> clickTimes,
                                            const std::optional<TimeMap>& trim, const fs::path& to,
                                            const std::function<void(double)>& progress,
                                            std::stop_token stop) const {
    // Rough shares of the time by stage, measured on hour-long takes: reading and the voice chain take
    // about a third, ducking and mixing a sixth, encoding the rest. A stop is heard at the same moments,
    // up to the last one: once the file is in place, the render is done.
    auto report = [&](double fraction) {
        if (fraction < 1 && stop.stop_requested()) {
            throw RenderCancelled();
        }
        if (progress) {
            progress(fraction);
        }
    };
    report(0);
    const std::size_t tracks = trackCount(source);
    if (tracks == 0) {
        throw RenderError(RenderError::Kind::noAudioTracks, "the movie has no sound");
    }
    std::vector<float> system;
    std::vector<float> voice;
    if (tracks >= 2) {
        // The system track decodes on a second thread while the voice decodes and runs its chain.
        auto pending = std::async(std::launch::async, [&] { return decodeForAnalysis(source, 0); });
        try {
            voice = decodeForAnalysis(source, 1);
            if (settings.enhanceVoice && !voice.empty()) {
                enhance(voice, settings);
            }
        } catch (...) {
            pending.wait();
            throw;
        }
        system = pending.get();
    } else if (settings.enhanceVoice) {
        voice = decodeForAnalysis(source, 0); // a lone track is the voice while the voice is being enhanced
        if (!voice.empty()) {
            enhance(voice, settings);
        }
    } else {
        system = decodeForAnalysis(source, 0);
    }
    report(0.35);
    if (settings.voiceGain != 1 && !voice.empty()) {
        scale(voice, settings.voiceGain);
    }
    if (settings.systemGain != 1 && !system.empty()) {
        scale(system, settings.systemGain);
    }
    const std::size_t length = std::max(system.size(), voice.size());
    if (length == 0) {
        throw RenderError(RenderError::Kind::noAudioTracks, "the movie's sound is empty");
    }
    const bool hasVoice = !voice.empty();
    system.resize(length, 0.0f);
    if (hasVoice) {
        voice.resize(length, 0.0f);
    }

    // Only the system audio is ducked under the voice.
    if (settings.ducking > 0 && hasVoice) {
        const std::vector<float> gains = DSP::duckingGains(voice, settings.ducking, sampleRate);
        for (std::size_t i = 0; i < length; ++i) {
            system[i] *= gains[i];
        }
    }
    std::vector<float> mix = std::move(system);
    if (hasVoice) {
        for (std::size_t i = 0; i < length; ++i) {
            mix[i] += voice[i];
        }
    }
    if (trim && !trim->isIdentity()) {
        mix = applyTrim(*trim, mix, sampleRate);
    }

    // The bed comes after the cut, so that it runs on across cuts and its fades sit at the mix's ends.
    if (settings.music) {
        const std::vector<float> music = loadMusic(*settings.music, mix.size());
        if (!music.empty()) {
            std::vector<float> gains(mix.size(), 1.0f);
            if (settings.music->duckUnderVoice > 0 && hasVoice) {
                const std::vector<float> cutVoice = trim ? applyTrim(*trim, voice, sampleRate) : voice;
                const std::vector<float> duck =
                    DSP::duckingGains(cutVoice, settings.music->duckUnderVoice, sampleRate);
                std::copy_n(duck.begin(), std::min(duck.size(), gains.size()), gains.begin());
            }
            for (std::size_t i = 0; i < std::min(music.size(), mix.size()); ++i) {
                mix[i] += music[i] * gains[i];
            }
        }
    }
    // Clicks land on output time, untouched by the gains, the ducking and the music.
    if (settings.clickSounds && !clickTimes.empty()) {
        const std::vector<float> clicks =
            DSP::clickTrack(clickTimes, mix.size(), sampleRate, settings.clickGain);
        for (std::size_t i = 0; i < mix.size(); ++i) {
            mix[i] += clicks[i];
        }
    }
    if (settings.normalize) {
        DSP::normalize(mix, 0.89f, 20.0f);
    } else {
        for (float& s : mix) {
            s = std::clamp(s, -1.0f, 1.0f);
        }
    }
    report(0.5);
    write(mix, to, [&](double encoded) { report(0.5 + 0.5 * encoded); });
    report(1);
    return {to, static_cast<double>(mix.size()) / sampleRate};
}

fs::path AudioRenderer::extractVoice(const fs::path& source, const fs::path& to) const {
    const auto track = voiceTrack(trackCount(source));
    if (!track) {
        throw RenderError(RenderError::Kind::noAudioTracks, "the movie has no sound");
    }
    const std::vector<float> voice = decodeForAnalysis(source, *track);
    if (voice.empty()) {
        throw RenderError(RenderError::Kind::noAudioTracks, "the movie's voice is empty");
    }
    write(voice, to);
    return to;
}

std::vector<float> AudioRenderer::waveform(const fs::path& source, int buckets,
                                           const std::optional<TimeMap>& trim) const {
    const auto track = voiceTrack(trackCount(source));
    if (!track || buckets < 1) {
        return {};
    }
    std::vector<float> samples = decodeForAnalysis(source, *track);
    if (trim && !trim->isIdentity()) {
        samples = applyTrim(*trim, samples, sampleRate);
    }
    const std::size_t n = samples.size();
    if (n == 0) {
        return {};
    }
    const std::size_t step = std::max<std::size_t>(n / static_cast<std::size_t>(buckets), 1);
    std::vector<float> values;
    for (std::size_t start = 0; start < n && values.size() < static_cast<std::size_t>(buckets);
         start += step) {
        float peak = 0;
        for (std::size_t i = start; i < std::min(start + step, n); ++i) {
            peak = std::max(peak, std::abs(samples[i]));
        }
        values.push_back(peak);
    }
    const float largest = *std::max_element(values.begin(), values.end());
    if (largest > 0.001f) {
        for (float& v : values) {
            v /= largest;
        }
    }
    return values;
}

} // namespace marlowick
