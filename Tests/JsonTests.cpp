// What docs/json.md promises of `--json`, held against what the commands print: no key more, no key less.

#include "Support/TestFolders.hpp"

#include "Reports/CareReports.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/StatusReport.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Dates.hpp"
#include "Vault/Vault.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

// The tables of the document: rows of a name and a type, below the heading of the object they belong to.
class JsonDocument {
  public:
    JsonDocument() {
        static const std::regex row(R"(\| `([^`]+)` \| ([^|,]+)(, [^|]*)? \|.*)");
        static const std::regex more("All keys of a ([a-z ]+), and");
        std::istringstream text(document("json.md"));
        std::string heading = "commands";
        for (std::string line; std::getline(text, line);) {
            std::smatch found;
            if (line.starts_with("## "))
                heading = line.substr(3);
            else if (std::regex_match(line, found, more))
                for (const auto& [key, value] : objects_.at(found[1]))
                    objects_[heading][key] = {value.type, value.optional, true};
            else if (std::regex_match(line, found, row))
                objects_[heading][found[1]] = {found[2], found[3] == ", optional"};
        }
    }

    // Checks what `command` printed.
    void check(const std::string& command, const json& value) {
        seen_.insert("commands." + command);
        check(value, objects_.at("commands").at(command).type, command);
    }

    [[nodiscard]] std::set<std::string> documented() const {
        std::set<std::string> all;
        for (const auto& [name, keys] : objects_)
            for (const auto& [key, value] : keys)
                if (!value.optional || !value.elsewhere) all.insert(name + "." + key);
        return all;
    }
    [[nodiscard]] const std::set<std::string>& seen() const { return seen_; }

  private:
    struct Value {
        std::string type;
        bool optional = false;
        bool elsewhere = false; // the row stands with another object, which may print it when this one never does
    };

    void check(const json& value, const std::string& type, const std::string& where) {
        if (type.starts_with("list of ")) {
            ASSERT_TRUE(value.is_array()) << where;
            const std::string of = type.substr(8);
            const std::string each = of.starts_with("lists of ") ? "list" + of.substr(5) : of.substr(0, of.size() - 1);
            for (const json& item : value) check(item, each, where);
        } else if (type == "text" || type == "date") {
            ASSERT_TRUE(value.is_string()) << where;
            EXPECT_TRUE(type == "text" || parseIsoDate(value.get<std::string>())) << where;
        } else if (type == "integer") {
            EXPECT_TRUE(value.is_number_integer()) << where;
        } else if (type == "boolean") {
            EXPECT_TRUE(value.is_boolean()) << where;
        } else {
            checkObject(value, type, where);
        }
    }

    void checkObject(const json& value, const std::string& name, const std::string& where) {
        ASSERT_TRUE(value.is_object() && objects_.contains(name)) << where << ": " << name;
        const auto& keys = objects_.at(name);
        for (const auto& [key, member] : value.items()) {
            ASSERT_TRUE(keys.contains(key)) << where << "." << key << " isn't documented";
            seen_.insert(name + "." + key);
            check(member, keys.at(key).type, where + "." + key);
        }
        for (const auto& [key, expected] : keys)
            EXPECT_TRUE(expected.optional || value.contains(key)) << where << "." << key << " is missing";
    }

    std::map<std::string, std::map<std::string, Value>> objects_;
    std::set<std::string> seen_;
};

} // namespace

