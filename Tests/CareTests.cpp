// What is damaged in a store is told, whatever it is, and what it costs.

#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Engine/Repair.hpp"
#include "Platform/Attributes.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// #1 has a file, a link and a file in a folder; #2 another version of the file; #3 is like #2. An entry of the vault.
class CareTest : public ::testing::Test {
  protected:
    CareTest() {
        f.write("project/a", "first version");
        f.write("project/folder/b", "stays");
        f.link("project/link", "a");
        f.write("home/notes", "private");
        world.ok({"track"});
        f.write("project/a", "another version");
        world.ok({"snap"});
        world.ok({"snap"});
        entry = Vault(world.store()).save({.paths = {f.at("home/notes")}}).entry.value_or(VaultEntry());
    }

    // A path in the store: @ stands for the project's folder, & for the entry's, and "blob N path" for a content.
    [[nodiscard]] std::string at(std::string place) const {
        if (place.starts_with("blob ")) {
            const auto path = place.substr(7);
            const Manifest listing = world.manifestOf(place[5] - '0');
            place = "@/blobs/" + std::string(listing.find(path)->blob);
        }
        if (place.starts_with("@")) place.replace(0, 1, "projects/" + world.project().id);
        if (place.starts_with("&")) place.replace(0, 1, "vault/" + entry.id);
        return place;
    }

    // The lines of a check that tell of damages, with the status when that is another one than it should be.
    [[nodiscard]] std::string damages(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"check"};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome outcome = world.run(words);
        std::istringstream lines(outcome.out);
        std::string found;
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("  ")) found += line.substr(2) + "\n";
        if (outcome.status != (found.empty() ? 0 : 1)) found += "status " + std::to_string(outcome.status);
        return outcome.err + found;
    }

    World world;
    const TemporaryFolder& f = world.folder;
    VaultEntry entry;
};

void setText(const std::string& path, const std::string& text) {
    ::unlink(path.c_str()); // what is kept may not be written to
    writeFileSoon(path, text);
}

std::string textOf(const std::string& path) {
    std::string text;
    EXPECT_EQ(readFile(path, text), 0) << path;
    return text;
}

void cut(const std::string& path) {
    const std::string text = textOf(path);
    setText(path, text.substr(0, text.size() / 2));
}
void empty(const std::string& path) {
    setText(path, "");
}
void removeIt(const std::string& path) {
    EXPECT_GT(std::filesystem::remove_all(path), 0U);
}
void otherMode(const std::string& path) {
    EXPECT_EQ(::chmod(path.c_str(), 0644), 0);
}
// Within the file, as an editor would have done it later.
void change(const std::string& path) {
    std::string text = textOf(path);
    text[text.size() / 2] ^= 1;
    setText(path, text);
    EXPECT_EQ(::chmod(path.c_str(), 0444), 0);
    const timespec later[2] = {{0, UTIME_OMIT}, {::time(nullptr) + 60, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), later, 0), 0);
}
void makeFolder(const std::string& path) {
    removeIt(path);
    EXPECT_EQ(::mkdir(path.c_str(), 0755), 0);
}
void retarget(const std::string& path) {
    ::unlink(path.c_str());
    EXPECT_EQ(::symlink("b", path.c_str()), 0);
    const timespec later[2] = {{0, UTIME_OMIT}, {::time(nullptr) + 60, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), later, AT_SYMLINK_NOFOLLOW), 0);
}

template <const char* From, const char* To>
void say(const std::string& path) {
    std::string text = textOf(path);
    const std::string from(From);
    ASSERT_NE(text.find(from), std::string::npos) << text;
    setText(path, text.replace(text.find(from), from.size(), To));
}
constexpr char seqTwo[] = R"("seq":2)";
constexpr char seqOne[] = R"("seq":1)", seqNine[] = R"("seq":9)";
constexpr char own[] = R"("manifestOf":2)", none[] = R"("manifestOf":7)", root[] = "project\"}",
               moved[] = "elsewhere\"}";
constexpr char notes[] = R"("stored":"items)", up[] = R"("stored":"..)";

// What all files in a folder hold.
std::multiset<std::string> textsBelow(const std::string& folder) {
    std::multiset<std::string> texts;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && !entry.is_symlink() && entry.file_size() > 0)
            texts.insert(textOf(entry.path().string()));
    return texts;
}

