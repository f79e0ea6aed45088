#include "Support/TestFolders.hpp"

#include "CommandTable.hpp"
#include "Engine/Tracking.hpp"
#include "Reports/TextReports.hpp"
#include "Shell/Guard.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <regex>
#include <sstream>

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
    // The rows of a file of test data: words with | between them, =>, and what is said. @ is the world's folder.
    std::vector<std::pair<std::vector<std::string>, std::string>> rowsOf(const std::string& name) const {
        std::vector<std::pair<std::vector<std::string>, std::string>> rows;
        std::istringstream lines(std::regex_replace(testData(name), std::regex("@"), f.path()));
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("# ")) continue;
            const auto arrow = line.find(" =>");
            auto& [words, said] = rows.emplace_back(std::vector<std::string>{""}, line.substr(arrow + 3));
            said.erase(0, 1);
            for (const char c : line.substr(0, arrow))
                c == '|' ? (void)words.emplace_back() : words.back().push_back(c);
        }
        EXPECT_FALSE(rows.empty()) << name;
        return rows;
    }
    // What a run shows on a terminal.
    Outcome onTerminal(const std::vector<std::string>& words, const std::string& terminal = "xterm") const {
        Outcome outcome;
        Sink out(outcome.out, true);
        Sink err(outcome.err, true);
        Surroundings around{world.environment, world.current, "tidewrack", out, err};
        around.environment["TERM"] = terminal;
        outcome.status = tidewrack::run(words, around);
        return outcome;
    }

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

// What a command is called and takes stands in the table; help, manual and JSON document must know all of it.
TEST_F(CommandTest, everythingInTheTableIsDocumented) {
    const std::string usage = world.ok({"help"});
    const std::string manual = document("man/tidewrack.1");
    const std::string described = document("json.md");
    const std::string jsonDocument = described.substr(0, described.find("\n## ")); // the table of commands
    for (const Command& command : commandTable()) {
        const std::string name(command.name);
        for (const Option& option : command.options) {
            EXPECT_EQ(takesValue(option.name), option.takesValue()) << option.name << " means two things";
            if (command.group == Group::hidden) continue;
            const std::string inManual = "Fl " + std::string(option.name.substr(1));
            EXPECT_NE(manual.find(inManual), std::string::npos) << inManual;
        }
        if (command.group == Group::hidden) continue;
        EXPECT_NE(usage.find("\n  " + name), std::string::npos) << name;
        EXPECT_NE(manual.find("Cm " + name), std::string::npos) << name;
        const bool hasJson = command.option("--json") != nullptr;
        EXPECT_EQ(jsonDocument.find("\n| `" + name + "` | ") != std::string::npos, hasJson) << name;
        const std::string help = world.ok({"help", name.substr(0, name.find(' ')), name.substr(name.find(' ') + 1)});
        EXPECT_EQ(help.find("Usage: tidewrack " + name), 0U) << help;
        EXPECT_NE(help.find("\nExample\n  "), std::string::npos) << help;
    }
    const std::string restoring = world.ok({"help", "restore"});
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"restore", "--help"}, {"restore", "1", "-h"}, {"--help", "restore", "1"}})
        EXPECT_EQ(world.ok(words), restoring);
    EXPECT_NE(world.ok({"help", "hooks"}).find("\n  hooks install [agent|all]"), std::string::npos);
    EXPECT_NE(world.ok({"help", "hooks"}).find("\nExample\n  "), std::string::npos);
    EXPECT_EQ(world.ok({"hook", "-h"}), world.ok({"help", "hook"}));
    for (const char* word : {"-h", "--help"}) EXPECT_EQ(world.ok({"help", word}), world.ok({"help", "help"}));
    EXPECT_EQ(fault({"help", "me"}), "unknown command me. Run `tidewrack help`.");
}

// The guard knows the words of this program too: none of its options may hide a command from it.
TEST_F(CommandTest, theGuardReadsTheOptionsAsTheProgramDoes) {
    shell::Context context;
    context.cwd = f.path();
    context.protectedPaths = [this] {
        return std::vector<shell::OwnPath>{{f.at("store"), shell::OwnPath::Role::history}};
    };
    std::vector<Option> options(globalOptions().begin(), globalOptions().end());
    options.push_back({"", "", ""});
    std::vector<std::string> asked{"hooks uninstall"};
    for (const Command& command : commandTable()) {
        options.insert(options.end(), command.options.begin(), command.options.end());
        if (command.effect == Effect::removesForGood) asked.emplace_back(command.name);
    }
    EXPECT_GT(asked.size(), 1U);
    for (const Option& option : options)
        for (const std::string& command : asked) {
            const bool shows = option.name == "--dry-run" || option.name == "--help";
            const std::string line =
                "tidewrack " + std::string(option.name) + (option.takesValue() ? " value " : " ") + command;
            const auto verdict = shell::analyze(line, context).verdict.kind;
            EXPECT_EQ(verdict == shell::Verdict::Kind::ask, !shows) << line;
        }
}

