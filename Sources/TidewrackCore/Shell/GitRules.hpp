#pragma once
// What git's subcommands do to the work tree and to git's own store.

#include "Shell/Effects.hpp"

#include <span>
#include <string>

namespace tidewrack::shell {

// Adds what `git` with these arguments does when run in the folder `cwd`.
void examineGit(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Adds that git's own store may change, where a git command with these arguments, whatever words follow, does that.
void examineGitStore(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Whether none of the words of a git command can make it change the work tree, whatever words follow.
[[nodiscard]] bool gitOnlyReads(std::span<const Word> words);

} // namespace tidewrack::shell
