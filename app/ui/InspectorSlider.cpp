#include "ui/InspectorSlider.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

// Positions over the whole range: a drag reads as continuous, and a key press moves one hundredth.
constexpr int positions = 1000;

} // namespace

InspectorSlider::InspectorSlider(const QString& label, double low, double high, QWidget* parent)
    : QWidget(parent)
    , m_low(low)
    , m_high(high) {
    m_label = new QLabel(label, this);
    m_label->setMinimumWidth(118);
    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setRange(0, positions);
    m_slider->setSingleStep(positions / 100);
    m_slider->setPageStep(positions / 10);
    m_slider->setAccessibleName(label);
    m_value = new QLabel(this);
    m_value->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_value->setMinimumWidth(m_value->fontMetrics().horizontalAdvance("-00.00"));
    m_value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_label);
    row->addWidget(m_slider, 1);
    row->addWidget(m_value);
    connect(m_slider, &QSlider::valueChanged, this, [this] {
        showValue();
        emit moved(value());
    });
    showValue();
}

QString InspectorSlider::label() const {
    return m_label->text();
}

double InspectorSlider::value() const {
    return m_low + (m_high - m_low) * m_slider->value() / positions;
}

void InspectorSlider::setValue(double value) {
    const double fraction =
        m_high > m_low ? (std::clamp(value, m_low, m_high) - m_low) / (m_high - m_low) : 0;
    const QSignalBlocker quiet(m_slider);
    m_slider->setValue(static_cast<int>(std::lround(fraction * positions)));
    showValue();
}

void InspectorSlider::showValue() {
    m_value->setText(QString::number(value(), 'f', 2));
}

} // namespace marlowick