// A listing that says something else.
template <const char* Path, const char* Blob>
void relist(const std::string& path) {
    const Manifest listing = Manifest::decode(textOf(path));
    ManifestBuilder builder;
    for (const auto& item : listing.items()) {
        Entry changed = item.entry;
        if (item.path == "a" && *Blob != 0) changed.blob = Blob;
        builder.add(item.path == "a" ? Path : item.path, changed);
    }
    setText(path, builder.finish().encoded());
}
constexpr char a[] = "a", above[] = "../a", same[] = "", later[] = "8/0", nowhere[] = "../../a";

} // namespace

TEST_F(CareTest, whatIsDamagedIsToldWithWhatItCosts) {
    struct Row {
        const char* place;
        void (*damage)(const std::string& path);
        const char* said; // behind the place; nothing: all is well
    };
    const Row rows[] = {
        {"@/project.json", empty, " is damaged: it is not a JSON object; costs #1-#3"},
        {"@/project.json", cut, " is damaged: it is not a JSON object; costs #1-#3"},
        {"@/project.json", removeIt, " is missing; costs #1-#3"},
        {"@/project.json", say<root, moved>, " is the record of ^/elsewhere; costs #1-#3"},
        {"@/snapshots/1.json", empty, " is damaged: it is not a JSON object; costs #1"},
        {"@/snapshots/1.json", cut, " is damaged: it is not a JSON object; costs #1"},
        {"@/snapshots/1.json", removeIt, " is missing, while its listing and all contents are there; costs #1"},
        {"@/snapshots/1.json", makeFolder, " can't be read: Is a directory; costs #1"},
        {"@/snapshots/1.json", say<seqOne, seqNine>, " is the record of #9; costs #1"},
        {"@/snapshots/2.json", say<own, none>, nullptr}, // below
        {"@/snapshots/3.json", cut, " is damaged: it is not a JSON object; costs #3"},
        {"@/snapshots/3.json", removeIt, nullptr}, // nothing is left to tell it by, and #2 is the same
        {"@/manifests/1.mf", empty, " is damaged: a manifest that can't be decompressed; costs #1"},
        {"@/manifests/2.mf", cut, " is damaged: a manifest that can't be decompressed; costs #2, #3"},
        {"@/manifests/2.mf", removeIt, " is missing; costs #2, #3"},
        {"@/manifests/1.mf", relist<above, same>, " names what can't be: ../a; costs ../a in #1"},
        {"@/manifests/1.mf", relist<a, later>, " names what can't be: 8/0; costs a in #1"},
        {"@/manifests/1.mf", relist<a, nowhere>, " names what can't be: ../../a; costs a in #1"},
        {"@/manifests/2.mf", makeFolder, " can't be read: Is a directory; costs #2, #3"},
        {"blob 1 a", empty, " has 0 bytes, and had 13; costs a in #1"},
        {"blob 2 a", cut, " has 7 bytes, and had 15; costs a in #2, #3"},
        {"blob 1 folder/b", change, " was changed: it is of %, and was of %; costs folder/b in #1-#3"},
        {"blob 1 folder/b", removeIt, " is missing; costs folder/b in #1-#3"},
        {"blob 1 folder/b", otherMode, " has mode 644, and had 444; costs folder/b in #1-#3"},
        {"blob 1 folder/b", makeFolder, " is not the kind of thing that was kept; costs folder/b in #1-#3"},
        {"blob 1 link", removeIt, " is missing; costs link in #1-#3"},
        {"blob 1 link", retarget, " was changed: it is of %, and was of %; costs link in #1-#3"},
        {"@/lock", removeIt, nullptr},
        {"@/last-prune", removeIt, nullptr},
        {"&/entry.json", empty, " is damaged: it is not a JSON object"},
        {"&/entry.json", say<notes, up>, " names what can't be: ../0; costs ^/home/notes"},
        {"&/items/0", removeIt, " is missing; costs ^/home/notes"},
        {"&/items/0", makeFolder, " is not the kind of thing that was kept; costs ^/home/notes"},
    };
    EXPECT_EQ(damages(), "");
    EXPECT_EQ(damages({"--contents"}), "");
    const std::string before = f.at("before");
    ASSERT_EQ(std::system(("cp -a '" + f.at("store") + "' '" + before + "'").c_str()), 0);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.place);
        const std::string place = at(row.place);
        row.damage(f.at("store/" + place));
        std::string said = damages();
        std::string expected = row.said == nullptr ? "" : place + row.said + "\n";
        for (auto mark = expected.find('^'); mark != std::string::npos; mark = expected.find('^'))
            expected.replace(mark, 1, f.path());
        while (expected.find('%') != std::string::npos) { // a time
            const auto mark = expected.find('%');
            expected.replace(mark, 1, said.substr(std::min(mark, said.size()), 20));
        }
        if (std::string_view(row.place) == "@/snapshots/2.json") // its own listing lacks a record, and it a listing
            expected = at("@/manifests/7.mf") + " is missing; costs #2\n";
        EXPECT_EQ(said, expected);
        f.remove("store");
        ASSERT_EQ(std::system(("cp -a '" + before + "' '" + f.at("store") + "'").c_str()), 0);
    }
}

