#pragma once

#include <QWidget>

class QLabel;

namespace marlowick {

// The screen of a running capture: that it records, that the window is out of the picture while it is,
// and the button that stops it.
//
// Thread: the main thread only.
class RecordingScreen : public QWidget {
    Q_OBJECT
public:
    RecordingScreen(QAction* stopRecording, QWidget* parent = nullptr);

    // Says that the window is hidden from the capture, or says nothing of it; at first nothing.
    void setHiddenFromCapture(bool hidden);
    QLabel* hiddenLine() const { return m_hiddenLine; }

private:
    QLabel* m_hiddenLine;
};

} // namespace marlowick