TEST_F(CommandTest, wordsThatACommandThatChangesSomethingDoesNotKnow) {
    f.write("project/a", "old");
    f.write("project/-kept", "");
    f.write("other/a", "old");
    world.ok({"track"});
    world.ok({"track", f.at("other")});
    for (const auto& [words, said] : rowsOf("command-words.txt")) {
        SCOPED_TRACE(said);
        const auto snapshots = world.history().seqs();
        if (said.empty() || said.starts_with("warning: ")) {
            const Outcome outcome = world.run(words);
            EXPECT_EQ(outcome.status, 0);
            EXPECT_EQ(outcome.err, said.empty() ? said : said + "\n");
        } else {
            EXPECT_EQ(fault(words), said);
            EXPECT_EQ(world.history().seqs(), snapshots) << "a refusal takes no safety snapshot";
        }
    }
    f.remove("project/-kept");
    world.ok({"restore", "1", "-kept"});
    EXPECT_TRUE(f.has("project/-kept")) << "what a snapshot has is a path";
    f.write("project/a", "new");
    f.write("other/a", "new");
    world.ok({"--project=" + f.at("other"), "restore", "1"});
    EXPECT_EQ(f.read("project/a") + f.read("other/a"), "newold");
    world.ok({"-C", f.at("other"), "-C", "..", "-C", f.at("project"), "restore", "1"});
    EXPECT_EQ(f.read("project/a"), "old");
}

TEST_F(CommandTest, pathsNarrowDown) {
    f.write("project/a", "a");
    f.write("project/sub/b", "b");
    world.ok({"track"});
    f.write("project/a", "changed");
    world.ok({"snap"});
    f.write("project/sub/b", "changed");
    world.ok({"snap"});
    f.remove("project/a");
    f.write("project/sub/c", "c");
    EXPECT_EQ(world.ok({"diff", "1", "--", "sub"}), "+ sub/c\n~ sub/b\n");
    EXPECT_EQ(world.ok({"diff", "1", "2", "sub"}), "No changes.\n");
    EXPECT_EQ(world.ok({"diff", "2", "3", "a", "sub/b"}), "~ sub/b\n");
    EXPECT_EQ(world.ok({"diff", "2", "3", "sub", "--patch"}).find("diff --git a/sub/b b/sub/b\n"), 0U);
    const Outcome unknown = world.run({"diff", "1", "--", "nope", "sub"});
    EXPECT_EQ(std::to_string(unknown.status) + unknown.out + unknown.err, "1tidewrack: nope is on neither side\n");
    EXPECT_EQ(json({"diff", "1", "--json", "--", "sub"})["added"], nlohmann::json{"sub/c"});
    const auto rows = [&](const std::vector<std::string>& words) {
        return std::regex_replace(world.ok(words), std::regex(" +[0-9]+s ago +manual +→ +"), ": ");
    };
    EXPECT_EQ(rows({"log", "a"}), "#3: +0 ~0 -1 so far\n#1: +0 ~1 -0\n");
    EXPECT_EQ(rows({"log", "sub"}), "#3: +1 ~0 -0 so far\n#2: +0 ~1 -0\n");
    EXPECT_EQ(rows({"log", "sub", "-n1"}), "#3: +1 ~0 -0 so far\n");
    EXPECT_EQ(json({"log", "--json", "sub/b"}).size(), 1U);
    world.current = f.at("project/sub");
    EXPECT_EQ(fault({"undo", "1", ""}), "missing path");
    EXPECT_EQ(world.ok({"undo", "2", "c"}), "Nothing changed after #2 there, so there's nothing to undo.\n");
    EXPECT_EQ(world.ok({"undo", "1", "../a", "b"}),
              "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 6\n");
    EXPECT_EQ(f.read("project/a") + f.read("project/sub/b") + f.read("project/sub/c"), "achangedc");
}

