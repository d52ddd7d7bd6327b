#include "ui/InspectorScreenTab.h"

#include "session/EditorSession.h"
#include "ui/InspectorCutSection.h"
#include "ui/InspectorExportSection.h"
#include "ui/InspectorSlider.h"
#include "ui/ZoomClock.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

#include <cmath>

namespace marlowick {

namespace {

// The swatch grid: seven columns of 30-pixel cells, 6 pixels apart.
constexpr int swatchColumns = 7;
constexpr int swatchCell = 30;
constexpr int swatchGap = 6;

// The colour a swatch's cell shows; none for a transparent one.
std::optional<QColor> swatchColour(const Background& background) {
    return std::visit(
        [](const auto& value) -> std::optional<QColor> {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, Background::Solid>) {
                return QColor(QString::fromStdString(value.hex));
            } else if constexpr (std::is_same_v<T, Background::LinearGradient>) {
                return QColor(QString::fromStdString(value.from));
            } else if constexpr (std::is_same_v<T, Background::MeshGradient>) {
                return QColor(QString::fromStdString(value.stops.empty() ? "#101014" : value.stops.front()));
            } else if constexpr (std::is_same_v<T, Background::Transparent>) {
                return std::nullopt;
            } else {
                return QColor(Qt::gray);
            }
        },
        background.value);
}

bool sameBackground(const Background& a, const Background& b) {
    if (a.value.index() != b.value.index()) {
        return false;
    }
    if (const auto* solid = std::get_if<Background::Solid>(&a.value)) {
        return QString::fromStdString(solid->hex)
                   .compare(QString::fromStdString(std::get<Background::Solid>(b.value).hex),
                            Qt::CaseInsensitive) == 0;
    }
    if (const auto* gradient = std::get_if<Background::LinearGradient>(&a.value)) {
        const auto& other = std::get<Background::LinearGradient>(b.value);
        return gradient->from == other.from && gradient->to == other.to && gradient->angle == other.angle;
    }
    return a.value.index() == 0;
}

} // namespace

InspectorScreenTab::InspectorScreenTab(EditorSession& session, QWidget* parent)
    : InspectorPage(session, parent) {
    buildFormat();
    buildRecording();
    new InspectorCutSection(*this, session);
    buildAutoZoom();
    buildSelectedZoom();
    buildDevice();
    buildPerspective();
    buildCursor();
    buildBackground();
    new InspectorExportSection(*this, session);
    finishSections();
    for (auto signal : {&EditorSession::documentChanged, &EditorSession::selectionStartChanged,
                        &EditorSession::selectionEndChanged, &EditorSession::selectedBeatChanged,
                        &EditorSession::lastExportUrlChanged}) {
        connect(&session, signal, this, &InspectorPage::refresh);
    }
    refresh();
}

