#pragma once
// What snapshots and comparisons report, in words: for the log of hooks and for the terminal.

#include "Engine/NotKept.hpp"
#include "Engine/Warning.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// One sentence without a full stop.
[[nodiscard]] std::string warningText(const Warning& warning);
[[nodiscard]] std::vector<std::string> warningTexts(const std::vector<Warning>& warnings);

// "1 file of 300 MB is listed but not kept"; empty when no file is too large.
[[nodiscard]] std::string tooLargeText(const NotKept& notKept);

} // namespace tidewrack
