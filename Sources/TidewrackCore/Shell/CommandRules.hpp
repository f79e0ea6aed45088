#pragma once
// What each known command destroys, by its name and its arguments. Programs stand in one of three tables, by what may
// follow from it: the rules' here, because of which somebody may be asked or refused; the writers' (Writers.hpp), which
// only saves what a program may write over; and the readers' (Readers.hpp), for which nothing is done at all.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Whether the word is "export", "local", ...: assignments follow it.
[[nodiscard]] bool isDeclaration(const Word& word);

// How many words come before the command itself: "then", "do", "{", "function name", ...
[[nodiscard]] std::size_t wordsBeforeCommand(const std::vector<Word>& words);

// False when a command that begins with this word changes neither the disk nor what its line knows, so that its other
// words need not be read.
[[nodiscard]] bool mayMatter(const Word& first);

// Whether a command of this name changes what the line knows, not the disk: cd, set, read.
[[nodiscard]] bool isBuiltin(std::string_view name);

// False when it is unknown what a command of this name does.
[[nodiscard]] bool isKnown(const Word& first, std::span<const Word> arguments);

// What a command does to the operands that it is given one after the other, by find or fd.
enum class Act {
    nothing,
    guessed,   // nobody knows, or their attributes change
    mayWrite,  // it is a program that may write over them
    destroyed, // their content goes
    removed,   // they go themselves, with all that they hold
};
[[nodiscard]] Act actOn(std::vector<Word> words, std::size_t nesting = 0);

// What the commands of a text do at most.
[[nodiscard]] Act actOnText(std::string_view text);

// Whether the command is one whose other operands may go as well: mv {} FOLDER.
[[nodiscard]] bool hasOperandsOfItsOwn(std::string_view name);

// Whether the command is this program.
[[nodiscard]] bool isOurs(std::string_view name);

// Adds what a stripped, expanded command does in the folder `cwd`; false when that is unknown. `words` is not empty.
[[nodiscard]] bool examine(const std::vector<Word>& words, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
