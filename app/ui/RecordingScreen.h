#pragma once

#include <QWidget>

namespace marlowick {

// The screen of a running capture: that it records, and the button that stops it.
//
// Thread: the main thread only.
class RecordingScreen : public QWidget {
    Q_OBJECT
public:
    RecordingScreen(QAction* stopRecording, QWidget* parent = nullptr);
};

} // namespace marlowick
