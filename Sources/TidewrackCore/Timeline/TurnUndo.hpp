#pragma once
// Taking back what was done: a turn, a session, what lies between two snapshots, or an undo. Later work survives.

#include "Engine/Engine.hpp"
#include "Store/EditLog.hpp"
#include "Store/Forgotten.hpp"
#include "Timeline/StepReader.hpp"
#include "Timeline/Timeline.hpp"
#include "Timeline/UndoPlan.hpp"
#include "Vault/VaultEntry.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewrack {

// What is to be taken back.
struct UndoChoice {
    std::string by = "undo";       // or "redo"
    std::vector<TimelineRow> rows; // newest first; empty: there is nothing
    // What would have come before it, of which nothing is left that could be taken back; newest first.
    std::vector<TimelineRow> passed = {};
};

struct UndoneAction {
    UndoAction action;
    // What changed a path that was left alone: the snapshot that shows it, 0 where none does yet, and whose turn it
    // was.
    std::int64_t changedIn = 0;
    std::optional<std::string> agent;
    std::string title;
    Obstacle obstacle; // for Reason::obstacle
};

struct UndoResult {
    // Sorted by path. What could not be done after all is among those left alone.
    std::vector<UndoneAction> actions;
    // None for a dry run, and where there was nothing to do. Its outcomes have no obstacle that an action has.
    std::optional<RestoreResult> restored;
    std::vector<Warning> warnings; // where nothing was done: what of the folder could not be seen
    std::vector<PathOutcome>
        interrupted; // of a dry run: what restores that were cut short have left and it would clear up

    // Everything that was asked for is done, or can be.
    [[nodiscard]] bool isComplete() const;
    [[nodiscard]] bool acts() const;
};

class TurnUndo {
  public:
    // Reads the project's timeline. Both must outlive it. A record that can't be read costs what it alone tells; throws
    // corrupt when no other is left.
    TurnUndo(const Engine& engine, const Project& project);

    [[nodiscard]] const Timeline& timeline() const { return timeline_; }
    [[nodiscard]] const std::vector<SnapshotMeta>& records() const { return records_; } // ascending
    [[nodiscard]] const std::vector<UnreadRecord>& unread() const { return unread_; }
    [[nodiscard]] const std::vector<NotedEdit>& edits() const { return notes_.edits; }
    // Works out what the row's records do not tell: its counts. Throws where a listing can't be read.
    void count(TimelineRow& row) const;
    // Whether it changed anything. What can't be read may have.
    [[nodiscard]] bool hasChanges(const TimelineRow& row) const;

    struct Options {
        UndoOptions::Later later = UndoOptions::Later::merged;
        std::vector<std::string> paths; // project-relative; empty: all
        bool dryRun = false;            // only plan: nothing is written, and no lock taken
        LineDiff::ChosenHunks hunks{};  // of the one path; empty: all of it
        bool vault = false;             // what was saved outside of projects is to come back as well
        bool here = false;              // other projects stay as they are
    };

    // The turn with the newest end that changed something and was not taken back yet. Those of which nothing is left
    // in any project are passed over; not those of which nobody could take back what is left, nor those that can't be
    // read: run() tells why.
    [[nodiscard]] UndoChoice last(const Options& options) const;
    // The next turn before `row` of which something is left that could be taken back.
    [[nodiscard]] const TimelineRow* turnBefore(const TimelineRow& row) const;
    // The turn that snapshot `seq` belongs to. Throws refused when there is none.
    [[nodiscard]] UndoChoice turn(std::int64_t seq) const;
    // All turns of a session, which may be named by its beginning. Throws refused when none or several begin so.
    [[nodiscard]] UndoChoice session(const std::string& name) const;
    // What changed from one snapshot to another. Throws noSnapshot.
    [[nodiscard]] UndoChoice range(std::int64_t from, std::int64_t to) const;
    // The newest restore or undo that was not taken back yet, and of which something is left.
    [[nodiscard]] UndoChoice redo() const;
    // Turns of this project that are the same as some of `rows`, which are another project's. Where the folder is gone
    // those that are known to have changed something.
    enum class Folder { there, gone };
    [[nodiscard]] UndoChoice sameTurns(const std::vector<TimelineRow>& rows, Folder folder) const;

    // Throws refused for a path that is in none of the changes, and for hunks that are not there or are others.
    [[nodiscard]] UndoResult run(const UndoChoice& choice, const Options& options) const;

  private:
    using Actions = std::vector<UndoAction>;
    using Obstacles = std::map<std::string, Obstacle, std::less<>>; // by path

    [[nodiscard]] Engine::Sides sidesNow() const;
    [[nodiscard]] const Manifest& present() const;
    [[nodiscard]] UndoContents contents(const Manifest& now) const; // which must outlive them
    [[nodiscard]] Actions plan(UndoSteps& steps, const Manifest& now, const Options& options) const;
    enum class Left {
        nothing,
        unkept,    // nobody could put it back
        something, // that would be done, or could be by force
    };
    [[nodiscard]] Left whatIsLeft(const UndoChoice& choice) const;
    // With the vault's entries, what those alone have of a row is something left as well.
    [[nodiscard]] UndoChoice passing(UndoChoice choice, const std::vector<TimelineRow>& rows,
                                     const std::optional<std::vector<VaultEntry>>& vault, bool here) const;
    using OtherProjects = std::map<std::string, std::unique_ptr<TurnUndo>>; // by id, as far as they were read
    [[nodiscard]] bool isLeftElsewhere(const TimelineRow& row, const std::vector<Project>& projects,
                                       OtherProjects& others) const;
    [[nodiscard]] UndoSteps stepsOf(const UndoChoice& choice) const;
    [[nodiscard]] std::vector<PathOutcome> interruptedBeside(const std::vector<UndoneAction>& actions) const;
    void checkPaths(const UndoChoice& choice, const UndoSteps& steps, const Options& options) const;
    void checkHunks(const UndoSteps& steps, const Manifest& now, const Options& options) const;
    std::vector<Warning> foresee(const Manifest& now, Actions& actions, Obstacles& obstacles) const;
    void act(const ProjectLock& lock, TakenSnapshot& safety, const UndoChoice& choice, bool whole, Actions& actions,
             Obstacles& obstacles, UndoResult& result) const;
    [[nodiscard]] std::vector<UndoneAction> withCauses(Actions actions, const Obstacles& obstacles,
                                                       const UndoChoice& choice, const Manifest& now) const;
    void findCauses(std::vector<UndoneAction>& actions, std::set<std::size_t> wanted, const Manifest& now,
                    std::int64_t oldest) const;
    void nameTurn(UndoneAction& action) const;

    const Engine& engine_;
    const Project& project_;
    History history_;
    std::vector<UnreadRecord> unread_;
    std::vector<SnapshotMeta> records_;
    EditNotes notes_;
    Forgotten forgotten_;
    Timeline timeline_;
    mutable std::optional<Manifest> present_; // the folder as it was when it was first asked for
    mutable std::vector<Warning> unseen_;     // what of it could not be seen
    mutable Interrupted interrupted_;         // what restores left in it, of which present_ is clear
};

} // namespace tidewrack
