#pragma once
// What became of one path, snapshot by snapshot.

#include "Engine/Engine.hpp"
#include "Engine/Warning.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// Between two neighbouring states something changed at or below a path.
struct PathStep {
    std::size_t before = 0;                 // which of the records is the state before
    std::int64_t shownIn = 0;               // the snapshot that shows the change; 0: the folder as it is now
    Engine::Sides sides;                    // at least what differs
    Changes changes;                        // at or below the path, with at least one file among them
    std::string path;                       // what it is called afterwards
    std::optional<std::string> renamedFrom; // and before: a file of the same content and size that went in this step
};

struct PathTrail {
    bool known = false;            // some snapshot that was looked at has the path, or the folder
    std::vector<Warning> warnings; // listings that cannot be read
};

// Hands out the steps of a project-relative path, newest first, until `visit` returns false; a file's under its earlier
// names too. `records`: all of the history's, ascending.
PathTrail followPath(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records,
                     std::string path, const std::function<bool(const PathStep&)>& visit);

} // namespace tidewrack
