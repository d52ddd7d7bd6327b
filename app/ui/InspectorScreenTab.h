#pragma once

#include "ui/InspectorPage.h"

#include <QColor>

class QColorDialog;

namespace marlowick {

// The Screen tab of the inspector, from top to bottom: Format (shape, framing, where a filled frame
// rests), Recording (length, size, retake, replace, open), Cut (marking and removing stretches, the cuts
// made, restoring them), Auto-zoom, the selected zoom's depth and ramps, Device, Perspective, Cursor,
// Background (the swatches and a custom colour) and Export (the presets of the canvas's shape, the other
// shapes, saving, the last export).
//
// Thread: the main thread only. The session is not owned and outlives the tab.
class InspectorScreenTab : public InspectorPage {
    Q_OBJECT
public:
    explicit InspectorScreenTab(EditorSession& session, QWidget* parent = nullptr);

    // The custom colour dialog while it is open, else null. It is window-modal and never blocks.
    QColorDialog* colourDialog() const { return m_colourDialog; }

signals:
    // The person asked for the list of zooms.
    void zoomsRequested();
    // The person asked to record the take again; the window starts it once it is out of the picture.
    void retakeRequested();

private:
    void buildFormat();
    void buildRecording();
    void buildAutoZoom();
    void buildSelectedZoom();
    void buildDevice();
    void buildPerspective();
    void buildCursor();
    void buildBackground();
    void chooseCustomColour();

    QColor m_customBackground{0x10, 0x10, 0x14};
    QColorDialog* m_colourDialog = nullptr;
};

} // namespace marlowick
