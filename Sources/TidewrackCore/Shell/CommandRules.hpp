#pragma once
// What each known command destroys, by its name and its arguments.

#include "Shell/Effects.hpp"
#include "Shell/Lexer.hpp"

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

// The offset of the "=" when the word assigns to a variable, its name and "=" unquoted; 0 when it does not.
[[nodiscard]] std::size_t assignmentAt(const Word& word);

// The name a command goes by: the last component of its path.
[[nodiscard]] std::string_view commandName(const Word& word);

// Drops leading assignments, unknown words and wrappers such as sudo, with the options that follow each. An
// option's own argument is not recognised: `nice -n 10 make` leaves `10 make`.
void strip(std::vector<Word>& words);

// Adds what a stripped, expanded command does in the folder `cwd`. `words` is not empty.
void examine(const std::vector<Word>& words, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
