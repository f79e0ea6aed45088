#pragma once
// The escapes of a shell's $'...' quotes.

#include <cstddef>
#include <string>
#include <string_view>

namespace tidewrack::shell {

// Appends the meaning of the escape that `text` begins with (a backslash and more); returns how many bytes of `text` it
// takes, at least 1. An unknown escape stands for itself; NUL, which no argument can hold, is left out.
std::size_t decodeAnsiEscape(std::string_view text, std::string& out);

} // namespace tidewrack::shell
