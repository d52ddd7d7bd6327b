// The edits of the open project and the jobs run on it: zoom, cuts, music, silence, captions, export, and
// the retake, and the summaries the inspectors print. Each changes the document, then rebuilds just the
// derived state the change touches.

#include "session/EditorSession.h"

#include "audio/AudioRenderer.h"
#include "audio/SilenceDetector.h"
#include "captions/CaptionTranscriber.h"
#include "export/Exporter.h"
#include "media/MediaInfo.h"
#include "messages/Describe.h"
#include "model/FileOps.h"
#include "trajectory/ZoomDirector.h"

#include <QCoroFuture>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cstdio>
#include <system_error>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

// A hand cut must remove more than this much source time.
constexpr double shortestManualCut = 0.05;
// A new beat runs from the playhead for 1 to 2.5 s, and at least the shortest beat.
constexpr double newBeatShortest = 1.0;
constexpr double newBeatLongest = 2.5;
constexpr double newBeatScale = 1.6;
constexpr double newBeatRamp = 0.35;
// Cues of at most 8 words, and a new cue after a pause of 0.6 s.
constexpr std::size_t cueMaximumWords = 8;
constexpr double cuePauseBreak = 0.6;
// A replacement movie that states no frame rate is taken as a capture's.
constexpr double replacementFallbackRate = 60;

// How a job off the session's thread ended: its value, or a message.
template <class Value> struct JobOutcome {
    std::optional<Value> value;
    std::string error;
};

JobOutcome<TimeMap> detectSilence(fs::path movie, SilenceTrim settings) {
    try {
        return {SilenceDetector{}.detect(movie, settings), {}};
    } catch (const std::exception& error) {
        return {std::nullopt, describe(error)};
    }
}

// The voice written to `voiceFile` and heard in `locale`; the file is left for the caller to remove.
JobOutcome<std::vector<CaptionTrack::Word>> transcribeVoice(fs::path movie, fs::path voiceFile, Locale locale,
                                                            std::stop_token stop) {
    try {
        AudioRenderer{}.extractVoice(movie, voiceFile);
        return {CaptionTranscriber::transcribe(voiceFile, locale, stop), {}};
    } catch (const std::exception& error) {
        return {std::nullopt, describe(error)};
    }
}

JobOutcome<MediaInfo> readMediaInfo(fs::path movie) {
    try {
        return {MediaInfo::of(movie), {}};
    } catch (const std::exception& error) {
        return {std::nullopt, describe(error)};
    }
}

FilePanels::FileType fileTypeOf(ExportPreset::Container container) {
    switch (container) {
    case ExportPreset::Container::mp4:
        return {"MPEG-4 movie", "mp4"};
    case ExportPreset::Container::mov:
        return {"QuickTime movie", "mov"};
    case ExportPreset::Container::webm:
        return {"WebM movie", "webm"};
    case ExportPreset::Container::gif:
        return {"GIF animation", "gif"};
    }
    return {"MPEG-4 movie", "mp4"};
}

// The camera the director makes in `style` from the take's telemetry, keeping the beats a person edited.
CameraTrack regenerated(const Project& project, const std::vector<InputEvent>& telemetry,
                        CameraTrack::Style style) {
    Recording recording = project.source;
    recording.inputEvents = telemetry;
    ZoomDirector director;
    director.style = style;
    CameraTrack camera = director.regenerate(project.camera, recording);
    camera.style = style;
    return camera;
}

} // namespace

// Zoom.

void EditorSession::setZoomStyle(CameraTrack::Style style) {
    if (m_document) {
        editProject("Zoom Style", [&](Project& project) {
            project.camera = regenerated(project, m_document->telemetry(), style);
        });
    }
}

void EditorSession::regenerateZoom() {
    if (m_document) {
        editProject("Regenerate Zooms", [&](Project& project) {
            project.camera = regenerated(project, m_document->telemetry(), project.camera.style);
        });
    }
}

void EditorSession::deleteBeat(Uuid id) {
    if (!m_document) {
        return;
    }
    editProject("Delete Zoom", [&](Project& project) { project.camera.remove(id); });
    if (m_selectedBeat == id) {
        setSelectedBeat(std::nullopt);
    }
}

