#pragma once
// Removing snapshots because their owner says so, whatever their age.
//
// "forgotten" is written first: what it calls lost is doubted from then on, and a removal that is cut short is finished
// by the next one. Then records, listings and contents go as they do in a prune. At last nothing is pending.

#include "Engine/Engine.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

namespace tidewrack {

// Either these numbers, pinned or not, or what is older and not pinned.
struct ForgetChoice {
    std::vector<std::int64_t> seqs;
    std::optional<Date> before;
};

struct ForgetResult {
    std::vector<std::int64_t> removed; // or what would be; ascending
    std::vector<std::int64_t> pinned;  // those of them that are pinned
    std::vector<std::int64_t> resumed; // those of them that an earlier removal, which was cut short, has left
    std::vector<std::int64_t> left;    // older ones that stay because they are pinned
    std::int64_t contents = 0;         // kept contents that go
    std::size_t remaining = 0;         // how many snapshots stay

    bool operator==(const ForgetResult&) const = default;
};

// Throws TidewrackError noSnapshot where a named one is not there, corrupt or io where a record can't be read. A dry
// run only reads, and waits for nobody.
[[nodiscard]] ForgetResult forget(const Engine& engine, const Project& project, const ForgetChoice& choice,
                                  Engine::Acting acting);

// What a prune does, for these snapshots whatever their age; and what it would do. Both tell nobody of it.
PruneResult removeSnapshots(const Engine& engine, const ProjectLock& lock, const Project& project,
                            const std::set<std::int64_t>& seqs);
[[nodiscard]] PruneResult foreseeRemoval(const Engine& engine, const Project& project,
                                         const std::set<std::int64_t>& seqs);

// Where it can't be told any more who was at work once these snapshots are gone: from the one before each to the one
// behind it, and for a turn whose beginning or end goes all of the turn, since nothing else may tell that its agent was
// at work. `records` by ascending number.
[[nodiscard]] std::vector<Stretch> lostWith(const std::vector<SnapshotMeta>& records,
                                            const std::set<std::int64_t>& removed);

} // namespace tidewrack
