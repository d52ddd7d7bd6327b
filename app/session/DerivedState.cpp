// The state derived from the project: the cursor, the preview mix and the player, the waveform and the
// track count, each rebuilt by the edits that touch it.

#include "session/EditorSession.h"

#include "audio/AudioRenderer.h"
#include "media/MediaInfo.h"
#include "messages/Describe.h"
#include "model/FileOps.h"

#include <QCoroFuture>
#include <QCoroTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <chrono>
#include <system_error>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

// The newest of a run of quick edits is the one rendered: a slider drag costs one render.
constexpr std::chrono::milliseconds previewDebounce{350};
constexpr int waveformBuckets = 600;

// How a preview render ended: a file, a message, or a stop.
struct RenderOutcome {
    std::optional<fs::path> file;
    std::optional<std::string> error;
};

RenderOutcome renderMix(fs::path movie, AudioSettings settings, std::vector<double> clickTimes,
                        std::optional<TimeMap> trim, fs::path to, std::stop_token stop) {
    try {
        AudioRenderer{}.render(movie, settings, clickTimes, trim, to, {}, stop);
    } catch (const RenderCancelled&) {
        return {};
    } catch (const RenderError& error) {
        // A take without sound has nothing to mix: it plays silent, and the audio banner says why.
        if (error.kind() == RenderErrorKind::noAudioTracks) {
            return {};
        }
        return {std::nullopt, describe(error)};
    } catch (const std::exception& error) {
        return {std::nullopt, describe(error)};
    }
    // Stopped after the file was in place: nobody will take it.
    if (stop.stop_requested()) {
        std::error_code ignored;
        fs::remove(to, ignored);
        return {};
    }
    return {to, std::nullopt};
}

std::vector<float> readWaveform(fs::path movie, std::optional<TimeMap> trim) {
    try {
        return AudioRenderer{}.waveform(movie, waveformBuckets, trim);
    } catch (const std::exception&) {
        return {};
    }
}

// A movie that can't be read counts as one without sound.
int countAudioTracks(fs::path movie) {
    try {
        return static_cast<int>(MediaInfo::of(movie).audioTracks);
    } catch (const std::exception&) {
        return 0;
    }
}

std::optional<TimeMap> unlessIdentity(const TimeMap& trim) {
    if (trim.isIdentity()) {
        return std::nullopt;
    }
    return trim;
}

} // namespace

void EditorSession::refreshDerivedState() {
    rebuildCursor();
    reloadPlayback(true);
    probeAudioTracks();
    loadWaveform();
}

void EditorSession::rebuildCursor() {
    if (!m_document) {
        setCursorSampler(std::nullopt);
        return;
    }
    const Project::Trimmed trimmed = m_document->project.applyingTrim(m_document->telemetry());
    if (trimmed.telemetry.empty()) {
        setCursorSampler(std::nullopt);
        return;
    }
    setCursorSampler(CursorSampler(trimmed.telemetry, trimmed.project.source, trimmed.project.cursor));
}

void EditorSession::reloadPlayback(bool renderingAudio) {
    if (!m_document) {
        return;
    }
    MarlowickDocument document = *m_document;
    TimeMap trim = document.project.effectiveTrim();

    // The older job ends at its next look: a waiting one at once, a rendering one inside the render.
    m_previewStop.request_stop();
    if (m_previewDebounce) {
        m_previewDebounce->start(0);
    }
    m_previewStop = std::stop_source();
    // Its handle isn't kept: the stop source is how the session reaches it.
    keep(runPreviewJob(std::move(document), std::move(trim), renderingAudio, m_previewStop.get_token()));
}

