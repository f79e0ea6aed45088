// What people look for when they have lost something: where a path was, when it went, and how it comes back.

#include "Support/TestFolders.hpp"

#include "Changes/LineDiff.hpp"
#include "Engine/ListingSteps.hpp"
#include "Engine/PathSearch.hpp"
#include "Store/EditLog.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class Finding : public ::testing::Test {
  protected:
    Finding() {
        f.write("project/src/main.c", "int main;\n");
        f.write("project/src/deep/it's.c", "er\n");
        f.write("project/Notes.txt", "one\n");
        world.ok({"track"});
        snap("prompt", "Clean up");
        f.remove("project/src");
        f.write("project/moved/notes", "one\n");
        f.remove("project/Notes.txt");
        f.write("project/empty", "");
        snap("stop", "End of turn");
    }
    void snap(const std::string& kind, const std::string& label) const {
        world.ok({"snap", "--kind", kind, "--agent", "claude", "--session", "s", "--label", label});
    }
    // With every clock time as T.
    std::string found(const std::vector<std::string>& words) const {
        std::vector<std::string> all{"find"};
        all.insert(all.end(), words.begin(), words.end());
        const Outcome outcome = world.run(all);
        EXPECT_EQ(outcome.status, outcome.out.empty() ? 1 : 0);
        return std::regex_replace(outcome.out, std::regex("[A-Z][a-z]+ [0-9:]{5}"), "T") + outcome.err;
    }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

TEST_F(Finding, namesWhatIsGoneAndTheCommandThatBringsItBack) {
    const std::string gone = "  gone in #3, T (turn #2–#3 of claude, \"Clean up\")";
    const std::string main = "src/main.c  #1–#2" + gone + "\n    tidewrack restore 2 src/main.c\n";
    const std::string folder = "src/  #1–#2" + gone + ", with 3 paths in it\n    tidewrack restore 2 src\n";
    EXPECT_EQ(found({"main"}), main);
    EXPECT_EQ(found({"m*.c"}), main);
    EXPECT_EQ(found({"src"}), folder) << "what is in it goes without saying";
    EXPECT_EQ(found({"src/"}), folder) << "as completions write it";
    EXPECT_EQ(found({"src/*"}),
              "src/deep/  #1–#2" + gone + ", with 1 path in it\n    tidewrack restore 2 src/deep\n" + main);
    EXPECT_EQ(found({"notes"}), "Notes.txt  #1–#2" + gone +
                                    ", moved to moved/notes\n"
                                    "    tidewrack restore 2 Notes.txt\nmoved/notes  #3  there now\n");
    EXPECT_EQ(found({"Notes", "--deleted"}).substr(0, 9), "Notes.txt");
    EXPECT_EQ(found({"nope"}), "tidewrack: No snapshot has a path that matches nope.\n");
    EXPECT_EQ(found({"EMPTY"}), "tidewrack: No snapshot has a path that matches EMPTY.\n");
    EXPECT_EQ(found({"empt?", "--deleted"}), "tidewrack: Nothing that matches empt? is gone: the folder has it.\n");
    EXPECT_EQ(found({"a", "b"}),
              "tidewrack: find takes one text or pattern; put quotes around it, as in: tidewrack find '*.c'\n");
    // The command can be typed where one stands.
    f.remove("project/empty");
    world.current = f.at("project/moved");
    EXPECT_EQ(found({"it's"}),
              "src/deep/it's.c  #1–#2" + gone + "\n    tidewrack restore 2 '../src/deep/it'\\''s.c'\n");
    EXPECT_EQ(found({"empty"}), "empty  #3  gone since then\n    tidewrack restore 3 ../empty\n");
    world.current = f.path();
    EXPECT_NE(found({"main", "--project", "project"})
                  .find("restore 2 " + f.at("project/src/main.c") + " --project " + f.at("project") + "\n"),
              std::string::npos);
    world.current = f.at("project");
    f.write("project/n\n'1", "");
    snap("manual", "");
    f.remove("project/n\n'1");
    EXPECT_NE(found({"n*1"}).find("\n    tidewrack restore 4 $'n\\012\\'1'\n"), std::string::npos) << found({"n*1"});
    EXPECT_EQ(json::parse(world.ok({"find", "n*1", "--json"}))["paths"][0]["command"],
              "tidewrack restore 4 $'n\\012\\'1'");
    world.ok({"restore", "2", "src/deep/it's.c"}); // as it was told
    EXPECT_EQ(f.read("project/src/deep/it's.c"), "er\n");
}

