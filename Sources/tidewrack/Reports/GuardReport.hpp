#pragma once
// What the guard sees in a command line, and what a hook would do.

#include "Output.hpp"
#include "Shell/Decision.hpp"
#include "Shell/Program.hpp"

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <string>
#include <vector>

namespace tidewrack {

struct GuardReport {
    std::string line;
    std::string folder; // that it runs in
    shell::Program program;
    bool isCut = true; // all of the line could be taken apart
    shell::Decision decision;
    std::map<std::string, std::string> because; // paths and folders of the decision: the first command that named them
    std::vector<std::string> faults;            // of the user's own rules

    // What is saved first.
    std::vector<std::string> snapshots;  // of these projects
    std::vector<std::string> ifChanged;  // of these, where something changed since the newest snapshot
    std::vector<std::string> beginning;  // of these git repositories, which begin to be tracked
    std::vector<std::string> vault;      // copies of these paths
    std::vector<std::string> vaultGuess; // the same, as far as there is room and time
    std::vector<std::string> gitStates;  // copies of git's own state of these repositories, likewise
};

// A command as it can be read: its words, with $(...) for what other commands give.
[[nodiscard]] std::string commandText(const shell::Command& command);

[[nodiscard]] std::string guardText(const GuardReport& report, const Look& look);
[[nodiscard]] nlohmann::json guardJson(const GuardReport& report);

} // namespace tidewrack
