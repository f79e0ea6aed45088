#pragma once
// What the parts of one hook's answer share: the event, the time left, the tracked projects, the log.

#include "Agents/HookEvent.hpp"
#include "Agents/HookHandler.hpp"
#include "Platform/Deadline.hpp"
#include "Shell/Decision.hpp"
#include "Walk/GitIgnore.hpp"

#include <chrono>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// What a snapshot lacks although it was to hold it.
struct Gaps {
    std::size_t count = 0; // files, and folders that could not be looked into
    std::string path;      // the first of them, relative; empty where the reason tells
    std::string reason;    // of the first
};

class HookContext {
  public:
    // Without an agent the call is about a person's own command.
    HookContext(const HookHandler& owner, std::optional<Agent> caller) : handler(owner), agent(caller) {}
    HookContext(const HookContext&) = delete;
    HookContext& operator=(const HookContext&) = delete;

    const HookHandler& handler;
    const std::optional<Agent> agent;
    HookEvent event;

    // Who is named in the log and in what is saved.
    [[nodiscard]] std::string_view caller() const { return agent ? rawValue(*agent) : "shell"; }

    // --- Projects ---

    // Reads the registry as far as it can be read; what can't is logged. Throws as Store::refuseForeign(); nothing is
    // then tracked by itself.
    void loadProjects();
    [[nodiscard]] const std::vector<Project>& projects() const { return projects_; } // all tracked ones
    // The tracked project around `folder`; starts tracking the git repository around it when there is none.
    [[nodiscard]] std::optional<Project> projectFor(const std::string& folder);
    // Whether the project began to be tracked after the last call of beginJudging().
    [[nodiscard]] bool isUnjudged(const Project& project) const { return unjudged_.contains(project.root); }
    void beginJudging() { unjudged_.clear(); }
    [[nodiscard]] bool hasUnreadableRecords() const { return !unreadable_.empty(); }
    // Whether the folder is the root of a project whose record can't be read.
    [[nodiscard]] bool hasUnreadableRecord(const std::string& folder) const {
        return !unreadable_.empty() && unreadable_.contains(Store::projectID(folder));
    }

    // Whether it can be told which folders are tracked.
    [[nodiscard]] bool knowsProjects() const { return knowsProjects_; }
    // The roots that a store names which others may have written. They are worth a question, and nothing else.
    [[nodiscard]] const std::vector<std::string>& distrusted() const { return distrusted_; }
    // Why nothing is saved of any project; empty: it is.
    [[nodiscard]] const std::string& noSaving() const { return noSaving_; }

    // The roots of such projects at or below the folder, as far as they are found before the deadline.
    [[nodiscard]] std::vector<std::string> unreadableIn(const std::string& folder, const Deadline& deadline) const;

    // The store, and the agents' configuration files that hold our hooks, under each of their names. Reads the latter.
    [[nodiscard]] std::vector<shell::OwnPath> ownPaths() const;

    // --- Snapshots, time and the log ---

    // A request with the event's agent, session and turn, and with the loaded projects.
    [[nodiscard]] SnapshotRequest request(const char* kind, std::string label, const Deadline& deadline) const;
    // What git may still take of this answer's time.
    [[nodiscard]] GitIgnore::Patience& gitPatience() const { return gitPatience_; }
    // The note on a snapshot: its number, its project, and how many contents were left out for want of time. Notes are
    // parted by "; " in a line, and that is nowhere in them.
    [[nodiscard]] static std::string noteOn(const SnapshotResult& result, const Project& project);
    // Notes a path, whose parts above are no links, as the turn's in the "edits.log" of its project. What is in a
    // folder that is there may be others' work, unless the folder goes with all of it.
    enum class Extent { all, alone };
    void noteChange(const std::string& path, Extent extent) const;
    // What else the snapshot lacks.
    [[nodiscard]] static Gaps gapsIn(const SnapshotResult& result);
    // The notes on that, which come behind all others: "<n> not saved: <the first>: <its reason>", and that git did not
    // say in time what it ignores. Nothing need be missing because of the latter.
    [[nodiscard]] static std::vector<std::string> notesOnGaps(const SnapshotResult& result);

    // When the whole answer must be done, and when this share of its time is over.
    [[nodiscard]] Deadline whole() const { return start_ + handler.budget; }
    [[nodiscard]] Deadline share(int part, int of) const { return start_ + handler.budget * part / of; }
    [[nodiscard]] Deadline after(std::chrono::milliseconds time) const { return start_ + time; }

    void log(std::string_view name, std::string_view message) const {
        handler.log.append(caller(), name, start_, message);
    }
    void logError(std::string_view message) const { log(event.name, std::string("error: ").append(message)); }

  private:
    const HookLog::Instant start_ = std::chrono::steady_clock::now();
    std::vector<Project> projects_;
    bool mayTrack_ = false;
    bool knowsProjects_ = true;
    std::vector<std::string> distrusted_;
    std::string noSaving_;
    std::set<std::string> unreadable_; // ids of projects whose records are
    // What git may take, for all projects of this call together.
    mutable GitIgnore::Patience gitPatience_ = GitIgnore::patienceOfHooks;
    std::set<std::string> unjudged_;    // roots of projects
    std::set<std::string> untrackable_; // repositories that could not be tracked in this call
};

// "vault <id>: <n> saved, <m> skipped"
[[nodiscard]] std::string noteOn(const VaultEntry& entry);

} // namespace tidewrack