TEST(Json, printsWhatIsDocumented) {
    const World world;
    const TemporaryFolder& f = world.folder;
    JsonDocument document;
    const auto run = [&](const std::string& command, std::vector<std::string> words = {}) {
        words.insert(words.begin(), command.substr(0, command.find(' ')));
        words.emplace_back("--json");
        const json value = json::parse(world.ok(words));
        document.check(command, value);
        return value;
    };

    f.write("project/a", "a");
    world.ok({"track"});
    const std::string record = "store/projects/" + world.project().id + "/project.json";
    json project = json::parse(f.read(record));
    project["maxFileSize"] = 1000;
    project["patterns"] = {"*.x"};
    project["cap"] = std::int64_t{1} << 40;
    f.write(record, project.dump());
    EXPECT_EQ(run("track")["project"]["root"], world.projectPath());
    f.write("project/new/file", "n");
    f.remove("project/a");
    EXPECT_EQ(run("diff", {"1"}), (json{{"version", 1},
                                        {"added", {"new", "new/file"}},
                                        {"modified", json::array()},
                                        {"deleted", {"a"}},
                                        {"folders", {"new"}}}));
    f.write("project/large", std::string(1001, 'x'));
    const json taken = run("snap", {"--label", "label", "--agent", "claude", "--session", "session", "--turn", "turn"});
    for (const char* key : {"label", "session", "turn"}) EXPECT_EQ(taken[key], key);
    EXPECT_EQ(taken["added"], 2);
    EXPECT_EQ(taken["deleted"], 1);
    EXPECT_EQ(run("log").size(), 3U);
    const json projects = run("projects");
    EXPECT_EQ(projects[0]["snapshots"], 3);
    EXPECT_EQ(projects[0]["latest"], run("log")[0]);
    for (const char* command : {"restore", "undo"})
        document.check(std::string(command) + " --dry-run",
                       json::parse(world.ok({command, "1", "--dry-run", "--json"})));
    const json restored = run("restore", {"1"});
    EXPECT_EQ(restored["restored"], json{"a"});
    EXPECT_EQ(restored["folders"], json{"new"});
    EXPECT_EQ(restored["safety"]["kind"], "restore");
    EXPECT_EQ(run("undo", {"5"})["safety"]["seq"], 6);
    run("log");
    world.ok({"snap", "--kind", "prompt", "--agent", "claude"});
    EXPECT_EQ(run("show")["turn"]["agent"], "claude");
    EXPECT_EQ(run("undo --last", {"3..5"})["projects"][0]["takesBack"][0]["from"], 3);
    EXPECT_EQ(run("redo", {"--dry-run"})["projects"][0]["root"], world.projectPath());
    EXPECT_EQ(run("timeline", {"-n", "1"})["rows"][0]["type"], "undo");
    run("log --turns", {"--turns"});
    TimelineRow row;
    row.agent = row.session = row.turn = "x";
    row.ended = row.began;
    row.commands.push_back({1, "c", "ask", {}, "/p", "x"});
    row.company.emplace_back().during.to = 1;
    row.tookBack.emplace_back();
    document.check("timeline", timelineJson({row}));
    UndoResult left;
    left.actions.push_back({{"path", UndoAction::Kind::leave, UndoAction::Reason::clash}, 7, "claude", "title", {}});
    document.check("undo --last", {{"version", 1},
                                   {"dryRun", true},
                                   {"projects", {undoJson("/p", {"undo", {row}}, left)}},
                                   {"passedOver", spansJson({row})},
                                   {"vault", {{{"id", "x"}, {"messages", {"y"}}}}}});
    world.ok({"restore", "3", "--keep-new"});
    f.remove("project/new");
    f.write("project/moved", "n");
    f.write("project/large", std::string(1001, 'x'));
    f.link("project/pointer", "moved");
    const json stopped = json::parse(world.ok({"snap", "--kind", "stop", "--agent", "claude", "--json"}));
    f.remove("project/large");
    f.write("project/binary", std::string(1, '\0'));
    document.check("diff --stat", json::parse(world.ok({"diff", "1", "--stat", "--json"})));
    document.check("diff --lines", json::parse(world.ok({"diff", "1", "--lines", "--json"})));
    f.remove("project/pointer");
    document.check("diff --lines", json::parse(world.ok({"diff", stopped["seq"].dump(), "--lines", "--json"})));
    document.check("diff --lines", json::parse(world.ok({"diff", "1", "2", "--lines", "--json"})));
    document.check("show", json::parse(world.ok({"show", "--lines", "--json"})));
    f.remove("project/binary");
    f.write("project/renamed", "n");
    f.remove("project/moved");
    EXPECT_EQ(run("log", {"renamed"})[0]["renamedFrom"], "moved");
    EXPECT_EQ(run("pin", {"1"})["pinned"], true);
    EXPECT_EQ(run("unpin", {"1"})["pinned"], false);
    EXPECT_EQ(run("find", {"new"})["paths"][0]["path"], "new");
    run("find", {"large"});
    EXPECT_EQ(run("find --lines", {"--lines", "a"})["rows"].back()["found"][0]["lines"][0], "-a");
    f.write("project/.gitignore", "build/\n");
    f.write("project/build/x", "");
    f.write("project/large", std::string(1001, 'x'));
    ASSERT_TRUE(git(f.at("project"), "init -q"));
    world.ok({"snap"});
    const Outcome exported = world.run({"export", "last", f.at("exported"), "--json"});
    EXPECT_EQ(exported.status, 3);
    document.check("export", json::parse(exported.out));
    EXPECT_EQ(json::parse(exported.out)["leftOut"], json{"build"});
    EXPECT_EQ(run("prune", {"--dry-run"}),
              (json{{"version", 1}, {"dryRun", true}, {"removedSnapshots", json::array()}, {"removedBlobs", 0}}));

    EXPECT_EQ(run("forget", {"--before", "1w", "--dry-run"})["left"], json::array());

    run("status", {"--project", world.projectPath()});
    StatusReport status;
    status.notKept.failed = {{"p", "r"}};
    status.agents = {{"a", "s", "h", LoggedEvent()}};
    status.failures = {LoggedEvent()};
    status.troubles = {{"w", "m"}};
    document.check("status", statusJson(status));
    EXPECT_EQ(run("check")["healthy"], true);
    CheckReport damaged;
    damaged.projects.emplace_back().damages.emplace_back();
    damaged.repairs.emplace(1).front().mendings.emplace_back();
    document.check("check", checkJson(damaged));
    run("usage");
    UsageReport usage;
    usage.projects.emplace_back().usage.largest.push_back({"1/0", "p", 1, 1, {}});
    usage.projects.front().turns["1/0"] = {};
    document.check("usage", usageJson(usage));
    run("mirror", {f.at("mirror")});
    SnapshotMeta task;
    task.background = true;
    task.folders = 1;
    task.end = TurnEnd{false, 1, "title", true};
    document.check("log", json::array({toJson(task)}));

    run("config list", {"list"});
    f.write("was/here", "x");
    world.ok({"track", f.at("was")});
    std::filesystem::rename(f.at("was"), f.at("is"));
    run("move", {f.at("was"), f.at("is")});
    EXPECT_TRUE(run("exclude", {"new"}).contains("snapshot"));
    run("include", {"new", "--dry-run"});

    f.write("home/f", "x");
    f.write("home/g", "x");
    const std::string id = Vault(world.store())
                               .save({.paths = {f.at("home/f"), f.at("home/gone"), f.at("home/g")},
                                      .agent = "codex",
                                      .session = "s",
                                      .turn = "t"})
                               .entry->id;
    run("vault");
    f.write("home/f", "something else by now");
    run("vault restore", {"restore", id});
    f.remove("store/vault/" + id + "/items/1");
    const json half = json::parse(world.run({"vault", "restore", id, "--json"}).out);
    EXPECT_EQ(half["items"][1]["restored"], false);
    document.check("vault restore", half);
    f.write("home/repo/.git/HEAD", "ref: refs/heads/main\n");
    for (const char* folder : {"refs", "objects"}) f.makeFolder(std::string("home/repo/.git/") + folder);
    const auto state =
        Vault(world.store())
            .saveGitState(gitStoreFor(f.at("home/repo")).value(), GitStore::WorkTrees::own, Vault::Objects::left, {});
    run("vault restore", {"restore", state.value().id});
    VaultEntry odd;
    odd.items = {{"/odd\xff", "items/0", "file", "/odd\xff"}};
    odd.gitState = "/odd\xff";
    document.check("vault", json::array({toJson(odd)}));
    world.ok({"hooks", "install", "gemini"});
    json config = json::parse(f.read("home/.gemini/settings.json"));
    EXPECT_EQ(config["hooks"].erase("BeforeTool"), 1U);
    f.write("home/.gemini/settings.json", config.dump());
    f.makeFolder("home/.gemini/extensions/tidewrack"); // as the plugin lies there
    f.write("project/.gemini/settings.json", config.dump());
    run("hooks status", {"status"});
    for (const char* agent : {"codex", "gemini"}) run("hooks install", {"install", agent});
    EXPECT_EQ(run("hooks uninstall", {"uninstall", "gemini"})["agents"][0]["removed"].size(), 5U);

    run("guard explain", {"explain", "echo $(date) > f | cat; rm -rf " + world.projectPath() + "; make"});

    EXPECT_EQ(run("untrack", {"--dry-run"})["dryRun"], true);
    EXPECT_EQ(run("untrack")["root"], world.projectPath());
    for (const std::string& key : document.documented())
        EXPECT_TRUE(document.seen().contains(key)) << key << " is documented, and not printed";
}

TEST(Json, repairsNamesThatAreNotText) {
    RestoreResult restore;
    for (const auto action : {PathOutcome::Action::restored, PathOutcome::Action::removed})
        restore.outcomes.push_back({"bad\xff", action, EntryKind::file});
    restore.safetyWarnings = {{Warning::Kind::notSaved, "bad\xff", KeepFailure::system(EIO)}};
    restore.target = 4;
    restore.prunedUpTo = 8;
    EXPECT_EQ(restoreJson(restore)["restored"], json{"bad\xef\xbf\xbd"});
    EXPECT_EQ(restoreText(restore), "Restored 1 file, removed 1 file. Undo this with: tidewrack restore 0\n"
                                    "warning: snapshots #5–#7 were pruned, so this undid everything from #4 to #8\n"
                                    "warning: couldn't save bad\xef\xbf\xbd: Input/output error\n");
    EXPECT_EQ(changesJson({{}, {}, {"bad\xff"}, {"bad\xff"}})["folders"], json{"bad\xef\xbf\xbd"});
}
