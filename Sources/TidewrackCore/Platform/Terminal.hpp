#pragma once
// The terminal that the process belongs to, whatever its streams lead to.

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// Writes `question` there and reads a line, which the terminal shows and lets be edited, even where a shell has set it
// up otherwise. None where there is no terminal, or it ends.
[[nodiscard]] std::optional<std::string> askOnTerminal(std::string_view question);

} // namespace tidewrack
