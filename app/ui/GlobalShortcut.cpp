#include "ui/GlobalShortcut.h"

#include <QGuiApplication>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace marlowick {

namespace {

// The modifiers a person doesn't think of as part of a shortcut: Caps Lock, and Num Lock, which X servers
// put on Mod2.
constexpr std::uint16_t lockModifiers[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                           XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
constexpr std::uint16_t ignoredModifiers = XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2;

xcb_connection_t* qtConnection() {
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};

} // namespace

GlobalShortcut::GlobalShortcut(std::uint32_t keysym, std::uint16_t modifiers, QObject* parent)
    : QObject(parent)
    , m_keysym(keysym)
    , m_modifiers(modifiers) {
    QCoreApplication::instance()->installNativeEventFilter(this);
}

GlobalShortcut::~GlobalShortcut() {
    ungrab();
    QCoreApplication::instance()->removeNativeEventFilter(this);
}

std::vector<std::uint8_t> GlobalShortcut::keycodes(std::uint32_t keysym) {
    xcb_connection_t* connection = qtConnection();
    if (connection == nullptr) {
        return {};
    }
    const xcb_setup_t* setup = xcb_get_setup(connection);
    const int first = setup->min_keycode;
    const int count = setup->max_keycode - first + 1;
    const std::unique_ptr<xcb_get_keyboard_mapping_reply_t, FreeReply> mapping(
        xcb_get_keyboard_mapping_reply(connection,
                                       xcb_get_keyboard_mapping(connection, static_cast<xcb_keycode_t>(first),
                                                                static_cast<std::uint8_t>(count)),
                                       nullptr));
    std::vector<std::uint8_t> found;
    if (!mapping || mapping->keysyms_per_keycode == 0) {
        return found;
    }
    const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perKeycode = mapping->keysyms_per_keycode;
    for (int i = 0;
         i < count && (i + 1) * perKeycode <= xcb_get_keyboard_mapping_keysyms_length(mapping.get()); ++i) {
        if (keysyms[i * perKeycode] == keysym) {
            found.push_back(static_cast<std::uint8_t>(first + i));
        }
    }
    return found;
}

bool GlobalShortcut::grab() {
    if (isGrabbed()) {
        return true;
    }
    xcb_connection_t* connection = qtConnection();
    if (connection == nullptr) {
        return false;
    }
    const std::vector<std::uint8_t> codes = keycodes(m_keysym);
    if (codes.empty()) {
        return false;
    }
    bool refused = false;
    for (xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(connection)); screen.rem;
         xcb_screen_next(&screen)) {
        for (const std::uint8_t code : codes) {
            for (const std::uint16_t lock : lockModifiers) {
                const auto modifiers = static_cast<std::uint16_t>(m_modifiers | lock);
                const xcb_void_cookie_t cookie =
                    xcb_grab_key_checked(connection, 1, screen.data->root, modifiers, code,
                                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
                // Another client's grab of the same combination answers BadAccess.
                if (std::unique_ptr<xcb_generic_error_t, FreeReply> error(
                        xcb_request_check(connection, cookie));
                    error) {
                    refused = true;
                } else {
                    m_grabs.push_back({screen.data->root, code, modifiers});
                }
            }
        }
    }
    if (refused) {
        ungrab();
        return false;
    }
    return true;
}

void GlobalShortcut::ungrab() {
    xcb_connection_t* connection = qtConnection();
    if (connection != nullptr) {
        for (const Grab& grab : m_grabs) {
            xcb_ungrab_key(connection, grab.keycode, grab.root, grab.modifiers);
        }
        xcb_flush(connection);
    }
    m_grabs.clear();
}

bool GlobalShortcut::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (!isGrabbed() || eventType != "xcb_generic_event_t") {
        return false;
    }
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7f) != XCB_KEY_PRESS) {
        return false;
    }
    const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
    const bool ours = std::any_of(m_grabs.begin(), m_grabs.end(), [press](const Grab& grab) {
        return grab.root == press->event && grab.keycode == press->detail;
    });
    // Only the modifier bits count: a mouse button held down doesn't change the combination.
    if (!ours || (press->state & 0xff & ~ignoredModifiers) != m_modifiers) {
        return false;
    }
    QMetaObject::invokeMethod(this, &GlobalShortcut::activated, Qt::QueuedConnection);
    return true;
}

} // namespace marlowick
