#pragma once

#include "media/MediaInfo.h"
#include "media/VideoEncoder.h"
#include "model/FileOps.h"
#include "model/InputEvent.h"
#include "model/Project.h"

#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

namespace marlowick {

// The sound of an exported movie, made ready before the frames start: none when the recording has none;
// the one recorded track copied as it stands when nothing would change it and the container can store it;
// otherwise a temporary file in the temporary directory, `marlowick-mix-<UUID>.m4a`, holding the rendered
// mix, or the recorded track encoded once as AAC. The temporary file is removed when the plan goes, on
// every way out.
class SoundPlan {
public:
    enum class Kind {
        none,      // the recording has no sound
        copied,    // the one recorded track, packet for packet
        reencoded, // the one recorded track as AAC, since the container can't store it as it is
        mixed,     // the rendered mix
    };

    // Works the sound out for `project` (whose recording `info` describes) and makes the temporary file
    // where one is needed. `telemetry` is in source time. `stop` is tested while the mix renders, and
    // `onProgress`, when given, hears the fraction of it rendered. Throws ExportError: cancelled when
    // stopped, writerFailed when the recording can't be read; RenderError from the mix.
    SoundPlan(const Project& project, const std::vector<InputEvent>& telemetry, const MediaInfo& info,
              VideoEncoder::Container container, const std::stop_token& stop,
              const std::function<void(double)>& onProgress);

    Kind kind() const { return m_kind; }
    // The tracks the movie carries: none or one.
    const std::vector<VideoEncoder::AudioTrack>& tracks() const { return m_tracks; }

private:
    Kind m_kind = Kind::none;
    std::optional<fileops::RemovedOnExit> m_temporary;
    std::vector<VideoEncoder::AudioTrack> m_tracks;
};

} // namespace marlowick
