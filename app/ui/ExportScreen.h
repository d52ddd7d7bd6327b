#pragma once

#include <QWidget>

class QProgressBar;
class QPushButton;

namespace marlowick {

class EditorSession;

// The screen of the exporting phase: "Exporting…", the export's progress as a whole percentage, and Cancel
// (or Escape), which stops it and goes back to the editor.
//
// Thread: the main thread only. The session is not owned and outlives the screen.
class ExportScreen : public QWidget {
    Q_OBJECT
public:
    explicit ExportScreen(EditorSession& session, QWidget* parent = nullptr);

    QPushButton* cancelButton() const { return m_cancel; }

private:
    QProgressBar* m_progress;
    QPushButton* m_cancel;
};

} // namespace marlowick
