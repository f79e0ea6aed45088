#pragma once
// Files that grow by a line at a time, written by several processes at once.

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

// Appends `line` and a line feed as one write, creating the file (mode 0600) when it is missing; one of more than
// `longest` bytes is emptied first. A link in its place is not followed, and a reader of a pipe not waited for. Returns
// an errno value.
[[nodiscard]] int appendLine(const std::string& path, std::string_view line, std::int64_t longest);

} // namespace tidewrack