// A dry run tells what the act then does, and leaves no trace.
TEST_F(CommandTest, dryRunsSayWhatTheActDoes) {
    Project project = track(world.store(), world.projectPath(), false);
    project.maxFileSize = 10;
    f.write("project/changed", "old");
    f.write("project/gone/file", "x");
    f.write("project/large", "over the limit");
    f.write("project/same", "same");
    (void)Engine(world.store()).snapshot(project, {"manual", {}, {}, {}, {}});
    f.write("project/changed", "new");
    f.remove("project/gone");
    f.remove("project/large");
    f.write("project/added/file", "y");
    const std::string before = f.listing();
    const std::string lines = "- added/\n- added/file\n~ changed\n+ gone/\n+ gone/file\n";
    const std::string large = "! large  it was larger than the size limit when that snapshot was taken\n";
    const std::string sums = "Would restore 2 files, remove 1 file. Nothing was changed.\n";
    EXPECT_EQ(world.ok({"restore", "1", "--dry-run"}), lines + large + sums);
    EXPECT_EQ(world.ok({"undo", "1", "--dry-run"}), lines + large + sums);
    EXPECT_EQ(world.ok({"restore", "1", "--dry-run", "--keep-new", "added", "changed"}),
              "~ changed\nWould restore 1 file, remove 0 files. Nothing was changed.\n");
    EXPECT_EQ(world.ok({"undo", "1", "--dry-run", "gone"}),
              "+ gone/\n+ gone/file\nWould restore 1 file, remove 0 files. Nothing was changed.\n");
    EXPECT_EQ(world.ok({"untrack", "--dry-run"}), "Would stop tracking " + world.projectPath() +
                                                      " and delete its history of 1 snapshot. Nothing was changed.\n");
    nlohmann::json plan = json({"restore", "1", "--dry-run", "--json"});
    EXPECT_EQ(f.listing(), before);
    const nlohmann::json act = json({"restore", "1", "--json"});
    for (const char* key : {"restored", "removed", "folders", "warnings"}) EXPECT_EQ(plan[key], act[key]) << key;
    EXPECT_EQ(plan["overwritten"], nlohmann::json{"changed"});
    EXPECT_EQ(world.ok({"restore", "1", "--dry-run"}),
              large + "Would restore 0 files, remove 0 files. Nothing was changed.\n");
}

// A turn saves at its prompt and before risky commands; the number with its words is not always the one to undo.
TEST_F(CommandTest, undoOfNothingNamesTheNextStepOfTheTurn) {
    const auto snap = [&](const std::string& kind, const std::string& session) {
        world.ok({"snap", "--kind", kind, "--label", kind + "!", "--agent", "claude", "--session", session});
    };
    f.write("project/a", "a");
    world.ok({"track"});
    snap("prompt", "x");
    snap("tool", "x");
    f.remove("project/a");
    snap("stop", "x");
    snap("prompt", "y");
    EXPECT_EQ(world.ok({"undo", "2"}),
              "Nothing changed after #2, so there's nothing to undo.\n#2 belongs to turn #2–#4 of claude, "
              "\"prompt!\". To take back all of it, run: tidewrack undo --turn 2\n"
              "The next step of it that changed something is #3: tidewrack undo 3\n");
    EXPECT_EQ(world.ok({"undo", "1"}), "Nothing changed after #1, so there's nothing to undo.\n");
    f.remove("store/projects/" + world.project().id + "/snapshots/3.json");
    EXPECT_NE(world.ok({"log"}).find("\"prompt!\"  →  +0 ~0 -1 (without #3)\n"), std::string::npos);
    rewriteRecord(world, 2, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(48); });
    EXPECT_NE(world.ok({"log"}).find("\"prompt!\"  →  +0 ~0 -1 (without #3, pruned)\n"), std::string::npos);
}

TEST_F(CommandTest, controlCharactersReachNoTerminal) {
    const std::string name = "\x1b[31mred\n";
    f.write("project/" + name, "old\tline\n");
    world.ok({"track"});
    f.write("project/" + name, "new\tline\x1b]0;title\x07\n");
    world.ok({"snap", "--label", "two\nlines \u202e\u009b\x1b[2J"});
    EXPECT_EQ(onTerminal({"diff", "1"}, "dumb").out, "~ \\x1b[31mred\\n\n");
    EXPECT_EQ(world.ok({"diff", "1"}), "~ " + name + "\n");
    EXPECT_NE(onTerminal({"log"}).out.find("\"two\\nlines \\u202e\\u009b\\x1b[2J\""), std::string::npos);
    EXPECT_NE(world.ok({"log"}).find("\"two\\nlines \u202e\u009b\x1b[2J\""), std::string::npos);
    const std::string patch = onTerminal({"diff", "1", "--patch"}, "dumb").out;
    EXPECT_NE(patch.find("\n-old\tline\n+new\tline\\x1b]0;title\\x07\n"), std::string::npos) << patch;
    EXPECT_EQ(onTerminal({"cat", "1", "\x1bX"}).err, "tidewrack: \\x1bX isn't in snapshot #1\n");
    EXPECT_EQ(onTerminal({"restore", "1", "\x7f"}, "dumb").out.find("\x7f"), std::string::npos);
    EXPECT_NE(onTerminal({"diff", "1"}).out.find("\x1b[33m"), std::string::npos); // our own colours stay
}

