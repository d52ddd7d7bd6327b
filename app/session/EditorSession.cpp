#include "session/EditorSession.h"

#include "captions/CaptionTranscriber.h"
#include "messages/Describe.h"
#include "session/SessionTakes.h"

#include <algorithm>
#include <system_error>

namespace marlowick {

EditorSession::EditorSession(std::unique_ptr<FilePanels> panels, PlaybackEngine::PlayerFactory makePlayer,
                             const CapturerFactory& makeCapturer, std::unique_ptr<ScreenInfo> screen,
                             QObject* parent)
    : QObject(parent)
    , m_panels(std::move(panels))
    , m_screen(std::move(screen))
    , m_playback(new PlaybackEngine(std::move(makePlayer), this))
    , m_capturer(makeCapturer())
    , m_captionLocale(CaptionTranscriber::defaultLocale())
    , m_captionLocales(CaptionTranscriber::onDeviceLocales())
    , m_exportRelay(std::make_shared<ThreadRelay<EditorSession>>(this))
    , m_takes(std::make_unique<SessionTakes>(TakeStore(TakeStore::defaultFolder()))) {
    m_captureThread.setMaxThreadCount(1);
    connect(this, &EditorSession::documentChanged, this, &EditorSession::takesDocumentChanged);
    connect(&m_takes->recoveryTimer, &QTimer::timeout, this, &EditorSession::writeRecoveryCopy);
}

EditorSession::~EditorSession() {
    // The last edits reach the recovery copy: its write is one of the jobs waited for below.
    if (m_takes->recoveryTimer.isActive()) {
        writeRecoveryCopy();
    }
    m_exportRelay->detach();
    m_previewStop.request_stop();
    m_exportStop.request_stop();
    m_lifetime.request_stop();
    // Every job ends at its next look now that the stops are requested, touching nothing of the session;
    // a preview waiting out its pause looks at once. The list is taken out before the waits, since the
    // event loop they run may end other jobs, and whatever is kept meanwhile is waited for in turn.
    if (m_previewDebounce) {
        m_previewDebounce->start(0);
    }
    while (!m_jobs.empty()) {
        std::vector<QCoro::Task<>> jobs = std::exchange(m_jobs, {});
        for (QCoro::Task<>& job : jobs) {
            if (!job.isReady()) {
                QCoro::waitFor(job);
            }
        }
    }
    if (m_audioPreviewUrl) {
        std::error_code ignored;
        std::filesystem::remove(m_audioPreviewUrl->path(), ignored);
    }
}

bool EditorSession::canOpen() const {
    const SessionPhase::Kind kind = m_phase.kind();
    return (kind == SessionPhase::Kind::idle || kind == SessionPhase::Kind::editing) && m_captureCalls == 0;
}

bool EditorSession::canRecord() const {
    return canOpen();
}

bool EditorSession::canExport() const {
    return m_phase.kind() == SessionPhase::Kind::editing && m_captureCalls == 0;
}

void EditorSession::captureCallsChanged(int delta) {
    m_captureCalls += delta;
    emit commandsChanged();
}

void EditorSession::keep(QCoro::Task<> job) {
    std::erase_if(m_jobs, [](const QCoro::Task<>& kept) { return kept.isReady(); });
    if (!job.isReady()) {
        m_jobs.push_back(std::move(job));
    }
}

std::string EditorSession::describe(const std::exception& error) {
    return marlowick::describe(error);
}

namespace {

// A package's failure names the package, as the command-line tool's do: the person may have picked
// another one than they meant.
std::string aboutPackage(const std::filesystem::path& package, const std::string& message) {
    return package.filename().string() + ": " + message;
}

} // namespace

void EditorSession::open() {
    if (!canOpen() || !settleUnsavedChanges()) {
        return;
    }
    const std::optional<std::filesystem::path> chosen = m_panels->openPackage();
    if (!chosen) {
        return;
    }
    std::optional<MarlowickDocument> read;
    try {
        read = MarlowickDocument::read(*chosen);
    } catch (const std::exception& error) {
        setLastError(aboutPackage(*chosen, marlowick::describe(error, PackageAccess::opening)));
        return;
    }
    projectTakesClosing();
    setDocument(std::move(read), true);
    setPackageUrl(Url::fileUrl(*chosen));
    updateModified();
    refreshDerivedState();
    setPhase(SessionPhase::editing());
}

void EditorSession::save() {
    if (!m_document) {
        return;
    }
    const std::string suggested =
        m_document->project.name + "." + std::string(MarlowickDocument::fileExtension);
    const std::optional<std::filesystem::path> chosen = m_panels->savePackage(suggested);
    if (!chosen) {
        return;
    }
    try {
        m_document->write(*chosen);
    } catch (const std::exception& error) {
        setLastError(aboutPackage(*chosen, marlowick::describe(error, PackageAccess::saving)));
        return;
    }
    setPackageUrl(Url::fileUrl(*chosen));
    takeSaved(*chosen);
    m_history.markSaved();
    updateModified();
}

bool EditorSession::settleUnsavedChanges() {
    if (!m_isModified) {
        return true;
    }
    switch (m_panels->askToSave(m_document->project.name)) {
    case FilePanels::SaveAnswer::discard:
        // The edits go; a take never saved stays in the takes folder, where the next start offers it and
        // deletes it only when asked twice.
        return true;
    case FilePanels::SaveAnswer::cancel:
        return false;
    case FilePanels::SaveAnswer::save:
        break;
    }
    // The save panel asks where, as every save does; a cancelled panel or a failed write leaves the project
    // unsaved, and the action doesn't go on.
    save();
    return !m_isModified;
}

void EditorSession::editProject(const std::string& name, const std::function<void(Project&)>& change,
                                const std::string& gesture) {
    if (!m_document) {
        return;
    }
    Project changed = m_document->project;
    change(changed);
    if (changed == m_document->project) {
        return;
    }
    const DocumentState before = currentState();
    DocumentState after{std::move(changed), m_telemetry};
    m_history.record({name, gesture, before, after, EditHistory::Clock::now()});
    applyState(after);
    emit historyChanged();
}

void EditorSession::undo() {
    if (!m_document || m_phase.kind() != SessionPhase::Kind::editing) {
        return;
    }
    if (const EditHistory::Step* step = m_history.undo()) {
        const DocumentState state = step->before;
        applyState(state);
        emit historyChanged();
    }
}

void EditorSession::redo() {
    if (!m_document || m_phase.kind() != SessionPhase::Kind::editing) {
        return;
    }
    if (const EditHistory::Step* step = m_history.redo()) {
        const DocumentState state = step->after;
        applyState(state);
        emit historyChanged();
    }
}

EditorSession::OptionalText EditorSession::undoName() const {
    return m_history.undoName();
}

EditorSession::OptionalText EditorSession::redoName() const {
    return m_history.redoName();
}

DocumentState EditorSession::currentState() const {
    return {m_document->project, m_telemetry};
}

void EditorSession::applyState(const DocumentState& state) {
    const Project before = m_document->project;
    const bool takeChanged = state.telemetry != m_telemetry || !(state.project.source == before.source);
    m_document->project = state.project;
    if (state.telemetry != m_telemetry) {
        m_telemetry = state.telemetry;
        m_document->setTelemetry(*m_telemetry);
    }
    if (takeChanged) {
        // The jobs started for the take this replaces land nothing on this one.
        ++m_documentNumber;
    }
    // A selected beat that this state doesn't have is no longer selected.
    if (m_selectedBeat) {
        const auto& beats = m_document->project.camera.beats;
        if (std::none_of(beats.begin(), beats.end(), [&](const ZoomBeat& beat) { return beat.id == *m_selectedBeat; })) {
            setSelectedBeat(std::nullopt);
        }
    }
    emit documentChanged();
    rebuildAfter(before, takeChanged);
    updateModified();
}

void EditorSession::rebuildAfter(const Project& before, bool takeChanged) {
    const Project& after = m_document->project;
    const bool cutsChanged = !(before.effectiveTrim() == after.effectiveTrim());
    if (takeChanged || cutsChanged || !(before.cursor == after.cursor)) {
        rebuildCursor();
    }
    if (takeChanged || cutsChanged || !(before.audio == after.audio)) {
        reloadPlayback(true);
    }
    if (takeChanged) {
        probeAudioTracks();
    }
    if (takeChanged || cutsChanged) {
        loadWaveform();
    }
}

void EditorSession::updateModified() {
    const bool modified = m_document && !m_history.isAtSaved();
    if (m_isModified != modified) {
        m_isModified = modified;
        emit isModifiedChanged(modified);
    }
}

void EditorSession::setPhase(SessionPhase value) {
    // Editing and exporting need an open project: without one the session stays where it is.
    if (value.needsDocument() && !m_document) {
        return;
    }
    if (m_phase != value) {
        const bool kindChanged = m_phase.kind() != value.kind();
        m_phase = value;
        emit phaseChanged(value);
        if (kindChanged) {
            emit commandsChanged();
        }
    }
}

void EditorSession::setDocument(OptionalDocument value, bool saved) {
    // Documents have no value equality: every write is a change, and the jobs started for the one before
    // land nothing.
    m_document = std::move(value);
    ++m_documentNumber;
    m_history = EditHistory(saved);
    m_telemetry.reset();
    if (m_document) {
        m_telemetry = std::make_shared<const std::vector<InputEvent>>(m_document->telemetry());
    }
    emit historyChanged();
    updateModified();
    if (!m_document && m_phase.needsDocument()) {
        setPhase(SessionPhase::idle());
    }
    emit documentChanged();
}

void EditorSession::setPackageUrl(OptionalUrl value) {
    if (m_packageUrl != value) {
        m_packageUrl = std::move(value);
        emit packageUrlChanged();
    }
}

void EditorSession::setLastError(OptionalText value) {
    if (m_lastError != value) {
        m_lastError = std::move(value);
        emit lastErrorChanged();
    }
}

void EditorSession::setLastExportUrl(OptionalUrl value) {
    if (m_lastExportUrl != value) {
        m_lastExportUrl = std::move(value);
        emit lastExportUrlChanged();
    }
}

void EditorSession::setCapturesSystemAudio(bool value) {
    if (m_capturesSystemAudio != value) {
        m_capturesSystemAudio = value;
        emit capturesSystemAudioChanged(value);
    }
}

void EditorSession::setCapturesMicrophone(bool value) {
    if (m_capturesMicrophone != value) {
        m_capturesMicrophone = value;
        emit capturesMicrophoneChanged(value);
    }
}

void EditorSession::setCursorSampler(OptionalCursor value) {
    // A sampler has no value equality: every write is a change.
    m_cursorSampler = std::move(value);
    emit cursorSamplerChanged();
}

void EditorSession::setSelectionStart(OptionalSeconds value) {
    if (m_selectionStart != value) {
        m_selectionStart = value;
        emit selectionStartChanged();
    }
}

void EditorSession::setSelectionEnd(OptionalSeconds value) {
    if (m_selectionEnd != value) {
        m_selectionEnd = value;
        emit selectionEndChanged();
    }
}

void EditorSession::setWaveform(Waveform value) {
    if (m_waveform != value) {
        m_waveform = std::move(value);
        emit waveformChanged();
    }
}

void EditorSession::setSelectedBeat(OptionalBeat value) {
    if (m_selectedBeat != value) {
        m_selectedBeat = value;
        emit selectedBeatChanged();
    }
}

void EditorSession::setIsTranscribing(bool value) {
    if (m_isTranscribing != value) {
        m_isTranscribing = value;
        emit isTranscribingChanged(value);
    }
}

void EditorSession::setCaptionLocale(Locale value) {
    if (m_captionLocale != value) {
        m_captionLocale = std::move(value);
        emit captionLocaleChanged();
    }
}

void EditorSession::setRetakeReport(OptionalRetakeReport value) {
    if (m_retakeReport != value) {
        m_retakeReport = value;
        emit retakeReportChanged();
    }
}

void EditorSession::setIsAnalysingSilence(bool value) {
    if (m_isAnalysingSilence != value) {
        m_isAnalysingSilence = value;
        emit isAnalysingSilenceChanged(value);
    }
}

void EditorSession::setAudioTrackCount(OptionalCount value) {
    if (m_audioTrackCount != value) {
        m_audioTrackCount = value;
        emit audioTrackCountChanged();
    }
}

void EditorSession::setCapturedWithAudio(bool value) {
    if (m_capturedWithAudio != value) {
        m_capturedWithAudio = value;
        emit capturedWithAudioChanged(value);
    }
}

void EditorSession::rendersInFlightChanged(int delta) {
    m_rendersInFlight += delta;
    const bool rendering = m_rendersInFlight > 0;
    if (m_isRenderingAudioPreview != rendering) {
        m_isRenderingAudioPreview = rendering;
        emit isRenderingAudioPreviewChanged(rendering);
    }
}

void EditorSession::setAudioPreviewUrl(OptionalUrl value) {
    if (m_audioPreviewUrl == value) {
        return;
    }
    // Only the newest preview is kept, so the temporary directory holds one at a time. The player may
    // still be reading the old file: on Linux it reads on until it lets go.
    if (m_audioPreviewUrl) {
        std::error_code ignored;
        std::filesystem::remove(m_audioPreviewUrl->path(), ignored);
    }
    m_audioPreviewUrl = std::move(value);
}

} // namespace marlowick