// Two agents were at work: what one of them named is its own, what neither named may be anybody's.
TEST_F(Finding, changedLines) {
    f.write("project/list", "one\ntwo\nthree");
    snap("prompt", "Count");
    f.write("project/list", "one\nTwo\nthree");
    f.write("project/large", std::string(LineDiff::sizeLimit + 1, 't'));
    std::filesystem::create_symlink("two", f.at("project/link"));
    snap("stop", "End of turn");
    f.write("project/list", "");
    std::string many;
    for (int i = 0; i < 25; ++i) many += "two\n";
    f.write("project/many", many);
    snap("prompt", "Runs on");
    f.remove("project/many");
    const std::string removed = "        -two\n", ended = "        and 5 more lines of it\n";
    std::string manyLines = "    many\n";
    for (int i = 0; i < 20; ++i) manyLines += removed;
    std::string manyAdded = std::regex_replace(manyLines, std::regex("-two"), "+two");
    const std::string outside =
        "#5–#6  T  changes outside of turns  +1 ~1 -0\n    list\n        -Two\n" + manyAdded + ended;
    const std::string count = "#4–#5  T  claude  \"Count\"  +2 ~1 -0\n    list\n        -two\n        +Two\n";
    const std::string before = "#3–#4  T  changes outside of turns  +1 ~0 -0\n    list\n        +two\n";
    const std::string running = "#6  T  claude  \"Runs on\"  +0 ~0 -1  (running)\n" + manyLines + ended;
    EXPECT_EQ(found({"--lines", "two"}), running + outside + count + before);
    EXPECT_EQ(found({"--lines", "Two"}), "#5–#6  T  changes outside of turns  +1 ~1 -0\n    list\n        -Two\n"
                                         "#4–#5  T  claude  \"Count\"  +2 ~1 -0\n    list\n        +Two\n");
    EXPECT_EQ(found({"--lines", "two", "-n", "1", "--skip=2"}), count);
    EXPECT_EQ(found({"--lines", "nope"}), "tidewrack: No changed line holds nope.\n");
    EXPECT_EQ(found({"--lines", "one", "-n", "1"}), "tidewrack: No changed line holds one in these rows.\n");
    EXPECT_EQ(found({"--lines", "one", "--deleted"}),
              "tidewrack: --deleted goes with names; lines that went stand behind a -\n");
    EXPECT_EQ(found({"one", "--skip=2"}), "tidewrack: --skip goes with --lines\n");
    // A listing that can't be read costs what it alone tells.
    std::ofstream(world.history().manifestPath(5), std::ios::trunc) << "damaged";
    EXPECT_EQ(json::parse(world.ok({"find", "--lines", "two", "--json"}))["rows"].size(), 2U);
}

TEST_F(Finding, tellsWhoseTurnItWas) {
    f.write("project/mine", "1");
    f.write("project/whose", "1");
    snap("prompt", "Long"); // 4
    world.ok({"snap", "--kind", "prompt", "--agent", "codex", "--session", "c", "--label", "Short"});
    noteEdit(world.history().folder(), {now(), "claude", "s", std::nullopt, "mine"});
    f.remove("project/mine");
    f.remove("project/whose");
    world.ok({"snap", "--kind", "stop", "--agent", "codex", "--session", "c"});
    snap("stop", "End of turn");
    const std::string claude = "turn #4–#7 of claude, \"Long\"";
    EXPECT_EQ(found({"mine"}), "mine  #4–#5  gone in #6, T (" + claude + ")\n    tidewrack restore 5 mine\n");
    EXPECT_EQ(found({"whose"}), "whose  #4–#5  gone in #6, T (" + claude +
                                    ", or turn #5–#6 of codex, \"Short\")\n    tidewrack restore 5 whose\n");
    EXPECT_FALSE(json::parse(world.ok({"find", "whose", "--json"}))["paths"][0].contains("title"));
    const auto rows = [&](const char* path) {
        return json::parse(world.ok({"log", path, "--turns", "--json"}))["rows"].size();
    };
    EXPECT_EQ(rows("mine"), 2U) << "where it came, and where it went";
    EXPECT_EQ(rows("whose"), 3U);
}

