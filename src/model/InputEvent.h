#pragma once

#include "model/EnumNames.h"
#include "model/Geometry.h"

namespace marlowick {

// One telemetry sample. `time` is in seconds since capture started (the recording's clock);
// `location` is the pointer position in pixels of the recording.
struct InputEvent {
    enum class Kind { move, down, up, drag, scroll, keyPress };

    double time = 0;
    Kind kind = Kind::move;
    Point location;

    friend bool operator==(const InputEvent&, const InputEvent&) = default;
};

template <> struct EnumNames<InputEvent::Kind> {
    using K = InputEvent::Kind;
    static constexpr std::array<std::pair<K, std::string_view>, 6> names{{
        {K::move, "move"},
        {K::down, "down"},
        {K::up, "up"},
        {K::drag, "drag"},
        {K::scroll, "scroll"},
        {K::keyPress, "keyPress"},
    }};
};

} // namespace marlowick
