#pragma once

#include <QAbstractNativeEventFilter>
#include <QObject>

#include <cstdint>
#include <vector>

namespace marlowick {

// A key combination that reaches the application wherever the focus is: a passive grab of the key on every
// X root window, over the connection Qt's own xcb platform holds, so that the KeyPress arrives in Qt's event
// loop, where this object takes it out of the stream before any window sees it. The Lock and NumLock states
// don't matter: the key is grabbed with each of them too. The key is the first keysym of its keycode, so
// a combination with Shift is another one.
//
// Thread: the main thread only (the native event filter runs there). Away from the xcb platform nothing can
// be grabbed.
class GlobalShortcut : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    // `keysym` as in X11/keysymdef.h; `modifiers` an X modifier mask (ControlMask is 4).
    GlobalShortcut(std::uint32_t keysym, std::uint16_t modifiers, QObject* parent = nullptr);
    ~GlobalShortcut() override;

    // Grabs the combination; false when the display can't be reached this way, when the keyboard has no
    // such key, or when another client holds the combination already (then nothing stays grabbed).
    bool grab();
    void ungrab();
    bool isGrabbed() const { return !m_grabs.empty(); }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

    // The keycodes whose first keysym is `keysym` on the display Qt is connected to; empty off xcb.
    static std::vector<std::uint8_t> keycodes(std::uint32_t keysym);

signals:
    // Queued: the press has left the native event handling before anyone hears of it.
    void activated();

private:
    struct Grab {
        std::uint32_t root;
        std::uint8_t keycode;
        std::uint16_t modifiers;
    };

    std::uint32_t m_keysym;
    std::uint16_t m_modifiers;
    std::vector<Grab> m_grabs;
};

} // namespace marlowick
