#pragma once
// The agents' own tools that write, move or delete files: which they are, and what files a call of one names.

#include "Agents/Agent.hpp"
#include "Shell/Decision.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct ChangedFiles {
    std::vector<std::string> paths; // absolute, each once, in the order of the call
    shell::FileAct act = shell::FileAct::writes;
};

// What a call of the tool is about to change. No paths for a tool that changes none, or that does not say which.
// `toolInput` may be null or no object; a relative path is taken from `cwd`. Some agents read "~/" as the home folder
// and others as a folder of that name: it counts as both.
[[nodiscard]] ChangedFiles filesChangedBy(Agent agent, std::string_view tool, const nlohmann::json* toolInput,
                                          std::string_view cwd, std::string_view home);

// The files that a patch in codex's form adds, changes, moves or deletes, as it spells them.
[[nodiscard]] std::vector<std::string> filesInPatch(std::string_view patch);

} // namespace tidewrack
