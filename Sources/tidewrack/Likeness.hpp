#pragma once
// What somebody may have meant who wrote something else.

#include <string_view>

namespace tidewrack {

// Whether the two differ by one or two letters: added, left out, another one, or two that changed places.
[[nodiscard]] bool isMistyped(std::string_view typed, std::string_view meant);

} // namespace tidewrack
