#pragma once

#include <QObject>

#include <memory>

class QAction;
class QSystemTrayIcon;
class QWidget;

namespace marlowick {

class GlobalShortcut;

// What the window does while a take runs, so as not to be in it: it grabs Ctrl+. on the whole display and
// puts a tray icon up (where the desktop has a tray), each of which stops the take through the given action,
// and then it steps out of the picture: minimised where a window manager runs, withdrawn where none does
// (no one would minimise it there). Without either way to stop it, it stays on screen, where its Stop
// button is. At the end of the take it gives the key and the tray back and comes back itself.
//
// Thread: the main thread only. The window and the action are not owned and outlive this object.
class RecordingAside : public QObject {
    Q_OBJECT
public:
    RecordingAside(QWidget& window, QAction& stopRecording, QObject* parent = nullptr);
    ~RecordingAside() override;

    void begin();
    void end();

    // A take runs and the window is out of its picture: minimised or withdrawn.
    bool isAside() const;
    bool holdsShortcut() const;
    QSystemTrayIcon* trayIcon() const { return m_tray.get(); }

    // Whether an X window manager holds the display Qt is connected to.
    static bool windowManagerRuns();

signals:
    void asideChanged(bool aside);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget& m_window;
    QAction& m_stopRecording;
    GlobalShortcut* m_shortcut;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    bool m_running = false;
    bool m_steppedAside = false;
};

} // namespace marlowick
