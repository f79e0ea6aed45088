#pragma once
// Programs that write the files that their arguments name: curl -o, sort -o, gzip, tar. Nobody is asked or refused
// anything because of them; what they name is saved when it is there.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tidewrack::shell {

// Whether something is known of what a program of this name writes.
[[nodiscard]] bool isWriter(std::string_view name);

// Whether a program of the table writes no file that its arguments name: tar -t, sort without -o.
[[nodiscard]] bool writesNothing(std::string_view name, std::span<const Word> arguments);

// Whether a program of this name follows a text that it may read: ed, sqlite3.
[[nodiscard]] bool readsScript(std::string_view name);

// Adds what such a program does, reading this text in the folder `cwd`; false when that is not known.
[[nodiscard]] bool examineInput(std::string_view name, const std::optional<std::string>& text, const std::string& cwd,
                                Effects& effects);

// Adds what a command writes that runs in the folder `cwd`; false when its arguments are not understood. `words` is
// not empty.
[[nodiscard]] bool examineWriter(std::span<const Word> words, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