TEST_F(CommandTest, completions) {
    f.write("project/kept", "");
    f.write("project/lost folder/x", "");
    world.ok({"track"});
    world.ok({"snap", "--label", "clean-up"});
    f.remove("project/lost folder");
    f.write("other/went", "");
    world.ok({"track", f.at("other")});
    for (const std::string kind : {"prompt", "stop"}) {
        world.ok({"snap", "--kind", kind, "--label", "Tidy\x1b[2J up", "--agent", "claude", "--session", "s-1",
                  "--project", f.at("other")});
        f.remove("other/went");
    }
    const auto offered = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"_complete", "--"});
        return std::regex_replace(world.ok(words), std::regex("(\t[^\n]*)?\n"), "|");
    };
    for (const auto& [words, offers] : rowsOf("completions.txt")) EXPECT_EQ(offered(words), offers) << words[0];
    EXPECT_NE(world.ok({"_complete", "--", "undo", "2"}).find("s ago  clean-up\n"), std::string::npos);
    const std::string turn = world.ok({"_complete", "--", "-C", f.at("other"), "undo", "--turn", ""});
    EXPECT_TRUE(turn.starts_with("2\t") && turn.ends_with("s ago  claude  Tidy\\x1b[2J up\n")) << turn;
    f.write("store/projects/" + Store::projectID(f.at("other")) + "/snapshots/1.json", "damaged");
    for (const auto& [option, offer] : {std::pair("--turn", "2|"), std::pair("--session", "s-1|")})
        EXPECT_EQ(offered({"-C", f.at("other"), "undo", option, ""}), offer);
}

