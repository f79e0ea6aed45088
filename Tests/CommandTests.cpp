#include "Support/TestFolders.hpp"

#include "Engine/Tracking.hpp"
#include "Reports/TextReports.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// The text with every duration as "N ms".
std::string timeless(const std::string& text) {
    return std::regex_replace(text, std::regex("[0-9.]+ ms"), "N ms");
}

class CommandTest : public ::testing::Test {
  protected:
    // The error line of a run that fails, without "tidewrack: " and the line feed. Nothing may be printed besides.
    std::string fault(const std::vector<std::string>& words) const {
        const Outcome outcome = world.run(words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.find("tidewrack: "), 0U);
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1);
        return outcome.err.substr(11, outcome.err.size() - 12);
    }
    nlohmann::json json(const std::vector<std::string>& words) const { return nlohmann::json::parse(world.ok(words)); }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

TEST_F(CommandTest, helpAndVersion) {
    const std::string help = world.ok({});
    EXPECT_EQ(help.find("tidewrack 1.0.0 — undo anything your AI agent did\n"), 0U);
    EXPECT_EQ(help.find("_bench-walk"), std::string::npos);
    for (const char* word : {"help", "--help", "-h"}) EXPECT_EQ(world.ok({word}), help) << word;
    for (const char* word : {"version", "--version", "-v"}) EXPECT_EQ(world.ok({word}), "1.0.0\n") << word;
    EXPECT_FALSE(f.has("store")); // looking around creates nothing
}

TEST_F(CommandTest, usageErrors) {
    world.ok({"track"});
    EXPECT_EQ(fault({"snpa"}), "unknown command snpa. Run `tidewrack help`.");
    EXPECT_EQ(fault({"-x"}), "unknown command -x. Run `tidewrack help`.");
    for (const std::vector<std::string>& words : {std::vector<std::string>{"hook"}, {"hook", "Claude"}})
        EXPECT_EQ(fault(words), "usage: tidewrack hook claude|codex|cursor|gemini");
    EXPECT_EQ(fault({"snap", "--label"}), "--label needs a value");
    EXPECT_EQ(fault({"log", "-n"}), "-n needs a value");
    for (const char* number : {"x", "", "1.5", "-1", "99999999999999999999"})
        EXPECT_EQ(fault({"log", "-n", number}), std::string("-n must be a whole number, 0 or more, got ") + number);
    for (const char* command : {"diff", "restore", "undo", "cat", "pin", "unpin"}) {
        EXPECT_EQ(fault({command}), "missing snapshot");
        for (const char* word : {"x", "#", "##1", "1x", "", "99999999999999999999"})
            EXPECT_EQ(fault({command, word}), std::string("snapshot must be a snapshot number, got ") + word);
    }
    EXPECT_EQ(fault({"diff", "1", "y"}), "second snapshot must be a snapshot number, got y");
    EXPECT_EQ(fault({"cat", "1"}), "missing path");
    EXPECT_EQ(fault({"restore", "1", ""}), "missing path");
    EXPECT_EQ(fault({"cat", "1", "nope"}), "nope isn't in snapshot #1");
    EXPECT_EQ(fault({"cat", "1", "/etc/passwd"}), "/etc/passwd is outside " + world.projectPath() + ".");
    for (const char* number : {"77", "-3", "+77", "#0"}) {
        const bool hasSign = number[0] == '+' || number[0] == '#';
        const std::string unknown = std::string("No snapshot #") + (number + (hasSign ? 1 : 0)) + ".";
        for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
                 {"diff", number}, {"diff", "1", number}, {"restore", number}, {"undo", number}, {"cat", number, "a"}})
            EXPECT_EQ(fault(words), unknown);
        EXPECT_EQ(fault({"pin", number}), unknown);
    }
    EXPECT_EQ(world.history().seqs().size(), 1U); // no safety snapshot was taken for any of these
}

TEST_F(CommandTest, findsTheProject) {
    f.makeFolder("elsewhere");
    const auto untracked = [](const std::string& folder) {
        return folder + " isn't tracked. Run `tidewrack track` in the project folder.";
    };
    for (const char* command : {"snap", "log", "untrack", "prune"})
        EXPECT_EQ(fault({command}), untracked(world.projectPath()));
    f.write("project/deep/er/file", "x");
    world.ok({"track", "."});
    world.current = f.at("project/deep/er");
    for (const std::string& path : {std::string("file"), std::string("../er/./file"), f.at("project/deep/er/file")})
        EXPECT_EQ(world.ok({"cat", "1", path}), "x");
    EXPECT_EQ(fault({"untrack", "-h"}), world.current + "/-h is not a folder."); // the history around it stays
    EXPECT_EQ(fault({"untrack", ""}), "missing path");
    world.current = f.at("elsewhere");
    EXPECT_EQ(fault({"log"}), untracked(f.at("elsewhere")));
    EXPECT_EQ(world.ok({"--project", "../project/deep", "diff", "1"}), "No changes.\n");
    EXPECT_EQ(world.ok({"diff", "--project", "/", "1", "--project", f.at("project")}), "No changes.\n");
    EXPECT_EQ(fault({"log", "--project", "gone"}), untracked(f.at("elsewhere/gone")));
    EXPECT_EQ(world.ok({"untrack", "../project/deep"}),
              "Stopped tracking " + f.at("project") + " and deleted its history.\n");
}

