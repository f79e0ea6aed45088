#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Volumes.hpp"
#include "Support/TestFolders.hpp"

#include "Reports/VaultReports.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <regex>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;
using std::chrono::hours;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

class VaultTest : public ::testing::Test {
  protected:
    VaultTest() { folder.makeFolder("home"); }

    VaultSaved saveAny(const std::vector<std::string>& relative, const Deadline& deadline = std::nullopt) const {
        std::vector<std::string> paths;
        for (const std::string& path : relative) paths.push_back(folder.at(path));
        return vault.save({.paths = paths, .command = "rm things", .agent = "claude", .deadline = deadline});
    }
    VaultEntry save(const std::vector<std::string>& relative, const Deadline& deadline = std::nullopt) const {
        return saveAny(relative, deadline).entry.value();
    }
    Attributes attributes(const std::string& relative) const {
        Attributes result;
        EXPECT_EQ(attributesAt(AT_FDCWD, folder.at(relative).c_str(), result), 0) << relative;
        return result;
    }
    std::string stored(const VaultEntry& entry, std::size_t item = 0) const {
        return "store/vault/" + entry.id + "/" + entry.items.at(item).stored;
    }
    void age(const VaultEntry& entry, const char* created) const {
        const std::string path = "store/vault/" + entry.id + "/entry.json";
        folder.write(path, std::regex_replace(folder.read(path), std::regex("\"created\":\"[^\"]*\""),
                                              std::string("\"created\":\"") + created + "\""));
    }

    TemporaryFolder folder;
    Vault vault{Store(folder.at("store"), folder.at("home"))};
};

} // namespace

