#pragma once
// What the program promises to make of a folder and of its records, worked out on trees in memory.

#include "Model/Tree.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace tidewrack::testing {

// One snapshot as the model remembers it.
struct Known {
    SnapshotMeta meta;
    Tree tree;
};
using KnownSnapshots = std::map<std::int64_t, Known>;

struct RestoreTask {
    const Tree& before; // the folder now, with what is not listed
    const Tree& target;
    std::function<bool(const std::string&)> scope;
    const Paths& nested;
    bool removeNew = true;
};

struct RestoreOutcome {
    Tree after;     // written nodes have the target's mode, time and version
    Paths restored; // as reported, like `removed`: folders, too
    Paths removed;
    Paths warned;    // paths that one or more warnings must be about
    Paths disturbed; // folders in which something was added or removed
    Paths finished;  // folders that got the target's mode and time
};

[[nodiscard]] RestoreOutcome expectedRestore(const RestoreTask& task);

// The numbers that retention leaves.
[[nodiscard]] std::set<std::int64_t> expectedToStay(const KnownSnapshots& snapshots, Date now);

} // namespace tidewrack::testing
