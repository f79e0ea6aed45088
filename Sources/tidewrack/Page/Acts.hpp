#pragma once
// What changes something is looked at first, and done only as it was looked at.

#include "Page/Routes.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack::page {

// What a command gave.
struct Ran {
    int status = 0;
    std::string out;
    std::string err;
};
using Runner = std::function<Ran(const std::vector<std::string>& words)>;

// The commands, for one project.
struct Desk {
    std::string root; // of the project
    Runner runner;

    [[nodiscard]] Ran run(const CommandWords& command) const { return runner(command.forProject(root)); }
    // What the act would do, as its dry run prints it; "null" where it has none.
    [[nodiscard]] Ran foresee(const Act& act) const;
    // None where it would do something else by now than was foreseen.
    [[nodiscard]] std::optional<Ran> carryOut(const Act& act, const std::string& foreseen) const;
};

} // namespace tidewrack::page
