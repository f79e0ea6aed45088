#pragma once
// Which snapshots are kept, by age: all of the last 48 hours, the newest of each clock hour (UTC) up to 7 days, the
// newest of each day (UTC) up to 30 days, and pinned ones for ever. A pure function of the records.

#include "Store/Records.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace tidewrack {

// No snapshot is removed that is younger.
inline constexpr std::chrono::hours keepsAll{48};

struct RetentionPlan {
    std::vector<std::int64_t> remove;      // snapshot numbers, ascending
    std::set<std::int64_t> manifestsInUse; // of the snapshots that stay
    // The manifests that together name every content still in use, given that a snapshot's contents are its own and
    // those of the snapshot before it. Newest first.
    std::vector<std::int64_t> manifestsToRead;
    std::set<std::int64_t> manifestsFreed; // of removed snapshots alone
    // Given that until now every content was named by some snapshot: whether the only ones that may have lost their
    // last name are those kept by the snapshots of the freed manifests.
    bool freesOwnContentsOnly = true;
};

// `snapshots` ascending by number. With `upTo` those of up to then go as well, for want of room, but for pinned ones,
// all of the last 48 hours, and the newest.
[[nodiscard]] RetentionPlan planRetention(const std::vector<SnapshotMeta>& snapshots, Date now,
                                          std::optional<Date> upTo = std::nullopt);

// The same for those that somebody names, whatever their age.
[[nodiscard]] RetentionPlan planRemoval(const std::vector<SnapshotMeta>& snapshots,
                                        const std::set<std::int64_t>& remove);

// Whether `now` is credible enough to remove snapshots by their age without being asked: a wrong clock would make the
// whole history look old. After a jump of the clock (a record more than 400 days after the one before it, or more than
// an hour before it) records have to span two days first. `records` in the order in which they were made, the latest
// included.
[[nodiscard]] bool clockIsConfirmed(std::span<const Date> records, Date now);
[[nodiscard]] bool clockIsConfirmed(const std::vector<SnapshotMeta>& snapshots, Date now);

} // namespace tidewrack