TEST_F(Finding, knowsSeveralTimesAndWhatWasNotKept) {
    json record = json::parse(f.read("store/projects/" + world.project().id + "/project.json"));
    record["maxFileSize"] = 10;
    f.write("store/projects/" + world.project().id + "/project.json", record.dump());
    f.write("project/empty", "large and not kept");
    world.ok({"snap"}); // 4
    f.remove("project/empty");
    f.write("project/moved/notes", "two\n"); // #5 modifies and deletes
    world.ok({"snap"});
    f.write("project/moved/notes", "six\n"); // only modifies
    world.ok({"snap"});
    f.write("project/empty", "again");
    world.ok({"snap"}); // 7
    f.write("project/huge", "large from the start");
    world.ok({"snap"}); // 8
    f.remove("project/empty");
    f.remove("project/huge");
    world.ok({"snap"}); // 9
    const json paths = json::parse(world.ok({"find", "e*", "--json"}))["paths"];
    EXPECT_EQ(paths[0]["path"], "empty");
    EXPECT_EQ(paths[0]["earlier"], (json{{{"from", 3}, {"to", 4}}}));
    EXPECT_EQ((json{paths[0]["from"], paths[0]["to"], paths[0]["goneIn"]}), (json{7, 8, 9}));
    EXPECT_EQ(found({"huge"}), "huge  #8  gone in #9, T (outside of turns)\n"
                               "    its content was not kept: it was larger than the size limit\n");
    // A damaged listing costs what it alone tells.
    f.write("store/projects/" + world.project().id + "/manifests/7.mf", "damaged");
    EXPECT_NE(found({"empty"}).find("empty  #3–#4, #8  gone in #9"), std::string::npos) << found({"empty"});
    EXPECT_NE(found({"empty"}).find("warning: can't tell what #7 holds: "), std::string::npos);
    f.remove("store/projects/" + world.project().id + "/manifests/9.mf");
    f.remove("store/projects/" + world.project().id + "/snapshots/9.json");
    f.write("project/empty", "");
    EXPECT_NE(found({"empty"}).find("empty  #3–#4, #8  there now"), std::string::npos);
}

// Numbers of snapshots, what changed after them, and patches; ages left out.
TEST_F(Finding, anEmptyFolderAndTheVersionThatWasKept) {
    f.makeFolder("project/hollow"); // with a file that changed, or alone
    f.write("project/empty", "1");
    snap("manual", "");
    f.write("project/empty", "2");
    f.remove("project/hollow");
    snap("manual", "");
    f.makeFolder("project/alone");
    snap("manual", "");
    f.remove("project/alone");
    snap("manual", "");
    EXPECT_NE(found({"hollow"}).find("hollow/  #4  gone in #5"), std::string::npos) << found({"hollow"});
    EXPECT_NE(found({"alone"}).find("alone/  #6  gone in #7"), std::string::npos) << found({"alone"});
    EXPECT_NE(world.ok({"log", "hollow"}).find("folders alone"), std::string::npos);
    const std::string record = "store/projects/" + world.project().id + "/project.json";
    json project = json::parse(f.read(record));
    project["maxFileSize"] = 100;
    f.write(record, project.dump());
    f.write("project/img", "small");
    snap("manual", "");
    f.write("project/img", std::string(200, 'x'));
    snap("manual", "");
    f.remove("project/img");
    snap("manual", "");
    EXPECT_NE(found({"img"}).find("tidewrack restore 8 img\n"), std::string::npos) << found({"img"});
    for (int time = 0; time < 2; ++time) { // what came and went with its folder both times is no row of its own
        f.write("project/twice/file", "1");
        snap("manual", "");
        f.remove("project/twice");
        snap("manual", "");
    }
    EXPECT_EQ(found({"twice"}).find("twice/file"), std::string::npos) << found({"twice"});
}

