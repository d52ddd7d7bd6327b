#include "export/SoundPlan.h"

#include "audio/AudioRenderer.h"
#include "export/MediaFailures.h"
#include "media/AudioFile.h"
#include "model/Uuid.h"

namespace marlowick {

namespace fs = std::filesystem;

namespace {

// Thrown through the mix renderer's progress report to stop it part way.
struct MixCancelled {};

fs::path temporaryMixPath() {
    return fs::temp_directory_path() / ("marlowick-mix-" + Uuid::random().toString() + ".m4a");
}

} // namespace

SoundPlan::SoundPlan(const Project& project, const std::vector<InputEvent>& telemetry, const MediaInfo& info,
                     VideoEncoder::Container container, const std::stop_token& stop,
                     const std::function<void(double)>& onProgress) {
    if (info.audioTracks == 0) {
        return;
    }
    const fs::path media = project.source.mediaURL.path();
    const TimeMap map = project.effectiveTrim();
    const VideoEncoder::AudioTrack recorded{media, 0};
    if (info.audioTracks >= 2 || !project.audio.isPassthrough() || !map.isIdentity()) {
        m_kind = Kind::mixed;
        m_temporary.emplace(temporaryMixPath());
        try {
            AudioRenderer{}.render(media, project.audio, project.clickTimes(telemetry), map,
                                   m_temporary->path(), [&](double fraction) {
                                       if (stop.stop_requested()) {
                                           throw MixCancelled{};
                                       }
                                       if (onProgress) {
                                           onProgress(fraction);
                                       }
                                   });
        } catch (const MixCancelled&) {
            throw ExportError(ExportError::Kind::cancelled, "cancelled");
        }
    } else if (reportingMediaFailures([&] { return VideoEncoder::canCarry(container, recorded); })) {
        m_kind = Kind::copied;
        m_tracks.push_back(recorded);
        return;
    } else {
        // A sound the container can't store as it is (PCM in MP4, say) is encoded once, as AAC.
        m_kind = Kind::reencoded;
        m_temporary.emplace(temporaryMixPath());
        reportingMediaFailures(
            [&] { AudioFile::writeAac(m_temporary->path(), AudioFile::decodeTrack(media, 0)); });
    }
    m_tracks.push_back({m_temporary->path(), 0});
}

} // namespace marlowick
