// What turns did to folders: their permissions, and what git ignores in them.

#include "Support/TurnFixture.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class TurnFolders : public TurnFixture {};

} // namespace

TEST_F(TurnFolders, aFoldersPermissionsGoBackToo) {
    const std::string folder = f.at("project/priv");
    const auto mode = [&] {
        struct stat status {};
        return ::stat(folder.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
    };
    f.write("project/priv/key", "k\n");
    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
    prompt("s", "open up");
    f.write("project/config", "port = 1\n");
    ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);
    stop("s");
    EXPECT_EQ(world.ok({"restore", "2", "--dry-run"}),
              "~ config\n~ priv/\nWould restore 1 file, remove 0 files. Nothing was changed.\n");
    expectTakenBack({"undo", "--last"}, "0",
                    "turn #2–#3 of claude, \"open up\":\n~ config\n~ priv/\n1 file overwritten.\n");
    EXPECT_EQ(mode(), 0700U);
    prompt("s", "the folder alone");
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    stop("s");
    const std::string turn = "turn #6–#7 of claude, \"the folder alone\"";
    expectTakenBack({"undo", "--turn", "6"}, "0", turn + ":\n~ priv/\n");
    EXPECT_EQ(mode(), 0700U);
    EXPECT_EQ(json::parse(world.ok({"restore", "7", "--json"}))["restored"], json{"priv"});
    EXPECT_EQ(mode(), 0755U);
    ASSERT_EQ(::chmod(folder.c_str(), 0711), 0);
    EXPECT_EQ(
        back({"undo", "--turn", "6"}).find("3\nNothing of " + turn + " is taken back:\n! priv/  changed again since\n"),
        0U);
    EXPECT_EQ(mode(), 0711U);
    f.remove("project/priv");
    EXPECT_EQ(back({"undo", "--turn", "6"}), "0\nNothing is left to take back of " + turn + ".\n");
}

TEST_F(TurnFolders, whatARedoDidToAFolderIsTakenBackToo) {
    const std::string folder = f.at("project/src");
    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
    prompt("s", "open up");
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    stop("s");
    world.ok({"undo", "--last"});
    EXPECT_NE(world.ok({"redo"}).find("tidewrack undo 6\n"), std::string::npos);
    EXPECT_EQ(world.ok({"undo", "6", "--dry-run"}).find("~ src/\n"), 0U);
    world.ok({"undo", "6"});
    struct stat status {};
    ASSERT_EQ(::stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

// A folder that git ignores since the turn looks as if all in it were gone.
TEST_F(TurnFolders, whatIsGoneFromAFolderThatGitIgnoresNowComesBack) {
    if (!git(f.at("project"), "init -q")) GTEST_SKIP() << "no git";
    for (const char* name : {"made", "same", "other"}) f.write(std::string("project/build/") + name, "by hand\n");
    world.ok({"snap"});
    prompt("s", "ignore");
    f.write("project/.gitignore", "build/\n");
    f.remove("project/build/made");
    f.write("project/build/other", "built\n");
    f.write("project/build/new", "built\n");
    stop("s");
    expectTakenBack({"undo", "--last"}, "3",
                    "turn #3–#4 of claude, \"ignore\":\n- .gitignore\n"
                    "! build/  is not in history any more: it is ignored now\n+ build/made\n"
                    "1 file put back, 1 removed.\n1 path is left alone.\n");
    EXPECT_EQ(f.read("project/build/made") + f.read("project/build/other"), "by hand\nbuilt\n");
}

TEST_F(TurnFolders, aTurnThatChangedFoldersAloneIsOne) {
    f.makeFolder("project/empty");
    prompt("s", "tidy up");
    f.remove("project/empty");
    f.makeFolder("project/new");
    EXPECT_NE(world.ok({"timeline"}).find("\"tidy up\"  folders alone  (running)\n"), std::string::npos);
    stop("s");
    EXPECT_NE(world.ok({"timeline"}).find("\"tidy up\"  folders alone\n"), std::string::npos);
    EXPECT_NE(world.ok({"diff", "--last"}).find("- empty/\n"), std::string::npos);
    expectTakenBack({"undo", "--last"}, "0", "turn #2–#3 of claude, \"tidy up\":\n+ empty/\n- new/\n");
    EXPECT_TRUE(f.has("project/empty"));
}

// What the undo put into the folder goes again, and what it found there stays. What a turn finds in one that it opens
// nobody can tell from what it put there.
TEST_F(TurnFolders, whatLayInAClosedFolderStays) {
    const std::string folder = f.at("project/g");
    f.write("project/g/h/file", "f\n");
    f.write("project/g/stays", "s\n");
    world.ok({"snap"});
    ASSERT_EQ(::chmod(f.path().c_str(), 0755), 0);
    const std::string text = unprivileged(f, [&] {
        prompt("s", "close");
        f.remove("project/g/h");
        (void)::chmod(folder.c_str(), 0);
        stop("s");
        (void)back({"undo", "--last"});
        std::string told = back({"redo", "--dry-run"});
        told += back({"redo"});
        (void)::chmod(folder.c_str(), 0); // the next one opens it
        world.ok({"snap"});
        prompt("s", "open");
        (void)::chmod(folder.c_str(), 0755);
        f.write("project/g/new", "n\n");
        stop("s");
        f.write("project/g/mine", "m\n");
        told += back({"undo", "--last"});
        told += back({"undo", "--last", "--keep-later"});
        return told + f.read("project/g/stays") + f.read("project/g/new") + f.read("project/g/mine");
    });
    const std::string redone = "~ g/\n- g/h/\n- g/h/file\n1 file removed.\n";
    const std::string unknown = " g/  it couldn't be read before, so that it can't be told what in it is new\n";
    for (const std::string& said :
         {"Would take back the undo #5–#6 of T:\n" + redone, "Took back the undo #5–#6 of T:\n" + redone, "!" + unknown,
          "  g/  kept: " + unknown.substr(5)})
        EXPECT_NE(std::regex_replace(text, std::regex("of [A-Z][a-z][a-z] [0-9:]{5}"), "of T").find(said), text.npos)
            << said << text;
    EXPECT_TRUE(text.ends_with("s\nn\nm\n")) << "nothing of it was removed";
}