// What a copy keeps of a file is checked by Linux/VolumeTests.cpp.
TEST_F(VaultTest, putsBackWhatWasThere) {
    const std::string names[] = {"home/notes", "home/secret", "home/dangling", ofAnyBytes("home/caf\xe9/caf\xe9.txt"),
                                 ofAnyBytes("home/caf\xe9/caf\xea.txt")};
    folder.write("home/notes/deep/er/run.sh", "#!/bin/sh\n");
    folder.write(ofAnyBytes("home/notes/odd\n name\xff"), "bytes");
    folder.makeFolder("home/notes/empty");
    ::chmod(folder.at("home/notes/deep").c_str(), 0500);
    folder.write(names[1], "key");
    folder.link(names[2], "no/where");
    for (const int i : {3, 4}) folder.write(names[i], "named before everybody used UTF-8 " + std::to_string(i));
    for (const char* name : {"home/notes/deep", "home/dangling"})
        ASSERT_EQ(setModificationTime(AT_FDCWD, folder.at(name).c_str(), -1'500'000'000), 0);
    const std::string before = folder.listing("home");
    const VaultEntry entry = save({names[0], names[1], names[2], "home/missing", names[3], names[4]});

    ASSERT_EQ(entry.items.size(), 5U);
    const std::string home = Store::canonical(folder.at("home"));
    EXPECT_EQ(entry.items[0], (VaultEntry::Item{folder.at("home/notes"), "items/0", "dir", home}));
    EXPECT_EQ(entry.items[1].kind, "file");
    EXPECT_EQ(entry.items[2], (VaultEntry::Item{folder.at("home/dangling"), "items/2", "link", home}));
    EXPECT_EQ(entry.skipped, std::vector<std::string>{folder.at("home/missing")});
    EXPECT_EQ(vault.entries(), std::vector<VaultEntry>{entry});
    EXPECT_EQ(attributes("store/vault").mode, 0700) << "it holds private keys";

    folder.remove("home");
    const uid_t owner = ::geteuid() == 0 ? 12345 : ::geteuid(); // else the folders would be root's
    ASSERT_EQ(::chown(folder.path().c_str(), owner, static_cast<gid_t>(-1)), 0);
    std::vector<std::string> messages;
    for (const std::string& name : names) messages.push_back("restored " + folder.at(name));
    EXPECT_EQ(messagesOf(vault.restore(entry.id)), messages);
    EXPECT_EQ(folder.listing("home"), before);
    for (const char* name : {"home/notes/deep", "home/dangling"})
        EXPECT_EQ(attributes(name).mtime, -1'500'000'000) << name;
    struct stat made {};
    ASSERT_EQ(::stat(folder.at(ofAnyBytes("home/caf\xe9")).c_str(), &made), 0);
    EXPECT_EQ(made.st_uid, owner);
}

TEST_F(VaultTest, keepsWhatStandsInTheWayOfARestore) {
    folder.write("home/f", "old");
    const VaultEntry entry = save({"home/f"});
    folder.write("home/f", "new");
    // The names that the restore would choose are taken already: a rename would destroy what is there.
    const auto second = now().time_since_epoch().count();
    for (auto n = second; n < second + 3; ++n) folder.write("home/f.tidewrack-" + std::to_string(n), "precious");

    const auto messages = messagesOf(vault.restore(entry.id));
    ASSERT_EQ(messages.size(), 2U);
    const std::string told = "moved what was there aside to ";
    ASSERT_EQ(messages[0].substr(0, told.size()), told);
    std::string aside;
    EXPECT_EQ(readFile(messages[0].substr(told.size()), aside), 0);
    EXPECT_EQ(aside, "new");
    EXPECT_EQ(folder.read("home/f"), "old");
    for (auto n = second; n < second + 3; ++n)
        EXPECT_EQ(folder.read("home/f.tidewrack-" + std::to_string(n)), "precious");
    // A name that leaves no room for another ending is shortened.
    const std::string longest = "home/" + std::string(255, 'x');
    folder.write(longest, "old");
    const VaultEntry other = save({longest});
    folder.write(longest, "new");
    EXPECT_EQ(vault.restore(other.id).count(), 1U);
    EXPECT_EQ(folder.read(longest), "old");
    // Once more there is nothing to do, and nothing to move.
    const std::string home = folder.listing("home");
    EXPECT_EQ(messagesOf(vault.restore(entry.id)),
              std::vector<std::string>{folder.at("home/f") + " is there as it was saved"});
    EXPECT_EQ(folder.listing("home"), home);
}

// Two at once may choose the same names.
TEST_F(VaultTest, keepsWhatStandsInTheWayOfTwoRestores) {
    folder.write("home/f", "old");
    const VaultEntry entry = save({"home/f"});
    for (int round = 0; round < 20; ++round) {
        folder.write("home/f", "new");
        std::thread other([&] { (void)vault.restore(entry.id); });
        (void)vault.restore(entry.id);
        other.join();
        std::size_t kept = 0;
        for (const std::string& name : listFolder(folder.at("home"))) {
            if (folder.read("home/" + name) == "new") ++kept;
            if (name != "f") folder.remove("home/" + name);
        }
        EXPECT_EQ(kept, 1U);
        EXPECT_EQ(folder.read("home/f"), "old");
    }
}

// Where the copy can't be made nothing is moved.
TEST_F(VaultTest, leavesInItsPlaceWhatItHasNoCopyFor) {
    folder.write("home/f", "old");
    const VaultEntry entry = save({"home/f"});
    folder.write("home/f", "new");
    ::chmod(folder.at(stored(entry)).c_str(), 0);
    const std::string left = unprivileged(folder, [&] {
        std::string text = folder.listing("home");
        (void)vault.restore(entry.id);
        return text == folder.listing("home") ? "" : folder.listing("home");
    });
    EXPECT_EQ(left, "");
}

TEST_F(VaultTest, putsBackAFolderAndWhatIsInItOnce) {
    folder.write("home/site/index.html", "old");
    folder.write("home/site/sub/page", "old");
    folder.write("home/elsewhere/linked", "old");
    folder.link("home/site/to", folder.at("home/elsewhere"));
    const std::string before = folder.listing("home");
    const std::vector<std::string> saved = {"home/site", "home/site/index.html", "home/site/sub",
                                            "home/site/to/linked"};
    const VaultEntry entry = save(saved);
    folder.remove("home/site/index.html");
    folder.write("home/elsewhere/linked", "new");
    std::vector<std::string> messages = messagesOf(vault.restore(entry.id));
    const auto dropAside = [moved = std::string("moved what was there aside to ")](const std::string& message) {
        return message.starts_with(moved) && removeTree(message.substr(moved.size())) == 0;
    };
    EXPECT_EQ(std::erase_if(messages, dropAside), 2U) << "the folder, and what its link leads to";
    std::vector<std::string> restored;
    for (const std::string& path : saved) restored.push_back("restored " + folder.at(path));
    EXPECT_EQ(messages, restored);
    EXPECT_EQ(folder.listing("home"), before) << "what a folder's link leads to is put back, too";
}

TEST_F(VaultTest, reportsWhatCannotBeRestoredAndGoesOn) {
    folder.write("home/a/f", "1");
    folder.write("home/b", "2");
    folder.write("home/c", "3");
    const VaultEntry entry = save({"home/a/f", "home/b", "home/c"});
    folder.remove("home");
    folder.write("home/a", "a file where the parent was");
    folder.write("home/b", "kept in its place");
    folder.remove(stored(entry, 1));
    EXPECT_EQ(messagesOf(vault.restore(entry.id)),
              (std::vector<std::string>{"couldn't restore " + folder.at("home/a/f") + ": Not a directory",
                                        "couldn't restore " + folder.at("home/b") + ": its copy is missing",
                                        "restored " + folder.at("home/c")}));
    EXPECT_EQ(folder.read("home/b"), "kept in its place");
}

TEST_F(VaultTest, putsNothingBackThroughALinkThatWasNotThere) {
    folder.write("home/real/f", "saved");
    folder.write("home/other/f", "somebody's");
    folder.link("home/link", "real");
    const VaultEntry entry = save({"home/real/f", "home/link/f"});
    const std::string real = Store::canonical(folder.at("home/real"));
    const std::string other = Store::canonical(folder.at("home/other"));
    folder.remove("home/real");
    folder.remove("home/link");
    for (const char* name : {"home/real", "home/link"}) folder.link(name, "other");
    const VaultRestored result = vault.restore(entry.id);
    const auto refused = [&](const char* path, const char* copy) {
        return "couldn't restore " + folder.at(path) + ": its folder was " + real + " and is " + other +
               " now; the copy is in " + folder.at("store/vault/" + entry.id + "/" + copy);
    };
    EXPECT_EQ(messagesOf(result),
              (std::vector<std::string>{refused("home/real/f", "items/0"), refused("home/link/f", "items/1")}));
    EXPECT_EQ(result.count(), 0U);
    EXPECT_EQ(folder.read("home/other/f"), "somebody's");
    // Of an older record only the time can tell.
    const std::string record = "store/vault/" + entry.id + "/entry.json";
    folder.write(record, std::regex_replace(folder.read(record), std::regex("\"parent\":\"[^\"]*\","), ""));
    age(entry, "2020-01-01T00:00:00Z");
    EXPECT_EQ(messagesOf(vault.restore(entry.id)).at(0), "couldn't restore " + folder.at("home/real/f") + ": " +
                                                             folder.at("home/real") +
                                                             " is a link that was made since; the copy is in " +
                                                             folder.at("store/vault/" + entry.id + "/items/0"));
    folder.remove("home/real");
    EXPECT_EQ(vault.restore(entry.id).count(), 1U);
    EXPECT_EQ(folder.read("home/real/f"), "saved");
}

TEST_F(VaultTest, copiesForAGuessOnceAndWithinTheFreeRoom) {
    folder.write("home/f", "x");
    folder.write("home/d/in", "x");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // older than the second in which they are copied
    VaultRequest request{.paths = {folder.at("home/f"), folder.at("home/d")}, .command = "unknown", .session = "s"};
    request.isGuess = true;
    const auto copied = [&] {
        const VaultSaved saved = vault.save(request);
        return saved.entry ? saved.entry->items.size() : 0;
    };
    EXPECT_EQ(copied(), 2U);
    EXPECT_EQ(copied(), 0U);
    EXPECT_EQ(vault.entries().size(), 1U);
    folder.write("home/d/new", "x");
    EXPECT_EQ(copied(), 1U) << "the folder alone";
    request.session = "another";
    EXPECT_EQ(copied(), 2U);
    request.session = "third";
    vault.bytesFree = volumeRoom(folder.path()).all;
    EXPECT_EQ(copied(), volumeClones(folder.path()) ? 2U : 0U);
}

// As for a file that must not share its blocks on a volume whose other files do.
TEST_F(VaultTest, asksForRoomWhereBlocksAreNotShared) {
    folder.write("home/d/f", "12345678");
    CopyLimits limits;
    std::int64_t asked = 0;
    limits.hasRoom = [&](std::int64_t bytes) {
        asked += bytes;
        return false;
    };
    const int error = copyTree(folder.at("home/d"), folder.at("home/copy"), limits);
    const bool clones = volumeClones(folder.path());
    EXPECT_EQ(error, clones ? 0 : ENOSPC);
    EXPECT_EQ(asked, clones ? 0 : 8);
    EXPECT_EQ(folder.has("home/copy"), clones);
}

TEST_F(VaultTest, takesNoCopyFromOutsideItsEntry) {
    folder.write("home/f", "x");
    folder.write("outside/0", "not the vault's");
    const VaultEntry entry = save({"home/f"});
    const std::string record = "store/vault/" + entry.id + "/entry.json";
    const std::string text = folder.read(record);
    folder.link("store/vault/" + entry.id + "/link", folder.at("outside"));
    for (const std::string& stored :
         {folder.at("outside/0"), std::string("../../../outside/0"), std::string("items/../../x"),
          std::string("link/0"), std::string("items/.."), std::string()}) {
        const std::string escaped = std::regex_replace(stored, std::regex("/"), "\\/");
        folder.write(record, std::regex_replace(text, std::regex(R"(items\\/0)"), escaped));
        EXPECT_EQ(thrownBy([&] { return vault.restore(entry.id).count(); }),
                  "Corrupt store data: " + folder.at(record) + ": " + stored + " leads out of the entry");
        EXPECT_EQ(folder.read("home/f"), "x");
    }
}

TEST_F(VaultTest, looksEntriesUpByNameOnly) {
    folder.write("home/f", "x");
    const VaultEntry entry = save({"home/f"});
    folder.write("store/vault/" + entry.id + "/items/inner/entry.json",
                 folder.read("store/vault/" + entry.id + "/entry.json"));
    folder.write("store/entry.json", folder.read("store/vault/" + entry.id + "/entry.json"));
    folder.write("store/vault/broken/entry.json", "{\"id\": 7}");
    for (const std::string& id :
         {std::string(), std::string("."), std::string(".."), std::string("../vault/") + entry.id,
          entry.id + "/items/inner", entry.id + "/", entry.id + std::string(1, '\0') + "x", std::string("nothing"),
          std::string("broken"), std::string(".dotfiles-last")}) {
        EXPECT_EQ(thrownBy([&] { return vault.restore(id).count(); }), std::string(("No vault entry " + id).c_str()));
    }
    EXPECT_EQ(vault.entries().size(), 1U);
}

TEST_F(VaultTest, neverSavesTheStoreIntoItself) {
    folder.write("home/x", "x");
    folder.write("store/projects/p/project.json", "{}");
    folder.link("home/to-store", folder.at("store"));
    const VaultEntry entry = save({"store", "store/projects", "home/to-store/projects", "home/to-store"});
    EXPECT_EQ(entry.skipped.size(), 3U);
    ASSERT_EQ(entry.items.size(), 1U) << "a link to the store is only a link";
    EXPECT_EQ(entry.items[0].kind, "link");
}

// Names are the volume's own: a limit that the tests' volume does not reach is lowered.
TEST_F(VaultTest, saysWhyAPathIsNotSaved) {
    folder.write("home/many/a", "12345678");
    folder.write("home/many/b", "12345678");
    ASSERT_EQ(::mkfifo(folder.at("home/pipe").c_str(), 0600), 0);
    folder.makeFolder("store");
    const bool clones = volumeClones(folder.path());
    const Deadline past = steady_clock::now() - seconds(1);
    const VolumeRoom room = volumeRoom(folder.path());
    struct Row {
        const char* path;
        std::optional<NotSaved> reason;
        Deadline deadline = std::nullopt;
        std::int64_t mostFiles = 2;
        std::int64_t bytesAlways = 15;
        std::int64_t bytesFree = 0;
    };
    const std::optional<NotSaved> noRoom = clones ? std::nullopt : std::optional(NotSaved::noRoom);
    for (const Row& row : std::initializer_list<Row>{{"home/gone", NotSaved::notThere},
                                                     {"home/gone/deeper", NotSaved::notThere, past},
                                                     {"home/pipe", NotSaved::special},
                                                     {"store", NotSaved::inStore},
                                                     {"home/many", NotSaved::noTime, past},
                                                     {"home/many", NotSaved::tooManyFiles, std::nullopt, 1},
                                                     {"home/many", noRoom, std::nullopt, 2, 15, room.all},
                                                     {"home/many", std::nullopt, std::nullopt, 2, 16, room.all},
                                                     {"home/many/a", noRoom, std::nullopt, 2, 7, room.all}}) {
        vault.mostFiles = row.mostFiles;
        vault.mostBytes = 1; // size alone is no reason on the history's own volume
        vault.bytesAlways = row.bytesAlways;
        vault.bytesFree = row.bytesFree;
        const VaultSaved saved = saveAny({row.path}, row.deadline);
        std::vector<VaultSaved::Path> unsaved;
        if (row.reason) unsaved.push_back({folder.at(row.path), *row.reason});
        EXPECT_EQ(saved.unsaved, unsaved) << row.path;
        EXPECT_EQ(saved.entry.has_value(), row.reason != NotSaved::notThere && row.reason != NotSaved::special)
            << "an entry only of what was there and holds something";
    }
}

TEST_F(VaultTest, skipsFoldersOverTheLimits) {
    vault.mostFiles = 3;
    for (const char* name : {"a", "b/c", "b/d"}) folder.write(std::string("home/many/") + name, "12345678");
    folder.link("home/many/link", "a");
    EXPECT_EQ(save({"home/many"}).items.size(), 1U) << "links and folders do not count";
    folder.write("home/many/b/e", "");
    EXPECT_EQ(save({"home/many"}).skipped.size(), 1U);
    EXPECT_EQ(save({"home/many/b"}).items.size(), 1U) << "fewer files are in it";

    vault.mostBytes = 15;
    folder.write("home/large", "0123456789abcdef");
    const VaultEntry entry = save({"home/large", "home/many/a"});
    ASSERT_EQ(entry.items.size(), 2U);
    EXPECT_EQ(entry.items[1].original, folder.at("home/large")) << "a large file does not take the others' time";
}

TEST_F(VaultTest, savesTheRestOfAFolderWithAnUnreadableFile) {
    folder.write("outside/readable", "saved");
    folder.write("outside/locked", "not ours to read");
    folder.write("outside/private/inside", "hidden");
    ::chmod(folder.at("outside/locked").c_str(), 0);
    ::chmod(folder.at("outside/private").c_str(), 0);
    const std::string report = unprivileged(folder, [&] {
        VaultEntry entry = save({"outside"});
        std::sort(entry.skipped.begin(), entry.skipped.end());
        return entry.skipped.at(0) + " " + entry.skipped.at(1) + " " + folder.read(stored(entry) + "/readable");
    });
    ::chmod(folder.at("outside/private").c_str(), 0755);
    EXPECT_EQ(report, folder.at("outside/locked") + " " + folder.at("outside/private") + " saved");

    // Its names can be read, and nothing can be told about them.
    ::chmod(folder.at("outside").c_str(), 0444);
    const std::string listed = unprivileged(folder, [&] {
        TreeSize size;
        (void)measureTree(folder.at("outside"), {}, 10, size);
        return std::to_string(saveAny({"outside"}).unsaved.size()) + " " + std::to_string(size.files);
    });
    ::chmod(folder.at("outside").c_str(), 0755);
    EXPECT_EQ(listed, "3 3");
}

// Copying this file takes longer than the time given for it; what was copied is removed again.
TEST_F(VaultTest, leavesOutWhatIsNotSavedInTime) {
    folder.write("home/large", std::string(std::size_t{160} << 20, 'x'));
    const auto began = steady_clock::now();
    const VaultEntry cut = save({"home/large"}, began + std::chrono::milliseconds(5));
    if (!cut.items.empty()) GTEST_SKIP() << "too fast a disk to be late on";
    EXPECT_LT(steady_clock::now() - began, std::chrono::milliseconds(500));
    EXPECT_TRUE(listFolder(folder.at("store/vault/" + cut.id + "/items")).empty());
    EXPECT_EQ(vault.entries(), std::vector<VaultEntry>{cut}) << "the entry tells what was not saved";
}

TEST_F(VaultTest, backsUpDotfilesOnceAnHourAndTakesNoNewSpaceForUnchangedOnes) {
    folder.write("home/.gitconfig", "same");
    folder.write("home/.config/app/unchanged", "same");
    folder.write("home/.config/app/changed", "before");
    folder.write("home/.config/app/mode", "same");
    // Only what was changed before the second in which a backup begins can be known to be unchanged since.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const Date start = now();
    const auto first = vault.backupDotfilesIfDue(folder.at("home"), start);
    const Attributes before = attributes("home/.config/app/changed");
    folder.write("home/.config/app/changed", "after!");
    ASSERT_EQ(setModificationTime(AT_FDCWD, folder.at("home/.config/app/changed").c_str(), before.mtime), 0);
    ::chmod(folder.at("home/.config/app/mode").c_str(), 0600);
    EXPECT_FALSE(vault.backupDotfilesIfDue(folder.at("home"), start + seconds(3600)));
    EXPECT_FALSE(vault.backupDotfilesIfDue(folder.at("home"), start));
    const auto second = vault.backupDotfilesIfDue(folder.at("home"), start + seconds(3601));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(second->command, "(hourly dotfile backup)");
    EXPECT_FALSE(second->agent);
    EXPECT_EQ(second->items.size() + second->skipped.size(), 15U);
    EXPECT_EQ(second->leftOut(), 0U) << "what does not exist is not left out";

    const auto sameFile = [&](const std::string& at, std::size_t item) {
        return attributes(stored(*first, item) + at).ino == attributes(stored(*second, item) + at).ino;
    };
    EXPECT_TRUE(sameFile("", 0)) << ".gitconfig";
    EXPECT_TRUE(sameFile("/app/unchanged", 1));
    EXPECT_FALSE(sameFile("/app/changed", 1)) << "size and time are the same, the content is not";
    EXPECT_FALSE(sameFile("/app/mode", 1));
    EXPECT_EQ(folder.read(stored(*first, 1) + "/app/changed"), "before");
    EXPECT_EQ(folder.read(stored(*second, 1) + "/app/changed"), "after!");

    EXPECT_TRUE(vault.backupDotfilesIfDue(folder.at("home"), start - hours(1))) << "the last was by a wrong clock";

    // An older entry's removal leaves the later one whole, and a restored file is no part of the vault.
    age(*first, "2020-01-01T00:00:00Z");
    vault.prune(Vault::daysKept, start);
    folder.remove("home/.config");
    folder.remove("home/.gitconfig");
    (void)vault.restore(second->id);
    folder.write("home/.gitconfig", "written through a link?");
    EXPECT_EQ(folder.read(stored(*second, 0)), "same");
    EXPECT_EQ(folder.read("home/.config/app/unchanged"), "same");
}

TEST_F(VaultTest, removesOldEntries) {
    const Date start = now();
    folder.write("home/f/x", "x");
    folder.write("home/.netrc", "x");
    const VaultEntry old = save({"home/f"});
    const VaultEntry recent = save({"home/f"});
    age(old, isoText(start - hours(24 * 30) - seconds(1)).c_str());
    age(recent, isoText(start - hours(24 * 30)).c_str());
    ::chmod(folder.at(stored(old)).c_str(), 0500);
    folder.write("store/vault/20200101-000000-1/items/0", "left by a process that died");
    ASSERT_EQ(setModificationTime(AT_FDCWD, folder.at("store/vault/20200101-000000-1").c_str(), 0), 0);
    ASSERT_TRUE(vault.backupDotfilesIfDue(folder.at("home"), start)) << "it prunes first";
    EXPECT_FALSE(folder.has("store/vault/" + old.id));
    EXPECT_TRUE(folder.has("store/vault/" + recent.id));
    EXPECT_FALSE(folder.has("store/vault/20200101-000000-1"));
    const auto leave = [&](const std::string& id, bool hourly) { // an hour and a second ago
        folder.write("store/vault/" + id + "/items/0", "being copied");
        if (hourly) folder.write("store/vault/" + id + "/hourly", "");
        const auto time = std::chrono::nanoseconds((start - seconds(3601)).time_since_epoch()).count();
        ASSERT_EQ(setModificationTime(AT_FDCWD, folder.at("store/vault/" + id).c_str(), time), 0);
    };
    leave("20260101-000000-2", false);
    leave("20260101-000000-3", true);
    folder.write("store/vault/" + recent.id + "/hourly", "");
    vault.prune(Vault::daysKept, start);
    EXPECT_FALSE(folder.has("store/vault/20260101-000000-3")) << "left by an hourly copy";
    EXPECT_TRUE(vault.backupDotfilesIfDue(folder.at("home"), start + hours(24 * 7000)));
    for (const std::string& kept : {recent.id, std::string("20260101-000000-2")})
        EXPECT_TRUE(folder.has("store/vault/" + kept)) << "one wrong clock takes nothing";
}

TEST(VaultRecord, keepsItsWrittenForm) {
    const std::string text =
        R"({"agent":"claude","command":"rm -r ~\/a","created":"2026-03-14T09:30:05Z","cwd":"\/w",)"
        R"("id":"20260314-093005-1F3A9C","items":[{"kind":"dir","original":"\/home\/ann\/a",)"
        R"("parent":"\/home\/ann","stored":"items\/0"}],"nanos":123456789,"reasons":["tooLarge"],"session":"s","skipped":["\/home\/ann\/b"],"turn":"t"})";
    EXPECT_NE(document("store-format.md").find("\n" + text + "\n"), std::string::npos) << "the documented example";
    VaultEntry entry = decodeVaultEntry(text, "here");
    EXPECT_EQ(entry.items, (std::vector<VaultEntry::Item>{{"/home/ann/a", "items/0", "dir", "/home/ann"}}));
    EXPECT_EQ(compactJson(toJson(entry)), text);
    entry.agent.reset();
    EXPECT_EQ(compactJson(toJson(entry)).find("agent"), std::string::npos);
    entry.items[0].original = "/\xe9";
    entry.items[0].parent = "/\xe9/x";
    const std::string bytes = R"("original":"\/)"
                              "\uFFFD"
                              R"(","originalHex":"2fe9")";
    EXPECT_NE(compactJson(toJson(entry)).find(bytes), std::string::npos);
    EXPECT_EQ(decodeVaultEntry(compactJson(toJson(entry)), "here").items, entry.items);
    for (const char* damaged : {"2fe", "2fzz", "2f-1"}) {
        const std::string record = std::regex_replace(compactJson(toJson(entry)), std::regex("2fe9"), damaged);
        EXPECT_EQ(decodeVaultEntry(record, "here").items.at(0).original, "/\uFFFD") << damaged;
    }
}

TEST(VaultCommand, listsAndRestores) {
    World world;
    EXPECT_EQ(world.ok({"vault"}), "The vault is empty.\n");
    world.folder.write("home/f", "x");
    const std::string path = world.folder.at("home/f");
    const std::string gone = path + "-missing";
    const std::string history = world.store().home;
    const VaultEntry entry =
        Vault(world.store()).save({.paths = {path, gone, history}, .command = "rm \\\n f*"}).entry.value();
    const std::string list = world.ok({"vault"});
    EXPECT_EQ(list.substr(0, entry.id.size()), entry.id);
    EXPECT_NE(list.find("s ago  1 saved, 1 not saved\n    $ rm \\  f*\n    " + path + "\n    not saved: " + history +
                        " (Tidewrack's own history)\n"),
              list.npos)
        << list;
    world.folder.write("home/f", "y");
    const std::string home = world.folder.listing("home");
    const std::string plan = world.ok({"vault", "restore", entry.id, "--dry-run"});
    EXPECT_EQ(plan.find("would move what is there aside to " + path + ".tidewrack-"), 0U) << plan;
    EXPECT_TRUE(plan.ends_with("\nwould restore " + path + "\n")) << plan;
    EXPECT_EQ(world.folder.listing("home"), home);
    const json told = json::parse(world.ok({"vault", "restore", entry.id, "--json"}));
    const json& item = told.at("items").at(0);
    EXPECT_EQ(world.folder.read(item.at("aside").get<std::string>().substr(world.folder.path().size() + 1)), "y");
    EXPECT_EQ(json::parse(world.ok({"vault", "restore", entry.id, "--json"}))["items"][0]["asSaved"], true);
    EXPECT_EQ(told["version"].dump() + told["dryRun"].dump() + item["restored"].dump(), "1falsetrue");
    EXPECT_EQ(item["path"].get<std::string>() + item["asSaved"].dump(), path + "false");
    EXPECT_EQ(world.folder.read("home/f"), "x");
    world.folder.remove("home/f");
    EXPECT_EQ(world.ok({"vault", "restore", entry.id}), "restored " + path + "\n");
    world.folder.write("home/g", "x");
    const VaultEntry half =
        Vault(world.store()).save({.paths = {path, path.substr(0, path.size() - 1) + "g"}}).entry.value();
    world.folder.remove("store/vault/" + half.id + "/items/1");
    EXPECT_EQ(world.run({"vault", "restore", half.id}).status, 1) << "not everything is back";
    world.folder.remove("store/vault/" + entry.id + "/items");
    const Outcome nothing = world.run({"vault", "restore", entry.id});
    EXPECT_EQ(nothing.status, 1) << "nothing was restored";
    EXPECT_EQ(nothing.out, "couldn't restore " + path + ": its copy is missing\n");
    EXPECT_EQ(world.run({"vault", "restore"}).err, "tidewrack: usage: tidewrack vault restore <id>\n");
    EXPECT_EQ(world.run({"vault", "restore", "../vault"}).err, "tidewrack: No vault entry ../vault\n");
}