void InspectorScreenTab::buildFormat() {
    QVBoxLayout* rows = addSection(tr("Format"));
    QComboBox* shape = addPicker(rows, tr("Shape"));
    for (const auto& [ratio, name] : EnumNames<AspectRatio>::names) {
        shape->addItem(QString::fromUtf8(displayName(ratio).data(), qsizetype(displayName(ratio).size())),
                       static_cast<int>(ratio));
    }
    connect(shape, &QComboBox::activated, this, [this, shape] {
        const auto ratio = static_cast<AspectRatio>(shape->currentData().toInt());
        edit(tr("Aspect Ratio"), [&](Project& project) { project.canvas.ratio = ratio; });
    });
    QComboBox* framing = addPicker(rows, tr("Framing"));
    for (const auto& [mode, name] : EnumNames<ContentMode>::names) {
        framing->addItem(QString::fromUtf8(displayName(mode).data(), qsizetype(displayName(mode).size())),
                         static_cast<int>(mode));
    }
    connect(framing, &QComboBox::activated, this, [this, framing] {
        const auto mode = static_cast<ContentMode>(framing->currentData().toInt());
        edit(tr("Framing"), [&](Project& project) { project.canvas.contentMode = mode; });
    });
    QLabel* summaryText = addText(rows, {}, true);

    // The anchor belongs to a filled frame; in fit mode it is hidden and kept.
    auto* fillOnly = new QWidget(rows->parentWidget());
    auto* fillRows = new QVBoxLayout(fillOnly);
    fillRows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(fillOnly);
    addSlider(
        fillRows, tr("Across"), 0, 1, [](const Project& p) { return p.canvas.contentAnchor.x; },
        [](Project& p, double v) { p.canvas.contentAnchor.x = v; });
    addSlider(
        fillRows, tr("Down"), 0, 1, [](const Project& p) { return p.canvas.contentAnchor.y; },
        [](Project& p, double v) { p.canvas.contentAnchor.y = v; });
    QHBoxLayout* anchorLine = addLine(fillRows);
    auto* anchorText = new QLabel(fillOnly);
    auto* centre = new QPushButton(tr("Centre"), fillOnly);
    centre->setAutoDefault(false);
    anchorLine->addWidget(anchorText, 1);
    anchorLine->addWidget(centre);
    connect(centre, &QPushButton::clicked, this, [this] {
        edit(tr("Center Framing"), [](Project& project) { project.canvas.contentAnchor = {0.5, 0.5}; });
    });
    addText(fillRows, tr("Where the frame sits when the camera is idle. Zooms take over."), true);
    addText(rows, tr("The preview is composed at this shape. Exports below match it."), true);

    follow([this, shape, framing, summaryText, fillOnly, anchorText] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const Canvas& canvas = document->project.canvas;
        const QSignalBlocker quietShape(shape);
        const QSignalBlocker quietFraming(framing);
        shape->setCurrentIndex(shape->findData(static_cast<int>(canvas.ratio)));
        framing->setCurrentIndex(framing->findData(static_cast<int>(canvas.contentMode)));
        const std::string_view text = summary(canvas.contentMode);
        summaryText->setText(QString::fromUtf8(text.data(), qsizetype(text.size())));
        fillOnly->setVisible(canvas.contentMode == ContentMode::fill);
        anchorText->setText(
            format("%.0f%% across, %.0f%% down", canvas.contentAnchor.x * 100, canvas.contentAnchor.y * 100));
    });
}

void InspectorScreenTab::buildRecording() {
    QVBoxLayout* rows = addSection(tr("Recording"));
    QLabel* length = addValue(rows, tr("Length"));
    QLabel* source = addValue(rows, tr("Source"));
    QPushButton* retake = addButton(rows, tr("Re-record, Keep the Edit"),
                                    tr("Record again. Your look and settings carry over."));
    QPushButton* replace =
        addButton(rows, tr("Replace with a Video File…"), tr("Swap in an existing movie and keep the edit"));
    QPushButton* open = addButton(rows, tr("Open Another Project…"));
    connect(retake, &QPushButton::clicked, this, &InspectorScreenTab::retakeRequested);
    connect(replace, &QPushButton::clicked, &m_session, &EditorSession::replaceRecordingFromFile);
    connect(open, &QPushButton::clicked, &m_session, &EditorSession::open);
    follow([this, length, source] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const Recording& recording = document->project.source;
        const int seconds = static_cast<int>(recording.duration);
        length->setText(format("%d:%02d", seconds / 60, seconds % 60));
        source->setText(format("%lld×%lld", static_cast<long long>(recording.size.width),
                               static_cast<long long>(recording.size.height)));
    });
}

