#include "ui/Banners.h"

#include "capture/CaptureBackend.h"
#include "session/EditorSession.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <cstdio>

namespace marlowick {

namespace {

// Colours that read on light and dark palettes alike.
const QColor yellow(0xE5, 0xB0, 0x00);
const QColor red(0xE0, 0x44, 0x3E);
const QColor green(0x2E, 0xA0, 0x43);
const QColor orange(0xF2, 0x8C, 0x28);

// A banner's colour at 15 % over the window's background. The frame's name scopes the rule, so that the
// labels and the button inside keep their own look.
void paint(QFrame* banner, const QColor& colour) {
    banner->setStyleSheet(QString("QFrame#banner { background-color: rgba(%1, %2, %3, 38); }")
                              .arg(colour.red())
                              .arg(colour.green())
                              .arg(colour.blue()));
}

// The first of the icon names the theme has; none of them gives no symbol.
QIcon themeIcon(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        QIcon icon = QIcon::fromTheme(name);
        if (!icon.isNull()) {
            return icon;
        }
    }
    return {};
}

QLabel* wrappingLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

// A hidden banner of `colour` with an optional symbol before its column of text.
QFrame* banner(const QColor& colour, const QIcon& symbol, QWidget* parent, QVBoxLayout*& text,
               QHBoxLayout*& row) {
    auto* frame = new QFrame(parent);
    frame->setObjectName("banner");
    paint(frame, colour);
    row = new QHBoxLayout(frame);
    row->setContentsMargins(12, 8, 12, 8);
    row->setSpacing(8);
    if (!symbol.isNull()) {
        auto* icon = new QLabel(frame);
        icon->setPixmap(symbol.pixmap(18, 18));
        row->addWidget(icon, 0, Qt::AlignTop);
    }
    text = new QVBoxLayout;
    text->setSpacing(2);
    row->addLayout(text, 1);
    frame->hide();
    return frame;
}

} // namespace

std::string Banners::retakeHeading() {
    return "Recording replaced — canvas, cursor and caption styling kept.";
}

std::string Banners::retakeSummary(const RetakeSwap::Report& report) {
    std::string summary = std::to_string(report.regeneratedBeats) +
                          (report.regeneratedBeats == 1 ? " zoom beat" : " zoom beats") +
                          " regenerated from the new take";
    if (report.remappedBeats >= 1) {
        summary += " · " + std::to_string(report.remappedBeats);
        if (report.needsReview()) {
            const double percent =
                report.previousDuration > 0 ? report.newDuration / report.previousDuration * 100 : 100;
            char text[32];
            std::snprintf(text, sizeof text, "%.0f%%", percent);
            summary += std::string(" hand-edited moved to ") + text + " of their old timing — worth checking";
        } else {
            summary += " hand-edited kept";
        }
    }
    if (report.captionsCleared) {
        summary += " · captions cleared, regenerate them";
    }
    return summary;
}

Banners::Banners(EditorSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    QVBoxLayout* text = nullptr;
    QHBoxLayout* row = nullptr;

    m_telemetry = banner(yellow, {}, this, text, row);
    m_telemetryText = wrappingLabel(m_telemetry);
    text->addWidget(m_telemetryText);

    m_error = banner(red, themeIcon({"dialog-error", "dialog-error-symbolic"}), this, text, row);
    m_errorText = wrappingLabel(m_error);
    text->addWidget(m_errorText);

    m_retake = banner(green, {}, this, text, row);
    m_retakeHeading = wrappingLabel(m_retake);
    QFont bold = m_retakeHeading->font();
    bold.setBold(true);
    m_retakeHeading->setFont(bold);
    m_retakeText = wrappingLabel(m_retake);
    text->addWidget(m_retakeHeading);
    text->addWidget(m_retakeText);
    m_dismissRetake = new QPushButton(tr("Dismiss"), m_retake);
    row->addWidget(m_dismissRetake, 0, Qt::AlignVCenter);
    connect(m_dismissRetake, &QPushButton::clicked, &session,
            [&session] { session.setRetakeReport(std::nullopt); });

    m_audio = banner(yellow,
                     themeIcon({"microphone-sensitivity-muted", "audio-input-microphone-muted",
                                "microphone-sensitivity-muted-symbolic"}),
                     this, text, row);
    m_audioText = wrappingLabel(m_audio);
    text->addWidget(m_audioText);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(1);
    for (QFrame* each : {m_telemetry, m_error, m_retake, m_audio}) {
        column->addWidget(each);
    }

    connect(&session, &EditorSession::lastErrorChanged, this, &Banners::followError);
    connect(&session, &EditorSession::retakeReportChanged, this, &Banners::followRetake);
    // The warning reads the document's capture choices and the probed track count.
    connect(&session, &EditorSession::documentChanged, this, &Banners::followAudio);
    connect(&session, &EditorSession::audioTrackCountChanged, this, &Banners::followAudio);
    followTelemetry();
    followError();
    followRetake();
    followAudio();
}

void Banners::followTelemetry() {
    switch (m_session.telemetryAvailability()) {
    case TelemetryAvailability::full:
        m_telemetry->hide();
        return;
    case TelemetryAvailability::positionOnly:
        // On X11 the RECORD extension is missing, so the capturer can only poll where the pointer is; on
        // Wayland the input devices can't be read, so the clicks and keys are missing.
        m_telemetryText->setText(
            sessionCaptureBackend() == CaptureBackend::wayland
                ? tr("Cursor positions only. Join the input group (then log in again) for click-aware "
                     "auto-zoom.")
                : tr("Cursor positions only. Enable the X server's RECORD extension for click-aware "
                     "auto-zoom."));
        break;
    case TelemetryAvailability::none:
        m_telemetryText->setText(tr("Auto-zoom is unavailable for this capture source."));
        break;
    }
    m_telemetry->show();
}

void Banners::followError() {
    const auto& error = m_session.lastError();
    if (error) {
        m_errorText->setText(QString::fromStdString(*error));
    }
    m_error->setVisible(error.has_value());
}

void Banners::followRetake() {
    const auto& report = m_session.retakeReport();
    if (report) {
        paint(m_retake, report->needsReview() ? orange : green);
        m_retakeHeading->setText(QString::fromStdString(retakeHeading()));
        m_retakeText->setText(QString::fromStdString(retakeSummary(*report)));
    }
    m_retake->setVisible(report.has_value());
}

void Banners::followAudio() {
    const auto warning = m_session.audioWarning();
    if (warning) {
        m_audioText->setText(QString::fromStdString(*warning));
    }
    m_audio->setVisible(warning.has_value());
}

} // namespace marlowick