void EditorSession::addBeat(double time) {
    if (!m_document) {
        return;
    }
    Point center{0.5, 0.5};
    if (m_cursorSampler) {
        if (const std::optional<CursorFrame> frame = m_cursorSampler->frameAt(time)) {
            center = frame->position;
        }
    }
    // A beat near the end may run past the recording's end, by up to a second.
    const double wantedEnd = std::min(std::max(m_document->project.source.duration, time + newBeatShortest),
                                      time + newBeatLongest);
    // The beat's constructor raises the start to 0 and the end to the shortest beat after it.
    const ZoomBeat beat(Uuid::random(), time, wantedEnd, center, newBeatScale, newBeatRamp, newBeatRamp,
                        Easing::easeInOut, false);
    editProject("Add Zoom", [&](Project& project) { project.camera.beats.push_back(beat); });
    setSelectedBeat(beat.id);
}

// Cuts.

void EditorSession::cutSelection() {
    if (!m_document || !m_selectionStart || !m_selectionEnd) {
        return;
    }
    const TimeMap trim = m_document->project.effectiveTrim();
    const double from = trim.sourceTimeForOutput(std::min(*m_selectionStart, *m_selectionEnd));
    const double to = trim.sourceTimeForOutput(std::max(*m_selectionStart, *m_selectionEnd));
    if (!(to - from > shortestManualCut)) {
        return;
    }
    editProject("Cut", [&](Project& project) { project.manualCuts.push_back(Span(Range{from, to})); });
    clearSelection();
}

void EditorSession::clearSelection() {
    setSelectionStart(std::nullopt);
    setSelectionEnd(std::nullopt);
}

std::vector<Span> EditorSession::manualCuts() const {
    if (!m_document) {
        return {};
    }
    std::vector<Span> cuts = m_document->project.manualCuts;
    std::stable_sort(cuts.begin(), cuts.end(),
                     [](const Span& a, const Span& b) { return a.start < b.start; });
    return cuts;
}

void EditorSession::restoreCut(Uuid id) {
    if (!m_document) {
        return;
    }
    const auto& cuts = m_document->project.manualCuts;
    if (std::none_of(cuts.begin(), cuts.end(), [&](const Span& cut) { return cut.id == id; })) {
        return;
    }
    editProject("Restore Cut", [&](Project& project) {
        std::erase_if(project.manualCuts, [&](const Span& cut) { return cut.id == id; });
    });
}

void EditorSession::restoreAllCuts() {
    if (!m_document || m_document->project.manualCuts.empty()) {
        return;
    }
    editProject("Restore All Cuts", [](Project& project) { project.manualCuts.clear(); });
}

// Music.

void EditorSession::setMusic(std::optional<MusicBed> bed) {
    if (!m_document) {
        return;
    }
    editProject(bed ? "Music" : "Remove Music", [&](Project& project) { project.audio.music = std::move(bed); });
}

void EditorSession::chooseMusic() {
    if (!m_document) {
        return;
    }
    const std::optional<fs::path> chosen = m_panels->chooseFile(FilePanels::FileKind::audio);
    if (!chosen) {
        return;
    }
    setMusic(MusicBed::forFile(Url::fileUrl(*chosen)));
}

// Silence.

void EditorSession::setSilence(SilenceTrim trim) {
    if (!m_document) {
        return;
    }
    const bool wasEnabled = m_document->project.audio.silence.isEnabled;
    editProject("Trim Silence", [&](Project& project) { project.audio.silence = trim; }, "silence");
    // The first switching-on runs the analysis by itself; after that it runs on request.
    if (trim.isEnabled && !wasEnabled && !m_document->project.trim) {
        analyseSilence();
    }
}

void EditorSession::analyseSilence() {
    if (!m_document || m_isAnalysingSilence) {
        return;
    }
    setIsAnalysingSilence(true);
    setLastError(std::nullopt);
    keep(runSilenceAnalysis(m_document->project, m_documentNumber));
}

QCoro::Task<> EditorSession::runSilenceAnalysis(Project project, std::uint64_t documentNumber) {
    const Alive self(this);
    QFuture<JobOutcome<TimeMap>> detecting =
        QtConcurrent::run(detectSilence, project.source.mediaURL.path(), project.audio.silence);
    const JobOutcome<TimeMap> outcome = co_await detecting;
    if (!self) {
        co_return;
    }
    // A result for another take, or for settings the person has changed since, is dropped; changed
    // settings are analysed again.
    const bool sameTake = m_document && m_documentNumber == documentNumber;
    if (!sameTake || !(m_document->project.audio.silence == project.audio.silence)) {
        setIsAnalysingSilence(false);
        if (sameTake && m_document->project.audio.silence.isEnabled) {
            analyseSilence();
        }
        co_return;
    }
    // The result goes into the document as it is now: the person may have edited on meanwhile.
    if (outcome.value) {
        const bool found = !outcome.value->isIdentity();
        std::optional<TimeMap> trim;
        if (found) {
            trim = outcome.value;
        }
        editProject("Silence Analysis", [&](Project& current) { current.trim = trim; });
        if (!found) {
            setLastError("No silence long enough to cut. Try a shorter minimum or a higher threshold.");
        }
    } else if (!outcome.value) {
        setLastError("Could not analyse audio: " + outcome.error);
    }
    setIsAnalysingSilence(false);
}