// A snapshot's damaged record costs that snapshot alone, and no prune takes for unneeded what it may need.
TEST_F(CareTest, aDamagedRecordStopsNothingButAPrune) {
    for (const auto damage : {empty, say<seqOne, seqNine>, makeFolder}) {
        const std::string record = f.at("store/" + at("@/snapshots/1.json"));
        const std::string before = textOf(record);
        damage(record);
        const std::string log = world.ok({"log"});
        EXPECT_NE(log.find("\n#1  unreadable  "), std::string::npos) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
        EXPECT_EQ(world.ok({"log", "-n", "2"}).find("unreadable"), std::string::npos);
        for (const std::vector<std::string>& words :
             std::vector<std::vector<std::string>>{{"log", "--json"}, {"log", "a"}}) {
            const Outcome outcome = world.run(words);
            EXPECT_EQ(outcome.status, 0);
            EXPECT_EQ(outcome.err.find("warning: #1 is left out: "), 0U) << outcome.err;
        }
        EXPECT_EQ(world.run({"cat", "last", "a"}).out, "another version");
        const std::string store = f.listing("store/" + at("@"));
        EXPECT_EQ(world.run({"prune"}).status, 1);
        EXPECT_EQ(f.listing("store/" + at("@")), store);
        f.remove("store/" + at("@/snapshots/1.json"));
        setText(record, before);
    }
    say<own, none>(f.at("store/" + at("@/snapshots/2.json")));
    EXPECT_EQ(world.run({"prune"}).err, "tidewrack: Corrupt store data: missing manifest for #7\n");
    const std::string newest = f.at("store/" + at("@/snapshots/3.json"));
    empty(newest);
    EXPECT_EQ(world.run({"cat", "last", "a"}).err.find("warning: #3 is passed over: "), 0U);
    EXPECT_EQ(world.ok({"log"}).find("#3  unreadable  "), 0U);
    EXPECT_NE(world.run({"snap"}).err.find("previous snapshot #3 is unreadable"), std::string::npos);
    EXPECT_NE(world.ok({"log"}).find("(without #3, unreadable)"), std::string::npos);
}

// It stops its own project's commands and those that read another folder anew, which may be around it; and none acts on
// the project around it instead.
TEST_F(CareTest, aProjectsDamagedRecordStopsNoOtherProject) {
    f.write("project/inner/file", "x");
    world.ok({"track", f.at("project/inner")});
    world.current = f.at("project/inner");
    empty(f.at("store/" + at("@/project.json")));
    for (const char* command : {"log", "prune", "untrack"})
        EXPECT_EQ(world.run({command}).err.find("tidewrack: Corrupt store data: "), 0U) << command;
    world.current = f.at("project");
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"log"}, {"log", "a"}, {"diff", "1"}, {"cat", "1", "a"}, {"pin", "1"}, {"prune"}, {"timeline"}}) {
        const Outcome outcome = world.run(words);
        EXPECT_EQ(outcome.status, 0) << words[0] << outcome.err;
        EXPECT_EQ(outcome.err, "") << words[0];
    }
    EXPECT_NE(world.run({"status"}).out.find(". Run: tidewrack check --repair\n"), std::string::npos);
    EXPECT_EQ(world.run({"projects"}).err.find("warning: Corrupt store data: "), 0U);
    EXPECT_EQ(world.run({"restore", "1"}).status, 1);
}

