#pragma once

#include <optional>

namespace marlowick::test {

// What `action` threw of `Error`, or none where it returned; anything else it throws goes on to fail the
// test. For a test that looks at a failure's kind and text: `ASSERT_TRUE(e)`, then `e->kind()`.
template <class Error, class Action> std::optional<Error> thrown(Action&& action) {
    try {
        action();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

} // namespace marlowick::test
