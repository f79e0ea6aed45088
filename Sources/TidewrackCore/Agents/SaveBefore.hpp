#pragma once
// Saves what a command may delete or overwrite before it runs: the tracked projects by a snapshot each, everything
// else by copies in the vault.

#include "Agents/HookContext.hpp"
#include "Shell/Decision.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// What a command destroys although neither a snapshot nor the vault can hold it.
struct Unsaved {
    std::string path;
    std::string reason;
    std::size_t more = 0; // other paths
};

struct SavedBefore {
    std::vector<std::string> notes;            // for the log: what was saved, and what there was no time for
    std::vector<std::string> failures;         // what went wrong, one sentence each, for the log
    std::vector<std::string> snapshotted;      // roots of the projects that have a snapshot
    std::optional<std::string> notSnapshotted; // why a project that the command takes whole has no snapshot
    Gaps gaps;                                 // in the snapshots of such projects
    bool losesGitHistory = false;              // git's own, of which nothing holds all objects
    std::optional<Unsaved> unsaved;
};

// What is saved where, as far as that shows without saving anything.
struct SavePlan {
    std::vector<Project> projects;           // by a snapshot each
    std::vector<Project> guessed;            // the same, where something changed since the newest one
    std::vector<std::string> outside;        // by a copy each in the vault
    std::vector<std::string> guessedOutside; // the same, where there is room
};
[[nodiscard]] SavePlan planSaving(HookContext& context, const shell::Decision& decision);

// `unkept`: files of projects that no snapshot holds, which the command changes as well; sorted. Never throws: one
// failure does not stop the others, and no failure changes what is answered to the command.
[[nodiscard]] SavedBefore saveBefore(HookContext& context, const std::string& command, const shell::Decision& decision,
                                     const std::vector<std::string>& unkept = {});

// What has to be asked where nothing is known to be saved, for the reason `why`. Looks at the targets alone.
[[nodiscard]] SavedBefore nothingSaved(const HookContext& context, const shell::Decision& decision,
                                       const std::string& why);

inline constexpr const char* noTimeLeft = "there was no time left";

} // namespace tidewrack
