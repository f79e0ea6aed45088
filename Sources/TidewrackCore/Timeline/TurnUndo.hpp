#pragma once
// Taking back what was done: a turn, a session, what lies between two snapshots, or an undo. Later work survives.

#include "Engine/Engine.hpp"
#include "Timeline/Timeline.hpp"
#include "Timeline/UndoPlan.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// What is to be taken back.
struct UndoChoice {
    std::string by = "undo";       // or "redo"
    std::vector<TimelineRow> rows; // newest first; empty: there is nothing
};

struct UndoneAction {
    UndoAction action;
    // What changed a path that was left alone: the snapshot that shows it, 0 where none does yet, and whose turn it
    // was.
    std::int64_t changedIn = 0;
    std::optional<std::string> agent;
    std::string title;
};

struct UndoResult {
    std::vector<UndoneAction> actions;     // sorted by path
    std::optional<RestoreResult> restored; // what became of it; none for a dry run, and where there was nothing to do

    // Everything that was asked for is done, or can be.
    [[nodiscard]] bool isComplete() const;
};

class TurnUndo {
  public:
    // Reads the project's timeline. Both must outlive it.
    TurnUndo(const Engine& engine, const Project& project);

    [[nodiscard]] const Timeline& timeline() const { return timeline_; }
    // Files that a row changed in all.
    [[nodiscard]] Changes::Counts counts(const TimelineRow& row) const;

    // The turn with the newest end that changed something and was not taken back yet.
    [[nodiscard]] UndoChoice last() const;
    // The turn that snapshot `seq` belongs to. Throws refused when there is none.
    [[nodiscard]] UndoChoice turn(std::int64_t seq) const;
    // All turns of a session, which may be named by its beginning. Throws refused when none or several begin so.
    [[nodiscard]] UndoChoice session(const std::string& name) const;
    // What changed from one snapshot to another. Throws noSnapshot.
    [[nodiscard]] UndoChoice range(std::int64_t from, std::int64_t to) const;
    // The newest restore or undo that was not taken back yet.
    [[nodiscard]] UndoChoice redo() const;
    // Turns of this project that are the same as some of `rows`, which are another project's.
    [[nodiscard]] UndoChoice sameTurns(const std::vector<TimelineRow>& rows) const;

    struct Options {
        UndoOptions::Later later = UndoOptions::Later::merged;
        std::vector<std::string> paths; // project-relative; empty: all
        bool dryRun = false;            // only plan: nothing is written, and no lock taken
    };
    [[nodiscard]] UndoResult run(const UndoChoice& choice, const Options& options) const;

  private:
    [[nodiscard]] std::vector<Stretch> stretches(const UndoChoice& choice) const;
    [[nodiscard]] std::vector<UndoStep> steps(const UndoChoice& choice, const Manifest& now) const;
    [[nodiscard]] UndoContents contents() const;
    [[nodiscard]] std::vector<UndoAction> plan(const std::vector<UndoStep>& steps, const Manifest& now,
                                               const Options& options) const;
    void act(const ProjectLock& lock, TakenSnapshot& safety, const UndoChoice& choice, bool whole,
             std::vector<UndoAction>& actions, UndoResult& result) const;
    [[nodiscard]] std::vector<UndoneAction> withCauses(std::vector<UndoAction> actions, const UndoChoice& choice) const;
    [[nodiscard]] std::string label(const UndoChoice& choice) const;

    const Engine& engine_;
    const Project& project_;
    History history_;
    std::vector<SnapshotMeta> records_;
    Timeline timeline_;
};

// Adds to each turn the other projects that it worked in, and the vault entries that were made while it was the only
// turn of its agent at work here. What cannot be read is passed over.
void addElsewhere(const Store& store, const Project& project, std::vector<TimelineRow>& rows);

// What the log of the hooks holds; empty where it cannot be read.
[[nodiscard]] std::vector<LoggedHook> readLoggedHooks(const Store& store);

} // namespace tidewrack
