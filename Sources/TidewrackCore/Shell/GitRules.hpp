#pragma once
// What git's subcommands do to the work tree.

#include "Shell/Effects.hpp"

#include <span>
#include <string>

namespace tidewrack::shell {

// Adds what `git` with these arguments does when run in the folder `cwd`.
void examineGit(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Whether none of the words of a git command can make it change the work tree, whatever words follow.
[[nodiscard]] bool gitOnlyReads(std::span<const Word> words);

} // namespace tidewrack::shell
