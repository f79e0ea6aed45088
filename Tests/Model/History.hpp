#pragma once
// One random history: a folder changes, the engine works on it, and after every step both folder and store must be
// what the model says.

#include "Model/Expected.hpp"
#include "Model/RandomEdits.hpp"
#include "Support/TestFolders.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack::testing {

// Throws std::runtime_error where a promise is broken, with what it is about.
void require(bool holds, const std::string& promise, const std::string& about = "");

class History {
  public:
    explicit History(std::uint64_t seed);
    // Takes so many steps. Throws std::runtime_error at the first broken promise.
    void run(std::uint64_t steps);
    [[nodiscard]] const std::vector<std::string>& log() const { return log_; }
    // How many paths were restored, removed and warned of, and how many contents pruned and forgotten.
    [[nodiscard]] const std::map<std::string, std::size_t>& done() const { return done_; }

  private:
    // A snapshot as it should come out.
    struct Taken {
        Tree walked;
        Changes changes;
        Known known;
        bool recognises = false; // a file by its content
    };
    using Scope = std::function<bool(const std::string&)>;

    void step();
    void snap();
    Paths restore(std::int64_t to, bool whole, const std::vector<std::string>& paths, bool removeNew);
    void restoreSome();
    void backToSafety();
    void undo();
    void pin();
    void age();
    void prune();
    void forgetSome();
    void nest();
    void compare();

    [[nodiscard]] tidewrack::History history() const { return engine_.store.history(project_); }
    [[nodiscard]] Tree look() const { return readTree(world_.projectPath(), nested_); }
    [[nodiscard]] std::int64_t anySeq();
    [[nodiscard]] Taken take(const Tree& disk);
    [[nodiscard]] Taken takeSafety(Tree& before);
    void finish(Taken& taken, const Tree& previous, const Known* shared);
    Paths applied(const Taken& safety, const RestoreTask& task, const RestoreResult& result, const Paths& unknown);
    void record(const SnapshotMeta& meta, const Taken& taken, const std::string& kind, const std::string& label);
    void pruned(const std::set<std::int64_t>& stay);
    void checkSnapshot(const Known& known);
    void checkFolder(const RestoreOutcome& outcome, const Tree& after) const;
    void checkWarnings(std::vector<std::string> warnings, const Paths& warned, const Paths& unknown) const;
    void checkStore(bool nothingElse);
    void checkNow(std::int64_t seq);
    [[nodiscard]] Tree nowSince(const Tree& older) const;
    [[nodiscard]] Paths keptContents() const;

    World world_;
    Engine engine_;
    Project project_;
    Chance chance_;
    RandomEdits edits_;
    Tree outside_;
    Paths nested_;
    KnownSnapshots snapshots_;
    std::int64_t highest_ = 0;                    // the last number that one has got
    std::map<std::string, std::string> contents_; // where each version is kept
    std::int64_t versions_ = 0;
    bool pruneDue_ = true;
    struct Safety {
        std::int64_t seq;
        Tree before;
    };
    std::optional<Safety> safety_; // of the restore or undo that was the latest step
    std::vector<std::string> log_;
    std::map<std::string, std::size_t> done_;
};

} // namespace tidewrack::testing
