#pragma once

#include "export/ExportPreset.h"
#include "model/InputEvent.h"
#include "model/Project.h"
#include "model/TypedError.h"

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

namespace marlowick {

// Why an export didn't finish.
enum class ExportErrorKind {
    writerFailed,      // reading the recording or writing the movie failed; the text says how
    noVideoTrack,      // the recording holds no video
    cancelled,         // the caller asked it to stop
    targetIsFolder,    // the target (the text) is a folder, which is never removed
    targetIsRecording, // the target (the text) is the recording the movie is made from
    presetUnavailable, // the preset can't be written on this system; the text is the id of the one to use
};
using ExportError = TypedError<ExportErrorKind>;

// Turns a project into a finished movie. Every source frame that survives the cuts becomes exactly one
// output frame, at its own time moved through the time map: there is no resampling to a frame rate.
// Each is drawn by the frame compositor at the preset's size in a headless GL context, with the project
// and the telemetry moved onto output time and the cursor of that output time (FrameDrawer, as a still
// frame is drawn). The sound is made ready first (SoundPlan): none when the recording has none, the one
// recorded track copied as it stands when there is nothing to change, and otherwise the rendered mix.
//
// Decoding, compositing and encoding run on three threads joined by short queues, so that every core is
// busy (DecodeStage, CompositeStage, EncodeStage); the calling thread encodes and hears the progress, and
// the first failure of any stage ends them all. A screen take changes little from one frame to the next,
// so each stage works only where the frame changed: the decoder converts the changed areas, the
// compositor draws where they and the cursor land, and only the tiles around that are read back and
// converted for the encoder. Any number of exports may run, each on its own thread.
struct Exporter {
    // Whether each stage works only where frames change (the default), or on every frame whole. Both give
    // the same movie; the second is there to prove it.
    bool followsChanges = true;

    struct Progress {
        long long completedFrames = 0; // frames written so far
        long long totalFrames = 0;     // estimated from the cut duration and the recording's own frame rate

        double fraction() const;
        friend bool operator==(const Progress&, const Progress&) = default;
    };

    // Writes the movie at `target` and returns it. `telemetry` is in source time. `onProgress` is called
    // on the calling thread: once with no frames done before the first frame, once for each frame, and
    // once at the end with the total set to the frames written. `onSoundProgress`, when given, hears the
    // fraction of the mix rendered before the frames start (only when a mix is needed).
    //
    // The movie is written beside the target under a hidden name and replaces a file at the target only
    // once complete. `stop` is tested before each frame and each copied audio packet and while the mix
    // renders; a stopped export throws ExportError (cancelled). Every way out but a finished movie (a
    // failure, a cancellation, an exception from `onProgress`) removes the unfinished movie and the
    // temporary mix, and leaves whatever the target held as it was. Failures: ExportError; CompositorError
    // when no GL context or program can be had; RenderError from the mix.
    std::filesystem::path exportMovie(const Project& project, const std::vector<InputEvent>& telemetry,
                                      const ExportPreset& preset, const std::filesystem::path& target,
                                      const std::function<void(const Progress&)>& onProgress = {},
                                      std::stop_token stop = {},
                                      const std::function<void(double)>& onSoundProgress = {}) const;
};

} // namespace marlowick
