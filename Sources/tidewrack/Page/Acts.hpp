#pragma once
// What changes something is looked at first, and done only as it was looked at.

#include "Page/Routes.hpp"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
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

// A hunk that was chosen is another one by now; the text is for whoever chose it.
struct OtherHunk : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Foreseen {
    Ran dry;
    nlohmann::json told;  // what the dry run printed; null for an act without one, discarded where it failed
    nlohmann::json hunks; // those that were chosen, as `diff --lines` prints them
    std::string identity; // the same as long as the act would do the same to the same files
};

// The commands, for one project.
struct Desk {
    std::string root; // of the project
    Runner runner;

    [[nodiscard]] Ran run(const CommandWords& command) const { return runner(command.forProject(root)); }
    // What the act would do. Throws OtherHunk.
    [[nodiscard]] Foreseen foresee(const Act& act) const;
    // None where it would do something else by now than was foreseen, or a file is not as it was then. Throws
    // OtherHunk.
    [[nodiscard]] std::optional<Ran> carryOut(const Act& act, const std::string& identity) const;
};

} // namespace tidewrack::page
