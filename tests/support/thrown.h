#pragma once

#include <optional>
#include <string>
#include <utility>

namespace ict_test {

// The `Error` that `action` throws, or nothing when it returns; any other
// exception passes through and fails the test.
template <typename Error, typename Action>
std::optional<Error> Caught(Action&& action) {
    try {
        action();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

// The what() text of the `Error` that `action` throws, or "(nothing thrown)",
// which no message a test expects ever equals.
template <typename Error, typename Action>
std::string ThrownText(Action&& action) {
    const auto error = Caught<Error>(std::forward<Action>(action));
    return error ? std::string(error->what()) : std::string("(nothing thrown)");
}

}  // namespace ict_test
