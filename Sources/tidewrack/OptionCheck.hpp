#pragma once
// Words that a command does not know.

#include "Args.hpp"
#include "CommandTable.hpp"

#include <functional>
#include <string>
#include <vector>

namespace tidewrack {

// Whether a word that begins with "-" may be meant as a path.
using MayBePath = std::function<bool(const std::string& word)>;

// One warning for each option and word that a command which changes something does not know. Throws CliError where
// running could do what was not meant: for a mistyped option, a value for an option that takes none, and anything at
// all where nothing would undo it. Commands that only add to the history refuse a dry run alone, and those that change
// nothing take any option. A word such as "-v" that can't be a path is an unknown option, and taken out of `args`.
[[nodiscard]] std::vector<std::string> misunderstood(const Command& command, Args& args, const MayBePath& mayBePath);

} // namespace tidewrack
