// Turns at random, by an agent and by others, and one of them taken back: what it alone did is undone, and what others
// did since stays. The model knows lines; every line is there once only.

#include "Model/RandomEdits.hpp"
#include "Support/TestFolders.hpp"

#include "Changes/LineDiff.hpp"
#include "Timeline/TurnUndo.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

using Lines = std::vector<std::string>;
using Folder = std::map<std::string, Lines>; // files by path

class TurnModel {
  public:
    explicit TurnModel(std::uint64_t seed) : chance_(seed), engine_(world_.store()) {
        for (const char* path : {"a", "b", "dir/c", "dir/deep/d"})
            for (int line = 0; line < 12; ++line) now_[path].push_back(fresh());
        write({});
        world_.ok({"track"});
        project_ = world_.project();
    }

    // A turn, and what may follow it: nothing, no end, or other people's work.
    void live() {
        ++turn_;
        Turn turn{snap("prompt"), 0, now_, {}};
        edit();
        turn.after = now_;
        if (!chance_.oneIn(4)) turn.last = snap("stop");
        turns_.push_back(turn);
        if (!chance_.oneIn(3)) return;
        if (turn.last == 0) (void)snap("manual"); // or else it would still be running
        edit();
        if (chance_.oneIn(2)) (void)snap("manual");
    }

    void undoOne() {
        if (turns_.back().last == 0) (void)snap("manual");
        const Turn turn = chance_.of(turns_);
        const TurnUndo undo(engine_, project_);
        const UndoChoice choice = undo.turn(turn.first);
        TurnUndo::Options options;
        options.dryRun = true;
        const auto planned = told(undo.run(choice, options));
        ASSERT_EQ(read(), now_) << "a dry run changes nothing";
        options.dryRun = false;
        const UndoResult done = undo.run(choice, options);
        ASSERT_EQ(told(done), planned) << "a dry run tells what is done";
        ASSERT_EQ(warningsIn(done), 0) << "nothing disturbs it";
        const Folder then = read();
        check(turn, then, done);
        const bool again = chance_.oneIn(2);
        if (again && done.restored) {
            const TurnUndo back(engine_, project_);
            ASSERT_TRUE(back.run(back.redo(), {}).isComplete());
            ASSERT_EQ(read(), now_) << "a redo brings back what was";
            return;
        }
        now_ = then;
        turns_.clear(); // what they did may not be there any more
        live();
    }

    [[nodiscard]] const std::map<std::string, int>& seen() const { return seen_; }

    [[nodiscard]] const World& world() const { return world_; }

  private:
    struct Turn {
        std::int64_t first;
        std::int64_t last;
        Folder before;
        Folder after;
    };

    std::string fresh() { return "line " + std::to_string(++lines_); }

    std::int64_t snap(const char* kind) {
        const bool agents = std::string(kind) != "manual";
        return engine_
            .snapshot(project_, {kind, "label", agents ? std::optional<std::string>("claude") : std::nullopt,
                                 agents ? std::optional<std::string>("s") : std::nullopt,
                                 agents ? std::optional("t" + std::to_string(turn_)) : std::nullopt})
            .meta.seq;
    }

    void edit() {
        const Folder old = now_;
        for (auto edits = 1 + chance_.below(4); edits > 0; --edits) {
            const std::string path =
                chance_.of(std::vector<std::string>{"a", "b", "dir/c", "dir/deep/d", "new", "dir/new"});
            Lines& lines = now_[path];
            const auto at = lines.begin() + static_cast<std::ptrdiff_t>(chance_.below(lines.size() + 1));
            const auto roll = chance_.below(10);
            if (roll == 0)
                lines.clear();
            else if (roll < 4 && at != lines.end())
                lines.erase(at);
            else if (roll < 7 && at != lines.end())
                *at = fresh();
            else
                lines.insert(at, fresh());
            if (lines.empty()) now_.erase(path);
        }
        write(old);
    }

    void write(const Folder& old) const {
        for (const auto& [path, lines] : old)
            if (!now_.contains(path)) world_.folder.remove("project/" + path);
        for (const auto& [path, lines] : now_) {
            const auto before = old.find(path);
            if (before != old.end() && before->second == lines && lines.size() % 5 != 0) continue; // else it is touched
            std::string text;
            for (const std::string& line : lines) text += line + "\n";
            world_.folder.write("project/" + path, text);
        }
    }

