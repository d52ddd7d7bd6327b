#pragma once

#include <stdexcept>
#include <string>

namespace marlowick {

// A failure of one subsystem: which kind it is, and at most a text (a path, or the library's own reason).
// It has no wording of its own; `describe` (src/messages) words every kind for a person, once, for the
// command-line tool and the application alike. Each subsystem's error is this template over an enum of
// its own, so each is a type of its own that a `catch` can tell apart.
template <class KindType> class TypedError : public std::runtime_error {
public:
    using Kind = KindType;

    explicit TypedError(Kind kind, const std::string& text = {})
        : std::runtime_error(text)
        , m_kind(kind) {}

    Kind kind() const noexcept { return m_kind; }

private:
    Kind m_kind;
};

} // namespace marlowick
