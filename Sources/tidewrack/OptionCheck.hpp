#pragma once
// What becomes of words that a command has no use for.

#include "Args.hpp"
#include "CommandTable.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// One warning for each option and word that a command which changes something does not know. Throws CliError where
// going on could do what was not meant: a mistyped dry run, a value for an option that takes none, and anything at all
// where nothing would undo it. Commands that change nothing take any option.
[[nodiscard]] std::vector<std::string> misunderstood(const Command& command, const Args& args);

} // namespace tidewrack
