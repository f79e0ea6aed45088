#pragma once
// Saves what a command may delete or overwrite before it runs: the tracked projects by a snapshot each, everything
// else by copies in the vault.

#include "Agents/HookContext.hpp"
#include "Shell/Guard.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct SavedBefore {
    std::vector<std::string> notes;            // for the log: what was saved, and what there was no time for
    std::vector<std::string> failures;         // what went wrong, one sentence each, for the log
    std::optional<std::string> notSnapshotted; // why a project has no snapshot of all that it holds
};

// Never throws: one failure does not stop the others, and no failure changes what is answered to the command.
[[nodiscard]] SavedBefore saveBefore(HookContext& context, const std::string& command, const shell::Decision& decision);

} // namespace tidewrack
