#include "ui/ZoomRail.h"

#include "session/EditorSession.h"
#include "ui/ZoomClock.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace marlowick {

namespace {

const QColor orange(0xF2, 0x8C, 0x28);
// The least movement, in pixels, that makes a press a drag rather than a tap.
constexpr double dragDistance = 2;
// The depth at which a block fills the strip: the largest scale the director gives.
constexpr double deepestScale = 2.6;

QColor withAlpha(QColor colour, double alpha) {
    colour.setAlphaF(static_cast<float>(alpha));
    return colour;
}

// Tells assistive technology the number of beats as the rail's value.
class ZoomRailAccessible : public QAccessibleWidget {
public:
    explicit ZoomRailAccessible(ZoomRail* rail)
        : QAccessibleWidget(rail, QAccessible::Slider, QObject::tr("Zoom rail")) {}

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Value) {
            const auto* rail = static_cast<const ZoomRail*>(widget());
            return QObject::tr("%1 zoom beats").arg(static_cast<long long>(rail->track().beats.size()));
        }
        return QAccessibleWidget::text(kind);
    }
};

QAccessibleInterface* railAccessible(const QString& className, QObject* object) {
    if (className == QLatin1String("marlowick::ZoomRail") && object && object->isWidgetType()) {
        return new ZoomRailAccessible(static_cast<ZoomRail*>(object));
    }
    return nullptr;
}

} // namespace

ZoomRail::ZoomRail(QWidget* parent)
    : QWidget(parent) {
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(railAccessible);
        return true;
    }();
    (void)factoryInstalled;
    setAccessibleName(tr("Zoom rail"));
    setFixedHeight(stripHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(false);
}

void ZoomRail::follow(EditorSession& session) {
    PlaybackEngine* playback = session.playback();
    auto followDocument = [this, &session] {
        const auto& document = session.document();
        if (!document) {
            setTrack({});
            setDuration(0);
            return;
        }
        const ZoomClock clock(document->project);
        setTrack(clock.shown());
        setDuration(clock.duration());
    };
    auto followCutMarks = [this, &session] { setCutMarks(session.selectionStart(), session.selectionEnd()); };
    connect(&session, &EditorSession::documentChanged, this, followDocument);
    connect(&session, &EditorSession::selectionStartChanged, this, followCutMarks);
    connect(&session, &EditorSession::selectionEndChanged, this, followCutMarks);
    connect(&session, &EditorSession::waveformChanged, this,
            [this, &session] { setWaveform(session.waveform()); });
    connect(&session, &EditorSession::selectedBeatChanged, this,
            [this, &session] { setSelection(session.selectedBeat()); });
    connect(playback, &PlaybackEngine::currentTimeChanged, this, &ZoomRail::setTime);

    connect(this, &ZoomRail::scrubbed, playback, &PlaybackEngine::seek);
    connect(this, &ZoomRail::selectionChanged, &session, &EditorSession::setSelectedBeat);
    connect(this, &ZoomRail::deleteRequested, &session, &EditorSession::deleteBeat);
    connect(this, &ZoomRail::beatEdited, &session, [&session](const ZoomBeat& beat) {
        session.editProject("Move Zoom",
                            [&](Project& project) { project.camera.update(ZoomClock(project).stored(beat)); });
    });
    connect(this, &ZoomRail::addRequested, &session, [&session](double time) {
        if (const auto& document = session.document()) {
            session.addBeat(ZoomClock(document->project).sourceTime(time));
        }
    });

    followDocument();
    followCutMarks();
    setWaveform(session.waveform());
    setSelection(session.selectedBeat());
    setTime(playback->currentTime());
}

void ZoomRail::setTrack(CameraTrack track) {
    m_track = std::move(track);
    update();
}

void ZoomRail::setDuration(double seconds) {
    m_duration = seconds;
    update();
}

void ZoomRail::setTime(double seconds) {
    // While the player plays this comes at the display's rate: only the strips the playhead leaves and
    // enters are drawn again, and nothing where it stays on the same pixels.
    const auto strip = [this](double time) {
        const int x = static_cast<int>(std::floor(width() * fraction(time)));
        return QRect(x - 2, 0, 5, height());
    };
    const QRect before = strip(m_time);
    m_time = seconds;
    const QRect after = strip(m_time);
    if (after != before) {
        update(before.united(after));
    }
}

void ZoomRail::setSelection(std::optional<Uuid> id) {
    if (m_selection != id) {
        m_selection = id;
        update();
    }
}

void ZoomRail::setCutMarks(std::optional<double> cutIn, std::optional<double> cutOut) {
    m_cutIn = cutIn;
    m_cutOut = cutOut;
    update();
}

