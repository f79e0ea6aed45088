#pragma once
// Files that grow by a line at a time, written by several processes at once.

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

// What becomes of a log that is too long.
enum class FullLog {
    emptied,
    rotated, // renamed to its rotated name, in place of what bears that
};

[[nodiscard]] std::string rotatedLogPath(const std::string& path);

// Appends `line` and a line feed as one write, creating the file (mode 0600) when it is missing; for one of more than
// `longest` bytes `full` is done first. Behind a line that was cut short it begins a new one. A link in its place is
// not followed, and a reader of a pipe not waited for. Returns an errno value.
[[nodiscard]] int appendLine(const std::string& path, std::string_view line, std::int64_t longest,
                             FullLog full = FullLog::emptied);

} // namespace tidewrack
