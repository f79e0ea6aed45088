#pragma once
// What somebody may have meant who wrote something else.

#include <optional>
#include <string_view>

namespace tidewrack {

// By how many letters the two differ: added, left out, another one, or two that changed places. None unless it is one
// or two.
[[nodiscard]] std::optional<int> mistypedLetters(std::string_view typed, std::string_view meant);
[[nodiscard]] inline bool isMistyped(std::string_view typed, std::string_view meant) {
    return mistypedLetters(typed, meant).has_value();
}

} // namespace tidewrack
