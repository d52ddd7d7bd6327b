#include "ui/RecordingAside.h"

#include "ui/GlobalShortcut.h"

#include <QAction>
#include <QEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QWidget>
#include <QWindow>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace marlowick {

namespace {

// XK_period and ControlMask.
constexpr std::uint32_t periodKeysym = 0x2e;
constexpr std::uint16_t controlModifier = XCB_MOD_MASK_CONTROL;
// How long a start waits at most for the window to leave the screen, and how often it looks.
constexpr qint64 longestWaitMs = 500;
constexpr int pollMs = 10;
// A window manager may still draw its minimising animation (a title bar shrinking across the root window)
// for a few frames after the window is unmapped: the take waits that out.
constexpr qint64 animationMs = 250;

} // namespace

RecordingAside::RecordingAside(QWidget& window, QAction& stopRecording, QObject* parent)
    : QObject(parent)
    , m_window(window)
    , m_stopRecording(stopRecording)
    , m_shortcut(new GlobalShortcut(periodKeysym, controlModifier, this)) {
    connect(m_shortcut, &GlobalShortcut::activated, &m_stopRecording, &QAction::trigger);
    m_window.installEventFilter(this);
    m_poll.setInterval(pollMs);
    connect(&m_poll, &QTimer::timeout, this, &RecordingAside::pollStart);
}

RecordingAside::~RecordingAside() {
    m_window.removeEventFilter(this);
}

bool RecordingAside::windowManagerRuns() {
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (connection == nullptr) {
        // Another platform always has something that manages windows.
        return true;
    }
    // A window manager owns the selection WM_S<screen> of the screen it manages.
    const char name[] = "WM_S0";
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 1, sizeof name - 1, name), nullptr),
        &std::free);
    if (!atom || atom->atom == XCB_ATOM_NONE) {
        return false;
    }
    const std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr),
        &std::free);
    return owner && owner->owner != XCB_NONE;
}

void RecordingAside::begin() {
    if (m_running) {
        return;
    }
    m_running = true;
    const bool grabbed = m_shortcut->grab();
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_tray = std::make_unique<QSystemTrayIcon>(QIcon::fromTheme("media-record"));
        m_tray->setToolTip(tr("Marlowick is recording. Ctrl+. stops it."));
        auto* menu = new QMenu(&m_window);
        menu->addAction(&m_stopRecording);
        m_tray->setContextMenu(menu);
        m_tray->show();
    }
    if (!grabbed && !m_tray) {
        // Nothing else could stop the take: the window and its Stop button stay where they are.
        return;
    }
    m_steppedAside = true;
    if (windowManagerRuns()) {
        m_window.showMinimized();
    } else {
        m_window.hide();
    }
    emit asideChanged(isAside());
}

void RecordingAside::beginThen(std::function<void()> start) {
    if (m_start) {
        return;
    }
    begin();
    if (!m_steppedAside) {
        start();
        return;
    }
    m_start = std::move(start);
    m_waited.start();
    m_offScreen.invalidate();
    m_settleMs = windowManagerRuns() ? animationMs : 0;
    m_poll.start();
    pollStart();
}

bool RecordingAside::isOffScreen() const {
    if (!m_window.isVisible() && !m_window.testAttribute(Qt::WA_WState_Created)) {
        return true;
    }
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (connection == nullptr) {
        const QWindow* handle = m_window.windowHandle();
        return handle == nullptr || !handle->isExposed();
    }
    // The reply comes after the server has handled every request sent before it, the unmap among them.
    const auto window = static_cast<xcb_window_t>(m_window.winId());
    const std::unique_ptr<xcb_get_window_attributes_reply_t, decltype(&std::free)> attributes(
        xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr),
        &std::free);
    return !attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE;
}

void RecordingAside::pollStart() {
    if (!m_start) {
        m_poll.stop();
        return;
    }
    if (isOffScreen()) {
        if (!m_offScreen.isValid()) {
            m_offScreen.start();
        }
        if (m_offScreen.elapsed() < m_settleMs) {
            return;
        }
    } else if (m_waited.elapsed() < longestWaitMs) {
        return;
    }
    m_poll.stop();
    std::exchange(m_start, nullptr)();
}

void RecordingAside::end() {
    m_start = nullptr;
    m_poll.stop();
    if (!m_running) {
        return;
    }
    m_running = false;
    m_shortcut->ungrab();
    if (m_tray) {
        QMenu* menu = m_tray->contextMenu();
        m_tray.reset();
        // Later: the menu's own Stop Recording may be what brought us here.
        menu->deleteLater();
    }
    if (m_steppedAside) {
        m_steppedAside = false;
        m_window.showNormal();
        m_window.raise();
        m_window.activateWindow();
    }
    emit asideChanged(isAside());
}

bool RecordingAside::isAside() const {
    return m_running && m_steppedAside && (m_window.isMinimized() || !m_window.isVisible());
}

bool RecordingAside::holdsShortcut() const {
    return m_shortcut->isGrabbed();
}

bool RecordingAside::eventFilter(QObject* watched, QEvent* event) {
    // A person may bring the window back during the take: then it is in the picture again.
    if (watched == &m_window && m_running &&
        (event->type() == QEvent::WindowStateChange || event->type() == QEvent::Show ||
         event->type() == QEvent::Hide)) {
        emit asideChanged(isAside());
    }
    return QObject::eventFilter(watched, event);
}

} // namespace marlowick
