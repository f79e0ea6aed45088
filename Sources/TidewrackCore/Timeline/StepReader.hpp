#pragma once
// Reads what is to be taken back: what happened between which listings, and whose it was.

#include "Store/EditLog.hpp"
#include "Store/Forgotten.hpp"
#include "Store/History.hpp"
#include "Timeline/Timeline.hpp"
#include "Timeline/UndoPlan.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tidewrack {

struct UndoSteps {
    std::vector<UndoStep> steps;     // newest first
    std::optional<std::size_t> open; // the one that goes on until now: `after` is for the caller to fill in
};

// A row's stretches, newest first; that of a running turn goes on until now.
[[nodiscard]] std::vector<Stretch> openStretches(const TimelineRow& row);

class StepReader {
  public:
    // All of one project, and outliving the reader; `records` by ascending number, without those that are `unread`.
    StepReader(const History& history, const std::vector<SnapshotMeta>& records,
               const std::vector<UnreadRecord>& unread, const EditNotes& notes, const Forgotten& forgotten)
        : history_(history), records_(records), unread_(unread), notes_(notes), forgotten_(forgotten) {}

    // `rows` newest first. Steps without a difference are left out.
    [[nodiscard]] UndoSteps read(const std::vector<TimelineRow>& rows);

  private:
    struct Part {
        Stretch stretch;
        std::string doubt{};
        bool byEdits = false; // the files that the agents' tools named may still tell
    };

    [[nodiscard]] std::vector<Part> partsOf(const TimelineRow& row) const;
    [[nodiscard]] bool isLost(const Stretch& stretch) const; // of the snapshots in it some were forgotten
    [[nodiscard]] Part partOf(const TimelineRow& row, const Stretch& stretch) const;
    void add(const TimelineRow& row, const Part& part, UndoSteps& steps);
    [[nodiscard]] std::optional<UndoStep::Paths> foundUnread(std::int64_t from, const Manifest& before,
                                                             const Manifest& after,
                                                             const std::vector<std::string>& paths);
    void noteOwners(const TimelineRow& row, const Stretch& stretch, UndoStep& step) const;
    [[nodiscard]] const SnapshotMeta& record(std::int64_t seq) const;
    [[nodiscard]] const Manifest& listing(const SnapshotMeta& meta);

    const History& history_;
    const std::vector<SnapshotMeta>& records_;
    const std::vector<UnreadRecord>& unread_;
    const EditNotes& notes_;
    const Forgotten& forgotten_;
    std::vector<std::pair<std::int64_t, Manifest>> read_; // the two that were asked for last
};

} // namespace tidewrack