TEST_F(CommandTest, usageErrors) {
    world.ok({"track"});
    EXPECT_EQ(fault({"log", "-n", ""}), "-n must be a whole number, 0 or more, got ");
    for (const char* command : {"diff", "restore", "undo", "cat", "pin", "unpin"}) {
        EXPECT_EQ(fault({command}), "missing snapshot");
        for (const char* word : {"x", "#", "##1", "1x", "", "99999999999999999999"})
            EXPECT_EQ(fault({command, word}), std::string("snapshot must be a snapshot number, got ") + word);
    }
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
    EXPECT_EQ(fault({"untrack", "hlep"}), world.current + "/hlep is not a folder."); // the history around it stays
    EXPECT_EQ(fault({"untrack", ""}), "missing path");
    world.current = f.at("elsewhere");
    EXPECT_EQ(fault({"log"}), untracked(f.at("elsewhere")));
    EXPECT_EQ(world.ok({"--project", "../project/deep", "diff", "1"}), "No changes.\n");
    EXPECT_EQ(world.ok({"diff", "--project", "/", "1", "--project", f.at("project")}), "No changes.\n");
    EXPECT_EQ(fault({"log", "--project", "gone"}), untracked(f.at("elsewhere/gone")));
    EXPECT_EQ(world.ok({"untrack", "../project"}),
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
    std::string storage;
    for (const std::string& line : world.store().storageWarnings(world.project())) storage += "warning: " + line + "\n";
    EXPECT_EQ(tracked.err, storage);
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

TEST_F(CommandTest, diffCountsLinesAndComparesBytes) {
    f.write("project/changed", "1\n2\n3\n");
    f.write("project/gone", "1\n");
    f.write("project/same", "same\n");
    f.write("project/zeros", std::string(3, '\0'));
    world.ok({"track"});
    f.write("project/changed", "1\nii\n3\n4\n");
    f.remove("project/gone");
    f.write("project/same", "SAME\n");
    f.write("project/same", "same\n");
    f.write("project/zeros", "xyz");
    f.makeFolder("project/folder");
    EXPECT_EQ(world.ok({"diff", "1", "--content", "--stat"}),
              "~ changed  +2 -1\n- gone  +0 -1\n~ zeros  binary\n3 files changed, +2 -2\n");
    world.ok({"snap"});
    EXPECT_EQ(world.ok({"diff", "1", "2"}), "+ folder/\n~ changed\n~ same\n~ zeros\n- gone\n");
    EXPECT_EQ(world.ok({"diff", "1", "2", "--content"}), "+ folder/\n~ changed\n~ zeros\n- gone\n");
    EXPECT_EQ(world.ok({"diff", "1", "2", "--stat", "folder"}), "No changes.\n");
    EXPECT_EQ(world.ok({"diff", "1", "2", "--stat", "--patch", "gone"}),
              "- gone  +0 -1\n1 file changed, +0 -1\n\n" + world.ok({"diff", "1", "2", "--patch", "gone"}));
}

TEST_F(CommandTest, timesStandForSnapshots) {
    f.write("project/a", "old");
    world.ok({"track"});
    world.ok({"snap", "--kind", "prompt"});
    f.write("project/a", "new");
    world.ok({"snap"});
    world.ok({"snap", "--kind", "prompt", "--label", "Background task finished"}); // which nobody typed
    for (const std::int64_t seq : {1, 2, 3, 4})
        rewriteRecord(world, seq,
                      [&](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(24) * (4 - seq); });
    EXPECT_EQ(world.ok({"cat", "60h", "a"}) + world.ok({"cat", "last", "a"}), "oldnew");
    EXPECT_EQ(world.ok({"diff", "last-turn", "last"}), "~ a\n");
    const Outcome named = world.run({"diff", "1w", "--json"});
    EXPECT_EQ(named.err.find("tidewrack: no snapshot is that old; the oldest is #1, "), 0U) << named.err;
    EXPECT_TRUE(std::regex_match(world.run({"restore", "60h"}).err, std::regex("#1, [A-Z][a-z][a-z] [0-9:]{5}\n")));
    EXPECT_EQ(fault({"undo", "yesterday"}),
              "undo takes the number of a snapshot, not yesterday: it takes back what came "
              "between that one and the next. `tidewrack undo --last` takes back the newest turn, `tidewrack timeline` "
              "lists them.");
    EXPECT_EQ(world.ok({"pin", "last"}), "Pinned #6.\n"); // the restore took two
}

TEST_F(CommandTest, catGivesTheBytes) {
    std::string bytes;
    for (int i = 0; i < 200'000; ++i) bytes += static_cast<char>(i * 7);
    f.write("project/binary", bytes);
    f.write("project/abinary", "");
    f.link("project/link", "binary");
    f.write("project/build/x", "");
    f.write("project/.gitignore", "build\n");
    ASSERT_TRUE(git(world.projectPath(), "init -q"));
    world.ok({"track"});
    f.remove("project/binary");
    EXPECT_EQ(world.ok({"cat", "1", "binary"}), bytes);
    f.makeFolder("project/sub");
    world.current = f.at("project/sub");
    for (const auto& [words, said] : rowsOf("cat.txt")) EXPECT_EQ(fault(words), said);
    world.current = f.at("project");
    f.remove("store/projects/" + world.project().id + "/blobs/1");
    EXPECT_EQ(fault({"cat", "1", "binary"}),
              "the content of binary wasn't kept in snapshot #1: it is missing from the store");
}

TEST(Pager, getsTheTextUntilItHasSeenEnough) {
    const TemporaryFolder folder;
    const Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    Sink sink(nowhere.get(), true);
    sink.pageThrough("cat >'" + folder.at("seen") + "'");
    sink.write("text\n");
    sink.finish();
    EXPECT_EQ(folder.read("seen"), "text\n");
    Sink cut(nowhere.get(), true);
    cut.pageThrough("true");
    for (int i = 0; i < 100; ++i) cut.write(std::string(100'000, 'x'));
    cut.finish();
    EXPECT_EQ(cut.error(), EPIPE);
    EXPECT_EQ(pagerOf({{"PAGER", "more -d"}, {"PATH", "/bin"}}), "more -d");
    for (const char* none : {"", "cat"}) EXPECT_EQ(pagerOf({{"PAGER", none}, {"PATH", "/bin"}}), std::nullopt);
    EXPECT_EQ(pagerOf({{"PATH", folder.path()}}), std::nullopt);
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
    EXPECT_EQ(changesText(changes, {true, true}), "\x1b[32m+ a\x1b[m\n\x1b[33m~ b\x1b[m\n\x1b[31m- c/\x1b[m\n");
    EXPECT_EQ(changesText({}, {true, true}), "No changes.\n");
}
