// What the owner wants gone from the history.

#include "Support/TurnFixture.hpp"

#include "Engine/Forget.hpp"
#include "Store/Forgotten.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

using Numbers = std::vector<std::int64_t>;

class Forgetting : public TurnFixture {
  protected:
    // #2 to `last`, each with a content of its own.
    void snapUpTo(int last) const {
        for (int seq = 2; seq <= last; ++seq) {
            f.write("project/notes", "as of " + std::to_string(seq) + "\n");
            world.ok({"snap"});
        }
    }
    [[nodiscard]] std::string stored(std::int64_t seq) const { return world.history().blobPath(std::to_string(seq)); }
    [[nodiscard]] std::string record(std::int64_t seq) const { return world.history().metaPath(seq); }
    [[nodiscard]] Forgotten forgotten() const { return readForgotten(world.history().folder()); }
};

} // namespace

TEST(Forgotten, whatIsLost) {
    struct Case {
        const char* records; // p, t and e begin, go on with and end a turn of session a; P, T and E of b; . is by hand
        std::set<std::int64_t> removed;
        std::vector<Stretch> lost;
    };
    const Case cases[] = {
        {"...", {2}, {{1, 3}}},
        {"...", {1}, {{0, 2}}},
        {"...", {3}, {{2, 4}}},
        {"....", {2, 3}, {{1, 4}}},
        {".....", {2, 4}, {{1, 3}, {3, 5}}},
        {"...", {1, 2, 3}, {{0, 4}}},
        {"pttte", {3}, {{2, 4}}},       // the turn is known all the same
        {".pttte.", {2}, {{1, 6}}},     // who was at work is not, all of that time
        {".pttte.", {6}, {{2, 7}}},     //
        {".PptTeE.", {2, 7}, {{1, 8}}}, // so the other turn may have had company
        {".pttpte.", {2}, {{1, 5}}},    // up to the session's next turn
        {".ptt", {2}, {{1, 5}}},        // it goes on
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.records);
        std::vector<SnapshotMeta> records;
        for (const char* letter = each.records; *letter != 0; ++letter) {
            SnapshotMeta& meta = records.emplace_back();
            meta.seq = static_cast<std::int64_t>(records.size());
            const auto kind = std::string("ptePTE").find(*letter);
            meta.kind = kind == std::string::npos ? "manual" : std::vector{"prompt", "tool", "stop"}[kind % 3];
            meta.session = kind == std::string::npos ? std::optional<std::string>() : kind < 3 ? "a" : "b";
        }
        Forgotten forgotten;
        forgotten.lose(lostWith(records, each.removed));
        EXPECT_EQ(forgotten.lost, each.lost);
        EXPECT_EQ(decodeForgotten(encoded(forgotten)), forgotten);
    }
    for (const char* damaged : {"", "forgotten 1", "forgotten 2\n", "forgotten 1\nlost 3\n", "forgotten 1\nlost 5 3\n",
                                "forgotten 1\nsnapshot x\n", "forgotten 1\nelse 3\n"}) {
        EXPECT_TRUE(decodeForgotten(damaged).isLostIn({5, 6})) << damaged;
        EXPECT_EQ(decodeForgotten(damaged).highest(), 0) << damaged;
    }
}

TEST_F(Forgetting, whatOtherSnapshotsNeedStays) {
    snapUpTo(4);
    world.ok({"pin", "3"});
    const std::string before = f.listing("store");
    const std::string goes = "2 snapshots (#1, #3) and 2 stored files; 2 snapshots stay.\n"
                             "#3 is pinned and goes as well.\n";
    EXPECT_EQ(world.ok({"forget", "3", "#1", "--dry-run"}), "Would remove " + goes);
    EXPECT_EQ(world.run({"forget", "3", "1"}).err,
              "tidewrack: forget asks first, and there is no terminal to ask on; --dry-run tells what would go, and "
              "--yes removes it\n");
    EXPECT_EQ(f.listing("store"), before);
    EXPECT_EQ(world.ok({"forget", "3", "1", "--yes"}), "Removed " + goes);
    EXPECT_EQ(world.history().seqs(), (Numbers{2, 4}));
    EXPECT_FALSE(exists(stored(3)));
    EXPECT_TRUE(exists(stored(1))) << "what #2 has of it";
    for (const char* seq : {"2", "4"}) EXPECT_EQ(world.ok({"cat", seq, "notes"}), "as of " + std::string(seq) + "\n");
    EXPECT_EQ(world.ok({"cat", "4", "src/main.c"}), "int main;\n");
    EXPECT_EQ(world.ok({"check"}).find("damage"), std::string::npos);
    EXPECT_EQ(world.run({"forget", "3", "4", "--yes"}).status, 1) << "there is no #3";
    EXPECT_EQ(world.history().seqs(), (Numbers{2, 4}));
}

