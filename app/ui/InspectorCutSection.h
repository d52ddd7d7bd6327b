#pragma once

#include "model/Span.h"
#include "ui/InspectorPage.h"

#include <QObject>

#include <optional>
#include <vector>

class QVBoxLayout;

namespace marlowick {

class EditorSession;

// The Cut section of the Screen tab: Set In and Set Out at the playhead, Remove (only for a stretch longer
// than the session cuts) and Clear, a line saying where the marking stands, and one row per hand cut with
// a button that restores it, then Restore All.
//
// Thread: the main thread only. A child of the page it adds its section to; the session outlives it.
class InspectorCutSection : public QObject {
    Q_OBJECT
public:
    InspectorCutSection(InspectorPage& page, EditorSession& session);

private:
    // One row per hand cut, rebuilt only when the cuts are not those shown.
    void fillCuts();

    InspectorPage& m_page;
    EditorSession& m_session;
    QVBoxLayout* m_cutRows = nullptr;
    std::optional<std::vector<Span>> m_shownCuts;
};

} // namespace marlowick
