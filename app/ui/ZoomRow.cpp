#include "ui/ZoomRow.h"

#include "session/EditorSession.h"
#include "ui/ZoomClock.h"

#include <QDoubleSpinBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>

namespace marlowick {

namespace {

const QColor orange(0xF2, 0x8C, 0x28);
// The fields' limits and steps.
constexpr double deepest = 3.0;
constexpr double shallowest = 1.05;
constexpr double shortestRamp = 0.05;
constexpr double longestRamp = 2.0;
constexpr double fieldStep = 0.05;
// The time fields take any time; the write holds it to the timeline.
constexpr double latestTime = 24 * 3600;

// The beat's dot: orange once a person has edited it, the accent colour while it is the director's.
class BeatDot : public QWidget {
public:
    explicit BeatDot(QWidget* parent)
        : QWidget(parent) {
        setFixedSize(7, 7);
    }
    void setEdited(bool edited) {
        m_edited = edited;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_edited ? orange : palette().color(QPalette::Highlight));
        painter.drawEllipse(QRectF(0, 0, 7, 7));
    }

private:
    bool m_edited = false;
};

QDoubleSpinBox* field(const QString& name, double lowest, double highest, double step, QWidget* parent) {
    auto* box = new QDoubleSpinBox(parent);
    box->setAccessibleName(name);
    box->setRange(lowest, highest);
    box->setDecimals(2);
    box->setSingleStep(step);
    // A value is written when it is entered or stepped, not at every keystroke.
    box->setKeyboardTracking(false);
    return box;
}

QString format(const char* pattern, double a, double b = 0) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, a, b);
    return QString::fromUtf8(text);
}

} // namespace

ZoomRow::ZoomRow(EditorSession& session, QWidget* parent)
    : QFrame(parent)
    , m_session(session) {
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);

    auto* dot = new BeatDot(this);
    m_dot = dot;
    const QFont digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_range = new QLabel(this);
    m_range->setFont(digits);
    m_depth = new QLabel(this);
    m_depth->setFont(digits);
    auto* seek = new QToolButton(this);
    seek->setIcon(QIcon::fromTheme("go-last", QIcon::fromTheme("go-jump")));
    seek->setToolTip(tr("Move the playhead here"));
    seek->setAccessibleName(tr("Move the playhead here"));
    seek->setAutoRaise(true);
    auto* remove = new QToolButton(this);
    remove->setIcon(QIcon::fromTheme("edit-delete"));
    remove->setAccessibleName(tr("Delete"));
    remove->setAutoRaise(true);

    auto* line = new QHBoxLayout;
    line->setSpacing(8);
    line->addWidget(m_dot);
    line->addWidget(m_range);
    line->addWidget(m_depth);
    line->addStretch(1);
    line->addWidget(seek);
    line->addWidget(remove);

    m_details = new QWidget(this);
    m_start = field(tr("Start"), 0, latestTime, 0.01, m_details);
    m_start->setSuffix(" s");
    m_end = field(tr("End"), 0, latestTime, 0.01, m_details);
    m_end->setSuffix(" s");
    m_scale = field(tr("Depth"), shallowest, deepest, fieldStep, m_details);
    m_scale->setSuffix(QString::fromUtf8("×"));
    m_rampIn = field(tr("Ease in"), shortestRamp, longestRamp, fieldStep, m_details);
    m_rampIn->setSuffix(" s");
    m_rampOut = field(tr("Ease out"), shortestRamp, longestRamp, fieldStep, m_details);
    m_rampOut->setSuffix(" s");
    auto* form = new QFormLayout(m_details);
    form->setContentsMargins(15, 4, 0, 0);
    form->addRow(tr("Start"), m_start);
    form->addRow(tr("End"), m_end);
    form->addRow(tr("Depth"), m_scale);
    form->addRow(tr("Ease in"), m_rampIn);
    form->addRow(tr("Ease out"), m_rampOut);
    m_details->hide();

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 4, 4, 6);
    column->setSpacing(2);
    column->addLayout(line);
    column->addWidget(m_details);

    connect(seek, &QToolButton::clicked, this, [this] {
        m_session.playback()->seek(m_beat.start);
        m_session.setSelectedBeat(m_beat.id);
    });
    connect(remove, &QToolButton::clicked, this, [this] { m_session.deleteBeat(m_beat.id); });
    connect(m_start, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        write([&](ZoomBeat& beat) {
            beat.start = std::min(std::max(value, 0.0), beat.end - ZoomBeat::minimumDuration);
        });
    });
    connect(m_end, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        write([&](ZoomBeat& beat) {
            beat.end = std::max(std::min(value, m_duration), beat.start + ZoomBeat::minimumDuration);
        });
    });
    connect(m_scale, &QDoubleSpinBox::valueChanged, this,
            [this](double value) { write([&](ZoomBeat& beat) { beat.scale = value; }); });
    connect(m_rampIn, &QDoubleSpinBox::valueChanged, this,
            [this](double value) { write([&](ZoomBeat& beat) { beat.rampIn = value; }); });
    connect(m_rampOut, &QDoubleSpinBox::valueChanged, this,
            [this](double value) { write([&](ZoomBeat& beat) { beat.rampOut = value; }); });
}

void ZoomRow::showBeat(const ZoomBeat& beat, int index, double duration, bool isSelected, bool hiddenByCut) {
    m_beat = beat;
    m_duration = duration;
    m_isSelected = isSelected;
    setAccessibleName(tr("Zoom %1").arg(index + 1));
    static_cast<BeatDot*>(m_dot)->setEdited(!beat.isGenerated);
    m_range->setText(hiddenByCut ? format("%.2f · ", beat.start) + tr("hidden by a cut")
                                 : format("%.2f – %.2f", beat.start, beat.end));
    m_start->setEnabled(!hiddenByCut);
    m_end->setEnabled(!hiddenByCut);
    m_depth->setText(format("%.1f×", beat.scale));
    setBackgroundRole(isSelected ? QPalette::AlternateBase : QPalette::Base);
    setFrameShadow(isSelected ? QFrame::Sunken : QFrame::Plain);
    // The fields show the beat as written, without writing it again.
    const std::pair<QDoubleSpinBox*, double> fields[] = {{m_start, beat.start},
                                                         {m_end, beat.end},
                                                         {m_scale, beat.scale},
                                                         {m_rampIn, beat.rampIn},
                                                         {m_rampOut, beat.rampOut}};
    for (const auto& [box, value] : fields) {
        const QSignalBlocker quiet(box);
        box->setValue(value);
    }
    m_details->setVisible(isSelected);
}

void ZoomRow::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_session.setSelectedBeat(m_beat.id);
        event->accept();
        return;
    }
    QFrame::mousePressEvent(event);
}

void ZoomRow::write(const std::function<void(ZoomBeat&)>& change) {
    ZoomBeat edited = m_beat;
    change(edited);
    // A field's steps (a spin box held down) are one step of the history.
    m_session.editProject(
        "Edit Zoom", [&](Project& project) { project.camera.update(ZoomClock(project).stored(edited)); },
        "zoom-row:" + edited.id.toString());
}

} // namespace marlowick
