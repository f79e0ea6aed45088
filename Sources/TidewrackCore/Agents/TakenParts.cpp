#include "Agents/TakenParts.hpp"

#include "Agents/HookHandler.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"

#include <algorithm>
#include <optional>
#include <set>

namespace tidewrack {

namespace {

using Paths = std::vector<std::string>;
using shell::FoundFiles;
using shell::GitTakes;

Paths below(const Paths& paths, const std::string& folder) {
    Paths result;
    for (const std::string& path : paths)
        if (isAtOrBelow(path, folder)) result.push_back(path);
    return result;
}

void addFound(const Paths& unkept, FoundFiles found, TakenParts& parts) {
    found.folder = Store::canonical(found.folder);
    for (const std::string& path : below(unkept, found.folder)) {
        if (found.mayTake(path)) {
            (found.certain ? parts.known : parts.guessed).push_back(path);
            continue;
        }
        // A folder that passes may go with all it holds.
        for (std::string_view folder = parentOf(path); folder.size() > found.folder.size(); folder = parentOf(folder)) {
            if (!found.mayTake(folder)) continue;
            parts.guessed.push_back(path);
            break;
        }
    }
}

// Those of the paths that git would take; none where it does not say.
std::optional<Paths> toldByGit(const Paths& paths, const std::string& folder, const GitTakes& takes,
                               GitPatience& patience) {
    if (!takes.canTell) return std::nullopt;
    const auto root = gitRoot(folder);
    if (!root) return Paths();
    const bool untracked = takes.which == GitTakes::Which::untracked;
    const auto told = untracked ? cleanedByGit(takes.wholeTree ? *root : folder, takes.words, patience)
                                : changedForGit(*root, paths, patience);
    if (!told) return std::nullopt;
    Paths result;
    for (const std::string& path : paths)
        if (std::any_of(told->begin(), told->end(), [&](const auto& taken) { return isAtOrBelow(path, taken); }))
            result.push_back(path);
    return result;
}

void addTaken(const Paths& unkept, const GitTakes& takes, GitPatience& patience, TakenParts& parts) {
    const std::string folder = Store::canonical(takes.folder);
    // What "git clean" takes may be named from the folder, and lie beside it.
    const bool everywhere = takes.wholeTree || takes.which == GitTakes::Which::untracked;
    const Paths paths = below(unkept, everywhere ? gitRoot(folder).value_or(folder) : folder);
    if (paths.empty()) return;
    const auto told = toldByGit(paths, folder, takes, patience);
    Paths& to = told && takes.certain && !takes.stays ? parts.known : parts.guessed;
    const Paths& taken = told ? *told : paths;
    to.insert(to.end(), taken.begin(), taken.end());
}

} // namespace

TakenParts takenParts(const Paths& unkept, const shell::Decision& decision, GitPatience& patience) {
    TakenParts parts;
    for (const FoundFiles& found : decision.found) addFound(unkept, found, parts);
    for (const GitTakes& takes : decision.gitTakes) addTaken(unkept, takes, patience, parts);
    sortAndDedupe(parts.known);
    sortAndDedupe(parts.guessed);
    return parts;
}

} // namespace tidewrack
