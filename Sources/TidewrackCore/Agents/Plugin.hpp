#pragma once
// The program of ours that an agent without a configuration of hooks loads.

#include <string>
#include <string_view>

namespace tidewrack {

// OpenCode's: a thin shell around `command`, the command line that runs `binary`.
[[nodiscard]] std::string opencodePlugin(std::string_view binary, std::string_view command);

} // namespace tidewrack
