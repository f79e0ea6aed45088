#pragma once
// What goes wrong in the fault tests: every operation that changes the disk, each on a scene prepared for it.

#include "Linux/FaultScene.hpp"

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace tidewrack::testing {

// Three snapshots and unsaved work.
void history(Scene& scene);
// A turn that ended, in two projects.
void workInTwo(Scene& scene);

struct Operation {
    const char* name;
    std::vector<std::string> words;
    void (*prepare)(Scene&) = history;
    std::string input = ""; // "@" stands for the scene's folder
    bool losesHistory = false;
    std::set<std::int64_t> due = {}; // snapshots that it may prune

    [[nodiscard]] bool restores() const { return words[0] == "restore" || words[0] == "undo" || words[0] == "redo"; }
    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }
};

[[nodiscard]] const std::vector<Operation>& operations();

// Input of hooks: what comes before a command, and whole ones.
extern const std::string runs;
extern const std::string removesNotes;
extern const std::string removesFile; // which is asked about

[[nodiscard]] std::string replaced(std::string text, const std::string& what, const std::string& with);

} // namespace tidewrack::testing