// A folder that was deleted under the user's feet is not "/".
TEST_F(CommandTest, needsACurrentFolder) {
    world.ok({"track"});
    world.current = "";
    EXPECT_EQ(fault({"snap"}), "Can't tell the current folder; it may have been deleted.");
    EXPECT_EQ(fault({"track", "sub"}), "Can't tell the current folder; it may have been deleted.");
    EXPECT_EQ(world.ok({"--project", world.projectPath(), "diff", "1"}), "No changes.\n");
}

TEST_F(CommandTest, trackSnapAndProjects) {
    EXPECT_EQ(world.ok({"projects"}), "Nothing tracked yet. Run `tidewrack track` in a project folder.\n");
    f.write("project/a", "a");
    f.makeFolder("project/folder");
    const Outcome tracked = world.run({"track", "--verbose"}); // an unknown flag is nobody's business
    EXPECT_EQ(timeless(tracked.out), "Started tracking " + world.projectPath() + "\n#1  1 files  N ms\n");
    const auto storage = world.store().storageWarning(world.project());
    EXPECT_EQ(tracked.err, storage ? "warning: " + *storage + "\n" : "");
    f.write("project/b", "b");
    EXPECT_EQ(timeless(world.ok({"snap"})), "#2  +1 ~0 -0 since the previous snapshot  2 files  N ms\n");
    EXPECT_EQ(world.ok({"diff", "2", "#1"}), "- b\n");
    EXPECT_EQ(timeless(world.ok({"snap"})), "#3  no changes since the previous snapshot  2 files  N ms\n");
    rewriteRecord(world, 3, [](SnapshotMeta& meta) { meta.created = now() - std::chrono::minutes(5); });
    EXPECT_EQ(world.ok({"projects"}), world.projectPath() + "  3 snapshots, latest 5m ago\n");
    f.remove("store/projects/" + world.project().id + "/snapshots");
    EXPECT_EQ(world.ok({"projects"}), world.projectPath() + "  no snapshots\n");
    f.write("store/projects/" + world.project().id + "/snapshots", "no folder");
    EXPECT_EQ(world.ok({"projects"}), world.projectPath() + "  its snapshots are unreadable\n");
    f.remove("store/projects/" + world.project().id + "/snapshots");
    EXPECT_EQ(world.ok({"log"}), "");
    EXPECT_EQ(json({"log", "--json"}), nlohmann::json::array());
}

