#include "ui/CanvasPreview.h"

#include "session/EditorSession.h"
#include "ui/CanvasWidget.h"
#include "ui/ZoomRail.h"

#include <QEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace marlowick {

namespace {

// The slider's steps over the timeline: fine enough for a hundredth of a second over ten minutes.
constexpr int playheadSteps = 60000;

QToolButton* transportButton(const QString& icon, const QString& help, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(QIcon::fromTheme(icon));
    button->setToolTip(help);
    button->setAutoRaise(false);
    return button;
}

} // namespace

std::string CanvasPreview::timecode(double seconds) {
    const double t = std::max(seconds, 0.0);
    const auto whole = static_cast<long long>(t);
    const long long minutes = whole / 60;
    const long long secs = whole - 60 * minutes;
    const auto hundredths = static_cast<long long>((t - std::floor(t)) * 100);
    char text[48];
    std::snprintf(text, sizeof text, "%lld:%02lld.%02lld", minutes, secs, hundredths);
    return text;
}

CanvasPreview::CanvasPreview(EditorSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    // The stage is black; the canvas sits in it at the project's shape.
    m_stage = new QWidget(this);
    m_stage->setAutoFillBackground(true);
    QPalette stagePalette = m_stage->palette();
    stagePalette.setColor(QPalette::Window, Qt::black);
    m_stage->setPalette(stagePalette);
    m_stage->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_stage->setMinimumSize(320, 180);
    m_stage->installEventFilter(this);
    m_canvas = new CanvasWidget(m_stage);
    m_canvas->setPlayback(session.playback());

    auto* back = transportButton("media-seek-backward", tr("Back 5 seconds"), this);
    m_play = transportButton("media-playback-start", tr("Play (Space)"), this);
    m_play->setAccessibleName(tr("Play"));
    m_play->setIconSize(QSize(26, 26));
    m_play->setFixedSize(34, 34);
    auto* forward = transportButton("media-seek-forward", tr("Forward 5 seconds"), this);
    const QFont digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_time = new QLabel(this);
    m_time->setFont(digits);
    m_duration = new QLabel(this);
    m_duration->setFont(digits);
    m_playhead = new QSlider(Qt::Horizontal, this);
    m_playhead->setRange(0, playheadSteps);
    m_playhead->setAccessibleName(tr("Playhead"));

    auto* transport = new QHBoxLayout;
    transport->setSpacing(14);
    transport->addWidget(back);
    transport->addWidget(m_play);
    transport->addWidget(forward);
    transport->addWidget(m_time);
    transport->addWidget(m_playhead, 1);
    transport->addWidget(m_duration);
    // Top to bottom: the picture, the transport, and the zooms on the edited timeline.
    auto* column = new QVBoxLayout(this);
    column->addWidget(m_stage, 1);
    column->addLayout(transport);
    auto* rail = new ZoomRail(this);
    rail->follow(session);
    column->addWidget(rail);

    PlaybackEngine* playback = session.playback();
    connect(back, &QToolButton::clicked, this, [playback] { playback->seek(playback->currentTime() - 5); });
    connect(forward, &QToolButton::clicked, this,
            [playback] { playback->seek(playback->currentTime() + 5); });
    connect(m_play, &QToolButton::clicked, this, &CanvasPreview::togglePlaying);
    connect(m_playhead, &QSlider::valueChanged, this, [this, playback](int value) {
        const double length = std::max(playback->duration(), 0.1);
        playback->seek(length * value / playheadSteps);
    });
    // The space bar is the window's (its Play command), wherever the focus is.
    setFocusPolicy(Qt::StrongFocus);

    connect(playback, &PlaybackEngine::currentTimeChanged, this, &CanvasPreview::followPlayhead);
    connect(playback, &PlaybackEngine::durationChanged, this, &CanvasPreview::followPlayhead);
    connect(playback, &PlaybackEngine::isPlayingChanged, this, [this](bool playing) {
        m_play->setIcon(QIcon::fromTheme(playing ? "media-playback-pause" : "media-playback-start"));
        m_play->setToolTip(playing ? tr("Pause (Space)") : tr("Play (Space)"));
        m_play->setAccessibleName(playing ? tr("Pause") : tr("Play"));
        followPlayhead();
    });
    connect(&session, &EditorSession::documentChanged, this, &CanvasPreview::followDocument);
    followDocument();
    followPlayhead();
}

void CanvasPreview::followDocument() {
    const auto& document = m_session.document();
    if (!document) {
        m_canvas->setTimeline(std::nullopt);
        return;
    }
    m_canvas->setTimeline(OutputTimeline(document->project, document->telemetry()));
    const Size shape = marlowick::size(document->project.canvas.ratio);
    m_aspect = shape.height > 0 ? shape.width / shape.height : 16.0 / 9.0;
    placeCanvas();
}

void CanvasPreview::followPlayhead() {
    // While the player plays this comes at the display's rate: each control is drawn again only when
    // what it shows changes.
    const PlaybackEngine* playback = m_session.playback();
    const double length = std::max(playback->duration(), 0.1);
    const auto setText = [](QLabel* label, const std::string& text) {
        const QString shown = QString::fromStdString(text);
        if (label->text() != shown) {
            label->setText(shown);
        }
    };
    setText(m_time, timecode(playback->currentTime()));
    setText(m_duration, timecode(playback->duration()));
    const int value = static_cast<int>(std::lround(playback->currentTime() / length * playheadSteps));
    // Playing, the slider moves when its handle would move by a pixel; paused, it takes the exact value.
    const auto pixel = [this](int at) {
        return QStyle::sliderPositionFromValue(m_playhead->minimum(), m_playhead->maximum(), at,
                                               m_playhead->width());
    };
    if (playback->isPlaying() && pixel(value) == pixel(m_playhead->value())) {
        return;
    }
    const QSignalBlocker quiet(m_playhead);
    m_playhead->setValue(value);
}

void CanvasPreview::togglePlaying() {
    PlaybackEngine* playback = m_session.playback();
    if (playback->isPlaying()) {
        playback->pause();
    } else {
        playback->play();
    }
}

bool CanvasPreview::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_stage && event->type() == QEvent::Resize) {
        placeCanvas();
    }
    return QWidget::eventFilter(watched, event);
}

void CanvasPreview::placeCanvas() {
    const QSize room = m_stage->size();
    int width = room.width();
    int height = static_cast<int>(std::lround(width / m_aspect));
    if (height > room.height()) {
        height = room.height();
        width = static_cast<int>(std::lround(height * m_aspect));
    }
    m_canvas->setGeometry((room.width() - width) / 2, (room.height() - height) / 2, width, height);
}

} // namespace marlowick
