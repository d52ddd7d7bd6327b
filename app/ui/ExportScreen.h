#pragma once

#include <QWidget>

class QProgressBar;

namespace marlowick {

class EditorSession;

// The screen of the exporting phase: "Exporting…" and the export's progress as a whole percentage.
//
// Thread: the main thread only. The session is not owned and outlives the screen.
class ExportScreen : public QWidget {
    Q_OBJECT
public:
    explicit ExportScreen(EditorSession& session, QWidget* parent = nullptr);

private:
    QProgressBar* m_progress;
};

} // namespace marlowick