TEST_F(CommandTest, logListing) {
    f.write("project/a", "a");
    world.ok({"track"});
    f.write("project/b", "b");
    world.ok({"snap", "--agent", "claude", "--kind", "prompt", "--label", std::string(59, 'x') + "ü"});
    world.ok({"snap", "--label", std::string(58, 'x') + "üüü"});
    EXPECT_EQ(world.ok({"pin", "2"}), "Pinned #2.\n");
    world.ok({"pin", "3"});
    EXPECT_EQ(world.ok({"unpin", "3"}), "Unpinned #3.\n");
    for (const std::int64_t seq : {1, 2, 3})
        rewriteRecord(world, seq,
                      [&](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(1) * (4 - seq); });
    const std::string older = "#2 \U0001F4CC  2h ago  claude prompt  \"" + std::string(59, 'x') +
                              "ü\"  →  no changes\n#1  3h ago  manual  →  +1 ~0 -0\n";
    const std::string newest = "#3  1h ago  manual  \"" + std::string(57, 'x') + "...\"  →  ";
    EXPECT_EQ(world.ok({"log"}), newest + "no changes yet\n" + older);
    f.write("project/a", "changed");
    f.write("project/b", "changed");
    f.makeFolder("project/folders/do/not/count");
    EXPECT_EQ(world.ok({"log", "-n", "5", "-n", "3"}), newest + "+0 ~2 -0 so far\n" + older);
    EXPECT_EQ(world.ok({"log", "-n", "1"}), newest + "+0 ~2 -0 so far\n");
    EXPECT_EQ(world.ok({"log", "-n", "0"}), "");
    f.write("store/projects/" + world.project().id + "/manifests/2.mf", "damaged");
    const Outcome outcome = world.run({"log"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, newest + "unknown\n" + older);
    EXPECT_EQ(outcome.err.find("warning: can't tell what changed since #3: "), 0U) << outcome.err;
}

TEST_F(CommandTest, logShowsTwentyByDefault) {
    for (int i = 0; i < 22; ++i) world.ok({i == 0 ? "track" : "snap"});
    const std::string text = world.ok({"log"});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
    EXPECT_EQ(text.find("#22"), 0U);
    EXPECT_NE(text.find("\n#3  "), std::string::npos);
    EXPECT_EQ(json({"log", "--json"}).size(), 20U);
    EXPECT_EQ(json({"log", "--json", "-n", "100"}).size(), 22U);
}

// The names are checked by JsonTests.cpp.
TEST_F(CommandTest, jsonIsWrittenWithSortedNamesTwoSpacesAndEscapedSlashes) {
    world.ok({"track"});
    world.ok({"snap", "--label", "a/b"});
    const std::string text = world.ok({"log", "--json", "-n", "1"});
    EXPECT_EQ(text.find("[\n  {\n    \"added\" : 0,\n    \"created\" : \""), 0U) << text;
    EXPECT_NE(text.find("\",\n    \"deleted\" : 0,\n"), std::string::npos) << text;
    EXPECT_NE(text.find("    \"label\" : \"a\\/b\",\n"), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with("    \"seq\" : 2\n  }\n]\n")) << text;
}

TEST_F(CommandTest, diffAsAPatch) {
    Project project = track(world.store(), world.projectPath(), false);
    project.maxFileSize = 10;
    f.write("project/file", "old\n");
    f.write("project/large", "over the limit\n");
    f.link("project/link", "there");
    (void)Engine(world.store()).snapshot(project, {"manual", {}, {}, {}, {}});
    f.write("project/file", "new\n");
    f.write("project/large", "no more\n");
    f.remove("project/link");
    f.link("project/link", "elsewhere");
    f.makeFolder("project/no-part-of-patches");
    const std::string patch =
        "diff --git a/file b/file\n--- a/file\n+++ b/file\n@@ -1 +1 @@\n-old\n+new\n"
        "diff a/large b/large\nThe content of large was not kept: it was larger than the size limit\n"
        "diff --git a/link b/link\ndeleted file mode 120000\n--- a/link\n+++ /dev/null\n@@ -1 +0,0 @@\n-there\n"
        "\\ No newline at end of file\n"
        "diff --git a/link b/link\nnew file mode 120000\n--- /dev/null\n+++ b/link\n@@ -0,0 +1 @@\n+elsewhere\n"
        "\\ No newline at end of file\n";
    EXPECT_EQ(world.ok({"diff", "1", "--patch"}), patch) << "to the folder as it is";
    world.ok({"snap"});
    EXPECT_EQ(world.ok({"diff", "1", "2", "--patch"}), patch);
}

TEST_F(CommandTest, catGivesTheBytes) {
    std::string bytes;
    for (int i = 0; i < 200'000; ++i) bytes += static_cast<char>(i * 7);
    f.write("project/binary", bytes);
    f.link("project/link", "binary");
    world.ok({"track"});
    f.remove("project/binary");
    EXPECT_EQ(world.ok({"cat", "1", "binary"}), bytes);
    for (const std::string path : {"link", "."}) EXPECT_EQ(fault({"cat", "1", path}), path + " isn't in snapshot #1");
    f.remove("store/projects/" + world.project().id + "/blobs/1");
    EXPECT_EQ(fault({"cat", "1", "binary"}),
              "the content of binary wasn't kept in snapshot #1: it is missing from the store");
}

TEST(Reports, agesAndCounts) {
    const Date now{std::chrono::seconds(1'000'000'000)};
    for (const auto& [seconds, text] : {std::pair(59, "59s ago"),
                                        {60, "1m ago"},
                                        {3599, "59m ago"},
                                        {3600, "1h ago"},
                                        {86399, "23h ago"},
                                        {864000, "10d ago"},
                                        {-100000, "-100000s ago"}})
        EXPECT_EQ(ago(now - std::chrono::seconds(seconds), now), text);
    EXPECT_EQ(countsText({0, 0, 0}), "no changes");
    EXPECT_EQ(countsText({3, 0, 1}), "+3 ~0 -1");
}

TEST(Reports, coloursOnlyWhenAsked) {
    const Changes changes{{"a"}, {"b"}, {"c"}, {"c"}};
    EXPECT_EQ(changesText(changes, true), "\x1b[32m+ a\x1b[m\n\x1b[33m~ b\x1b[m\n\x1b[31m- c/\x1b[m\n");
    EXPECT_EQ(changesText({}, true), "No changes.\n");
}