TEST_F(Finding, logOfAPathFollowsItThroughItsNames) {
    f.write("project/moved/notes", "two\n");
    snap("prompt", "Go on"); // 4
    world.ok({"snap"});
    f.remove("project/moved/notes");
    f.write("project/moved/plan", "two\n");
    snap("stop", "End of turn"); // 6
    f.write("project/empty", "no more");
    world.ok({"snap"});
    f.write("project/moved/plan", "three\n");
    const auto rows = [&](std::vector<std::string> words) {
        words.insert(words.begin(), "log");
        const Outcome outcome = world.run(words);
        EXPECT_EQ(outcome.status, outcome.err.empty() ? 0 : 1);
        return std::regex_replace(outcome.out + outcome.err, std::regex("  [0-9]+s ago  [^→]*→  "), " ");
    };
    const std::string header = "--- a/moved/notes\n+++ b/moved/notes\n@@ -1 +1 @@\n-one\n+two\n";
    EXPECT_EQ(rows({"moved/plan"}), "#7 +0 ~1 -0 so far\n#5 renamed from moved/notes\n#3 +0 ~1 -0\n"
                                    "#2 renamed from Notes.txt\n");
    EXPECT_EQ(rows({"moved/plan", "-n1"}), "#7 +0 ~1 -0 so far\n");
    EXPECT_EQ(rows({"moved/plan", "--patch", "-n", "4"})
                  .find("#5 renamed from moved/notes\n#3 +0 ~1 -0\n"
                        "diff --git a/moved/notes b/moved/notes\n" +
                        header + "#2 renamed"),
              rows({"moved/plan", "--patch"}).find("#5 "));
    EXPECT_EQ(rows({"src/main.c"}), "#2 +0 ~0 -1\n");
    EXPECT_EQ(rows({"src/deep"}), "#2 +0 ~0 -1\n");
    EXPECT_EQ(json::parse(world.ok({"log", "moved/plan", "--json"}))[1]["renamedFrom"], "moved/notes");
    f.write("project/later", "");
    EXPECT_EQ(rows({"later"}), "#7 +1 ~0 -0 so far\n");
    f.remove("project/later");
    EXPECT_EQ(rows({"nope/it's"}), "tidewrack: No snapshot has nope/it's. To look for a part of its name, run: "
                                   "tidewrack find 'it'\\''s'\n");
    EXPECT_EQ(rows({"--patch"}), "tidewrack: --patch goes with a path, and not with --turns\n");
    // By turns: the last one is not among them, as no turn goes on.
    const auto turns = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"log", "--turns", "--json"});
        std::string text;
        const json timeline = json::parse(world.ok(words));
        for (const json& row : timeline["rows"])
            text += std::to_string(row["first"].get<int>()) + "-" + std::to_string(row["last"].get<int>()) + " +" +
                    std::to_string(row["added"].get<int>()) + "~" + std::to_string(row["modified"].get<int>()) + "-" +
                    std::to_string(row["deleted"].get<int>()) + " ";
        return text;
    };
    EXPECT_EQ(turns({"moved"}), "4-6 +1~0-1 3-4 +0~1-0 2-3 +1~0-0 ");
    EXPECT_EQ(turns({"--changed", "-n", "2"}), "6-7 +0~1-0 4-6 +1~0-1 ");
    // A restore puts an old content back: that is a change, though the content is old.
    world.ok({"restore", "6", "empty"});
    EXPECT_EQ(rows({"empty"}), "#8 +0 ~1 -0\n#6 +0 ~1 -0\n#2 +1 ~0 -0\n");
    world.ok({"snap"});
    EXPECT_EQ(rows({"empty"}), "#8 +0 ~1 -0\n#6 +0 ~1 -0\n#2 +1 ~0 -0\n");
    // What is pruned may have been anything: the record after it does not tell.
    f.remove("store/projects/" + world.project().id + "/snapshots/9.json");
    EXPECT_EQ(rows({"empty"}), "#8 +0 ~1 -0\n#6 +0 ~1 -0\n#2 +1 ~0 -0\n");
}

TEST_F(Finding, logRows) {
    world.ok({"snap"}); // 4: nothing new
    const auto rows = [&](const std::vector<std::string>& words) {
        std::string text;
        for (const json& row : json::parse(world.ok(words))) text += std::to_string(row["seq"].get<int>()) + " ";
        return text;
    };
    EXPECT_EQ(rows({"log", "--json", "--changed"}), "2 ");
    f.write("project/new", "");
    EXPECT_EQ(rows({"log", "--json", "--changed", "-n", "1"}), "4 ");
    const std::string text = world.ok({"log", "--time", "--changed"});
    EXPECT_TRUE(std::regex_match(text, std::regex("#4  [A-Z][a-z]+ [0-9:]{5}  manual  →  \\+1 ~0 -0 so far\n#2  .*\n")))
        << text;
}