TEST_F(Forgetting, noNumberComesTwice) {
    snapUpTo(3);
    EXPECT_EQ(json::parse(world.ok({"forget", "2", "3", "--yes", "--json"}))["removedSnapshots"], json({2, 3}));
    world.ok({"prune"}); // takes away what else may tell the number
    f.write("project/other", "new\n");
    world.ok({"snap"});
    EXPECT_EQ(world.history().seqs(), (Numbers{1, 4}));
    EXPECT_EQ(world.ok({"cat", "4", "notes"}), "as of 3\n") << "what was forgotten is kept again while it is there";
    world.ok({"forget", "1", "4", "--yes"});
    EXPECT_TRUE(world.history().seqs().empty());
    EXPECT_FALSE(exists(stored(1)) || exists(stored(4)));
    world.ok({"snap"});
    EXPECT_EQ(world.history().seqs(), Numbers{5});
    EXPECT_EQ(world.ok({"cat", "5", "src/main.c"}), "int main;\n");
}

TEST_F(Forgetting, whatIsOlder) {
    snapUpTo(4);
    world.ok({"pin", "1"});
    for (const std::int64_t seq : {1, 2, 3})
        rewriteRecord(world, seq, [&](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24) * (4 - seq); });
    EXPECT_EQ(world.run({"forget", "--before", "soon", "--yes"}).status, 1);
    EXPECT_EQ(world.run({"forget", "2", "--before", "2d", "--yes"}).status, 1);
    EXPECT_EQ(world.run({"forget", "--yes"}).status, 1);
    const auto minuteOf = [&](std::int64_t seq) {
        return world.ok({"log", "--time", "-n", std::to_string(seq)}); // shown in failures
    };
    const json would = json::parse(world.ok({"forget", "--before", "36h", "--dry-run", "--json"}));
    EXPECT_EQ(would["removedSnapshots"], json({2})) << minuteOf(9);
    EXPECT_EQ(would["left"], json({1}));
    EXPECT_EQ(world.ok({"forget", "--before", "12h", "--yes"}),
              "Removed 2 snapshots (#2, #3) and 2 stored files; 2 snapshots stay.\n#1 stays because it is pinned.\n");
    EXPECT_EQ(world.history().seqs(), (Numbers{1, 4}));
}

// A file that a forgotten turn made would be deleted with a turn that did not.
TEST_F(Forgetting, whatLiesWhereSnapshotsWereForgottenIsNobodys) {
    prompt("s", "one");
    f.write("project/notes", "turn\n");
    snap("tool", "claude", "s", "Before: rm x");
    f.write("project/whose", "whose\n");
    prompt("s", "two");
    f.write("project/config", "two\n");
    stop("s");
    world.ok({"forget", "3", "--yes"});
    const std::string doubt =
        "  snapshots were forgotten from #2 to #4, so that it can't be told whose change this is\n";
    EXPECT_EQ(back({"undo", "--turn", "2"}),
              "3\nNothing of turn #2–#4 of claude, \"one\" is taken back:\n! notes" + doubt + "! whose" + doubt +
                  "2 paths are left alone; --force puts such paths back whole, --keep-later passes over them.\n");
    EXPECT_EQ(back({"undo", "2..5", "--dry-run"}).front(), '3');
    EXPECT_EQ(f.read("project/whose"), "whose\n");
    expectTakenBack({"undo", "--last"}, "0", "turn #4–#5 of claude, \"two\":\n~ config\n1 file overwritten.\n");
}

TEST_F(Forgetting, whereATurnIsForgottenAnotherMayHaveHadCompany) {
    snap("prompt", "codex", "b", "forgotten");
    prompt("a", "one");
    f.write("project/whose", "whose\n");
    stop("a");
    snap("stop", "codex", "b", "End of turn");
    world.ok({"forget", "2", "5", "--yes"});
    EXPECT_EQ(back({"undo", "--last"}).front(), '3');
    EXPECT_EQ(f.read("project/whose"), "whose\n");
}

TEST_F(Forgetting, theNextOneFinishesWhatWasCutShort) {
    snapUpTo(4);
    const std::string kept = f.read("store/projects/" + world.project().id + "/snapshots/3.json");
    world.ok({"forget", "2", "3", "--yes"});
    Forgotten begun = forgotten();
    begun.snapshots = {2, 3};
    {
        const ProjectLock lock(world.history().lockPath());
        writeForgotten(lock, world.history().folder(), begun);
    }
    writeFileSoon(record(3), kept); // it had not come so far
    f.write("store/projects/" + world.project().id + "/manifests/3.mf", "");
    EXPECT_EQ(world.ok({"forget", "2", "3", "--yes"}), "Removed 1 snapshot (#3) and 0 stored files; 2 snapshots stay.\n"
                                                       "#3 was to go already: an earlier forget was cut short.\n");
    EXPECT_EQ(world.history().seqs(), (Numbers{1, 4}));
    EXPECT_TRUE(forgotten().snapshots.empty());
}

// Its listing goes last, and is whole as long as others have its contents.
TEST_F(Forgetting, aRepairBringsNothingBack) {
    f.write("project/notes", "other\n");
    world.ok({"snap"});
    f.write("project/mode", "other\n");
    world.ok({"snap"});
    const std::string listing = world.history().manifestPath(2);
    const std::string text = f.read("store/projects/" + world.project().id + "/manifests/2.mf");
    world.ok({"forget", "2", "--yes"});
    writeFileSoon(listing, text);
    world.ok({"check", "--repair"});
    EXPECT_EQ(world.history().seqs(), (Numbers{1, 3}));
}