    [[nodiscard]] Folder read() const {
        Folder folder;
        for (const char* path : {"a", "b", "dir/c", "dir/deep/d", "new", "dir/new"}) {
            const std::string name = std::string("project/") + path;
            if (!world_.folder.has(name)) continue;
            std::istringstream text(world_.folder.read(name));
            Lines& lines = folder[path];
            for (std::string line; std::getline(text, line);) lines.push_back(line);
        }
        return folder;
    }

    static std::ptrdiff_t warningsIn(const UndoResult& result) {
        if (!result.restored) return 0;
        const auto& outcomes = result.restored->outcomes;
        return std::count_if(outcomes.begin(), outcomes.end(), [](const auto& each) { return bool(each.obstacle); });
    }

    static std::string told(const UndoResult& result) {
        std::string text;
        for (const UndoneAction& each : result.actions)
            text += each.action.path + " " + std::to_string(static_cast<int>(each.action.kind)) + " " +
                    std::to_string(static_cast<int>(each.action.reason)) + " " + each.action.merged + "\n";
        return text;
    }

    static const Lines* find(const Folder& folder, const std::string& path) {
        const auto found = folder.find(path);
        return found == folder.end() ? nullptr : &found->second;
    }
    static bool has(const Lines* lines, const std::string& line) {
        return lines != nullptr && std::find(lines->begin(), lines->end(), line) != lines->end();
    }
    static bool same(const Lines* a, const Lines* b) { return a == nullptr || b == nullptr ? a == b : *a == *b; }

    void check(const Turn& turn, const Folder& then, const UndoResult& done) {
        for (const char* path : {"a", "b", "dir/c", "dir/deep/d", "new", "dir/new"}) {
            const Lines* before = find(turn.before, path);
            const Lines* after = find(turn.after, path);
            const Lines* now = find(now_, path);
            const Lines* is = find(then, path);
            const auto action = std::find_if(done.actions.begin(), done.actions.end(),
                                             [&](const auto& each) { return each.action.path == path; });
            const bool left = action != done.actions.end() && action->action.isLeft();
            for (const std::string& line : now != nullptr ? *now : Lines()) // whatever others wrote since is there
                ASSERT_TRUE(has(is, line) || has(after, line) || has(before, line)) << path << ": " << line;
            if (same(before, after) || left) {
                ASSERT_TRUE(same(is, now)) << path << " is not the turn's, or was left alone";
            } else if (same(now, after) || same(now, before)) {
                ASSERT_TRUE(same(is, before)) << path << " was changed by the turn alone";
            } else {
                for (const std::string& line : *after) // what the turn wrote is gone
                    ASSERT_TRUE(has(before, line) || !has(is, line)) << path << ": " << line;
                for (const std::string& line : *before) // and what it took is there
                    ASSERT_TRUE(has(after, line) || has(is, line)) << path << ": " << line;
                ++seen_["merged"];
            }
            seen_["left"] += left ? 1 : 0;
            seen_["back"] += !left && !same(is, now) ? 1 : 0;
        }
    }

    World world_;
    Chance chance_;
    Engine engine_;
    Project project_;
    Folder now_;
    std::vector<Turn> turns_;
    std::int64_t lines_ = 0;
    std::int64_t turn_ = 0;
    std::map<std::string, int> seen_;
};

} // namespace

TEST(RandomHistoriesOfTurns, loseNoLineOfOthers) {
    std::map<std::string, int> seen;
    for (std::uint64_t seed = 1; seed <= 10 && !::testing::Test::HasFatalFailure(); ++seed) {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, "seed " + std::to_string(seed));
        TurnModel model(seed);
        model.live();
        for (int step = 0; step < 4 && !::testing::Test::HasFatalFailure(); ++step) {
            for (int turn = 0; turn < 3; ++turn) model.live();
            model.undoOne();
        }
        model.world().ok({"check"});
        for (const auto& [what, count] : model.seen()) seen[what] += count;
    }
    for (const char* what : {"merged", "left", "back"}) EXPECT_GT(seen[what], 5) << what;
}