TEST_F(Finding, diffOfTheNewestTurnAndOfPaths) {
    EXPECT_EQ(world.ok({"diff", "--last"}).find("+ empty\n+ moved/\n+ moved/notes\n- Notes.txt\n- src/\n"), 0U);
    EXPECT_EQ(world.ok({"diff", "--last", "moved", "--stat"}), "+ moved/notes  +1 -0\n1 file changed, +1 -0\n");
    snap("prompt", "Why?");
    snap("stop", "End of turn"); // 5
    const Outcome asked = world.run({"diff", "--last", "moved"});
    EXPECT_EQ(asked.out, "+ moved/\n+ moved/notes\n");
    EXPECT_EQ(asked.err, "The newest turn (#4–#5) changed nothing; this is turn #2–#3 of claude, \"Clean up\".\n");
    EXPECT_EQ(world.ok({"diff", "1", "empty"}), "+ empty\n") << "is there";
    EXPECT_EQ(world.ok({"diff", "1", "Notes.txt"}), "- Notes.txt\n") << "was there";
    f.write("project/3", "");
    EXPECT_EQ(world.ok({"diff", "1", "3", "empty"}), "+ empty\n") << "a snapshot, though a file is called so";
    EXPECT_EQ(world.ok({"diff", "1", "--", "3"}), "+ 3\n");
    EXPECT_EQ(json::parse(world.ok({"diff", "1", "moved", "Notes.txt", "--stat", "--json"})),
              (json{{"version", 1},
                    {"files",
                     {{{"path", "Notes.txt"}, {"status", "deleted"}, {"added", 0}, {"removed", 1}},
                      {{"path", "moved/notes"}, {"status", "added"}, {"added", 1}, {"removed", 0}}}}}));
}

// Texts are compared, and only lines that differ are decoded: the same as decoding all of both.
TEST(ListingSteps, differencesAreThoseOfWholeListings) {
    const auto listing = [](const std::string& names) {
        ManifestBuilder builder;
        for (const char c : names) {
            Entry entry;
            entry.mtime = c == 'X' ? 2 : 1;
            builder.add(c == '\t' ? "a\tb\\" : std::string(c == 'X' ? "x" : std::string(1, c)) + "/long", entry);
        }
        return builder.finish();
    };
    const std::string all[] = {"", "a", "abc", "ac", "bcd\t", "x", "X", "abcdefx", "abcdefX", "aX", "\t", "ax\t"};
    for (const std::string& one : all)
        for (const std::string& other : all) {
            const Manifest older = listing(one);
            const Manifest newer = listing(other);
            const auto difference = differenceOf(older.encodedText(), newer.encodedText());
            const auto only = [](const Manifest& from, const Manifest& without) {
                std::vector<Manifest::Item> items;
                for (const auto& item : from.items())
                    if (const Entry* entry = without.find(item.path); entry == nullptr || *entry != item.entry)
                        items.push_back(item);
                return items;
            };
            EXPECT_EQ(difference.older.items(), only(older, newer)) << one << " " << other;
            EXPECT_EQ(difference.newer.items(), only(newer, older)) << one << " " << other;
        }
    EXPECT_THROW((void)differenceOf("f\tno manifest", ""), std::exception);
    EXPECT_THROW((void)differenceOf("", "x"), std::exception);
}

// As many files as before are not kept, and others.
TEST_F(Finding, whichOfTwoFilesWasTooLarge) {
    Project project = world.project();
    project.maxFileSize = 100;
    world.store().add(project);
    for (const bool first : {true, false}) {
        f.write("project/one", std::string(first ? 200 : 10, 'x'));
        f.write("project/two", std::string(first ? 10 : 200, 'x'));
        snap("tool", "Before: make");
    }
    f.remove("project/two");
    f.write("project/empty", "not");
    snap("tool", "Before: make");
    EXPECT_NE(found({"two"}).find("its last content was not kept"), std::string::npos) << found({"two"});
}
