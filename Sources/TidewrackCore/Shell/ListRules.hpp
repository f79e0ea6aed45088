#pragma once
// What xargs does with what it reads: a list that another command of the line prints.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// The command that xargs runs, without the wrappers in front of it; empty where it has none.
[[nodiscard]] std::vector<Word> commandOfXargs(std::span<const Word> arguments);

// Whether what this command prints are names of files: ls, find, fd.
[[nodiscard]] bool listsFiles(const Word& first);

// Whether it prints the names of files in which it has found something: grep -l. There is at least one word.
[[nodiscard]] bool listsMatches(std::span<const Word> words);

// Adds what xargs does, called with `arguments`, to what the command `lister` prints, both in the folder `cwd`.
// Nobody is refused anything because of it; a question is asked where a project's root or what is Tidewrack's own goes.
void examineListed(std::span<const Word> lister, std::span<const Word> arguments, const std::string& cwd,
                   Effects& effects);

// The same for a list that is not known: it may name any file in the folder.
void examineUnknownList(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// The same for a text whose words it reads. It is only saved.
void examineItems(std::string_view text, std::span<const Word> arguments, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
