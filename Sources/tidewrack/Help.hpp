#pragma once
// The program's version and its help, made from the command table.

#include "CommandTable.hpp"

#include <string>

namespace tidewrack {

[[nodiscard]] const char* version();
// All commands, one line each, and the options common to them.
[[nodiscard]] std::string usageText();
// What one command does, its options and an example.
[[nodiscard]] std::string helpText(const Command& command);

} // namespace tidewrack
