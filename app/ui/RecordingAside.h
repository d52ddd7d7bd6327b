#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
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
// A take starts only once the window is off the screen, so that its first frames don't show it: `beginThen`
// steps aside and calls the start once the X server no longer shows the window (or, on another platform,
// once it is no longer exposed) and a window manager has had a quarter of a second to finish its minimising
// animation, or after half a second at most if the window never seems to go; at once where the window
// stays on screen.
//
// Thread: the main thread only. The window and the action are not owned and outlive this object.
class RecordingAside : public QObject {
    Q_OBJECT
public:
    RecordingAside(QWidget& window, QAction& stopRecording, QObject* parent = nullptr);
    ~RecordingAside() override;

    void begin();
    // begin, then `start` once the window is off the screen. While one start waits, another is dropped.
    void beginThen(std::function<void()> start);
    // Gives the key, the tray and the screen back; a start still waiting is dropped.
    void end();
    // A start waits for the window to leave the screen.
    bool isWaiting() const { return static_cast<bool>(m_start); }

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
    // Whether the window can't be seen on the screen now: unmapped on the X server, else not exposed.
    bool isOffScreen() const;
    // Calls the waiting start when the window has left the screen or waited long enough.
    void pollStart();

    QWidget& m_window;
    QAction& m_stopRecording;
    GlobalShortcut* m_shortcut;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    bool m_running = false;
    bool m_steppedAside = false;
    std::function<void()> m_start; // the start waiting for the window to leave the screen
    QTimer m_poll;
    QElapsedTimer m_waited;
    QElapsedTimer m_offScreen; // since the waiting start first found the window off the screen
    qint64 m_settleMs = 0;
};

} // namespace marlowick
