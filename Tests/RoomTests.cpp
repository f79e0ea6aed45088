// What histories do where room is scarce: on the volume, or by what they may take.

#include "Support/HookFixture.hpp"

#include "Platform/Attributes.hpp"
#include "Store/Settings.hpp"

#include <fcntl.h>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr const char* everFull = "4000000T";

class Room : public HookHandlerTest {
  protected:
    void writeLarge(const std::string& path, char letter) const {
        f.write(path, std::string(Settings::alwaysKept + 1, letter));
    }
    // As if the latest automatic prune were so long ago.
    void setPruned(std::chrono::seconds ago) const {
        const std::string marker = world.history().folder() + "/last-prune";
        EXPECT_EQ(setModificationTime(AT_FDCWD, marker.c_str(), nanosOf(now() - ago)), 0);
    }
    static std::int64_t nanosOf(Date date) { return secondsOf(date) * nanosPerSecond; }
    // Ages the snapshots that there are.
    void age(const std::vector<int>& days) const {
        for (std::size_t i = 0; i < days.size(); ++i)
            rewriteRecord(world, static_cast<std::int64_t>(i) + 1,
                          [&](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(24 * days[i]); });
    }
    [[nodiscard]] std::string troubles() const {
        std::string text;
        const json status = json::parse(world.run({"status", "--json"}).out);
        for (const json& each : status["troubles"]) text += each["what"].get<std::string>() + "\n";
        return text;
    }
};

} // namespace

TEST_F(Room, onAnAlmostFullVolumeLargeContentsAreNotKept) {
    writeLarge("project/before", 'b');
    world.ok({"track"});
    world.ok({"config", "set", "store.floor", everFull});
    writeLarge("project/big", 'x');
    writeLarge("project/huge", 'x');
    f.write("project/small", "1");
    EXPECT_NE(world.run({"snap"}).err.find("the disk is almost full: big and 1 more are listed but not kept"),
              std::string::npos);
    EXPECT_EQ(world.manifestOf(2).find("big")->blob, "errroom");
    EXPECT_EQ(world.ok({"cat", "2", "small"}) + world.ok({"cat", "2", "before"}).front(), "1b") << "it is kept already";
    EXPECT_NE(troubles().find("is free on the history's volume: new files over 1 MiB are not kept\n"),
              std::string::npos);
    const HookOutput asked = answer(Agent::codex, Kind::shell, project, "rm big before");
    EXPECT_EQ(asked.standardError.value_or("").substr(0, 200).find("This deletes or overwrites " + project +
                                                                   "/big. Tidewrack can't save it: there is not enough "
                                                                   "room for a copy. Allow?"),
              0U)
        << asked.standardError.value_or("");
    EXPECT_NE(log().at(0).find("; 2 not saved: big: the disk is almost full"), std::string::npos);
    EXPECT_EQ(savedOutside(), Lines{});
    world.ok({"config", "set", "store.floor", "0"});
    EXPECT_EQ(world.run({"snap"}).err, "");
    EXPECT_EQ(world.ok({"cat", "last", "big"}).front(), 'x') << "with room again it is kept";
}

TEST_F(Room, anAlmostFullVolumeIsPrunedFirst) {
    world.ok({"track"});
    for (const bool isFull : {false, true}) {
        f.write("project/small", isFull ? "1" : "2");
        world.ok({"snap"});
        age({40});
        setPruned(std::chrono::minutes(2));
        if (isFull) world.ok({"config", "set", "store.floor", everFull});
        world.ok({"snap"});
        EXPECT_EQ(world.history().seqs().front(), isFull ? 2 : 1);
    }
}

TEST_F(Room, aCapTakesTheOldestSnapshotsFirst) {
    f.write("other/x", "1");
    world.ok({"track", f.at("other")});
    for (const char letter : {'a', 'b', 'c', 'd', 'e', 'f'}) {
        writeLarge("project/big", letter);
        world.ok({letter == 'a' ? "track" : "snap"});
    }
    world.ok({"pin", "1"});
    age({20, 10, 9, 8, 1, 0});
    const auto pruned = [&](const std::vector<std::string>& words) {
        return json::parse(world.ok(words))["removedSnapshots"].get<std::vector<int>>();
    };
    const std::int64_t cap = 5 * Settings::alwaysKept; // for four, and the rest
    world.ok({"config", "set", "project.cap", std::to_string(cap)});
    EXPECT_NE(troubles().find("This history takes "), std::string::npos);
    EXPECT_EQ(pruned({"prune", "--dry-run", "--json"}), (std::vector{2, 3}));
    EXPECT_EQ(pruned({"prune", "--json"}), (std::vector{2, 3}));
    EXPECT_EQ(troubles().find("This history takes "), std::string::npos);
    EXPECT_EQ(pruned({"prune", "--json"}), std::vector<int>{});
    world.ok({"config", "set", "project.cap", "default"});
    world.ok({"config", "set", "store.cap", "1"}); // nothing fits
    setPruned(std::chrono::hours(2));
    world.ok({"snap"});
    EXPECT_EQ(world.history().seqs(), (std::vector<std::int64_t>{1, 5, 6, 7})) << "so much stays";
    EXPECT_NE(troubles().find("The store takes "), std::string::npos);
    // What another project has of old goes as well, but for its newest.
    world.current = f.at("other");
    f.write("other/x", "2");
    world.ok({"snap"});
    age({9, 8});
    world.current = project;
    world.ok({"prune"});
    world.current = f.at("other");
    EXPECT_EQ(world.history().seqs(), std::vector<std::int64_t>{2});
}
