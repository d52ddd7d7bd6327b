#include "ui/InspectorPage.h"

#include "session/EditorSession.h"
#include "ui/InspectorSlider.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <cstdarg>
#include <cstdio>

namespace marlowick {

QIcon themeIcon(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (QIcon::hasThemeIcon(name)) {
            return QIcon::fromTheme(name);
        }
    }
    return QIcon::fromTheme(*(names.end() - 1));
}

void markDestructive(QPushButton* button) {
    button->setStyleSheet("QPushButton:enabled { color: #E0443E; }");
}

void discardRows(QBoxLayout* rows) {
    while (QLayoutItem* item = rows->takeAt(0)) {
        if (QWidget* row = item->widget()) {
            row->hide();
            row->setParent(nullptr);
            row->deleteLater();
        }
        delete item;
    }
}

QString format(const char* pattern, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return QString::fromUtf8(text);
}

InspectorPage::InspectorPage(EditorSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    m_column = new QVBoxLayout(this);
    m_column->setSpacing(10);
}

QGroupBox* InspectorPage::section(const QString& title) const {
    for (QGroupBox* box : findChildren<QGroupBox*>()) {
        if (box->title() == title) {
            return box;
        }
    }
    return nullptr;
}

void InspectorPage::refresh() {
    m_filling = true;
    // The page's own signals stay quiet too, so nothing outside hears a fill as an edit.
    const QSignalBlocker quiet(this);
    for (const auto& fill : m_fills) {
        fill();
    }
    // A line's preferred size changes with its text, but a section caches the sizes of the lines it holds
    // and hears of no change inside one: every line is asked again.
    for (QWidget* line : findChildren<QWidget*>()) {
        if (line->layout()) {
            line->updateGeometry();
        }
    }
    m_filling = false;
}

QVBoxLayout* InspectorPage::addSection(const QString& title) {
    auto* box = new QGroupBox(title, this);
    auto* rows = new QVBoxLayout(box);
    rows->setSpacing(6);
    m_column->addWidget(box);
    return rows;
}

void InspectorPage::finishSections() {
    m_column->addStretch(1);
}

void InspectorPage::follow(std::function<void()> fill) {
    m_fills.push_back(std::move(fill));
}

void InspectorPage::edit(const QString& name, const std::function<void(Project&)>& change,
                         const QString& gesture) {
    if (m_filling) {
        return;
    }
    m_session.editProject(name.toStdString(), change, gesture.toStdString());
}

InspectorSlider* InspectorPage::addSlider(QBoxLayout* rows, const QString& label, double low, double high,
                                          Read read, Write write, const QString& help) {
    auto* slider = new InspectorSlider(label, low, high, rows->parentWidget());
    slider->setToolTip(help);
    rows->addWidget(slider);
    // The slider itself names the gesture: its moves in quick succession are one step.
    const QString gesture = QString("slider@%1").arg(reinterpret_cast<quintptr>(slider));
    connect(slider, &InspectorSlider::moved, this, [this, write, label, gesture](double value) {
        edit(label, [&](Project& project) { write(project, value); }, gesture);
    });
    follow([this, slider, read] {
        if (const auto& document = m_session.document()) {
            slider->setValue(read(document->project));
        }
    });
    return slider;
}

QCheckBox* InspectorPage::addToggle(QBoxLayout* rows, const QString& label, ReadFlag read, WriteFlag write,
                                    const QString& help) {
    auto* toggle = new QCheckBox(label, rows->parentWidget());
    toggle->setToolTip(help);
    rows->addWidget(toggle);
    connect(toggle, &QCheckBox::toggled, this,
            [this, write, label](bool on) { edit(label, [&](Project& project) { write(project, on); }); });
    follow([this, toggle, read] {
        if (const auto& document = m_session.document()) {
            const QSignalBlocker quiet(toggle);
            toggle->setChecked(read(document->project));
        }
    });
    return toggle;
}

QComboBox* InspectorPage::addPicker(QBoxLayout* rows, const QString& label, const QString& help) {
    auto* line = new QWidget(rows->parentWidget());
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(0, 0, 0, 0);
    auto* name = new QLabel(label, line);
    name->setMinimumWidth(118);
    auto* picker = new QComboBox(line);
    picker->setAccessibleName(label);
    picker->setToolTip(help);
    name->setBuddy(picker);
    row->addWidget(name);
    row->addWidget(picker, 1);
    rows->addWidget(line);
    return picker;
}

QLabel* InspectorPage::addText(QBoxLayout* rows, const QString& text, bool caption) {
    auto* label = new QLabel(text, rows->parentWidget());
    label->setWordWrap(true);
    if (caption) {
        QFont font = label->font();
        font.setPointSizeF(font.pointSizeF() * 0.85);
        label->setFont(font);
        label->setForegroundRole(QPalette::PlaceholderText);
    }
    rows->addWidget(label);
    return label;
}

QLabel* InspectorPage::addValue(QBoxLayout* rows, const QString& label) {
    auto* line = new QWidget(rows->parentWidget());
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(0, 0, 0, 0);
    auto* name = new QLabel(label, line);
    auto* value = new QLabel(line);
    value->setAccessibleName(label);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(name);
    row->addStretch(1);
    row->addWidget(value);
    rows->addWidget(line);
    return value;
}

QPushButton* InspectorPage::addButton(QBoxLayout* rows, const QString& label, const QString& help,
                                      bool destructive) {
    auto* button = new QPushButton(label, rows->parentWidget());
    button->setToolTip(help);
    button->setAutoDefault(false);
    if (destructive) {
        markDestructive(button);
    }
    rows->addWidget(button);
    return button;
}

QLabel* InspectorPage::addIconText(QBoxLayout* rows, std::initializer_list<const char*> iconNames,
                                   QWidget** line) {
    auto* holder = new QWidget(rows->parentWidget());
    auto* row = new QHBoxLayout(holder);
    row->setContentsMargins(0, 0, 0, 0);
    auto* icon = new QLabel(holder);
    icon->setPixmap(themeIcon(iconNames).pixmap(18, 18));
    icon->setAlignment(Qt::AlignTop);
    auto* text = new QLabel(holder);
    text->setWordWrap(true);
    row->addWidget(icon);
    row->addWidget(text, 1);
    rows->addWidget(holder);
    if (line) {
        *line = holder;
    }
    return text;
}

QHBoxLayout* InspectorPage::addLine(QBoxLayout* rows) {
    auto* line = new QWidget(rows->parentWidget());
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(line);
    return row;
}

QWidget* InspectorPage::addProgress(QBoxLayout* rows, const QString& text) {
    auto* line = new QWidget(rows->parentWidget());
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(0, 0, 0, 0);
    auto* bar = new QProgressBar(line);
    bar->setRange(0, 0);
    bar->setTextVisible(false);
    bar->setMaximumWidth(80);
    bar->setAccessibleName(text);
    row->addWidget(bar);
    row->addWidget(new QLabel(text, line), 1);
    rows->addWidget(line);
    return line;
}

QVBoxLayout* InspectorPage::addGroup(QBoxLayout* rows, QWidget** group) {
    auto* holder = new QWidget(rows->parentWidget());
    auto* column = new QVBoxLayout(holder);
    column->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(holder);
    *group = holder;
    return column;
}

} // namespace marlowick
