#pragma once

#include "captions/Locale.h"
#include "capture/ScreenCapturer.h"
#include "export/ExportPreset.h"
#include "model/CameraTrack.h"
#include "model/MarlowickDocument.h"
#include "model/Span.h"
#include "model/Url.h"
#include "model/Uuid.h"
#include "session/EditHistory.h"
#include "session/FilePanels.h"
#include "session/PlaybackEngine.h"
#include "session/ScreenInfo.h"
#include "session/SessionPhase.h"
#include "session/ThreadRelay.h"
#include "takes/TakeStore.h"
#include "trajectory/CursorSampler.h"
#include "trajectory/RetakeSwap.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace marlowick {

struct SessionTakes;

// The application's one central object: the open project, the phase the application is in, the
// person's capture choices and everything derived from the project (cursor, waveform, preview mix, track
// count). Every action of a view passes through it; the views read its properties and redraw on their
// signals. Each property has its own change signal, and a write of a value equal to the present one
// signals nothing (two absent optionals are equal). The document and the cursor sampler have no value
// equality, so every write of them signals.
//
// Invariant: the phase is editing or exporting only while a document is open. A document may stay open
// in the idle phase.
//
// Thread: everything here belongs to the thread the session lives on (the main thread), and every call
// comes from it. Jobs (the preview mix, the waveform, the track probe, silence analysis, captions, the
// export) run off that thread on copies of the project taken when they start, and write their result
// back on it, only while the project they were started for is still the one open: a result for another
// take, or one overtaken by a newer job of its kind, is dropped. The preview job is cancelled by a newer
// one and the export by cancelExport; the others run to their end, and one that ends after the session
// began to end changes nothing.
// Ownership: the session owns its file panels, its screen information, its playback engine (a child
// QObject, never replaced) and its capturer (made once by the factory it is given, never replaced).
//
// Takes: every capture is recorded into the takes folder (TakeStore::defaultFolder(), read when the session
// is made), held there by the session while it captures and, after, while the take is the open project's
// or one a retake replaced in it. While the open project plays such a take, each change of the document
// writes the take's recovery copy beside it 2 s after the last one, on a thread of its own. A successful
// save brings the take into the package and removes the project's takes and their copies from the folder;
// closing or replacing the project keeps them there for the next start, as does a failed stop keep what
// was recorded. A takes folder that can't be made fails a start with lastError.
class EditorSession : public QObject {
    Q_OBJECT
public:
    using CapturerFactory = std::function<std::unique_ptr<ScreenCapturer>()>;
    using OptionalDocument = std::optional<MarlowickDocument>;
    using OptionalUrl = std::optional<Url>;
    using OptionalText = std::optional<std::string>;
    using OptionalSeconds = std::optional<double>;
    using OptionalCursor = std::optional<CursorSampler>;
    using OptionalBeat = std::optional<Uuid>;
    using OptionalRetakeReport = std::optional<RetakeSwap::Report>;
    using OptionalCount = std::optional<int>;
    using Waveform = std::vector<float>;
    using Locales = std::vector<Locale>;

private:
    Q_PROPERTY(marlowick::SessionPhase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(OptionalDocument document READ document NOTIFY documentChanged)
    // Where the document was last read from or written to; set by open and save only.
    Q_PROPERTY(OptionalUrl packageUrl READ packageUrl NOTIFY packageUrlChanged)
    // The message the person sees: the only channel for failures.
    Q_PROPERTY(OptionalText lastError READ lastError WRITE setLastError NOTIFY lastErrorChanged)
    Q_PROPERTY(OptionalUrl lastExportUrl READ lastExportUrl NOTIFY lastExportUrlChanged)
    Q_PROPERTY(bool capturesSystemAudio READ capturesSystemAudio WRITE setCapturesSystemAudio NOTIFY
                   capturesSystemAudioChanged)
    Q_PROPERTY(bool capturesMicrophone READ capturesMicrophone WRITE setCapturesMicrophone NOTIFY
                   capturesMicrophoneChanged)
    // The monitor a take records, by the name `monitors` gives it; empty for the primary one.
    Q_PROPERTY(std::string recordedMonitor READ recordedMonitor WRITE setRecordedMonitor NOTIFY
                   recordedMonitorChanged)
    Q_PROPERTY(marlowick::PlaybackEngine* playback READ playback CONSTANT)
    Q_PROPERTY(OptionalCursor cursorSampler READ cursorSampler NOTIFY cursorSamplerChanged)
    Q_PROPERTY(
        bool isRenderingAudioPreview READ isRenderingAudioPreview NOTIFY isRenderingAudioPreviewChanged)
    // The selected range in output seconds, on the edited timeline the person sees.
    Q_PROPERTY(OptionalSeconds selectionStart READ selectionStart WRITE setSelectionStart NOTIFY
                   selectionStartChanged)
    Q_PROPERTY(
        OptionalSeconds selectionEnd READ selectionEnd WRITE setSelectionEnd NOTIFY selectionEndChanged)
    // One peak per bucket, 600 buckets, over the edited timeline.
    Q_PROPERTY(Waveform waveform READ waveform NOTIFY waveformChanged)
    Q_PROPERTY(OptionalBeat selectedBeat READ selectedBeat WRITE setSelectedBeat NOTIFY selectedBeatChanged)
    Q_PROPERTY(bool isTranscribing READ isTranscribing NOTIFY isTranscribingChanged)
    Q_PROPERTY(
        marlowick::Locale captionLocale READ captionLocale WRITE setCaptionLocale NOTIFY captionLocaleChanged)
    // The languages offered, read once at the start.
    Q_PROPERTY(Locales captionLocales READ captionLocales CONSTANT)
    Q_PROPERTY(
        OptionalRetakeReport retakeReport READ retakeReport WRITE setRetakeReport NOTIFY retakeReportChanged)
    // The last capture asked for a sound source that could be delivered.
    Q_PROPERTY(bool capturedWithAudio READ capturedWithAudio NOTIFY capturedWithAudioChanged)
    Q_PROPERTY(bool isAnalysingSilence READ isAnalysingSilence NOTIFY isAnalysingSilenceChanged)
    // Audio tracks in the open recording's movie; none until a probe has ended.
    Q_PROPERTY(OptionalCount audioTrackCount READ audioTrackCount NOTIFY audioTrackCountChanged)
    // The open project has changes no package holds: a take never saved, or edits since the last save
    // (an undo back to the saved state makes it clean again).
    Q_PROPERTY(bool isModified READ isModified NOTIFY isModifiedChanged)

public:
    // `screen` may be null: then there are no monitors to choose from, and a take records the primary one.
    EditorSession(std::unique_ptr<FilePanels> panels, PlaybackEngine::PlayerFactory makePlayer,
                  const CapturerFactory& makeCapturer, std::unique_ptr<ScreenInfo> screen,
                  QObject* parent = nullptr);
    // Stops the jobs that can be stopped (the preview mix, captions, the export) and removes the preview
    // file; waits for a capture start or stop under way, and leaves a running capture's movie complete.
    ~EditorSession() override;

    const SessionPhase& phase() const { return m_phase; }
    const OptionalDocument& document() const { return m_document; }
    const OptionalUrl& packageUrl() const { return m_packageUrl; }
    const OptionalText& lastError() const { return m_lastError; }
    const OptionalUrl& lastExportUrl() const { return m_lastExportUrl; }
    bool capturesSystemAudio() const { return m_capturesSystemAudio; }
    bool capturesMicrophone() const { return m_capturesMicrophone; }
    const std::string& recordedMonitor() const { return m_recordedMonitor; }
    PlaybackEngine* playback() const { return m_playback; }
    const OptionalCursor& cursorSampler() const { return m_cursorSampler; }
    bool isRenderingAudioPreview() const { return m_isRenderingAudioPreview; }
    const OptionalSeconds& selectionStart() const { return m_selectionStart; }
    const OptionalSeconds& selectionEnd() const { return m_selectionEnd; }
    const Waveform& waveform() const { return m_waveform; }
    const OptionalBeat& selectedBeat() const { return m_selectedBeat; }
    bool isTranscribing() const { return m_isTranscribing; }
    const Locale& captionLocale() const { return m_captionLocale; }
    const Locales& captionLocales() const { return m_captionLocales; }
    const OptionalRetakeReport& retakeReport() const { return m_retakeReport; }
    bool capturedWithAudio() const { return m_capturedWithAudio; }
    bool isAnalysingSilence() const { return m_isAnalysingSilence; }
    const OptionalCount& audioTrackCount() const { return m_audioTrackCount; }
    bool isModified() const { return m_isModified; }

    void setLastError(OptionalText value);
    void setCapturesSystemAudio(bool value);
    void setCapturesMicrophone(bool value);
    void setRecordedMonitor(std::string value);
    void setSelectionStart(OptionalSeconds value);
    void setSelectionEnd(OptionalSeconds value);
    void setSelectedBeat(OptionalBeat value);
    void setCaptionLocale(Locale value);
    void setRetakeReport(OptionalRetakeReport value);

    // What the phase allows now. Opening a project and starting a take need the record screen or the
    // editor with no capture starting or stopping; an export or a replaced take needs the editor. The
    // window enables its commands by these, and the operations refuse what they don't allow.
    bool canOpen() const;
    bool canRecord() const;
    bool canExport() const;

    // Asks for a package and opens it: the document, the package's place, the derived state, then the
    // editing phase. A cancelled panel changes nothing; a package that can't be read sets lastError and
    // leaves everything else as it was. Runs to its end in the caller's turn, the read included. Nothing
    // unless canOpen.
    void open();
    // Asks where to write the package, proposing the project's name (also when it came from a package),
    // and writes it there. Nothing without a document; a cancelled panel changes nothing; a failed write
    // sets lastError and leaves packageUrl as it was.
    void save();
    // The words a person reads for `error`, the same as the command-line tool's.
    static std::string describe(const std::exception& error);

    // Offers each take that a session ended without saving or discarding (a crash, a kill), the most recent
    // first: asks askToRecover naming its date and length, and when declined askToDeleteTake, which deletes
    // it for good or keeps it for the next start. The first take recovered opens as an unsaved project with
    // the edits of its recovery copy (the movie alone, named "Recovered take", where there is none), and the
    // rest wait for the next start unasked. A take another window holds is not offered. A take that can't
    // be opened sets lastError and stays. Nothing while a project is open or unless canOpen.
    void recoverAbandonedTakes();
    // Deletes the open project's takes that were never saved into a package, with their recovery copies,
    // as "Don't Save" asks; nothing for a project whose take is in its package. The project stays open,
    // its movie read from the file the player still holds, and is to be closed or replaced right after.
    void discardTake();
    // Where the session records its takes.
    const std::filesystem::path& takesFolder() const;

    // Recording. Both return at once; the capturer starts and stops off the session's thread, one call
    // after the other in the order asked. startRecording clears lastError, asks for recordedMonitor at its
    // own size (at 60 frames a second, into a new take in the takes folder, see above; on Wayland the
    // shared stream's size) and enters the recording phase once the capture runs; a monitor no longer
    // there fails the start, its message naming those there are. A failed start sets lastError and the idle
    // phase, and leaves the open project and a pending retake as they were; a start refused because a
    // capture runs leaves the recording phase. stopRecording keeps the recording phase while the movie is
    // finished, then opens the take as a new project named "Untitled" with the director's zooms, or
    // applies it as the pending retake; packageUrl stays. A failed stop sets lastError and the idle phase
    // and drops the pending retake. The movie of a new project stays in the takes folder until a
    // save brings it into a package. startRecording returns false, doing nothing, unless canRecord.
    bool startRecording();
    void stopRecording();
    // How much telemetry a capture from the session's capturer holds; asks the capturer each time.
    TelemetryAvailability telemetryAvailability() const;
    // The monitors a take may record, for the person to pick recordedMonitor among; asks the screen
    // information each time. None without it, or where the desktop's own dialog picks (Wayland).
    std::vector<ScreenMonitor> monitors() const;
    // Records a new take for the open project: the capture of startRecording, with the sound sources the
    // take it replaces had, whose recording the next successful stopRecording puts under the edit as
    // replaceRecordingFromFile does. Returns false, doing nothing, without a document or unless canRecord.
    bool startRetake();

    // Zoom. Each needs a document and does nothing without one; none rebuilds derived state.
    // The camera regenerated in `style` from the telemetry, keeping the beats a person edited.
    void setZoomStyle(CameraTrack::Style style);
    void regenerateZoom();
    void deleteBeat(Uuid id);
    // A person's beat from `time` (source seconds) for 1 to 2.5 s, centred on the cursor there, and
    // selected.
    void addBeat(double time);

    // Cuts. The selection is in output seconds; a cut shorter than 0.05 s of source is not made, and the
    // selection then stays.
    void cutSelection();
    void clearSelection();
    // The project's hand cuts sorted by start; empty without a document.
    std::vector<Span> manualCuts() const;
    // Puts back the stretch of the hand cut `id`, or of every hand cut, rebuilding the cursor, the preview
    // and the waveform. Nothing without a document or without such a cut.
    void restoreCut(Uuid id);
    void restoreAllCuts();

    // Music: a bed, or none to remove it; or one chosen in a file panel, with the usual levels.
    void setMusic(std::optional<MusicBed> bed);
    void chooseMusic();

    // Silence cutting. The first switching-on with no stored analysis runs one; after that, on request.
    void setSilence(SilenceTrim trim);
    // One analysis at a time; the result lands in the project's trim.
    void analyseSilence();

    // Transcribes the recording's voice in captionLocale into the project's captions. One at a time; an
    // empty transcription leaves the earlier captions as they were.
    void generateCaptions();
    // Corrections of the captions, each one step of the history; `cue` names a cue of the project's
    // captions, and nothing happens without one. The text keeps the word timings where the words still
    // match (CaptionTrack::Cue::withText); an empty text deletes the cue. A split at `time` (source
    // seconds) leaves the words that start before it and moves the rest into a new cue after it, and needs
    // words on both sides; a merge joins the cue with the one after it.
    void setCaptionText(Uuid cue, const std::string& text);
    void splitCaption(Uuid cue, double time);
    void mergeCaptionWithNext(Uuid cue);
    void deleteCaption(Uuid cue);

    // Pauses the player, asks where to write the movie and writes it, the phase carrying the progress.
    // The phase is back at editing when it ends, a late progress report notwithstanding. Nothing unless
    // canExport.
    void exportMovie(const ExportPreset& preset);
    // Stops the export under way: the file it would have replaced is left as it was, no error is shown,
    // and the phase goes back to editing at once.
    void cancelExport();
    // The presets whose shape is the canvas's, in catalogue order; all of them without a document.
    std::vector<ExportPreset> matchingPresets() const;
    // The rest, in catalogue order; none without a document.
    std::vector<ExportPreset> mismatchedPresets() const;

    // Retake. Asks for a movie and puts it under the open project as a new take with no telemetry: the
    // person's beats are scaled onto it, the director's go, the captions empty, and retakeReport says so.
    // A file without video, or one that can't be read, sets lastError and changes nothing. The movie is
    // read off the session's thread.
    void replaceRecordingFromFile();

    // Every change of the open project goes through here, as one named step of its history: `change`
    // edits a copy of the project, and a copy equal to the project changes nothing. Otherwise the copy
    // becomes the project, documentChanged signals, and the session rebuilds what the change touched (the
    // cursor, the preview and its mix, the waveform), so a view only asks for the edit. Steps of one
    // `gesture` (a slider's moves) made in quick succession are one step. Nothing without a document.
    void editProject(const std::string& name, const std::function<void(Project&)>& change,
                     const std::string& gesture = {});
    void editProject(const std::function<void(Project&)>& change) { editProject("Edit", change); }

    // Undo and redo, while editing: the document goes back to, or forward to, its state around the step,
    // and everything derived is rebuilt as a fresh open of that state would have it. The names are those
    // the Edit menu shows; none when there is nothing to undo or redo.
    void undo();
    void redo();
    OptionalText undoName() const;
    OptionalText redoName() const;

    // Before an action that would drop the open project's unsaved changes: asks whether to save them
    // first, and saves on Save (through the save panel, as every save). True when
    // the action may go on: nothing unsaved, saved, or Don't Save; false on Cancel or a cancelled or
    // failed save.
    bool settleUnsavedChanges();

    // Derived state; the session rebuilds it itself after each edit that touches it.
    void refreshDerivedState();
    void rebuildCursor();
    // Cancels the preview job before, and starts a new one: after 350 ms without a newer call, it renders
    // the mix when the sound needs processing, then loads the player.
    void reloadPlayback(bool renderingAudio);

    // Summaries for the inspectors.
    OptionalText audioWarning() const;
    std::string audioTrackSummary() const;
    int clickCount() const;
    OptionalText trimSummary() const;

    // The preview mix in use: a file in the temporary directory, removed when replaced and at the
    // session's end. None while the recording's own sound plays.
    const OptionalUrl& audioPreviewUrl() const { return m_audioPreviewUrl; }

signals:
    void phaseChanged(marlowick::SessionPhase phase);
    void documentChanged();
    void packageUrlChanged();
    void lastErrorChanged();
    void lastExportUrlChanged();
    void capturesSystemAudioChanged(bool value);
    void capturesMicrophoneChanged(bool value);
    void recordedMonitorChanged();
    void cursorSamplerChanged();
    void isRenderingAudioPreviewChanged(bool value);
    void selectionStartChanged();
    void selectionEndChanged();
    void waveformChanged();
    void selectedBeatChanged();
    void isTranscribingChanged(bool value);
    void captionLocaleChanged();
    void retakeReportChanged();
    void capturedWithAudioChanged(bool value);
    void isAnalysingSilenceChanged(bool value);
    void audioTrackCountChanged();
    void isModifiedChanged(bool value);
    // undoName or redoName may have changed.
    void historyChanged();
    // canOpen, canRecord or canExport may have changed.
    void commandsChanged();

private:
    void setPhase(SessionPhase value);
    // A document put in place whole (opened, recorded, closed): its history starts afresh, `saved` saying
    // whether it is the state of a package.
    void setDocument(OptionalDocument value, bool saved = false);
    // The document's state now, for the history.
    DocumentState currentState() const;
    // Makes `state` the document's, rebuilding what differs from the state it replaces.
    void applyState(const DocumentState& state);
    // Rebuilds what differs between `before` and the document now.
    void rebuildAfter(const Project& before, bool takeChanged);
    void updateModified();
    void setPackageUrl(OptionalUrl value);
    void setLastExportUrl(OptionalUrl value);
    void setCursorSampler(OptionalCursor value);
    void setWaveform(Waveform value);
    void setIsTranscribing(bool value);
    void setIsAnalysingSilence(bool value);
    void setAudioTrackCount(OptionalCount value);
    void setCapturedWithAudio(bool value);
    // Removes the file of the preview it replaces.
    void setAudioPreviewUrl(OptionalUrl value);
    void rendersInFlightChanged(int delta);

    // What a job holds of its session across a suspension: false once the session is gone or has begun to
    // end, when the job must touch nothing more of it.
    class Alive {
    public:
        explicit Alive(EditorSession* session)
            : m_session(session) {}
        explicit operator bool() const { return m_session && !m_session->m_lifetime.stop_requested(); }

    private:
        QPointer<EditorSession> m_session;
    };

    // Keeps a job that was started, forgetting those that have ended.
    void keep(QCoro::Task<> job);
    void captureCallsChanged(int delta);
    QCoro::Task<> runPreviewJob(MarlowickDocument document, TimeMap trim, bool renderingAudio,
                                std::stop_token stop);
    QCoro::Task<std::optional<Url>> renderAudioPreview(MarlowickDocument document, TimeMap trim,
                                                       std::stop_token stop);
    void loadWaveform();
    QCoro::Task<> runWaveformJob(std::filesystem::path movie, std::optional<TimeMap> trim,
                                 std::uint64_t request);
    void probeAudioTracks();
    QCoro::Task<> runTrackProbe(std::filesystem::path movie, std::uint64_t request);

    CaptureConfiguration captureConfiguration(bool systemAudio, bool microphone,
                                              std::filesystem::path movie) const;
    QCoro::Task<> runCaptureStart(CaptureConfiguration configuration);
    QCoro::Task<> runCaptureStop();

    // Puts `recording` (its telemetry in its events) under the open project, keeping the edit, then
    // rebuilds every derived state and returns to editing. Nothing without a document.
    void applyRetake(const Recording& recording, const std::string& name);
    QCoro::Task<> runReplacement(std::filesystem::path movie);

    QCoro::Task<> runSilenceAnalysis(Project project, std::uint64_t documentNumber);
    QCoro::Task<> runTranscription(Project project, Locale locale, std::uint64_t documentNumber);
    QCoro::Task<> runExport(MarlowickDocument document, ExportPreset preset, std::filesystem::path target,
                            std::uint64_t exportNumber, std::stop_token stop);

    // Takes and their recovery (TakeRecovery.cpp). A new take held for the next capture, or none with
    // lastError set.
    std::optional<std::filesystem::path> holdNewTake();
    // The capture of `movie` didn't start: nothing was recorded, and the take goes.
    void takeNotStarted(const std::filesystem::path& movie);
    // The capture stopped: its take joins the open project's when `recording` plays it, and is left in the
    // folder otherwise (none: the stop failed).
    void takeStopped(const std::optional<Recording>& recording);
    // The open project is about to be replaced: its latest recovery copy goes out and its takes stay.
    void projectTakesClosing();
    void takesDocumentChanged();
    void takeSaved(const std::filesystem::path& package);
    // Starts the write of the open project's recovery copy now, when it plays a take of the folder.
    void writeRecoveryCopy();
    // Waits for the recovery copy under way; the pending one is dropped.
    void stopRecoveryCopies();
    bool openRecoveredTake(TakeStore::Hold take, const std::string& description);
    QCoro::Task<> runRecoveryCopy(MarlowickDocument document, std::filesystem::path movie);

    std::unique_ptr<FilePanels> m_panels;
    std::unique_ptr<ScreenInfo> m_screen; // null: no monitors to choose from
    PlaybackEngine* m_playback;           // a child, never replaced
    std::unique_ptr<ScreenCapturer> m_capturer;
    // The one thread the capturer's start and stop run on, in the order asked; declared after the
    // capturer, so that it is gone, its work done, before the capturer goes.
    QThreadPool m_captureThread;

    SessionPhase m_phase;
    OptionalDocument m_document;
    OptionalUrl m_packageUrl;
    OptionalText m_lastError;
    OptionalUrl m_lastExportUrl;
    bool m_capturesSystemAudio = true;
    bool m_capturesMicrophone = false;
    std::string m_recordedMonitor;
    OptionalCursor m_cursorSampler;
    bool m_isRenderingAudioPreview = false;
    OptionalUrl m_audioPreviewUrl;
    OptionalSeconds m_selectionStart;
    OptionalSeconds m_selectionEnd;
    Waveform m_waveform;
    OptionalBeat m_selectedBeat;
    bool m_isTranscribing = false;
    Locale m_captionLocale;
    Locales m_captionLocales;
    OptionalRetakeReport m_retakeReport;
    // The running or next capture replaces the open project's take; set by startRetake, cleared by the
    // end of a stopRecording.
    bool m_isRetaking = false;
    bool m_capturedWithAudio = true;
    bool m_isAnalysingSilence = false;
    OptionalCount m_audioTrackCount;

    // The latest preview job: stopping this source cancels it, its debounce and its render.
    std::stop_source m_previewStop;
    // The latest preview job's debounce timer while it waits; a cancellation fires it at once.
    QPointer<QTimer> m_previewDebounce;
    // The movie the player was last loaded with: another one (a new project or take) first plays with its
    // own sound while its processed mix renders.
    OptionalUrl m_loadedMovie;
    // The jobs started and not yet seen to end. A job still suspended when the event loop has gone would
    // never be resumed, and its frame would be lost with all it holds: the destructor runs each to its end.
    std::vector<QCoro::Task<>> m_jobs;
    // Preview renders not yet ended, a cancelled one included; the flag is up while there is one.
    int m_rendersInFlight = 0;
    // Stopped when the session ends: the transcription and the export hear it.
    std::stop_source m_lifetime;
    // Rises with each export started, so that a progress report of an ended export is dropped.
    std::uint64_t m_exportNumber = 0;
    // The export under way stops on this, as it does when the session ends.
    std::stop_source m_exportStop;
    // Capture starts and stops asked and not yet ended: no project is opened or take started meanwhile.
    int m_captureCalls = 0;
    // Rises with every document put in place (opened, recorded, retaken, closed), so that a job's result
    // for a project no longer open is dropped.
    std::uint64_t m_documentNumber = 0;
    // Rise with each waveform or track probe asked for: only the newest one's result lands.
    std::uint64_t m_waveformRequest = 0;
    std::uint64_t m_trackProbeRequest = 0;
    // The open document's history, and its telemetry as the history shares it.
    EditHistory m_history;
    std::shared_ptr<const std::vector<InputEvent>> m_telemetry;
    bool m_isModified = false;
    // Shared with the progress callbacks of the exports; cut off from the session when it ends.
    std::shared_ptr<ThreadRelay<EditorSession>> m_exportRelay;
    // The takes the session holds; never null.
    std::unique_ptr<SessionTakes> m_takes;
};

} // namespace marlowick