QCoro::Task<> EditorSession::runPreviewJob(MarlowickDocument document, TimeMap trim, bool renderingAudio,
                                           std::stop_token stop) {
    // GCC 12 miscompiles class-type temporaries in a coroutine's conditional and co_await expressions:
    // each awaited value is named first.
    const Alive self(this);
    const auto cancelled = [&self, &stop] { return !self || stop.stop_requested(); };

    const Recording& source = document.project.source;
    const std::optional<TimeMap> effectiveTrim = unlessIdentity(trim);
    if (renderingAudio && !document.project.audio.isPassthrough()) {
        if (m_loadedMovie != source.mediaURL) {
            // A new recording shows and plays at once with its own sound: the processed mix of a long take
            // takes a while to render, and replaces it when it is there.
            const std::optional<Url> ownSound;
            QCoro::Task<> showing =
                m_playback->load(source.mediaURL, source.duration, effectiveTrim, ownSound);
            co_await showing;
            if (cancelled()) {
                co_return;
            }
            m_loadedMovie = source.mediaURL;
        }
        QTimer debounce;
        debounce.setSingleShot(true);
        debounce.start(previewDebounce);
        m_previewDebounce = &debounce;
        co_await debounce;
        if (cancelled()) {
            co_return;
        }
        m_previewDebounce = nullptr;

        rendersInFlightChanged(+1);
        QCoro::Task<std::optional<Url>> rendering = renderAudioPreview(document, trim, stop);
        std::optional<Url> rendered = co_await rendering;
        if (!self) {
            co_return;
        }
        rendersInFlightChanged(-1);
        if (cancelled()) {
            co_return;
        }
        setAudioPreviewUrl(std::move(rendered));
    } else {
        setAudioPreviewUrl(std::nullopt);
    }
    if (cancelled()) {
        co_return;
    }

    const std::optional<Url> mix = m_audioPreviewUrl;
    QCoro::Task<> loading = m_playback->load(source.mediaURL, source.duration, effectiveTrim, mix);
    co_await loading;
    if (self) {
        m_loadedMovie = source.mediaURL;
    }
}

QCoro::Task<std::optional<Url>> EditorSession::renderAudioPreview(MarlowickDocument document, TimeMap trim,
                                                                  std::stop_token stop) {
    // The mix is the person's voice: created private, and rendered into the file as it is.
    const fs::path file =
        fs::temp_directory_path() / ("marlowick-preview-" + Uuid::random().toString() + ".m4a");
    try {
        fileops::createPrivateFile(file);
    } catch (const fs::filesystem_error& error) {
        setLastError("Could not render the audio preview: " +
                     marlowick::describe(error, PackageAccess::saving));
        co_return std::nullopt;
    }
    std::vector<double> clickTimes;
    for (const InputEvent& event : document.telemetry()) {
        if (event.kind == InputEvent::Kind::down) {
            clickTimes.push_back(event.time);
        }
    }
    const Alive self(this);
    QFuture<RenderOutcome> rendering =
        QtConcurrent::run(renderMix, document.project.source.mediaURL.path(), document.project.audio,
                          std::move(clickTimes), unlessIdentity(trim), file, stop);
    const RenderOutcome outcome = co_await rendering;
    if (!self || stop.stop_requested() || !outcome.file) {
        std::error_code ignored;
        fs::remove(file, ignored);
        if (!self || stop.stop_requested()) {
            co_return std::nullopt;
        }
    }
    if (outcome.error) {
        setLastError("Could not render the audio preview: " + *outcome.error);
        co_return std::nullopt;
    }
    if (!outcome.file) {
        co_return std::nullopt;
    }
    co_return Url::fileUrl(*outcome.file);
}

void EditorSession::loadWaveform() {
    // A waveform still being read is for an older state: only this request's lands.
    const std::uint64_t request = ++m_waveformRequest;
    if (!m_document) {
        setWaveform({});
        return;
    }
    keep(runWaveformJob(m_document->project.source.mediaURL.path(),
                        unlessIdentity(m_document->project.effectiveTrim()), request));
}

QCoro::Task<> EditorSession::runWaveformJob(fs::path movie, std::optional<TimeMap> trim,
                                            std::uint64_t request) {
    const Alive self(this);
    QFuture<std::vector<float>> reading = QtConcurrent::run(readWaveform, std::move(movie), std::move(trim));
    std::vector<float> peaks = co_await reading;
    if (self && request == m_waveformRequest) {
        setWaveform(std::move(peaks));
    }
}

void EditorSession::probeAudioTracks() {
    const std::uint64_t request = ++m_trackProbeRequest;
    if (!m_document) {
        setAudioTrackCount(std::nullopt);
        return;
    }
    keep(runTrackProbe(m_document->project.source.mediaURL.path(), request));
}

QCoro::Task<> EditorSession::runTrackProbe(fs::path movie, std::uint64_t request) {
    const Alive self(this);
    QFuture<int> probing = QtConcurrent::run(countAudioTracks, std::move(movie));
    const int tracks = co_await probing;
    if (self && request == m_trackProbeRequest) {
        setAudioTrackCount(tracks);
    }
}

} // namespace marlowick
