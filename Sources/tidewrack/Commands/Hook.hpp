#pragma once
// `tidewrack hook`: answers one event of an agent, read from standard input.

#include "Agents/Replies.hpp"

#include "CommandLine.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// Runs `tidewrack hook WORDS...`: reads `around.input` to its end and returns what to write and the exit status.
// Throws CliError when the words name no agent; nothing else fails.
[[nodiscard]] HookOutput runHook(const std::vector<std::string>& words, const Surroundings& around);

} // namespace tidewrack
