#pragma once
// What a turn did in other projects than the one in which it is taken back.

#include "Timeline/TurnUndo.hpp"

#include <string>
#include <vector>

namespace tidewrack {

class Invocation;

namespace commands {

// What was taken back in one project, or would be.
struct Done {
    Project project;
    UndoChoice choice;
    UndoResult result;
    std::string failure{};  // of another project: why nothing was done there
    bool gone = false;      // its folder is: then there is nothing to take back
    bool isOutside = false; // something comes back outside of projects
};

// How to get back a project whose folder is gone, as it was at `snapshot`.
[[nodiscard]] std::string bringingBack(const Project& project, const std::string& snapshot);
// Throws with that where the project's folder is.
void refuseGone(const Project& project, const std::string& snapshot);

// Carried out, or planned, where the same turn worked as well.
[[nodiscard]] std::vector<Done> inOtherProjects(Invocation& call, const Done& first, const TurnUndo::Options& options);

// Whoever asks for the newest turn is told of one that is newer than the chosen one, and of which something is left
// elsewhere alone. Empty where there is none.
[[nodiscard]] std::string newerElsewhere(Invocation& call, const Project& project, const TurnUndo& undo,
                                         const UndoChoice& choice);

} // namespace commands

} // namespace tidewrack