void InspectorScreenTab::buildAutoZoom() {
    QVBoxLayout* rows = addSection(tr("Auto-zoom"));
    QComboBox* style = addPicker(rows, tr("Style"));
    for (const auto& [value, name] : EnumNames<CameraTrack::Style>::names) {
        style->addItem(QString::fromUtf8(displayName(value).data(), qsizetype(displayName(value).size())),
                       static_cast<int>(value));
    }
    connect(style, &QComboBox::activated, this, [this, style] {
        if (!filling()) {
            m_session.setZoomStyle(static_cast<CameraTrack::Style>(style->currentData().toInt()));
        }
    });
    QLabel* summaryText = addText(rows, {}, true);

    auto* zooms = new QPushButton(rows->parentWidget());
    zooms->setAutoDefault(false);
    zooms->setToolTip(tr("Edit every zoom, with exact start and end times"));
    zooms->setAccessibleName(tr("Zooms"));
    auto* inside = new QHBoxLayout(zooms);
    inside->setContentsMargins(8, 2, 8, 2);
    auto* icon = new QLabel(zooms);
    icon->setPixmap(themeIcon({"view-list-details", "format-justify-left"}).pixmap(16, 16));
    auto* title = new QLabel(tr("Zooms"), zooms);
    auto* count = new QLabel(zooms);
    auto* chevron = new QLabel(zooms);
    chevron->setPixmap(themeIcon({"go-next"}).pixmap(16, 16));
    for (QLabel* part : {icon, title, count, chevron}) {
        part->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    inside->addWidget(icon);
    inside->addWidget(title);
    inside->addStretch(1);
    inside->addWidget(count);
    inside->addWidget(chevron);
    zooms->setMinimumHeight(title->sizeHint().height() + 14);
    rows->addWidget(zooms);
    connect(zooms, &QPushButton::clicked, this, &InspectorScreenTab::zoomsRequested);
    QPushButton* regenerate =
        addButton(rows, tr("Regenerate"), tr("Re-run the director. Zooms you have edited are kept."));
    connect(regenerate, &QPushButton::clicked, &m_session, &EditorSession::regenerateZoom);

    follow([this, style, summaryText, count] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const CameraTrack& camera = document->project.camera;
        const QSignalBlocker quiet(style);
        style->setCurrentIndex(style->findData(static_cast<int>(camera.style)));
        const std::string_view text = summary(camera.style);
        summaryText->setText(QString::fromUtf8(text.data(), qsizetype(text.size())));
        count->setText(format("%lld", static_cast<long long>(camera.beats.size())));
    });
}

void InspectorScreenTab::buildSelectedZoom() {
    QVBoxLayout* rows = addSection(tr("Selected zoom"));
    QWidget* box = rows->parentWidget();
    // The selected beat of the track, if the selection names one.
    const auto selected = [this](const Project& project) -> const ZoomBeat* {
        const auto& id = m_session.selectedBeat();
        if (!id) {
            return nullptr;
        }
        for (const ZoomBeat& beat : project.camera.beats) {
            if (beat.id == *id) {
                return &beat;
            }
        }
        return nullptr;
    };
    // Each slider copies the beat, sets its field and updates the track, so the beat becomes hand-edited.
    const auto beatSlider = [&](const QString& label, double low, double high, double ZoomBeat::*field) {
        addSlider(
            rows, label, low, high,
            [selected, field](const Project& p) {
                const ZoomBeat* beat = selected(p);
                return beat ? beat->*field : 0.0;
            },
            [selected, field](Project& p, double v) {
                if (const ZoomBeat* beat = selected(p)) {
                    ZoomBeat changed = *beat;
                    changed.*field = v;
                    p.camera.update(changed);
                }
            });
    };
    beatSlider(tr("Depth"), 1.05, 3.0, &ZoomBeat::scale);
    beatSlider(tr("Ease in"), 0.05, 1.5, &ZoomBeat::rampIn);
    beatSlider(tr("Ease out"), 0.05, 1.5, &ZoomBeat::rampOut);
    QLabel* timing = addValue(rows, tr("Timing"));
    QPushButton* remove = addButton(rows, tr("Delete Zoom"), {}, true);
    connect(remove, &QPushButton::clicked, this, [this] {
        if (const auto id = m_session.selectedBeat()) {
            m_session.deleteBeat(*id);
        }
    });
    follow([this, box, selected, timing] {
        const auto& document = m_session.document();
        const ZoomBeat* beat = document ? selected(document->project) : nullptr;
        box->setVisible(beat != nullptr);
        if (beat) {
            // On the finished movie's clock, as the rail and the zoom list show it.
            const std::optional<ZoomClock::Listed> shown = ZoomClock(document->project).listedBeat(beat->id);
            timing->setText(shown->hiddenByCut
                                ? format("%.2fs · ", shown->beat.start) + tr("hidden by a cut")
                                : format("%.2fs – %.2fs", shown->beat.start, shown->beat.end));
        }
    });
}

