#pragma once
// What can be guessed of a line whose effect is not fully known. Guesses only save: nobody is asked or refused anything
// because of them.

#include "Shell/Decision.hpp"
#include "Shell/Effects.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Paths that may change, by a guess: the opaque folders of `decision` that lie in no project, and what the line's text,
// or a list that it reads operands from, mentions and something stands at: absolute paths, those below the home folder
// and those that climb out of the working folder; the folders of scripts; words that name something in the home folder
// or a well-known one, where a command runs there. Left out are programs, protected folders, what the system owns, and
// outside of projects folders that hold more than 2,000 files. Of protected folders only the files that a command lists
// are at risk.
// Sorted, each once.
[[nodiscard]] std::vector<std::string> pathsAtRisk(std::string_view line, const Decision& decision,
                                                   const Context& context, Effects& effects);

// Notes the git stores that a grep of the line goes through, where what it lists is changed in ways that are not known.
void noteGitStoresListed(std::string_view line, Effects& effects);

// Whether an absolute path lies where the system keeps its own or installed programs.
[[nodiscard]] bool belongsToSystem(std::string_view path);

} // namespace tidewrack::shell
