#pragma once
// Judges a shell command before an agent runs it: what it may destroy, and whether it may run. Nothing is
// run; the disk is read only to match patterns, to tell folders from files and to recognise a protected
// folder under another spelling.

#include "Shell/Decision.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Judges one command line. Never fails, and takes milliseconds for any input; more than 10,000 targets are
// not listed one by one, the rest makes the decision opaque.
[[nodiscard]] Decision analyze(std::string_view command, const Context& context);

// Judges by the same rules the paths that a tool of the agent is about to write, move or delete. What `moves` takes
// away is the first of them. A folder that goes is judged as one that a command takes.
[[nodiscard]] Decision judgeFiles(const std::vector<std::string>& paths, FileAct act, const Context& context);

} // namespace tidewrack::shell
