#pragma once
// The files below a folder that a command such as find takes, as far as their paths tell.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

struct FoundFiles {
    std::string folder;
    std::vector<std::string> names;        // one of these patterns must match the name ...
    std::vector<std::string> paths;        // ... or one of these the path; all lists empty: all pass
    std::vector<std::string> anyCaseNames; // the same, whatever the case of their letters
    std::vector<std::string> anyCasePaths;
    std::vector<std::string> endings;      // where there are any, one must end the name too, in any case
    std::size_t depth = std::string::npos; // of the folders below the folder, at most
    bool onlyEmpty = false;
    bool takesFolders = false; // of these names, too, with all that they hold
    bool certain = false;      // nothing but this decides: what passes goes
    bool sparesGit = false;    // git's own stores are left out, whatever passes

    // `below`: how many folders below the folder the path is.
    [[nodiscard]] bool pass(std::string_view path, std::size_t below) const;
    // The same, for a path below the folder. What can't be told passes.
    [[nodiscard]] bool mayTake(std::string_view path) const;
    // Whether everything passes, as far down as the depth.
    [[nodiscard]] bool takesAll() const;

    bool operator==(const FoundFiles&) const = default;
};

// What a command such as find or ls lists of a folder.
struct Listing {
    std::string folder;
    std::vector<std::string> names; // patterns, one of which must match; empty: every name
    bool deep = false;              // also what its folders hold

    bool operator==(const Listing&) const = default;
};

} // namespace tidewrack::shell