void InspectorScreenTab::buildDevice() {
    QVBoxLayout* rows = addSection(tr("Device"));
    QComboBox* frame = addPicker(rows, tr("Frame"));
    frame->addItem(tr("None"));
    for (const DeviceFrame& device : DeviceFrame::all()) {
        frame->addItem(QString::fromStdString(device.name));
    }
    connect(frame, &QComboBox::activated, this, [this](int index) {
        edit(tr("Device Frame"), [index](Project& project) {
            if (index <= 0) {
                project.canvas.deviceFrame.reset();
            } else {
                project.canvas.deviceFrame = DeviceFrame::all().at(static_cast<std::size_t>(index - 1));
            }
        });
    });
    QWidget* warningLine = nullptr;
    QLabel* warning = addIconText(rows, {"zoom-fit-best"}, &warningLine);
    follow([this, frame, warning, warningLine] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const Project& project = document->project;
        const auto& device = project.canvas.deviceFrame;
        int index = 0;
        if (device) {
            const auto& all = DeviceFrame::all();
            const auto found = std::find_if(all.begin(), all.end(),
                                            [&](const DeviceFrame& known) { return known.id == device->id; });
            index = found == all.end() ? -1 : static_cast<int>(found - all.begin()) + 1;
        }
        const QSignalBlocker quiet(frame);
        frame->setCurrentIndex(index);
        const Size size = project.source.size;
        const double aspect = size.height > 0 ? size.width / size.height : 0;
        const bool mismatched = device && device->mismatches(aspect);
        warningLine->setVisible(mismatched);
        if (mismatched) {
            warning->setText(format("Recording is %.2f:1, this screen is %s — it will letterbox.", aspect,
                                    device->screenAspectDescription().c_str()));
        }
    });
}

void InspectorScreenTab::buildPerspective() {
    QVBoxLayout* rows = addSection(tr("Perspective"));
    addSlider(
        rows, tr("Tilt X"), -25, 25, [](const Project& p) { return p.canvas.tilt.x; },
        [](Project& p, double v) { p.canvas.tilt.x = v; });
    addSlider(
        rows, tr("Tilt Y"), -25, 25, [](const Project& p) { return p.canvas.tilt.y; },
        [](Project& p, double v) { p.canvas.tilt.y = v; });
    QHBoxLayout* line = addLine(rows);
    auto* degrees = new QLabel(rows->parentWidget());
    auto* reset = new QPushButton(tr("Reset"), rows->parentWidget());
    reset->setAutoDefault(false);
    line->addWidget(degrees, 1);
    line->addWidget(reset);
    connect(reset, &QPushButton::clicked, this, [this] { edit(tr("Reset Tilt"), [](Project& p) { p.canvas.tilt = {0, 0}; }); });
    follow([this, degrees, reset] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const Tilt& tilt = document->project.canvas.tilt;
        degrees->setText(format("%.0f° / %.0f°", tilt.x, tilt.y));
        reset->setEnabled(tilt.x != 0 || tilt.y != 0);
    });
}

