#pragma once
// Paths as words of a command line that a person can take over.

#include <string>
#include <string_view>

namespace tidewrack {

// `path` as it is written from the folder `from`; both absolute.
[[nodiscard]] std::string seenFrom(const std::string& path, std::string from);

// One word for a shell, in quotes where it needs them: text that a terminal shows as it is.
[[nodiscard]] std::string shellWord(std::string_view text);
// What a command for a shell begins with that needs a folder which is gone.
[[nodiscard]] std::string makingFolder(std::string_view path);
// The command by which the history of one folder becomes that of another.
[[nodiscard]] std::string movingTo(std::string_view from, std::string_view to);

} // namespace tidewrack