// Captions.

void EditorSession::generateCaptions() {
    if (!m_document || m_isTranscribing) {
        return;
    }
    setIsTranscribing(true);
    setLastError(std::nullopt);
    keep(runTranscription(m_document->project, m_captionLocale, m_documentNumber));
}

QCoro::Task<> EditorSession::runTranscription(Project project, Locale locale, std::uint64_t documentNumber) {
    // Linux asks nobody for speech recognition: the permission is Marlowick's own setting.
    if (CaptionTranscriber::requestAuthorization() != SpeechAuthorization::granted) {
        setLastError("Speech Recognition permission is required. Allow speech recognition in Marlowick's "
                     "settings on this computer, then try again.");
        setIsTranscribing(false);
        co_return;
    }
    // The voice alone, for the recogniser: created private, and extracted into the file as it is.
    const fs::path voiceFile =
        fs::temp_directory_path() / ("marlowick-voice-" + Uuid::random().toString() + ".m4a");
    try {
        fileops::createPrivateFile(voiceFile);
    } catch (const fs::filesystem_error& error) {
        setLastError("Could not transcribe: " + marlowick::describe(error, PackageAccess::saving));
        setIsTranscribing(false);
        co_return;
    }
    const Alive self(this);
    QFuture<JobOutcome<std::vector<CaptionTrack::Word>>> transcribing = QtConcurrent::run(
        transcribeVoice, project.source.mediaURL.path(), voiceFile, locale, m_lifetime.get_token());
    const JobOutcome<std::vector<CaptionTrack::Word>> outcome = co_await transcribing;
    std::error_code ignored;
    fs::remove(voiceFile, ignored);
    if (!self) {
        co_return;
    }
    if (m_documentNumber != documentNumber) {
        // The words of a take no longer open.
    } else if (!outcome.value) {
        setLastError(outcome.error);
    } else if (outcome.value->empty()) {
        setLastError("No speech recognised in " + locale.displayName() +
                     ". If you were speaking another language, change it under Captions.");
    } else if (m_document) {
        const std::vector<CaptionTrack::Cue> cues =
            CaptionTrack::cuesFromWords(*outcome.value, cueMaximumWords, cuePauseBreak);
        editProject("Transcribe Captions", [&](Project& current) {
            CaptionTrack track;
            track.cues = cues;
            track.isEnabled = true;
            if (current.captions) {
                track.style = current.captions->style;
            }
            current.captions = std::move(track);
        });
    }
    setIsTranscribing(false);
}

void EditorSession::setCaptionText(Uuid cue, const std::string& text) {
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        deleteCaption(cue);
        return;
    }
    editProject("Edit Caption", [&](Project& project) {
        if (project.captions) {
            for (CaptionTrack::Cue& each : project.captions->cues) {
                if (each.id == cue) {
                    each = each.withText(text);
                }
            }
        }
    });
}

void EditorSession::splitCaption(Uuid cue, double time) {
    editProject("Split Caption", [&](Project& project) {
        if (!project.captions) {
            return;
        }
        auto& cues = project.captions->cues;
        const auto at = std::find_if(cues.begin(), cues.end(), [&](const auto& each) { return each.id == cue; });
        if (at == cues.end()) {
            return;
        }
        const auto after = std::find_if(at->words.begin(), at->words.end(),
                                        [&](const CaptionTrack::Word& word) { return word.start >= time; });
        if (after == at->words.begin() || after == at->words.end()) {
            return;
        }
        CaptionTrack::Cue second{Uuid::random(), std::vector<CaptionTrack::Word>(after, at->words.end())};
        at->words.erase(after, at->words.end());
        cues.insert(at + 1, std::move(second));
    });
}

