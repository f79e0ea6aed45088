// Folders that were renamed, moved or copied, and their histories.

#include "Support/TestFolders.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <iterator>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class MoveTest : public ::testing::Test {
  protected:
    MoveTest() {
        for (const char* name : {"a", "b", "c", "src/d"}) f.write(std::string("project/") + name, name);
        f.makeFolder("project/inner");
        f.write("project/inner/e", "e");
        world.ok({"track", f.at("project/inner")});
        world.ok({"track"});
    }
    [[nodiscard]] std::string errorOf(const std::vector<std::string>& words) const {
        const Outcome outcome = world.run(words);
        EXPECT_EQ(outcome.status, 1);
        return outcome.err;
    }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

TEST_F(MoveTest, aHistoryFollowsItsFolder) {
    const std::string old = world.projectPath();
    const std::string record = "store/projects/" + world.project().id + "/project.json";
    nlohmann::json known = nlohmann::json::parse(f.read(record));
    known["later"] = "a newer program's";
    f.write(record, known.dump());
    EXPECT_NE(errorOf({"move", old, f.at("home")}).find(old + " is still there, with its history."), std::string::npos);
    std::filesystem::rename(old, f.at("renamed"));
    world.current = f.at("renamed");
    const std::string move = "tidewrack move " + old + " " + f.at("renamed");
    EXPECT_NE(errorOf({"log"}).find(" It looks like " + old + ", which is gone: " + move), std::string::npos);
    EXPECT_NE(world.run({"track"}).err.find(
                  " looks like " + old + ", which is gone. To go on with its history instead, run: tidewrack untrack " +
                  f.at("renamed") + " && " + move),
              std::string::npos);
    EXPECT_NE(errorOf({"move", old}).find("tidewrack untrack " + f.at("renamed")), std::string::npos);
    world.ok({"untrack", f.at("renamed")});
    EXPECT_NE(errorOf({"move", f.at("no"), "."}).find(f.at("no") + " isn't tracked."), std::string::npos);
    EXPECT_NE(world.ok({"move", old, "--dry-run"}).find("Would move the history of " + old), std::string::npos);
    EXPECT_EQ(world.ok({"move", old}), "Moved the history of " + old + "/inner to " + f.at("renamed") +
                                           "/inner: 1 snapshot\nMoved the history of " + old + " to " +
                                           f.at("renamed") + ": 1 snapshot\n");
    EXPECT_EQ(world.project().root, f.at("renamed"));
    EXPECT_EQ(world.ok({"diff", "1"}), "No changes.\n");
    world.ok({"check"});
    EXPECT_EQ(nlohmann::json::parse(f.read("store/projects/" + world.project().id + "/project.json"))["later"],
              "a newer program's");
    f.makeFolder("project"); // another one can begin where it was
    EXPECT_EQ(world.ok({"track", old}).substr(0, 7), "Started");
    EXPECT_NE(errorOf({"move", f.at("renamed"), old}).find(" is still there"), std::string::npos);
    std::filesystem::rename(f.at("renamed"), f.at("again"));
    EXPECT_NE(errorOf({"move", f.at("renamed"), old}).find(old + " has a history of its own."), std::string::npos);
}

TEST_F(MoveTest, aDeathOnTheWayIsMendedByMovingAgain) {
    const std::string old = world.projectPath();
    const std::string id = world.project().id;
    std::filesystem::rename(old, f.at("renamed"));
    std::filesystem::rename(f.at("store/projects/" + id),
                            f.at("store/projects/" + Store::projectID(f.at("renamed")))); // and then nothing more
    world.current = f.at("renamed");
    world.ok({"move", old});
    EXPECT_EQ(world.ok({"cat", "1", "a"}), "a");
    EXPECT_EQ(world.run({"check"}).status, 0);
}

// Copied to another place, with times: other files, of which nothing has to be kept anew.
TEST_F(MoveTest, copiedFilesAreRecognisedByTheirContents) {
    const std::string old = world.projectPath();
    namespace fs = std::filesystem;
    fs::copy(old, f.at("copy"), fs::copy_options::recursive);
    for (const char* name : {"a", "b", "c", "src/d"})
        fs::last_write_time(f.at("copy") + "/" + name, fs::last_write_time(old + "/" + name));
    f.write("copy/b", "B"); // of the same size and time, and another content
    fs::last_write_time(f.at("copy/b"), fs::last_write_time(old + "/b"));
    fs::remove_all(old);
    world.current = f.at("copy");
    world.ok({"move", old});
    world.ok({"snap"});
    const auto meta = world.history().snapshot(2);
    EXPECT_EQ(meta.added + meta.deleted, 0);
    EXPECT_EQ(meta.modified, 1);
    const fs::directory_iterator kept(f.at("store/projects/" + world.project().id + "/blobs/2"));
    EXPECT_EQ(std::distance(kept, {}), 1) << "one content";
    EXPECT_EQ(world.manifestOf(2).find("a")->blob, world.manifestOf(1).find("a")->blob);
    EXPECT_EQ(world.ok({"cat", "2", "b"}), "B");
    world.ok({"restore", "1"});
    EXPECT_EQ(f.read("copy/a") + f.read("copy/b"), "ab");
}