// What a prune is said to free it frees, and what is large is told with the turn that brought it.
TEST_F(CareTest, usageTellsWhatTakesRoom) {
    world.ok({"snap", "--kind", "prompt", "--agent", "claude", "--session", "s", "--label", "make it large"});
    f.write("project/large", std::string(3'000'000, 'x'));
    world.ok({"snap", "--kind", "stop", "--agent", "claude", "--session", "s"});
    const auto usage = [&] { return nlohmann::json::parse(world.ok({"usage", "--json"})); };
    const auto before = usage()["projects"][0];
    const auto largest = before["largest"][0];
    EXPECT_EQ(largest["path"], "large");
    EXPECT_EQ(largest["size"], 3'000'000);
    EXPECT_EQ(largest["turn"]["title"], "make it large");
    EXPECT_EQ(largest["turn"]["agent"], "claude");
    EXPECT_EQ(before["contents"], 5);
    EXPECT_EQ(before["prune"]["snapshots"], 0);
    EXPECT_EQ(usage()["vault"]["entries"], 1);
    const std::string text = world.ok({"usage"});
    EXPECT_NE(text.find("\n    3.0 MB  large  #5  claude \"make it large\"\n"), std::string::npos) << text;
    world.ok({"restore", "4"});
    for (std::int64_t seq = 1; seq <= 6; ++seq)
        rewriteRecord(world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 40); });
    const auto old = usage()["projects"][0];
    EXPECT_EQ(old["prune"]["snapshots"], 6);
    EXPECT_EQ(old["prune"]["contents"], 2);
    world.ok({"prune"});
    const auto after = usage()["projects"][0];
    const auto sum = [](const nlohmann::json& of) {
        return of["bytes"].get<std::int64_t>() + of["listingBytes"].get<std::int64_t>() +
               of["recordBytes"].get<std::int64_t>();
    };
    const std::int64_t shared = old.value("sharedBytes", 0) - after.value("sharedBytes", 0);
    EXPECT_NEAR(static_cast<double>(sum(old) - sum(after) - shared), old["prune"]["bytes"].get<double>(), 50'000);
    EXPECT_EQ(after["contents"], 3);
    for (const auto& [bytes, shown] : std::vector<std::pair<std::int64_t, std::string>>{{0, "0 bytes"},
                                                                                        {1, "1 byte"},
                                                                                        {999, "999 bytes"},
                                                                                        {1000, "1.0 kB"},
                                                                                        {9949, "9.9 kB"},
                                                                                        {9950, "10 kB"},
                                                                                        {999'499, "999 kB"},
                                                                                        {999'500, "1.0 MB"},
                                                                                        {300'000'000, "300 MB"},
                                                                                        {INT64_MAX, "9.2 EB"}})
        EXPECT_EQ(bytesText(bytes), shown);
}

TEST_F(CareTest, statusTellsWhatIsWrongAndWhatMendsIt) {
    Project project = world.project();
    project.maxFileSize = 1000;
    world.store().add(project);
    f.write("project/large", std::string(2000, 'x'));
    EXPECT_NE(world.ok({"snap"}).find(" ms\n1 file of 2.0 kB is listed but not kept.\n"), std::string::npos);
    const std::string stop = R"({"hook_event_name":"Stop","session_id":"s","cwd":")" + world.projectPath() + "\"}";
    EXPECT_EQ(Program(world, {"hook", "claude"}, Program::Output::collected, stop).wait().status, 0);
    EXPECT_NE(f.read("store/hooks.log").find(world.projectPath() + "; 1 file of 2.0 kB is listed but not kept\n"),
              std::string::npos);
    const std::string record = f.at("store/" + at("@/snapshots/5.json"));
    const std::string text = textOf(record);
    const std::string older = f.at("store/" + at("@/snapshots/3.json"));
    const std::string olderText = textOf(older);
    const std::string listing = f.at("store/" + at("@/manifests/2.mf"));
    const std::string whole = textOf(listing);
    const auto log = [this](const std::string& line) {
        f.write("store/hooks.log", f.read("store/hooks.log") + isoText(now()) + " " + line + "\n");
    };
    struct Row {
        const char* what;
        std::function<void()> happens;
        const char* word;
        const char* said;
    };
    const Row rows[] = {
        {"all is well", [] {}, "ok", "  1 file of 2.0 kB is listed but not kept: over the limit of size\n"},
        {"the newest record", [&] { empty(record); }, "trouble", ". Run: tidewrack check\n"},
        {"mended", [&] { setText(record, text); }, "ok", "\n  claude    agent not found; Stop "},
        {"an older record", [&] { empty(older); }, "ok", ". Run: tidewrack check\n"},
        {"mended too", [&] { setText(older, olderText); }, "ok", "All is well"},
        {"an older listing", [&] { setText(listing, whole.substr(0, whole.size() / 2)); }, "ok",
         ". Run: tidewrack check\n"},
        {"mended as well", [&] { setText(listing, whole); }, "ok", "All is well"},
        {"a failure", [&] { log("claude Stop 3ms error: no room"); }, "trouble", "\n  A hook failed: no room\n"},
        {"a success", [&] { log("claude Stop 3ms #6 /x"); }, "ok", "  claude Stop  error: no room\n"},
        {"a git that fails", [&] { f.write("project/.git", "x"); }, "ok", ". See what `git status` says\n"},
        {"no hooks", [&] { f.makeFolder("home/.claude"); }, "ok", ". Run: tidewrack hooks install\n"},
        {"no project", [&] { world.current = f.at("home"); }, "untracked", ". Run: tidewrack track\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        row.happens();
        const Outcome brief = world.run({"status", "--short"});
        EXPECT_EQ(brief.out, std::string(row.word) + "\n");
        EXPECT_EQ(brief.status, row.word == std::string("ok") ? 0 : 1);
        const Outcome said = world.run({"status"});
        EXPECT_NE(said.out.find(row.said), std::string::npos) << said.out << said.err;
        const bool healthy = said.out.find("All is well.\n") != std::string::npos;
        EXPECT_EQ(healthy, row.word == std::string("ok") && row.said[0] != '.');
        EXPECT_EQ(said.status, healthy ? 0 : 1);
        EXPECT_EQ(nlohmann::json::parse(world.run({"status", "--json"}).out)["healthy"], healthy);
    }
}

// Nothing is deleted, and everything works afterwards.
TEST_F(CareTest, repairMendsWhatItCan) {
    struct Row {
        const char* place;
        void (*damage)(const std::string& path);
        const char* how;  // of the place itself
        const char* left; // what a check then says of it
        const char* log;  // the log's numbers
    };
    const Row rows[] = {
        {"@/snapshots/1.json", empty, "recovered", "", "321"},
        {"@/snapshots/1.json", removeIt, "recovered", "", "321"},
        {"@/snapshots/1.json", makeFolder, "recovered", "", "321"},
        {"@/snapshots/2.json", say<seqTwo, seqNine>, "recovered", "", "321"},
        {"@/snapshots/3.json", cut, "recovered", "", "321"}, // it had no listing of its own
        {"@/manifests/1.mf", cut, "moved aside", "", "32"},
        {"@/manifests/2.mf", empty, "moved aside", "", "1"},
        {"blob 1 folder/b", removeIt, "rebuilt", "", "321"},
        {"blob 1 folder/b", change, "rebuilt", "", "321"},
        {"blob 1 folder/b", makeFolder, "rebuilt", "", "321"},
        {"blob 1 folder/b", otherMode, "reset", "", "321"},
        {"blob 1 link", removeIt, "rebuilt", "", "321"},
        {"blob 1 a", empty, "moved aside", " is missing; costs a in #1\n", "321"},
        {"@/project.json", cut, "rebuilt", "", "321"},
        {"@/project.json", removeIt, "rebuilt", "", "321"},
        {"@/project.json", say<root, moved>, "rebuilt", "", "321"},
    };
    const std::string before = f.at("before");
    ASSERT_EQ(std::system(("cp -a '" + f.at("store") + "' '" + before + "'").c_str()), 0);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.place);
        const std::string place = at(row.place);
        const std::string project = world.project().id;
        row.damage(f.at("store/" + place));
        const auto had = textsBelow(f.at("store"));
        const Outcome outcome = world.run({"check", "--repair"});
        EXPECT_EQ(outcome.status, *row.left == 0 ? 0 : 1) << outcome.out << outcome.err;
        EXPECT_NE(outcome.out.find("  " + place + ": " + row.how + "\n"), std::string::npos) << outcome.out;
        const auto has = textsBelow(f.at("store"));
        EXPECT_TRUE(std::includes(has.begin(), has.end(), had.begin(), had.end()));
        EXPECT_EQ(damages(), *row.left == 0 ? "" : place + row.left);
        std::string numbers;
        std::istringstream log(world.ok({"log"}));
        for (std::string line; std::getline(log, line);) numbers += line.substr(1, 1);
        EXPECT_EQ(numbers, row.log);
        EXPECT_EQ(world.ok({"prune"}), "Removed 0 snapshots, 0 stored files.\n");
        if (*row.left == 0 && std::string_view(row.log).ends_with('1')) {
            world.ok({"restore", "1"});
            EXPECT_EQ(f.read("project/a"), "first version");
            EXPECT_EQ(f.read("project/folder/b"), "stays");
            world.ok({"redo"});
        }
        EXPECT_EQ(f.read("project/a"), "another version");
        f.remove("store");
        ASSERT_EQ(std::system(("cp -a '" + before + "' '" + f.at("store") + "'").c_str()), 0);
    }
    // An entry under another's name gets its own, and one that can't be read for a moment stays.
    const std::string record = f.at("store/" + at("&/entry.json"));
    const std::string written = f.read("store/" + at("&/entry.json"));
    const std::string id(lastComponent(at("&")));
    writeFileSoon(record, std::regex_replace(written, std::regex(id), "another"));
    EXPECT_NE(world.ok({"check", "--repair"}).find("  " + at("&/entry.json") + ": rebuilt\n"), std::string::npos);
    EXPECT_EQ(f.read("store/" + at("&/entry.json")), written);
    CheckedVault passing;
    passing.damages.push_back({Damage::Part::vaultRecord, Damage::Fault::unreadable, at("&/entry.json"), {}, EMFILE});
    EXPECT_EQ(repairVault(world.store(), passing).failures.size(), 1U);
    EXPECT_EQ(f.read("store/" + at("&/entry.json")), written);
    empty(record);
    EXPECT_NE(world.ok({"check", "--repair"}).find("  " + at("&") + ": moved aside\n"), std::string::npos);
    EXPECT_EQ(world.ok({"check", "--repair"}).find("Nothing was to be mended.\n"), 0U);
    // A recovered one that is old may have been pinned.
    rewriteRecord(world, 1, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 40); });
    EXPECT_EQ(setModificationTime(AT_FDCWD, f.at("store/" + at("@/manifests/1.mf")).c_str(), 1), 0);
    empty(f.at("store/" + at("@/snapshots/1.json")));
    world.ok({"check", "--repair"});
    EXPECT_EQ(world.ok({"prune"}), "Removed 0 snapshots, 0 stored files.\n");
    EXPECT_TRUE(world.history().snapshot(1).pinned);
    // A listing that was its own snapshot's no more, but a pinned one's whose record is damaged.
    rewriteRecord(world, 3, [](SnapshotMeta& meta) { meta.pinned = true; });
    f.remove("store/" + at("@/snapshots/2.json"));
    EXPECT_EQ(setModificationTime(AT_FDCWD, f.at("store/" + at("@/manifests/2.mf")).c_str(), 1), 0);
    world.ok({"snap"});
    f.write("project/a", "a third version");
    world.ok({"snap"});
    f.remove("store/" + at("@/snapshots/4.json"));
    empty(f.at("store/" + at("@/snapshots/3.json")));
    world.ok({"check", "--repair"});
    world.ok({"prune"});
    EXPECT_EQ(world.ok({"cat", "3", "a"}), "another version");
    EXPECT_TRUE(world.history().snapshot(3).pinned);
}
