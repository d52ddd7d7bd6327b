#pragma once

#include "model/Uuid.h"

#include <QWidget>

#include <vector>

class QLabel;
class QStackedWidget;
class QVBoxLayout;

namespace marlowick {

class EditorSession;
class ZoomRow;

// The inspector's page of zooms: a header (back to the screen settings, the count, "Add Here" at the
// playhead, "Regenerate"), one row for each beat in time order, or an empty state without beats, and a
// footer saying what orange means. The list shows the open project's beats on output time, as the rail
// does; a beat that a cut leaves too short to show isn't listed. It follows the session's document and
// selection.
//
// Thread: the main thread only. The session is not owned and outlives the page.
class ZoomEditor : public QWidget {
    Q_OBJECT
public:
    explicit ZoomEditor(EditorSession& session, QWidget* parent = nullptr);

    // The rows as listed now, in time order.
    const std::vector<ZoomRow*>& rows() const { return m_rows; }

signals:
    // The back button: the inspector goes back to its sections.
    void backRequested();

private:
    void follow();
    void addAtPlayhead();

    EditorSession& m_session;
    QLabel* m_count;
    QStackedWidget* m_pages;
    QWidget* m_emptyPage;
    QWidget* m_listPage;
    QVBoxLayout* m_list;
    std::vector<ZoomRow*> m_rows;
};

} // namespace marlowick
