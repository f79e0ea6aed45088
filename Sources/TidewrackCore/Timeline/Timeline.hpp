#pragma once
// A project's records as the story of what happened: who changed the folder from which snapshot to which.
// Pure: no disk, no clock. 1,000 records take far less than reading them.

#include "Changes/Changes.hpp"
#include "Store/EditLog.hpp"
#include "Store/Records.hpp"
#include "Timeline/LoggedHook.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Where a stretch that is still going on ends.
inline constexpr std::int64_t untilNow = 0;

struct TimelineRow {
    enum class Type {
        turn,    // what an agent did from a prompt to its end
        outside, // what changed while no agent was at work
        manual,  // a snapshot by hand
        restore, // the folder, or parts of it, put back to a snapshot
        undo,    // something taken back, or an undo taken back again
    };
    enum class End {
        stop,        // the agent said that it was done, or nothing has to end
        interrupted, // the agent said that it was cut off
        running,     // no record came after its own
        unknown,     // something else was recorded next: the end was not seen
    };
    struct Command {
        std::int64_t seq = 0; // the snapshot taken before it; 0 where there is none
        std::string command;
        std::string verdict; // "allow" or "ask"; empty where the log no longer has it
        Date time{};
        std::string project{}; // the root of the other project that the snapshot is of; empty: it is of this one
        std::string vault{};   // the entry made before it, where there is no snapshot
        bool operator==(const Command&) const = default;
    };
    // Another turn at work between the same snapshots.
    struct Company {
        std::string agent;
        std::string session;
        std::string title;
        Stretch during;
        bool seen = true; // else its end was not, and it may have been at work
        bool operator==(const Company&) const = default;
    };

    Type type = Type::turn;
    std::int64_t first = 0; // the state before
    std::int64_t last = 0;  // the state after; of a running turn the newest one
    std::optional<std::string> agent;
    std::optional<std::string> session;
    std::optional<std::string> turn;
    std::string title;         // the prompt, or a label; empty where there was none
    bool thinned = false;      // a turn whose first snapshots are pruned
    bool beginLost = false;    // what lay before those as well, so that others may have worked since `first`
    bool beginUnread = false;  // they are there, and can't be read
    bool prompted = false;     // a turn that began with its prompt, which is recorded in one project alone
    bool undone = false;       // taken back since as a whole, and not redone
    bool redo = false;         // an undo that takes back another one, or a restore
    bool foldersAlone = false; // no file changed, but folders came, went or got other permissions
    Date began{};
    Date seen{};               // when the newest of a turn's own snapshots was taken
    std::optional<Date> ended; // for End::stop and End::interrupted
    std::optional<Date> next;  // when the session's next turn began here
    End end = End::stop;
    // Between which snapshots its changes were made, oldest first. Usually one, from `first` to `last`; a restore in
    // between parts it, and so does what was recorded between a turn's end and the end of a task that it left running.
    // The last one of a running turn is open: it goes on behind `last`. None for a snapshot by hand.
    std::vector<Stretch> stretches;
    // Those parts of them in which the turn had ended and only a task that it left running was at work: a person may
    // have been as well.
    std::vector<Stretch> waits;
    std::vector<std::int64_t> own; // a turn's own snapshots
    // Those stretches of a turn in which no other session was at work, as their ends tell: what is missing there is the
    // turn's own.
    std::vector<Stretch> alone;
    std::optional<Changes::Counts> counts; // files; none where only a comparison of listings tells
    std::vector<Command> commands;
    std::vector<Company> company;
    std::vector<std::string> projects; // roots of the other projects that the turn worked in
    std::vector<std::string> vault;    // ids of the vault entries made for its commands
    std::vector<Stretch> tookBack;     // what a restore or undo took back in full

    bool operator==(const TimelineRow&) const = default;
    [[nodiscard]] bool isRunning() const { return end == End::running; }
};

struct Timeline {
    std::vector<TimelineRow> rows; // newest first, by the snapshot that they end with

    // `records` of one project, by ascending number, with what was logged of its hooks and of its files.
    [[nodiscard]] static Timeline of(const std::string& root, const std::vector<SnapshotMeta>& records,
                                     const std::vector<LoggedHook>& hooks = {},
                                     const std::vector<NotedEdit>& edits = {});

    // The newest turn that snapshot `seq` belongs to: which it began or ended with, or which was at work then. None
    // when there is none.
    [[nodiscard]] const TimelineRow* turnAt(std::int64_t seq) const;
    // None when no agent was at work here.
    [[nodiscard]] const TimelineRow* newestTurn() const;
    // During which rows something changed at `path` that snapshot `seq` is the first to show: turns rather than
    // anything else, and of several turns those that named it. `records` and `edits` are those that the timeline was
    // made of.
    [[nodiscard]] std::vector<const TimelineRow*> rowsThatLedTo(std::int64_t seq, std::string_view path,
                                                                const std::vector<SnapshotMeta>& records,
                                                                const std::vector<NotedEdit>& edits) const;
};

// "#3–#5", or "#3" for one snapshot.
[[nodiscard]] std::string spanText(std::int64_t first, std::int64_t last);

// The first of these records, which ascend, with at least this number.
[[nodiscard]] std::vector<SnapshotMeta>::const_iterator firstFrom(const std::vector<SnapshotMeta>& records,
                                                                  std::int64_t seq);

// When a snapshot was complete.
[[nodiscard]] Date endOf(const SnapshotMeta& meta);

// Whether an edit was noted behind a snapshot, and whether before it. The number noted with it tells; in older notes
// the time, whose second counts as both.
[[nodiscard]] bool isBehind(const NotedEdit& edit, const SnapshotMeta& meta);
[[nodiscard]] bool isBefore(const NotedEdit& edit, const SnapshotMeta& meta);

// Whether a row of another project's timeline is the same turn.
[[nodiscard]] bool isSameTurn(const TimelineRow& one, const TimelineRow& other);

} // namespace tidewrack
