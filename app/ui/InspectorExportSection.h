#pragma once

#include "export/ExportPreset.h"
#include "ui/InspectorPage.h"

#include <QObject>

#include <optional>
#include <vector>

class QVBoxLayout;

namespace marlowick {

class EditorSession;

// The Export section of the Screen tab: a note while the canvas is transparent, one button per preset of
// the canvas's shape (its name, its size and, for one that keeps transparency, a badge), the other shapes
// under a disclosure, Save Project, and the last export with a button that opens its folder.
//
// Thread: the main thread only. A child of the page it adds its section to; the session outlives it.
class InspectorExportSection : public QObject {
    Q_OBJECT
public:
    InspectorExportSection(InspectorPage& page, EditorSession& session);

private:
    // The preset buttons, rebuilt only when the presets offered are not those shown.
    void fillPresets();

    InspectorPage& m_page;
    EditorSession& m_session;
    QVBoxLayout* m_matchingRows = nullptr;
    QVBoxLayout* m_otherRows = nullptr;
    std::optional<std::vector<ExportPreset>> m_shownPresets;
};

} // namespace marlowick
