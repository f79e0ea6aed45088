// What a project's history leaves out because somebody says so: what the rules mean, and that nothing is lost by them.

#include "Support/TestFolders.hpp"

#include "Support/Files.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <random>
#include <set>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

template <std::size_t count>
std::string anyOf(std::mt19937& random, const char* const (&texts)[count]) {
    return texts[random() % count];
}

// One line of up to three components, with the signs around it.
std::string randomRule(std::mt19937& random) {
    static constexpr const char* parts[] = {"a",    "b",    "ab",   "a.b",   "*",    "**",          "*b",
                                            "a*",   "?",    "a?",   "[a-b]", "[!b]", "*.b",         "[^a]*",
                                            "\\a",  "\\*",  "[",    "***",   "[]",   "[]a]",        "[a-]?",
                                            "a\\ ", "a**b", "*[ab", "!a",    "#a",   "[[:alpha:]]*"};
    std::string rule = random() % 4 == 0 ? "!" : random() % 4 == 0 ? "/" : "";
    for (std::size_t more = random() % 3 + 1; more > 0; --more) rule += anyOf(random, parts) + (more > 1 ? "/" : "");
    return rule + (random() % 4 == 0 ? "/" : "") + (random() % 8 == 0 ? "  " : "");
}

class LeaveOutTest : public ::testing::Test {
  protected:
    // What the newest snapshot lists, "!" behind what is left out.
    [[nodiscard]] std::string listed() const {
        std::string text;
        const auto seqs = world.history().seqs();
        const Manifest listing = world.manifestOf(seqs.back());
        for (const auto& [path, entry] : listing.items()) text += std::string(path) + (entry.isIgnored() ? "! " : " ");
        return text;
    }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

// git reads the same lines as its own; both are asked about every path of a small tree.
TEST(LeaveOutRules, meanWhatTheyMeanToGit) {
    const TemporaryFolder f;
    if (!git(f.path(), "init -q")) GTEST_SKIP() << "there is no git";
    std::map<std::string, bool> paths; // whether it is a folder
    std::string asked;
    for (const std::string first : {"a", "b", "ab", "a.b"})
        for (const std::string second : {"", "a", "b", "ba", "a "})
            for (const std::string third : {"", "a", "x.b"}) {
                std::string path = first;
                for (const std::string& part : {second, third}) {
                    if (part.empty()) break;
                    paths[path] = true;
                    path += "/" + part;
                }
                paths.try_emplace(path, false);
            }
    for (const auto& [path, isFolder] : paths) {
        if (!isFolder) f.write(path, "");
        asked += path + "\n";
    }
    f.write("asked", asked);
    std::mt19937 random(5);
    for (int round = 0; round < 40; ++round) {
        std::string lines = round == 0 ? "\xEF\xBB\xBF" : "";
        for (std::size_t count = random() % 4 + 1; count > 0; --count)
            lines += randomRule(random) + (random() % 8 == 0 ? "\r\n" : "\n");
        f.write(".gitignore", lines);
        (void)git(f.path(), "check-ignore --no-index --stdin <" + f.at("asked") + " >" + f.at("answer") + ";:");
        std::istringstream answer(f.read("answer"));
        std::set<std::string> expected;
        for (std::string path; std::getline(answer, path);) expected.insert(path);
        LeaveOutRules rules;
        rules.add(lines);
        std::set<std::string> found;
        for (const auto& [path, isFolder] : paths)
            if (rules.leavesOut(path, isFolder)) found.insert(path);
        ASSERT_EQ(found, expected) << lines;
    }
}

// Anybody may write a project's file.
TEST(LeaveOutRules, takeNoLongerForHostileOnes) {
    LeaveOutRules rules;
    std::string lines;
    for (std::size_t i = 0; i < LeaveOutRules::mostRules; ++i) lines += "*a*a*a*a*a*a*a*b/**/*a*a*a*a*b/**/c\n";
    rules.add(lines + "*"); // one too many
    const std::string name(100, 'a');
    EXPECT_FALSE(rules.leavesOut(name + "/" + name + "/" + name, false));
    EXPECT_FALSE(rules.leavesOut("a", false));
    rules.add("a"); // the owner's own
    EXPECT_TRUE(rules.leavesOut("a", false));
}

TEST_F(LeaveOutTest, whatIsExcludedIsNeitherKeptNorTouched) {
    f.write("project/data/x", "1");
    f.write("project/a.log", "1");
    f.write("project/src/b.log", "1");
    f.write("project/src/c", "1");
    world.ok({"track"});
    EXPECT_EQ(world.ok({"exclude", "data", "*.log", "--dry-run"}),
              "Would leave out a.log, data/, src/b.log (3 files).\n");
    EXPECT_EQ(world.ok({"exclude", "data", "*.log"}), "Left out from #2 on: a.log, data/, src/b.log (3 files).\n"
                                                      "Older snapshots keep what they have.\n");
    EXPECT_EQ(world.ok({"exclude", "data"}), "Left out already.\n");
    EXPECT_EQ(listed(), "a.log! data! src src/b.log! src/c ");
    for (const char* path : {"project/data/x", "project/a.log", "project/src/c", "project/data/new"})
        f.write(path, "2");
    f.remove("project/src/b.log");
    f.write("project/new.log", "2");
    EXPECT_EQ(world.run({"export", "2", f.at("export")}).err, "a.log is left out: it is ignored\n"
                                                              "data is left out: it is ignored\n"
                                                              "src/b.log is left out: it is ignored\n");
    EXPECT_EQ(world.ok({"diff", "2"}).find("a.log"), std::string::npos) << "nor are its changes told";
    EXPECT_EQ(nlohmann::json::parse(world.run({"status", "--json"}).out)["ignoredFiles"], 2);
    const std::string foreseen = world.run({"restore", "1", "--dry-run"}).out;
    const Outcome back = world.run({"restore", "1"}); // which has them
    for (const char* left : {"! a.log  it couldn't be saved first (it was ignored)\n",
                             "! data/x  it isn't in history (ignored, or added just now)\n"})
        EXPECT_NE(foreseen.find(left), std::string::npos) << foreseen;
    EXPECT_NE(back.out.find("a.log: it couldn't be saved first (it was ignored)"), std::string::npos) << back.out;
    EXPECT_EQ(f.read("project/a.log") + f.read("project/data/x") + f.read("project/data/new"), "222");
    EXPECT_EQ(f.read("project/src/c") + f.read("project/src/b.log"), "11") << "nothing stood there";
    EXPECT_EQ(world.run({"restore", "2"}).out.find("a.log"), std::string::npos); // has them not
    EXPECT_TRUE(f.has("project/new.log"));
    EXPECT_EQ(f.read("project/a.log") + f.read("project/data/x") + f.read("project/src/b.log"), "221");
    (void)world.run({"undo", "1"}); // the step in which they went
    EXPECT_EQ(f.read("project/a.log") + f.read("project/data/new"), "22");
    EXPECT_NE(world.run({"cat", "2", "a.log"}).err.find("wasn't kept in snapshot #2: it was ignored"),
              std::string::npos);
    EXPECT_EQ(world.ok({"include", "data"}).substr(0, 4), "Kept");
    EXPECT_NE(listed().find("data/new "), std::string::npos);
    world.ok({"restore", "2"}); // from which they were missing
    EXPECT_EQ(f.read("project/data/new"), "2");
}

// Those of the project's own file; what was in snapshots until then is named.
TEST_F(LeaveOutTest, aProjectsFileSaysSoToo) {
    f.write("project/big/x", "1");
    f.write("project/keep/big/x", "1");
    world.ok({"track"});
    f.write("project/.tidewrackignore", "/big/\n.tidewrackignore\n.git\n");
    EXPECT_NE(world.run({"snap"}).err.find("big is left out from now on; #1 and older snapshots keep what they have"),
              std::string::npos);
    EXPECT_EQ(world.run({"snap"}).err, "");
    EXPECT_EQ(listed(), ".tidewrackignore big! keep keep/big keep/big/x ");
    world.ok({"include", "big/x"}); // the project's record outweighs it
    f.write("project/big/y", "1");
    world.ok({"snap"});
    EXPECT_EQ(listed(), ".tidewrackignore big big/x big/y! keep keep/big keep/big/x ");
}

// Though nothing lists it any more.
TEST_F(LeaveOutTest, whatGoesOutIsNeitherDeletedNorAdded) {
    const auto snap = [&](const char* kind) {
        world.ok({"snap", "--kind", kind, "--agent", "claude", "--session", "s"});
    };
    f.write("project/data/x", "1");
    f.write("project/a.log", "1");
    f.write("project/notes", "1");
    world.ok({"track"});
    for (const char* rules : {"data\n*.log\n", ""}) {
        snap("prompt");
        f.write("project/.tidewrackignore", rules);
        f.write("project/notes", rules);
        snap("stop");
        const nlohmann::json row = nlohmann::json::parse(world.ok({"timeline", "--json"}))["rows"][0];
        const int added = *rules != '\0' ? 1 : 0;
        EXPECT_EQ((std::vector<int>{row["added"], row["modified"], row["deleted"]}), (std::vector{added, 2 - added, 0}))
            << row;
        EXPECT_EQ(world.run({"find", "--deleted", "*"}).out, "");
        for (const char* command : {"diff", "show"})
            EXPECT_EQ(world.ok({command, *command == 'd' ? "--last" : "--stat"}).find("data"), std::string::npos);
        EXPECT_EQ(world.ok({"log", "a.log"}).find("#3"), std::string::npos);
    }
    f.remove("project/data/x"); // much later, and by somebody else
    f.write("project/.tidewrackignore", "data\n*.log\n");
    const Outcome outcome = world.run({"undo", "--turn", "2"});
    EXPECT_NE(outcome.out.find("! data/  is not in history any more: it is ignored now"), std::string::npos)
        << outcome.out;
    EXPECT_EQ(f.read("project/a.log"), "1");
    EXPECT_FALSE(f.has("project/data/x"));
    f.write("project/.tidewrackignore", "data\n*.log\n");
    world.ok({"undo", "2"});
    EXPECT_FALSE(f.has("project/data/x"));
    world.ok({"restore", "2", "data"});
    EXPECT_EQ(f.read("project/data/x"), "1");
}

TEST_F(LeaveOutTest, whatNamesLeaveOutCanBeIncluded) {
    f.write("project/node_modules/a/x", "1");
    f.write("project/node_modules/b/x", "1");
    f.write("project/c", "1");
    world.ok({"track"});
    world.ok({"include", "node_modules/a"});
    EXPECT_EQ(listed(), "c node_modules node_modules/a node_modules/a/x node_modules/b! ");
    f.write("project/c", "2");
    world.ok({"restore", "1"}); // before it was kept
    EXPECT_EQ(f.read("project/c") + f.read("project/node_modules/a/x"), "11");
}

TEST_F(LeaveOutTest, settings) {
    f.write("project/a", "1");
    world.ok({"track"});
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"config", "get", "maxFileSize"}, "268435456\n"},
        {{"config", "set", "maxFileSize", "2K"}, ""},
        {{"config", "get", "maxFileSize"}, "2048\n"},
        {{"config", "set", "project.cap", "2G"}, ""},
        {{"config", "get", "project.cap"}, "2147483648\n"},
        {{"config", "set", "project.cap", "default"}, ""},
        {{"config", "set", "store.cap", "0"}, "store.cap takes a size, such as 300M, or default."},
        {{"config", "set", "store.floor", "0"}, ""},
        {{"config", "get", "store.floor"}, "0\n"},
        {{"config", "set", "store.x", "1"}, "There is no setting store.x. Known: store.floor, store.cap."},
        {{"config", "set", "maxFileSize", "0"}, "maxFileSize takes a size, such as 300M, or default."},
        {{"config", "set", "maxFileSize", "9999999999T"}, "maxFileSize takes a size, such as 300M, or default."},
        {{"config", "set", "excludes", "x"}, "excludes is changed by: tidewrack exclude PATH, tidewrack include PATH"},
        {{"config", "get", "x"},
         "There is no setting x. Known: maxFileSize, project.cap, excludes, excludesIfIgnored, patterns, store.floor, "
         "store.cap."},
        {{"config", "set", "maxFileSize", "default"}, ""},
        {{"config", "x"}, "unknown command config x"},
        {{"exclude", "."}, ". is the project itself. To stop its history: tidewrack untrack"},
        {{"exclude", ".git/hooks"}, ".git/hooks is git's own, and never in snapshots."},
        {{"include", "*.x"}, "Nothing is left out by *.x. See: tidewrack config get patterns"},
        {{"include", "a"}, "Kept already.\n"},
    };
    for (const auto& [words, expected] : rows) {
        const Outcome outcome = world.run(words);
        EXPECT_EQ(outcome.status == 0 ? outcome.out : outcome.err.substr(outcome.err.find(": ") + 2),
                  outcome.status == 0 ? expected : expected + "\n");
    }
    EXPECT_FALSE(world.project().maxFileSize);
}