void InspectorScreenTab::buildCursor() {
    QVBoxLayout* rows = addSection(tr("Cursor"));
    addSlider(
        rows, tr("Smoothing"), 0, 1, [](const Project& p) { return p.cursor.smoothing; },
        [](Project& p, double v) { p.cursor.smoothing = v; });
    addSlider(
        rows, tr("Size"), 0.5, 2.5, [](const Project& p) { return p.cursor.scale; },
        [](Project& p, double v) { p.cursor.scale = v; });
}

void InspectorScreenTab::buildBackground() {
    QVBoxLayout* rows = addSection(tr("Background"));
    auto* grid = new QWidget(rows->parentWidget());
    auto* cells = new QGridLayout(grid);
    cells->setContentsMargins(0, 0, 0, 0);
    cells->setSpacing(swatchGap);
    std::vector<std::pair<QToolButton*, Background>> swatches;
    int index = 0;
    for (const BackgroundSwatch& swatch : backgroundSwatches()) {
        auto* cell = new QToolButton(grid);
        cell->setFixedSize(swatchCell, swatchCell);
        const QString name = QString::fromUtf8(swatch.name.data(), qsizetype(swatch.name.size()));
        cell->setToolTip(name);
        cell->setAccessibleName(name);
        cell->setCheckable(true);
        const std::optional<QColor> colour = swatchColour(swatch.background);
        // A transparent swatch is clear, with a dashed edge so that it can be seen at all.
        const QString fill = colour ? colour->name() : QString("transparent");
        const QString edge =
            colour ? QString("1px solid rgba(127, 127, 127, 90)") : QString("1px dashed gray");
        cell->setStyleSheet(QString("QToolButton { background-color: %1; border: %2; border-radius: 7px; }"
                                    "QToolButton:checked { border: 2px solid palette(highlight); }")
                                .arg(fill, edge));
        cells->addWidget(cell, index / swatchColumns, index % swatchColumns);
        ++index;
        swatches.emplace_back(cell, swatch.background);
        connect(cell, &QToolButton::clicked, this, [this, background = swatch.background] {
            edit(tr("Background"), [&](Project& project) { project.canvas.background = background; });
        });
    }
    cells->setColumnStretch(swatchColumns, 1);
    rows->addWidget(grid);
    QPushButton* custom = addButton(rows, tr("Custom colour"));
    custom->setAccessibleName(tr("Custom colour"));
    auto* chip = new QLabel(custom);
    chip->setFixedSize(14, 14);
    chip->move(8, (custom->sizeHint().height() - 14) / 2);
    connect(custom, &QPushButton::clicked, this, &InspectorScreenTab::chooseCustomColour);
    follow([this, swatches, chip] {
        const auto& document = m_session.document();
        if (!document) {
            return;
        }
        const Background& current = document->project.canvas.background;
        for (const auto& [cell, background] : swatches) {
            cell->setChecked(sameBackground(background, current));
        }
        if (const auto* solid = std::get_if<Background::Solid>(&current.value)) {
            m_customBackground = QColor(QString::fromStdString(solid->hex));
        }
        chip->setStyleSheet(
            QString("background-color: %1; border-radius: 3px;").arg(m_customBackground.name()));
    });
}

void InspectorScreenTab::chooseCustomColour() {
    if (m_colourDialog) {
        m_colourDialog->raise();
        return;
    }
    m_colourDialog = new QColorDialog(m_customBackground, this);
    m_colourDialog->setOption(QColorDialog::DontUseNativeDialog);
    m_colourDialog->setAttribute(Qt::WA_DeleteOnClose);
    m_colourDialog->setWindowTitle(tr("Custom colour"));
    connect(m_colourDialog, &QColorDialog::colorSelected, this, [this](const QColor& colour) {
        m_customBackground = colour;
        const std::string hex = colour.name(QColor::HexRgb).toUpper().toStdString();
        edit(tr("Background"), [&](Project& project) { project.canvas.background = Background::solid(hex); });
    });
    connect(m_colourDialog, &QObject::destroyed, this, [this] { m_colourDialog = nullptr; });
    m_colourDialog->open();
}

} // namespace marlowick