void ZoomRail::setWaveform(std::vector<float> peaks) {
    m_waveform = std::move(peaks);
    update();
}

std::vector<ZoomBeat> ZoomRail::displayedBeats() const {
    std::vector<ZoomBeat> beats = m_track.beats;
    if (m_dragging) {
        for (ZoomBeat& beat : beats) {
            if (beat.id == m_dragging->id) {
                beat = m_dragging->beat;
            }
        }
    }
    return beats;
}

double ZoomRail::fraction(double seconds) const {
    if (!(m_duration > 0)) {
        return 0;
    }
    return std::clamp(seconds / m_duration, 0.0, 1.0);
}

QRectF ZoomRail::block(const ZoomBeat& beat) const {
    const double w = width();
    const double h = height();
    const double left = fraction(beat.start) * w;
    const double right = fraction(beat.end) * w;
    // The deepest beat the director makes fills the strip; the shallowest still shows.
    const double depth = std::clamp((beat.scale - 1) / (deepestScale - 1), 0.12, 1.0);
    return QRectF(left, h - h * depth, std::max(right - left, 0.0), h * depth);
}

std::optional<ZoomRail::Hit> ZoomRail::hitAt(QPointF point) const {
    const std::vector<ZoomBeat> beats = displayedBeats();
    // The last block drawn lies on top.
    for (auto beat = beats.rbegin(); beat != beats.rend(); ++beat) {
        const QRectF box = block(*beat);
        if (!box.contains(point)) {
            continue;
        }
        const bool onLeading = point.x() < box.left() + handleWidth;
        const bool onTrailing = point.x() >= box.right() - handleWidth;
        // On a block narrower than both handles, the nearer edge wins.
        if (onLeading && onTrailing) {
            const bool nearerLeading = point.x() - box.left() <= box.right() - point.x();
            return Hit{beat->id, nearerLeading ? Handle::leading : Handle::trailing};
        }
        if (onLeading) {
            return Hit{beat->id, Handle::leading};
        }
        if (onTrailing) {
            return Hit{beat->id, Handle::trailing};
        }
        return Hit{beat->id, Handle::body};
    }
    return std::nullopt;
}

std::optional<ZoomBeat> ZoomRail::drag(Uuid id, Handle handle, double dx) const {
    // Always from the stored beat and the whole movement since the press, never from the provisional
    // beat, so that rounding doesn't pile up over the moves of one drag.
    const auto stored = std::find_if(m_track.beats.begin(), m_track.beats.end(),
                                     [&](const ZoomBeat& beat) { return beat.id == id; });
    if (stored == m_track.beats.end() || width() <= 0) {
        return std::nullopt;
    }
    const double delta = m_duration * dx / width();
    const double s = stored->start;
    const double e = stored->end;
    ZoomBeat moved = *stored;
    switch (handle) {
    case Handle::body: {
        // The length is kept, and the block stops at the strip's ends.
        const double d = std::min(std::max(delta, -s), m_duration - e);
        moved.start = s + d;
        moved.end = e + d;
        break;
    }
    case Handle::leading:
        moved.start = std::min(std::max(s + delta, 0.0), e - ZoomBeat::minimumDuration);
        break;
    case Handle::trailing:
        moved.end = std::max(std::min(e + delta, m_duration), s + ZoomBeat::minimumDuration);
        break;
    }
    return moved;
}

void ZoomRail::select(std::optional<Uuid> id) {
    if (m_selection != id) {
        m_selection = id;
        update();
        emit selectionChanged(id);
    }
}

void ZoomRail::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_pressed = true;
    m_moved = false;
    m_pressAt = event->position();
    m_pressHit = hitAt(m_pressAt);
    event->accept();
}

void ZoomRail::mouseMoveEvent(QMouseEvent* event) {
    if (!m_pressed) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    const QPointF translation = event->position() - m_pressAt;
    if (!m_moved && std::hypot(translation.x(), translation.y()) >= dragDistance) {
        m_moved = true;
    }
    if (m_moved && m_pressHit) {
        if (std::optional<ZoomBeat> moved = drag(m_pressHit->id, m_pressHit->handle, translation.x())) {
            m_dragging = Dragging{m_pressHit->id, *moved};
            select(m_pressHit->id);
            update();
        }
    }
    event->accept();
}

void ZoomRail::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !m_pressed) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    m_pressed = false;
    event->accept();
    if (m_dragging) {
        const ZoomBeat beat = m_dragging->beat;
        m_dragging.reset();
        update();
        emit beatEdited(beat);
        return;
    }
    if (m_moved) {
        // A drag over the bare strip, or of a beat that went away meanwhile: nothing.
        return;
    }
    if (m_pressHit) {
        select(m_pressHit->id);
        return;
    }
    select(std::nullopt);
    const double w = width();
    const double x = std::clamp(m_pressAt.x(), 0.0, w);
    emit scrubbed(w > 0 ? x / w * m_duration : 0);
}

