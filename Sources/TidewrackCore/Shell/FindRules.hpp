#pragma once
// What find and fd do with the trees that it searches.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>

namespace tidewrack::shell {

// Adds what find does with these arguments in the folder `cwd`.
void examineFind(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// The same for fd.
void examineFd(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Whether fd runs a program on what it finds that may change it.
[[nodiscard]] bool fdChanges(std::span<const Word> arguments);

// Whether find removes what it finds, or runs a program on it, whatever that does.
[[nodiscard]] bool findActs(std::span<const Word> arguments);

// Whether find removes what it finds, or runs a program on it that may.
[[nodiscard]] bool findChanges(std::span<const Word> arguments);

} // namespace tidewrack::shell
