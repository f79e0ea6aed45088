#pragma once
// What commands overwrite that put copies of their operands somewhere: cp, mv, ln, install, ditto, rsync.

#include "Shell/Effects.hpp"
#include "Shell/Options.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <string_view>

namespace tidewrack::shell {

// Adds what mv takes and what it overwrites, with these operands among its arguments in the folder `cwd`.
void examineMove(const Operands& operands, std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Adds what a copying command of this name overwrites.
void examineCopy(std::string_view name, const Operands& operands, std::span<const Word> arguments,
                 const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
