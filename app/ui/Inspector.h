#pragma once

#include <QWidget>

class QScrollArea;
class QStackedWidget;
class QTabBar;

namespace marlowick {

class EditorSession;
class InspectorAudioTab;
class InspectorScreenTab;

// The side panel of the editor: every setting of the open project as a labelled control, in two tabs
// picked at the top, Screen and Audio, each a scrolling column of sections. The Screen tab has a second
// page for the list of zooms: `setZoomEditor` puts a view there, the tab's "Zooms" button shows it, and
// `showSections` (the view's way back) returns to the sections.
//
// Thread: the main thread only. The session is not owned and outlives the panel.
class Inspector : public QWidget {
    Q_OBJECT
public:
    enum class Tab { screen, audio };

    explicit Inspector(EditorSession& session, QWidget* parent = nullptr);

    Tab tab() const;
    void setTab(Tab tab);
    InspectorScreenTab* screenTab() const { return m_screen; }
    InspectorAudioTab* audioTab() const { return m_audio; }

    // Puts `editor` on the Screen tab's zoom page, owned by the panel from then on; a view given earlier
    // is deleted. Until one is given the page holds only a way back.
    void setZoomEditor(QWidget* editor);
    QWidget* zoomEditor() const { return m_zoomEditor; }
    bool showingZooms() const;

public slots:
    // The zoom page in place of the Screen tab's sections, the Screen tab in front.
    void showZooms();
    // The Screen tab's sections again; what the zoom editor's back action calls.
    void showSections();

signals:
    void showingZoomsChanged(bool showing);

private:
    QTabBar* m_tabs;
    QStackedWidget* m_pages;
    QStackedWidget* m_screenPages;
    QScrollArea* m_screenScroll;
    InspectorScreenTab* m_screen;
    InspectorAudioTab* m_audio;
    QWidget* m_zoomEditor = nullptr;
};

} // namespace marlowick
