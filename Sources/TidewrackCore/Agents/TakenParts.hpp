#pragma once
// The files that no snapshot holds and that a command takes which takes a part of what is in a folder.

#include "Shell/Decision.hpp"
#include "Walk/GitQuestion.hpp"

#include <string>
#include <vector>

namespace tidewrack {

struct TakenParts {
    std::vector<std::string> known;   // that go for certain
    std::vector<std::string> guessed; // that may go, or are kept in another place
};

// `unkept`: the absolute, canonical paths of such files. Asks git where only git knows.
[[nodiscard]] TakenParts takenParts(const std::vector<std::string>& unkept, const shell::Decision& decision,
                                    GitPatience& patience);

} // namespace tidewrack
