#pragma once

#include "trajectory/RetakeSwap.h"

#include <QColor>
#include <QWidget>

#include <string>

class QFrame;
class QLabel;
class QPushButton;

namespace marlowick {

class EditorSession;

// The notices above the screen, top to bottom, each on its own colour at 15 % and shown only while its
// condition holds: the capture's telemetry (yellow) when it holds less than every input, the last error
// (red), the report of a retake (green, or orange when the person's beats moved enough to be checked) with
// a button that dismisses it, and the audio warning of the open recording (yellow). They follow the
// session's properties as they change.
//
// Thread: the main thread only. The session is not owned and outlives the banners.
class Banners : public QWidget {
    Q_OBJECT
public:
    explicit Banners(EditorSession& session, QWidget* parent = nullptr);

    // The two lines of the retake banner: the heading, then the clauses joined by " · ".
    static std::string retakeHeading();
    static std::string retakeSummary(const RetakeSwap::Report& report);

    // The banners in their order, shown or not; each holds its text in a QLabel.
    QFrame* telemetryBanner() const { return m_telemetry; }
    QFrame* errorBanner() const { return m_error; }
    QFrame* retakeBanner() const { return m_retake; }
    QFrame* audioBanner() const { return m_audio; }
    QPushButton* dismissRetakeButton() const { return m_dismissRetake; }

    // Asks the capturer again how much telemetry a capture will hold: at a phase change, since a running
    // capture knows better than a probe.
    void followTelemetry();

private:
    void followError();
    void followRetake();
    void followAudio();

    EditorSession& m_session;
    QFrame* m_telemetry;
    QLabel* m_telemetryText;
    QFrame* m_error;
    QLabel* m_errorText;
    QFrame* m_retake;
    QLabel* m_retakeHeading;
    QLabel* m_retakeText;
    QPushButton* m_dismissRetake;
    QFrame* m_audio;
    QLabel* m_audioText;
};

} // namespace marlowick
