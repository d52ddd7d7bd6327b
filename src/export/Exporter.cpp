#include "export/Exporter.h"

#include "export/CompositeStage.h"
#include "export/DecodeStage.h"
#include "export/EncodeStage.h"
#include "export/ExportPipeline.h"
#include "export/MediaFailures.h"
#include "export/OutputTimeline.h"
#include "export/SoundPlan.h"
#include "media/MediaInfo.h"
#include "media/VideoDecoder.h"

#include <cmath>

namespace marlowick {

namespace fs = std::filesystem;

double Exporter::Progress::fraction() const {
    if (totalFrames == 0) {
        return 0;
    }
    return std::min(1.0, static_cast<double>(completedFrames) / static_cast<double>(totalFrames));
}

namespace {

VideoEncoder::Codec encoderCodec(ExportPreset::Codec codec) {
    switch (codec) {
    case ExportPreset::Codec::hevc:
        return VideoEncoder::Codec::hevc;
    case ExportPreset::Codec::prores4444:
        return VideoEncoder::Codec::prores4444;
    case ExportPreset::Codec::hevcWithAlpha: // refused before it gets here: see replacementOnThisSystem
    case ExportPreset::Codec::h264:
    case ExportPreset::Codec::vp9:
    case ExportPreset::Codec::palette:
        break;
    }
    return VideoEncoder::Codec::h264;
}

// The encoder's settings for a preset, all but the time scale and the sound.
VideoEncoder::Settings encoderSettings(const ExportPreset& preset) {
    if (const ExportPreset* instead = preset.replacementOnThisSystem()) {
        throw ExportError(ExportError::Kind::presetUnavailable, instead->id);
    }
    VideoEncoder::Settings settings;
    settings.codec = encoderCodec(preset.codec);
    settings.container = preset.container == ExportPreset::Container::mov ? VideoEncoder::Container::mov
                                                                          : VideoEncoder::Container::mp4;
    settings.width = static_cast<int>(preset.size.width);
    settings.height = static_cast<int>(preset.size.height);
    settings.input = VideoEncoder::PixelOrder::rgba; // as the framebuffer is read
    settings.frameRate = preset.frameRate > 0 ? preset.frameRate : 30;
    if (preset.constantRate) {
        // A tick a frame: every frame's time is exactly its number over the rate.
        settings.timeScale = static_cast<int>(std::lround(settings.frameRate));
    }
    return settings;
}

// The target is removed before writing: never when that would destroy a folder or the recording.
void checkTarget(const fs::path& target, const Project& project) {
    std::error_code error;
    if (fs::is_directory(target, error)) {
        throw ExportError(ExportError::Kind::targetIsFolder, target.string());
    }
    if (fs::equivalent(target, project.source.mediaURL.path(), error)) {
        throw ExportError(ExportError::Kind::targetIsRecording, target.string());
    }
}

} // namespace

fs::path Exporter::exportMovie(const Project& project, const std::vector<InputEvent>& telemetry,
                               const ExportPreset& preset, const fs::path& target,
                               const std::function<void(const Progress&)>& onProgress, std::stop_token stop,
                               const std::function<void(double)>& onSoundProgress) const {
    auto report = [&](long long completed, long long total) {
        if (onProgress) {
            onProgress({completed, total});
        }
    };

    VideoEncoder::Settings settings = encoderSettings(preset);
    checkTarget(target, project);

    const OutputTimeline timeline(project, telemetry);
    ExportPipeline pipeline;
    // The compositor's failure to start (no GL context, say) is the export's first.
    const int constantRate = preset.constantRate ? static_cast<int>(std::lround(settings.frameRate)) : 0;
    CompositeStage compositing(pipeline, timeline, settings.width, settings.height, followsChanges,
                               constantRate);

    const fs::path media = project.source.mediaURL.path();
    const MediaInfo info = reportingMediaFailures([&] { return MediaInfo::of(media); });
    if (info.videoTracks == 0) {
        throw ExportError(ExportError::Kind::noVideoTrack, media.string() + ": no video track");
    }
    const auto decoder = reportingMediaFailures([&] { return std::make_unique<VideoDecoder>(media); });
    if (!preset.constantRate) {
        settings.timeScale = decoder->timeScale();
    }

    const SoundPlan sound(project, telemetry, info, settings.container, stop, onSoundProgress);
    settings.audio = sound.tracks();
    if (stop.stop_requested()) {
        throw ExportError(ExportError::Kind::cancelled, "cancelled");
    }

    EncodeStage encoding(target, settings); // replaces the target only once the movie is complete
    DecodeStage decoding(pipeline, *decoder, timeline, followsChanges && constantRate == 0);

    // Every source frame that survives the cuts becomes one output frame, or at a constant rate there is a
    // frame every 1/rate s of the finished movie.
    const double rate =
        timeline.project.source.frameRate > 0 ? timeline.project.source.frameRate : decoder->frameRate();
    const auto total = constantRate > 0
                           ? std::llround(timeline.map.outputDuration() * constantRate)
                           : static_cast<long long>(std::round(timeline.project.source.duration * rate));
    report(0, total);
    const long long written =
        encoding.encode(pipeline, stop, [&](long long completed) { report(completed, total); });
    decoding.join();
    compositing.join();
    reportingMediaFailures([&] { pipeline.rethrowFailure(); });
    encoding.complete(stop);
    report(written, written);
    return target;
}

} // namespace marlowick
