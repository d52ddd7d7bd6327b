// The recording flow: a capture started from the record screen or as a retake, and its end, which opens
// the take as a new project or puts it under the open one.

#include "session/EditorSession.h"

#include "messages/Describe.h"
#include "trajectory/NewRecording.h"

#include <QCoroFuture>
#include <QtConcurrent/QtConcurrentRun>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

constexpr double captureFrameRate = 60;
constexpr const char* newProjectName = "Untitled";

// How a call of the capturer ended off the session's thread: its value, or the error's words.
template <class Value> struct CaptureOutcome {
    std::optional<Value> value;
    std::string error;
    bool stillRecording = false; // the call was refused because a capture runs
};

} // namespace

bool EditorSession::startRecording() {
    if (!canRecord()) {
        return false;
    }
    setLastError(std::nullopt);
    const std::optional<fs::path> take = holdNewTake();
    if (!take) {
        return true;
    }
    keep(runCaptureStart(captureConfiguration(m_capturesSystemAudio, m_capturesMicrophone, *take)));
    return true;
}

bool EditorSession::startRetake() {
    if (!m_document || !canRecord()) {
        return false;
    }
    setLastError(std::nullopt);
    const std::optional<fs::path> take = holdNewTake();
    if (!take) {
        return true;
    }
    m_isRetaking = true;
    // The new take records what the one it replaces recorded, whatever the record screen's ticks say now:
    // a retake that lost the voice would lose the narration under the edit.
    const Recording& replaced = m_document->project.source;
    keep(runCaptureStart(
        captureConfiguration(replaced.capturedSystemAudio, replaced.capturedMicrophone, *take)));
    return true;
}

void EditorSession::stopRecording() {
    keep(runCaptureStop());
}

TelemetryAvailability EditorSession::telemetryAvailability() const {
    return m_capturer->telemetryAvailability();
}

std::vector<ScreenMonitor> EditorSession::monitors() const {
    return m_screen ? m_screen->monitors() : std::vector<ScreenMonitor>{};
}

void EditorSession::setRecordedMonitor(std::string value) {
    if (m_recordedMonitor != value) {
        m_recordedMonitor = std::move(value);
        emit recordedMonitorChanged();
    }
}

CaptureConfiguration EditorSession::captureConfiguration(bool systemAudio, bool microphone,
                                                         fs::path movie) const {
    // The size is left to the capture: the monitor's own, or the shared stream's, every pixel as it is.
    CaptureConfiguration configuration;
    configuration.outputURL = std::move(movie);
    configuration.monitor = m_recordedMonitor;
    configuration.frameRate = captureFrameRate;
    configuration.capturesAudio = systemAudio;
    // Every Linux desktop can offer the microphone: where the sound server has no source, the capturer
    // refuses the start with its own message.
    configuration.capturesMicrophone = microphone;
    configuration.capturesCursor = true;
    return configuration;
}

QCoro::Task<> EditorSession::runCaptureStart(CaptureConfiguration configuration) {
    const Alive self(this);
    captureCallsChanged(+1);
    ScreenCapturer* capturer = m_capturer.get();
    QFuture<CaptureOutcome<bool>> starting =
        QtConcurrent::run(&m_captureThread, [capturer, configuration]() -> CaptureOutcome<bool> {
            try {
                capturer->start(configuration);
                return {true, {}};
            } catch (const CaptureError& error) {
                return {std::nullopt, describe(error), error.kind() == CaptureErrorKind::alreadyRecording};
            } catch (const std::exception& error) {
                return {std::nullopt, describe(error)};
            }
        });
    const CaptureOutcome<bool> outcome = co_await starting;
    if (!self) {
        co_return;
    }
    captureCallsChanged(-1);
    if (!outcome.value) {
        // A pending retake stays pending: the next finished capture still goes under the open project. A
        // start refused because a capture runs leaves the phase at recording, since that capture goes on.
        takeNotStarted(configuration.outputURL);
        setLastError(outcome.error);
        if (!outcome.stillRecording) {
            setPhase(SessionPhase::idle());
        }
        co_return;
    }
    setCapturedWithAudio(configuration.capturesAudio || configuration.capturesMicrophone);
    setPhase(SessionPhase::recording());
}

QCoro::Task<> EditorSession::runCaptureStop() {
    const Alive self(this);
    captureCallsChanged(+1);
    ScreenCapturer* capturer = m_capturer.get();
    QFuture<CaptureOutcome<Recording>> stopping =
        QtConcurrent::run(&m_captureThread, [capturer]() -> CaptureOutcome<Recording> {
            try {
                return {capturer->stop(), {}};
            } catch (const std::exception& error) {
                return {std::nullopt, describe(error)};
            }
        });
    const CaptureOutcome<Recording> outcome = co_await stopping;
    if (!self) {
        co_return;
    }
    captureCallsChanged(-1);
    if (!outcome.value) {
        // The take is lost to the session; its partial movie stays in the folder for the next start.
        takeStopped(std::nullopt);
        m_isRetaking = false;
        setLastError(outcome.error);
        setPhase(SessionPhase::idle());
        co_return;
    }
    if (m_isRetaking) {
        m_isRetaking = false;
        applyRetake(*outcome.value, "Retake");
        takeStopped(outcome.value);
        co_return;
    }
    projectTakesClosing();
    setDocument(documentForNewRecording(*outcome.value, newProjectName));
    takeStopped(outcome.value);
    refreshDerivedState();
    setPhase(SessionPhase::editing());
}

} // namespace marlowick