void ZoomRail::contextMenuEvent(QContextMenuEvent* event) {
    QMenu menu(this);
    // At the playhead, wherever the pointer stands: the playhead is where the person looks.
    const double at = m_time;
    connect(menu.addAction(tr("Add Zoom Here")), &QAction::triggered, this,
            [this, at] { emit addRequested(at); });
    menu.exec(event->globalPos());
    event->accept();
}

void ZoomRail::keyPressEvent(QKeyEvent* event) {
    // The delete key alone: with a modifier it is another command's (Ctrl+Delete cuts the marked stretch).
    const bool isDelete = (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) &&
                          (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    if (!isDelete) {
        QWidget::keyPressEvent(event);
        return;
    }
    if (m_selection) {
        emit deleteRequested(*m_selection);
    }
    event->accept();
}

bool ZoomRail::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        if (const std::optional<Hit> hit = hitAt(help->pos())) {
            for (const ZoomBeat& beat : displayedBeats()) {
                if (beat.id == hit->id) {
                    char text[96];
                    std::snprintf(text, sizeof text, "%.2fs – %.2fs at %.1f×", beat.start, beat.end,
                                  beat.scale);
                    QToolTip::showText(help->globalPos(), QString::fromUtf8(text), this);
                    return true;
                }
            }
        }
        QToolTip::hideText();
        event->ignore();
        return true;
    }
    return QWidget::event(event);
}

void ZoomRail::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double w = width();
    const double h = height();
    const QPalette& colours = palette();

    // The strip's base, with the waveform over it.
    painter.setPen(Qt::NoPen);
    painter.setBrush(withAlpha(colours.color(QPalette::PlaceholderText), 0.14));
    painter.drawRoundedRect(QRectF(0, 0, w, h), 5, 5);
    if (!m_waveform.empty()) {
        const double column = w / static_cast<double>(m_waveform.size());
        painter.setBrush(withAlpha(colours.color(QPalette::PlaceholderText), 0.35));
        for (std::size_t i = 0; i < m_waveform.size(); ++i) {
            const double height = std::max(h * m_waveform[i] * 0.9, 1.0);
            painter.drawRect(QRectF(static_cast<double>(i) * column, (h - height) / 2,
                                    std::max(column - 0.5, 0.5), height));
        }
    }

    // The blocks, in the track's order.
    const std::optional<Uuid> selected = m_selection;
    for (const ZoomBeat& beat : displayedBeats()) {
        const QRectF box = block(beat);
        const bool isSelected = selected && *selected == beat.id;
        painter.setBrush(beat.isGenerated ? withAlpha(colours.color(QPalette::Highlight), 0.45)
                                          : withAlpha(orange, 0.55));
        painter.setPen(isSelected ? QPen(colours.color(QPalette::WindowText), 1.5) : QPen(Qt::NoPen));
        painter.drawRoundedRect(box, 4, 4);
        if (isSelected) {
            // The handles show on the selected block only; elsewhere they still take the pointer.
            painter.setPen(Qt::NoPen);
            painter.setBrush(withAlpha(Qt::white, 0.9));
            const double barHeight = std::min(box.height() * 0.6, 22.0);
            const double barTop = box.center().y() - barHeight / 2;
            const double leading = std::min(box.left() + handleWidth / 2.0, box.center().x());
            const double trailing = std::max(box.right() - handleWidth / 2.0, box.center().x());
            painter.drawRoundedRect(QRectF(leading - 1.5, barTop, 3, barHeight), 1.5, 1.5);
            painter.drawRoundedRect(QRectF(trailing - 1.5, barTop, 3, barHeight), 1.5, 1.5);
        }
    }

    // The marks of a cut in progress, in whichever order they were set, and never less than a pixel.
    painter.setPen(Qt::NoPen);
    if (m_cutIn && m_cutOut) {
        const double from = fraction(std::min(*m_cutIn, *m_cutOut)) * w;
        const double to = fraction(std::max(*m_cutIn, *m_cutOut)) * w;
        painter.setBrush(withAlpha(orange, 0.3));
        painter.drawRect(QRectF(from, 0, std::max(to - from, 1.0), h));
    }

    // The playhead, a bar centred on the time.
    painter.setBrush(orange);
    painter.drawRect(QRectF(w * fraction(m_time) - 1, 0, 2, h));
}

} // namespace marlowick
