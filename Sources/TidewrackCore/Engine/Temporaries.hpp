#pragma once
// The files under names of our own that a restore makes in a project. A process can die at any instant and leave some;
// one of them may then hold the only copy of what somebody wrote at the last moment. So that ours are told from a
// user's file that merely looks like one, each restore makes their names with a mark and writes that down in the
// history first. docs/store-format.md has the form.

#include "Engine/PathOutcome.hpp"
#include "Store/History.hpp"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// One restore, as it wrote down.
struct MarkedRestore {
    std::string prefix;      // of its temporaries' names
    std::int64_t safety = 0; // its snapshots: taken before it, and gone back to
    std::int64_t target = 0; // of one put together from several: the number of the record to come, or 0

    // Whether the name is one of its temporaries'.
    [[nodiscard]] bool owns(std::string_view name) const;
    // The name in the same folder that a temporary stood aside for; none for a copy that was not finished.
    [[nodiscard]] static std::string_view original(std::string_view name, std::string_view prefix);
};

// The name that a temporary of any restore stood aside for; none for other names.
[[nodiscard]] std::string_view originalOfAny(std::string_view name);

// What restores that were cut short left behind.
struct Interrupted {
    std::vector<PathOutcome> outcomes;    // what got a name that people find, and what could not be cleared
    std::vector<MarkedRestore> remaining; // those of which not everything could be cleared
};

// The listing of a folder as it will be once all that is foreseen is done and everything else that was left is gone.
[[nodiscard]] Manifest withCleared(const Manifest& listing, const Interrupted& foreseen);

// Those that run, or were cut short. Throws TidewrackError io.
[[nodiscard]] std::vector<MarkedRestore> markedRestores(const History& history);
// Their prefixes, for a snapshot: one that lists a temporary as well is worth more than none.
[[nodiscard]] std::vector<std::string> knownPrefixes(const History& history);
[[nodiscard]] std::vector<std::string> prefixesOf(const std::vector<MarkedRestore>& restores);
// Replaces what is written down. Throws TidewrackError io.
void markRestores(const ProjectLock& lock, const History& history, const std::vector<MarkedRestore>& restores);

// The names of this restore's temporaries; may be asked by several threads.
class Temporaries {
  public:
    Temporaries();
    [[nodiscard]] const std::string& prefix() const { return prefix_; }
    // Of a copy that is being made: what is left of it is nobody's work.
    [[nodiscard]] std::string forCopy();
    // Of the file `name` in this folder while it is moved aside, or of one that is about to replace it.
    [[nodiscard]] std::string aside(int folder, std::string_view name);

    // One could not be removed again.
    void leave() { anyLeft_ = true; }
    [[nodiscard]] bool anyLeft() const { return anyLeft_; }

  private:
    std::string prefix_;
    std::atomic<unsigned> counter_ = 0;
    std::atomic<bool> anyLeft_ = false;
};

// The paths beside the temporary file at `path` that it may have stood aside for, going by its `name` of them: that
// itself and, where the volume had no room for all of it, what the listing has of files that begin with it.
[[nodiscard]] std::vector<std::string> originalsIn(const Manifest& listing, std::string_view path,
                                                   std::string_view name);

// As many whole characters of the name as the folder's volume has room for beside `used` bytes.
[[nodiscard]] std::string shortened(int folder, std::string_view name, std::size_t used);

} // namespace tidewrack
