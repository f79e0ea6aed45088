#pragma once
// Names in a whole history: where a path was, when it went, and which snapshot gives it back.

#include "Engine/Engine.hpp"
#include "Engine/Warning.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// What a name is looked for by: a part of its path, or a shell pattern, which has to fit the whole last component or,
// with a slash in it, the whole path. Case counts only where the pattern has capitals.
class NamePattern {
  public:
    explicit NamePattern(std::string text);
    [[nodiscard]] bool matches(std::string_view path) const;

  private:
    std::string text_;
    bool isGlob_;
    bool anyCase_;
};

// A path that a history has or had.
struct FoundPath {
    std::string path;
    EntryKind kind = EntryKind::file;
    Stretch during;                     // the last time it was there without a gap: the first and last snapshot
    std::vector<Stretch> earlier;       // the times before, oldest first
    std::optional<std::int64_t> goneIn; // the first snapshot after `during`; none: the newest one has it
    std::optional<std::string> movedTo; // where that snapshot has the same content
    std::optional<std::int64_t> keptIn; // the newest snapshot of `during` that holds its content
    std::optional<std::string> notKept; // why the last one of `during` does not
    bool isThere = false;               // in the folder now
    std::size_t inside = 0;             // paths in this folder that came and went with it

    bool operator==(const FoundPath&) const = default;
};

struct FoundPaths {
    // What is gone, the last to go first, and then what is there; else by path. What lies in a found folder and came
    // and went with it is only counted, unless its own name matches.
    std::vector<FoundPath> paths;
    std::vector<Warning> warnings; // listings that cannot be read; the others tell what they can
};

// `records`: all of the history's, ascending.
[[nodiscard]] FoundPaths findPaths(const Engine& engine, const Project& project,
                                   const std::vector<SnapshotMeta>& records, const NamePattern& pattern);

} // namespace tidewrack