void EditorSession::mergeCaptionWithNext(Uuid cue) {
    editProject("Merge Captions", [&](Project& project) {
        if (!project.captions) {
            return;
        }
        auto& cues = project.captions->cues;
        const auto at = std::find_if(cues.begin(), cues.end(), [&](const auto& each) { return each.id == cue; });
        if (at == cues.end() || at + 1 == cues.end()) {
            return;
        }
        at->words.insert(at->words.end(), (at + 1)->words.begin(), (at + 1)->words.end());
        cues.erase(at + 1);
    });
}

void EditorSession::deleteCaption(Uuid cue) {
    editProject("Delete Caption", [&](Project& project) {
        if (project.captions) {
            std::erase_if(project.captions->cues, [&](const auto& each) { return each.id == cue; });
        }
    });
}

// Retake.

void EditorSession::replaceRecordingFromFile() {
    if (!m_document || !canExport() || !settleUnsavedChanges()) {
        return;
    }
    const std::optional<fs::path> chosen = m_panels->chooseFile(FilePanels::FileKind::movie);
    if (!chosen) {
        return;
    }
    keep(runReplacement(*chosen));
}

QCoro::Task<> EditorSession::runReplacement(fs::path movie) {
    const Alive self(this);
    const std::uint64_t documentNumber = m_documentNumber;
    QFuture<JobOutcome<MediaInfo>> reading = QtConcurrent::run(readMediaInfo, movie);
    const JobOutcome<MediaInfo> outcome = co_await reading;
    if (!self || m_documentNumber != documentNumber) {
        co_return;
    }
    if (!outcome.value) {
        setLastError(outcome.error);
        co_return;
    }
    const MediaInfo& info = *outcome.value;
    if (info.videoTracks == 0) {
        setLastError("That file has no video track.");
        co_return;
    }
    // A file brings no telemetry and says nothing of how its sound was recorded.
    Recording recording;
    recording.mediaURL = Url::fileUrl(movie);
    recording.size = {static_cast<double>(info.width), static_cast<double>(info.height)};
    recording.frameRate = info.frameRate > 0 ? info.frameRate : replacementFallbackRate;
    recording.duration = info.duration;
    applyRetake(recording, "Replace Recording");
}

void EditorSession::applyRetake(const Recording& recording, const std::string& name) {
    if (!m_document) {
        return;
    }
    RetakeSwap::Result result = RetakeSwap{}.apply(recording, *m_document);
    // One step of the history, the take and its telemetry with it, so that an undo brings the old take
    // back under the edit.
    const DocumentState before = currentState();
    const DocumentState after{std::move(result.document.project),
                              std::make_shared<const std::vector<InputEvent>>(result.document.telemetry())};
    m_history.record({name, {}, before, after, EditHistory::Clock::now()});
    setSelectedBeat(std::nullopt);
    applyState(after);
    emit historyChanged();
    setRetakeReport(result.report);
    setPhase(SessionPhase::editing());
}

// Export.

void EditorSession::exportMovie(const ExportPreset& preset) {
    if (!m_document || !canExport()) {
        return;
    }
    // Paused before the panel shows, and left paused if the person cancels.
    m_playback->pause();
    const FilePanels::FileType type = fileTypeOf(preset.container);
    const std::string suggested = m_document->project.name + "." + type.extension;
    const std::optional<fs::path> chosen = m_panels->saveFile(suggested, type);
    if (!chosen) {
        return;
    }
    setPhase(SessionPhase::exporting(0));
    setLastError(std::nullopt);
    m_exportStop = std::stop_source();
    keep(runExport(*m_document, preset, *chosen, ++m_exportNumber, m_exportStop.get_token()));
}

void EditorSession::cancelExport() {
    if (m_phase.kind() != SessionPhase::Kind::exporting) {
        return;
    }
    m_exportStop.request_stop();
    // The editor comes back at once; the export's own end, a moment later, only cleans up.
    ++m_exportNumber;
    setPhase(SessionPhase::editing());
}

