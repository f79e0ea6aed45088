#pragma once
// Changing what a project's history leaves out, by the patterns in the project's record.

#include "Engine/Engine.hpp"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// The line of a .gitignore file that stands for this one path, relative to the root.
[[nodiscard]] std::string patternOf(std::string_view path);

// The project's patterns with one more behind them, which outweighs the others.
[[nodiscard]] std::vector<std::string> excluding(const Project& project, const std::string& pattern);
// The same with those that have the path kept, whatever else leaves it out: the folders around it are entered, and
// what else is in them stays left out. As they are where it is kept already.
[[nodiscard]] std::vector<std::string> including(const Project& project, const std::string& path);

// What of the listing the project's rules leave out, folders in place of all that is in them. The paths that are listed
// as left out already are not among them.
struct NewlyLeftOut {
    std::vector<std::string> paths; // a folder with "/" at its end
    std::int64_t files = 0;
};
[[nodiscard]] NewlyLeftOut newlyLeftOut(const Project& project, const Manifest& listing);

// Records the patterns. Throws TidewrackError io or corrupt.
void setPatterns(const Store& store, const Project& project, const std::vector<std::string>& patterns);

// The paths that the patterns have kept by name, and a listing from before does not have: a folder that was left out
// then without a trace.
[[nodiscard]] std::set<std::string, std::less<>> keptSince(const Project& project, const Manifest& listing);

} // namespace tidewrack
