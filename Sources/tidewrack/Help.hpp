#pragma once
// The program's version and its help.

#include <string>

namespace tidewrack {

[[nodiscard]] const char* version();
[[nodiscard]] std::string usageText();

} // namespace tidewrack
