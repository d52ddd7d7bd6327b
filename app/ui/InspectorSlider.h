#pragma once

#include <QWidget>

class QLabel;
class QSlider;

namespace marlowick {

// A labelled slider over a range of real numbers: continuous to the eye (a thousand positions over the
// range) and heard at every change while it is dragged, with its value printed beside it.
//
// Thread: the main thread only.
class InspectorSlider : public QWidget {
    Q_OBJECT
public:
    InspectorSlider(const QString& label, double low, double high, QWidget* parent = nullptr);

    QString label() const;
    double low() const { return m_low; }
    double high() const { return m_high; }
    double value() const;
    // Shows `value`, held to the range, without telling anyone: the document is being followed.
    void setValue(double value);
    QSlider* slider() const { return m_slider; }

signals:
    // The person moved the slider, by hand or by key.
    void moved(double value);

private:
    void showValue();

    double m_low;
    double m_high;
    QLabel* m_label;
    QSlider* m_slider;
    QLabel* m_value;
};

} // namespace marlowick
