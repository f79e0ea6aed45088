#pragma once
// What each known command destroys, by its name and its arguments.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// "export", "local", ...: what follows are assignments.
[[nodiscard]] bool isDeclaration(const Word& word);

// How many words stand before the command itself: "then", "do", "{", "function name", ...
[[nodiscard]] std::size_t wordsBeforeCommand(const std::vector<Word>& words);

// False when a command that begins with this word changes neither the disk nor what its line knows, so that
// its other words need no look.
[[nodiscard]] bool mayMatter(const Word& first);

// False when nobody knows what a command of this name does.
[[nodiscard]] bool isKnown(const Word& first, std::span<const Word> arguments);

// Adds what a stripped, expanded command does in the folder `cwd`; false when nobody knows that. `words` is not empty.
[[nodiscard]] bool examine(const std::vector<Word>& words, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
