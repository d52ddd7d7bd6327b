#pragma once

#include "session/PermissionProbe.h"

#include <QObject>
#include <QString>

#include <array>

namespace marlowick {

// The four permissions the application runs best with, as the onboarding sheet shows them: each one's
// state as its probe last read it, and the texts that say what it is for and what going without it
// costs. Recording works with whatever is there; this only explains.
//
// Thread: lives on the main thread, like the session. A write of an equal reading doesn't notify.
class Permissions : public QObject {
    Q_OBJECT
public:
    using Item = PermissionItem;
    using State = PermissionState;
    static constexpr std::array<Item, 4> items{Item::screenRecording, Item::accessibility, Item::microphone,
                                               Item::speech};

    struct Texts {
        QString title;
        bool required = false;
        QString purpose;     // what the item is for
        QString refusalCost; // what is lost without it, shown while it isn't granted
    };
    static Texts texts(Item item);

    // Every item starts `notAsked` until the first `refresh`. Takes the four probes; none may be null.
    explicit Permissions(PermissionProbes probes, QObject* parent = nullptr);
    ~Permissions() override;

    // Reads all four, in the order of `items`.
    void refresh();
    State state(Item item) const { return reading(item).state; }
    const PermissionReading& reading(Item item) const;

    // Asks for the item: reads it again, and where the system answers "no" opens its settings; then reads
    // all four again. A refusal is no error: the settings open and the state stays.
    void request(Item item);
    // Opens the item's settings where the system has any; false where there is nothing to open.
    bool openSettings(Item item);

signals:
    void changed(marlowick::PermissionItem item);

private:
    PermissionProbe& probe(Item item) const;
    void store(Item item, PermissionReading reading);

    PermissionProbes m_probes;
    std::array<PermissionReading, 4> m_readings;
};

} // namespace marlowick