QCoro::Task<> EditorSession::runExport(MarlowickDocument document, ExportPreset preset, fs::path target,
                                       std::uint64_t exportNumber, std::stop_token stop) {
    const Alive self(this);
    std::shared_ptr<ThreadRelay<EditorSession>> relay = m_exportRelay;
    const auto work = [document = std::move(document), preset = std::move(preset), target, relay, stop,
                       exportNumber]() -> JobOutcome<fs::path> {
        try {
            const auto onProgress = [&relay, exportNumber](const Exporter::Progress& progress) {
                const double fraction = progress.totalFrames == 0
                                            ? 0.0
                                            : std::min(static_cast<double>(progress.completedFrames) /
                                                           static_cast<double>(progress.totalFrames),
                                                       1.0);
                // Applied only if this export is still the one running when it lands.
                relay->post([exportNumber, fraction](EditorSession& session) {
                    if (session.m_exportNumber == exportNumber &&
                        session.m_phase.kind() == SessionPhase::Kind::exporting) {
                        session.setPhase(SessionPhase::exporting(fraction));
                    }
                });
            };
            return {Exporter{}.exportMovie(document.project, document.telemetry(), preset, target, onProgress,
                                           stop),
                    {}};
        } catch (const std::exception& error) {
            return {std::nullopt, describe(error)};
        }
    };
    QFuture<JobOutcome<fs::path>> exporting = QtConcurrent::run(work);
    const JobOutcome<fs::path> outcome = co_await exporting;
    if (!self || stop.stop_requested()) {
        // Cancelled: the export left the earlier file as it was, and the editor is back already.
        co_return;
    }
    if (outcome.value) {
        setLastExportUrl(Url::fileUrl(target));
    } else {
        setLastError(outcome.error);
    }
    // Progress reports still queued carry this export's number: the next export's number drops them.
    if (m_exportNumber == exportNumber) {
        ++m_exportNumber;
    }
    setPhase(SessionPhase::editing());
}

std::vector<ExportPreset> EditorSession::matchingPresets() const {
    if (!m_document) {
        return ExportPreset::all();
    }
    return ExportPreset::matching(m_document->project.canvas.ratio);
}

std::vector<ExportPreset> EditorSession::mismatchedPresets() const {
    if (!m_document) {
        return {};
    }
    std::vector<ExportPreset> others;
    for (const ExportPreset& preset : ExportPreset::all()) {
        if (preset.ratio() != m_document->project.canvas.ratio) {
            others.push_back(preset);
        }
    }
    return others;
}

// Summaries.

EditorSession::OptionalText EditorSession::audioWarning() const {
    if (!m_document) {
        return std::nullopt;
    }
    const Recording& source = m_document->project.source;
    if (m_audioTrackCount == 0) {
        return "This recording has no audio track at all. Enable System audio or Microphone before "
               "recording.";
    }
    if (!source.capturedMicrophone && source.capturedSystemAudio) {
        return "No voice here: the microphone was off. Tick Microphone on the record screen before "
               "recording.";
    }
    if (!source.capturedMicrophone && !source.capturedSystemAudio) {
        return "This recording has no audio — neither source was enabled.";
    }
    if (source.capturedMicrophone && source.capturedSystemAudio && m_audioTrackCount &&
        *m_audioTrackCount < 2) {
        return "The microphone was requested but no voice track was recorded. Check that a microphone is the "
               "sound server's default source on this computer ('pactl list short sources' lists them, "
               "'pactl set-default-source NAME' picks one), then record again.";
    }
    return std::nullopt;
}

std::string EditorSession::audioTrackSummary() const {
    if (!m_document) {
        return "No recording";
    }
    const Recording& source = m_document->project.source;
    std::string requested;
    if (source.capturedSystemAudio) {
        requested = "system";
    }
    if (source.capturedMicrophone) {
        requested += requested.empty() ? "microphone" : " + microphone";
    }
    if (requested.empty()) {
        requested = "nothing";
    }
    const std::string count = m_audioTrackCount ? std::to_string(*m_audioTrackCount) : "…";
    return "Requested: " + requested + " · in the file: " + count + " audio track(s)";
}

int EditorSession::clickCount() const {
    if (!m_document) {
        return 0;
    }
    return static_cast<int>(
        std::count_if(m_document->telemetry().begin(), m_document->telemetry().end(),
                      [](const InputEvent& e) { return e.kind == InputEvent::Kind::down; }));
}

EditorSession::OptionalText EditorSession::trimSummary() const {
    if (!m_document) {
        return std::nullopt;
    }
    const Project& project = m_document->project;
    if (!project.audio.silence.isEnabled || !project.trim || project.trim->isIdentity()) {
        return std::nullopt;
    }
    const TimeMap& trim = *project.trim;
    const double removed = trim.removedDuration();
    const double percent = project.source.duration > 0 ? removed / project.source.duration * 100 : 0;
    char text[128];
    std::snprintf(text, sizeof text, "%d cuts · %.1fs removed (%.0f%%) · exports at %.1fs",
                  static_cast<int>(trim.removals().size()), removed, percent, trim.outputDuration());
    return std::string(text);
}

} // namespace marlowick
