#include "Linux/FaultOperations.hpp"

#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Support/Files.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

namespace tidewrack::testing {

void history(Scene& scene) {
    scene.history();
}

namespace {

void makeOldSnapshotsDue(Scene& scene) {
    scene.history();
    for (const std::int64_t seq : {1, 2})
        rewriteRecord(scene.world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 40); });
}

void saveAndLose(Scene& scene) {
    scene.history();
    const std::string notes = scene.f.at("home/notes");
    (void)scene.vault().save({.paths = {notes}});
    scene.f.write("home/notes/private", "what stands there now");
}

void makePruneDue(Scene& scene) {
    makeOldSnapshotsDue(scene);
    (void)::unlink((scene.world.history().folder() + "/last-prune").c_str());
    scene.f.write("home/.gitconfig", "the user's own settings");
}

void installHooks(Scene& scene) {
    scene.history();
    EXPECT_EQ(Program(scene.world, {"hooks", "install", "claude"}).wait().status, 0);
}

void changeLines(Scene& scene) {
    scene.history();
    for (const char* lines : {"1\n2\n3\n", "one\n2\n3\n", "one\n2\nthree\n"}) {
        scene.f.write("project/lines", lines);
        if (std::string(lines).find("three") == std::string::npos) scene.world.ok({"snap"});
    }
}

// A turn that has not ended.
void work(Scene& scene) {
    scene.history();
    scene.world.ok({"snap", "--kind", "prompt", "--agent", "claude", "--session", "s"});
    scene.f.write("project/file", "what the turn made of it");
    scene.f.remove("project/stays");
    scene.f.write("project/unsaved/turn", "the turn's own");
}

void takeBack(Scene& scene) {
    work(scene);
    scene.world.ok({"undo", "--last"});
}

// Its folder was elsewhere, and is back.
void moveAway(Scene& scene) {
    scene.history();
    const std::string here = scene.world.projectPath();
    const std::string was = scene.f.at("was");
    EXPECT_EQ(::rename(here.c_str(), was.c_str()), 0);
    scene.world.ok({"move", here, was});
    EXPECT_EQ(::rename(was.c_str(), here.c_str()), 0);
}

// A mirror from before a prune, of other entries of the vault.
void mirrorOlder(Scene& scene) {
    scene.history();
    (void)scene.vault().save({.paths = {scene.f.at("home/notes")}});
    scene.world.ok({"mirror", "../mirror"});
    for (const std::int64_t seq : {1, 2})
        rewriteRecord(scene.world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 40); });
    scene.world.ok({"snap"});
    scene.world.ok({"prune"});
    scene.f.write("home/notes/private", "what stands there now");
    const auto old = scene.vault().entries().front();
    (void)scene.vault().save({.paths = {scene.f.at("home/notes")}});
    scene.f.remove("store/vault/" + old.id);
    scene.f.write("home/notes/private", "private notes");
}

// A record, a content that the project has as well, and a listing, with what it alone names.
void damageHistory(Scene& scene) {
    scene.history();
    const History history = scene.world.history();
    EXPECT_EQ(::unlink(history.blobPath(scene.world.manifestOf(3).find("stays")->blob).c_str()), 0);
    for (const std::string& path : {history.metaPath(2), history.manifestPath(3)}) writeFileSoon(path, "damaged");
}

} // namespace

void workInTwo(Scene& scene) {
    const std::string other = scene.f.at("home/other");
    scene.f.write("home/other/file", "the other project's");
    scene.world.ok({"track", other});
    work(scene);
    scene.world.ok({"snap", "--kind", "tool", "--agent", "claude", "--session", "s", "--project", other});
    scene.f.write("home/other/file", "what the turn made of the other project's");
    for (const std::string& root : {scene.world.projectPath(), other})
        scene.world.ok({"snap", "--kind", "stop", "--agent", "claude", "--session", "s", "--project", root});
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what)) text.replace(at, what.size(), with);
    return text;
}

const std::string endsTurn = R"({"hook_event_name":"Stop","session_id":"s","cwd":"@/project"})";
const std::string runs = R"({"hook_event_name":"PreToolUse","session_id":"s","cwd":"@/project","tool_name":"Bash",)";
const std::string removesNotes = runs + R"("tool_input":{"command":"rm -rf @/home/notes"}})";
const std::string removesFile = runs + R"("tool_input":{"command":"rm file .git/x"}})";

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = {
        {"track", {"track"}, [](Scene&) {}},
        {"snap", {"snap"}},
        {"restore", {"restore", "1"}},
        {"undo", {"undo", "2"}},
        {"undo of a range that merges", {"undo", "4..5"}, changeLines},
        {"undo of a turn", {"undo", "--turn", "4"}, work},
        {"undo of a turn over two projects", {"undo", "--last"}, workInTwo},
        {"redo", {"redo"}, takeBack},
        {"prune", {"prune"}, makeOldSnapshotsDue, "", false, {1, 2}},
        {"forget", {"forget", "1", "2", "--yes"}, history, "", false, {1, 2}},
        {"pin", {"pin", "2"}},
        {"check that repairs", {"check", "--repair"}, damageHistory, "", false, {3}},
        {"untrack", {"untrack"}, history, "", true},
        {"move", {"move", "../was"}, moveAway},
        {"mirror", {"mirror", "../mirror"}, history},
        {"mirror of what was mirrored before", {"mirror", "../mirror"}, mirrorOlder, "", false, {1, 2}},
        {"hook that takes a snapshot", {"hook", "claude"}, history, removesFile},
        {"hook that saves to the vault", {"hook", "claude"}, history, removesNotes},
        {"vault restore", {"vault", "restore", "?"}, saveAndLose},
        {"snap that prunes", {"snap"}, makePruneDue, "", false, {1, 2}},
        {"end of turn", {"hook", "claude"}, makePruneDue, endsTurn, false, {1, 2}},
        {"hooks install", {"hooks", "install", "claude"}},
        {"hooks uninstall", {"hooks", "uninstall", "claude"}, installHooks},
    };
    return all;
}

} // namespace tidewrack::testing
