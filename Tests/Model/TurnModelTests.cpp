// Turns at random, by an agent and by others, and one of them taken back: what it alone did is undone, and what others
// did since stays. The model knows lines; every line is there once only.

#include "Model/RandomEdits.hpp"
#include "Support/TestFolders.hpp"

#include "Platform/Attributes.hpp"
#include "Timeline/TurnUndo.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

using Lines = std::vector<std::string>;

struct Thing {
    enum class Kind { file, program, link, folder };
    Lines lines; // of a link its destination
    Kind kind = Kind::file;
    bool operator==(const Thing&) const = default;
};
using Folder = std::map<std::string, Thing>; // by path

const std::vector<std::string>& paths() {
    static const std::vector<std::string> all = {"a", "b", "dir/c", "dir/deep/d", "new", "dir/new", "link", "folder"};
    return all;
}

class TurnModel {
  public:
    explicit TurnModel(std::uint64_t seed) : chance_(seed), engine_(world_.store()) {
        for (const char* path : {"a", "b", "dir/c", "dir/deep/d"})
            for (int line = 0; line < 12; ++line) now_[path].lines.push_back(fresh());
        write({});
        world_.ok({"track"});
        project_ = world_.project();
    }

    // A turn, another session's within it, and what may follow it: nothing, no end, or other people's work.
    void live() {
        ++turn_;
        Turn turn{snap("prompt"), 0, now_, {}};
        edit();
        const bool ends = !chance_.oneIn(4);
        if (ends && chance_.oneIn(4)) {
            (void)snap("prompt", "codex");
            edit();
            (void)snap("stop", "codex");
        }
        turn.after = now_;
        if (ends) turn.last = snap("stop");
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

    std::int64_t snap(const char* kind, const char* agent = "claude") {
        const bool agents = std::string(kind) != "manual";
        return engine_
            .snapshot(project_, {kind, "label", agents ? std::optional<std::string>(agent) : std::nullopt,
                                 agents ? std::optional<std::string>("s") : std::nullopt,
                                 agents ? std::optional("t" + std::to_string(turn_)) : std::nullopt})
            .meta.seq;
    }

    void edit() {
        const Folder old = now_;
        for (auto edits = 1 + chance_.below(4); edits > 0; --edits) {
            const std::string path = chance_.of(paths());
            if (path == "link" || path == "folder")
                editWhole(path);
            else
                editLines(path);
        }
        write(old);
    }

    void editWhole(const std::string& path) {
        if (now_.erase(path) > 0 && chance_.oneIn(2)) return;
        now_[path] = path == "link" ? Thing{{fresh()}, Thing::Kind::link} : Thing{{}, Thing::Kind::folder};
    }

    void editLines(const std::string& path) {
        Thing& thing = now_[path];
        Lines& lines = thing.lines;
        const auto at = lines.begin() + static_cast<std::ptrdiff_t>(chance_.below(lines.size() + 1));
        const auto roll = chance_.below(10);
        if (roll == 0)
            lines.clear();
        else if (roll < 4 && at != lines.end())
            lines.erase(at);
        else if (roll < 7 && at != lines.end())
            *at = fresh();
        else if (roll == 9 && !lines.empty())
            thing.kind = thing.kind == Thing::Kind::file ? Thing::Kind::program : Thing::Kind::file;
        else
            lines.insert(at, fresh());
        if (lines.empty()) now_.erase(path);
    }

    void write(const Folder& old) const {
        for (const auto& [path, thing] : old)
            if (!now_.contains(path) || (thing.kind == Thing::Kind::link && now_.at(path) != thing))
                world_.folder.remove("project/" + path);
        for (const auto& [path, thing] : now_) {
            const Thing* before = find(old, path);
            const std::string name = "project/" + path;
            if (thing.kind == Thing::Kind::link) {
                if (before == nullptr || *before != thing) world_.folder.link(name, thing.lines.front());
            } else if (thing.kind == Thing::Kind::folder) {
                world_.folder.makeFolder(name);
            } else if (before == nullptr || *before != thing || thing.lines.size() % 5 == 0) { // or touched
                std::string text;
                for (const std::string& line : thing.lines) text += line + "\n";
                world_.folder.write(name, text);
                const mode_t mode = thing.kind == Thing::Kind::program ? 0755 : 0644;
                ASSERT_EQ(::chmod(world_.folder.at(name).c_str(), mode), 0);
            }
        }
    }

    [[nodiscard]] Folder read() const {
        Folder folder;
        for (const std::string& path : paths()) {
            const std::string name = "project/" + path;
            Attributes attributes;
            if (attributesAt(AT_FDCWD, world_.folder.at(name).c_str(), attributes) != 0) continue;
            Thing& thing = folder[path];
            if (attributes.kind == Attributes::Kind::folder) {
                thing.kind = Thing::Kind::folder;
            } else if (attributes.kind == Attributes::Kind::link) {
                thing = {{std::filesystem::read_symlink(world_.folder.at(name)).string()}, Thing::Kind::link};
            } else {
                if (attributes.mode == 0755) thing.kind = Thing::Kind::program;
                std::istringstream text(world_.folder.read(name));
                for (std::string line; std::getline(text, line);) thing.lines.push_back(line);
            }
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

    static const Thing* find(const Folder& folder, const std::string& path) {
        const auto found = folder.find(path);
        return found == folder.end() ? nullptr : &found->second;
    }
    static bool has(const Thing* thing, const std::string& line) {
        return thing != nullptr && std::find(thing->lines.begin(), thing->lines.end(), line) != thing->lines.end();
    }
    static bool same(const Thing* a, const Thing* b) { return a == nullptr || b == nullptr ? a == b : *a == *b; }

    void check(const Turn& turn, const Folder& then, const UndoResult& done) {
        for (const std::string& path : paths()) {
            const Thing* before = find(turn.before, path);
            const Thing* after = find(turn.after, path);
            const Thing* now = find(now_, path);
            const Thing* is = find(then, path);
            const auto action = std::find_if(done.actions.begin(), done.actions.end(),
                                             [&](const auto& each) { return each.action.path == path; });
            const bool left = action != done.actions.end() && action->action.isLeft();
            for (const std::string& line :
                 now != nullptr ? now->lines : Lines()) // whatever others wrote since is there
                ASSERT_TRUE(has(is, line) || has(after, line) || has(before, line)) << path << ": " << line;
            const bool isDoubtful = left && action->action.reason == UndoAction::Reason::doubt;
            if (same(before, after) || left) {
                ASSERT_TRUE(same(is, now)) << path << " is not the turn's, or was left alone";
            } else if (same(now, after) || same(now, before)) {
                ASSERT_TRUE(same(is, before)) << path << " was changed by the turn alone";
            } else {
                for (const std::string& line : after->lines) // what the turn wrote is gone
                    ASSERT_TRUE(has(before, line) || !has(is, line)) << path << ": " << line;
                for (const std::string& line : before->lines) // and what it took is there
                    ASSERT_TRUE(has(after, line) || has(is, line)) << path << ": " << line;
                ++seen_["merged"];
            }
            seen_["left"] += left && !isDoubtful ? 1 : 0;
            seen_["doubtful"] += isDoubtful ? 1 : 0;
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
    for (const char* what : {"merged", "left", "doubtful", "back"}) EXPECT_GT(seen[what], 5) << what;
}
