#pragma once
// "forgotten" of one project: what its owner had removed from the history. Who takes turns back must know where
// snapshots are missing that were there, and a removal that was cut short is finished by it.

#include "Store/ProjectLock.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct Forgotten {
    // Where it can't be told any more who was at work, from one number to another, both of them outside; ascending,
    // apart from each other. Those of a file that can't be read reach over everything.
    std::vector<Stretch> lost;

    // A removal that has begun: these snapshots go.
    std::vector<std::int64_t> snapshots;

    bool operator==(const Forgotten&) const = default;
    // Whether something between the two is lost. Stretch::to may be the largest number, for now.
    [[nodiscard]] bool isLostIn(const Stretch& stretch) const;
    // Whether a snapshot of this number may have been forgotten.
    [[nodiscard]] bool mayHaveHeld(std::int64_t seq) const;
    // The largest number that a forgotten snapshot may have had, which no other one gets; 0 for none.
    [[nodiscard]] std::int64_t highest() const;
    // Adds what gets lost.
    void lose(const std::vector<Stretch>& stretches);
    // Leaves out what lies before the oldest snapshot that is left.
    void dropBefore(std::int64_t oldest);
};

[[nodiscard]] std::string forgottenPath(const std::string& historyFolder);

// The file's text, and back. docs/store-format.md has an example.
[[nodiscard]] std::string encoded(const Forgotten& forgotten);
[[nodiscard]] Forgotten decodeForgotten(std::string_view text);

// Nothing where there is no such file. Never throws: what can't be read counts as lost.
[[nodiscard]] Forgotten readForgotten(const std::string& historyFolder);
// Replaces it in one step, and removes it where there is nothing to tell. Throws TidewrackError io.
void writeForgotten(const ProjectLock& lock, const std::string& historyFolder, const Forgotten& forgotten);

} // namespace tidewrack
