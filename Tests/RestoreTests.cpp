#include "Platform/Flush.hpp"
#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include "Engine/Engine.hpp"
#include "Engine/RestorePlan.hpp"
#include "Engine/SafeReplace.hpp"
#include "Engine/Spelling.hpp"
#include "Platform/OpenFolder.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <tuple>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// A small project, tracked as snapshot 1. What a restore makes of any folder at all is checked by Model/.
class RestoreTest : public ::testing::Test {
  protected:
    RestoreTest() {
        f.write("project/a.txt", "first\n");
        f.write("project/src/main.c", "int main;\n");
        f.write("project/src/deep/er/x", "x");
        f.link("project/link", "a.txt");
        ::chmod(f.at("project/src/deep").c_str(), 0710);
        world.ok({"track"});
        before = f.listing("project");
    }

    World world;
    const TemporaryFolder& f = world.folder;
    std::string before;
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(RestoreTest, neverWritesThroughALinkInAParentsPlace) {
    f.makeFolder("elsewhere/deep/er");
    f.write("elsewhere/main.c", "not yours");
    const std::string elsewhere = f.listing("elsewhere");
    f.remove("project/src");
    f.link("project/src", f.at("elsewhere"));
    EXPECT_NE(world.ok({"restore", "1", "src/main.c"})
                  .find("warning: skipped src/main.c: src is now a symlink to " + f.at("elsewhere") +
                        ". Restore src itself to bring the folder back.\n"),
              std::string::npos);
    world.ok({"restore", "1"});
    EXPECT_EQ(f.listing("elsewhere"), elsewhere);
    EXPECT_EQ(f.listing("project"), before);
}

// Whoever has a file open that was moved out of a folder's way writes to it until it is removed.
TEST_F(RestoreTest, whatIsWrittenToAFileThatStandsAsideStays) {
    Descriptor folder;
    ASSERT_EQ(openFolder(world.projectPath(), folder), 0);
    const Place place{folder.get(), "a.txt"};
    Attributes there;
    for (const char* words : {"", "somebody's words"}) {
        ASSERT_EQ(attributesAt(place.folder, place.name, there), 0);
        Temporaries names;
        std::string name;
        EXPECT_FALSE(moveUnchanged(names, place, entryOf(there), name));
        f.makeFolder("project/a.txt");
        if (*words != '\0') f.write("project/" + name, words);
        const Obstacle obstacle = removeMoved(names, {place.folder, name.c_str()}, place, entryOf(there));
        EXPECT_EQ(obstacle.detail, *words == '\0' ? "" : "a.txt.tidewrack-1");
        EXPECT_FALSE(f.has("project/" + name));
        f.remove("project/a.txt");
        f.write("project/a.txt", "anew");
    }
    EXPECT_EQ(f.read("project/a.txt.tidewrack-1"), "somebody's words");
}

TEST_F(RestoreTest, leavesAloneWhatHistoryCannotBringBack) {
    Project project = world.project();
    project.maxFileSize = 10;
    const Engine engine(world.store());
    f.write("project/huge", "more than ten bytes");
    f.write("project/a.txt", "also more than ten bytes");
    EXPECT_EQ(warningTexts(engine.restore(project, 1, std::nullopt, true)),
              (Lines{"couldn't restore a.txt: it couldn't be saved first (it was larger than the size limit)",
                     "couldn't restore huge: it couldn't be saved first (it was larger than the size limit)"}));
    EXPECT_EQ(f.read("project/huge") + f.read("project/a.txt"), "more than ten bytesalso more than ten bytes");
    engine.snapshot(project, {"manual", {}, {}, {}, {}});
    f.remove("project/huge");
    EXPECT_EQ(warningTexts(engine.restore(project, 4, std::nullopt, true)),
              Lines{"couldn't restore huge: it was larger than the size limit when that snapshot was taken"});
    f.write("project/huge/new", "makes way for nothing");
    EXPECT_EQ(warningTexts(engine.restore(project, 4, std::nullopt, true)),
              Lines{"didn't replace huge: it was larger than the size limit when that snapshot was taken"});
    EXPECT_EQ(f.read("project/huge/new"), "makes way for nothing");
    // The same of what a killed restore had left.
    f.write("store/projects/" + project.id + "/restores", ".tidewrack-12-ab- 1 1\n");
    f.write("project/.tidewrack-12-ab-0-big", "more than ten bytes");
    f.write("project/.tidewrack-12-ab-1/inside", "small");
    const Lines warnings = warningTexts(engine.restore(project, 4, std::nullopt, true));
    EXPECT_EQ(Lines(warnings.begin(), warnings.begin() + 2),
              (Lines{"couldn't clear away .tidewrack-12-ab-1, which a restore that was cut short had left",
                     "a restore that was cut short had left a version of big that no snapshot had; it is "
                     "big.tidewrack-1 now"}));
    EXPECT_EQ(f.read("project/big.tidewrack-1"), "more than ten bytes");
}

TEST_F(RestoreTest, clearsUpWhatAKilledRestoreLeft) {
    const std::string marks = "store/projects/" + world.project().id + "/restores";
    const auto left = [&](const std::string& path, const char* text) { f.write("project/" + path, text); };
    left(".tidewrack-12-3", "the user's own, with a name like ours");
    left("a.txt", "second\n");
    world.ok({"snap"});
    // The second one was put together from several.
    f.write(marks, ".tidewrack-12-ab- 2 1\n.tidewrack-12-ac- 2 3\n");
    f.write("store/projects/" + world.project().id + "/blobs/3/0", "merged");
    left(".tidewrack-12-ac-0-a.txt", "first\n");
    left(".tidewrack-12-ac-1-a.txt", "merged");
    left(".tidewrack-12-ab-0", "half a co");
    left(".tidewrack-12-ab-1-a.txt", "second\n");
    left("src/.tidewrack-12-ab-2-x", "x");
    left("src/.tidewrack-12-ab-3-main.c", "somebody's words");
    left(".tidewrack-12-ab-6-folder/inside", "moved as a whole");
    // Of these somebody died between making the one name and taking away the other.
    for (const auto& [name, second] :
         {std::pair("project/new", "4-new"), std::pair("project/other.tidewrack-1", "5-other")}) {
        f.write(name, "under two names");
        ASSERT_EQ(::link(f.at(name).c_str(), (f.at("project/.tidewrack-12-ab-") + second).c_str()), 0);
    }
    world.ok({"snap"}); // has all that somebody may lose next
    EXPECT_EQ(world.ok({"cat", "4", "src/.tidewrack-12-ab-3-main.c"}), "somebody's words");
    EXPECT_EQ(world.ok({"diff", "2"}).find("ab-0"), std::string::npos);
    EXPECT_EQ(world.ok({"restore", "2", "--dry-run"}),
              "- .tidewrack-12-ab-6-folder/inside\n"
              "- new\n- other.tidewrack-1\n"
              "! src/main.c  what a restore that was cut short left of it would become src/main.c.tidewrack-1\n"
              "! src/x  what a restore that was cut short left of it would become src/x.tidewrack-1\n"
              "Would restore 0 files, remove 3 files. Nothing was changed.\n");
    EXPECT_EQ(world.ok({"restore", "2"}),
              "Restored 0 files, removed 3 files. Undo this with: tidewrack restore 5\n"
              "warning: a restore that was cut short had left a version of src/x that no snapshot had; it is "
              "src/x.tidewrack-1 in #5\n"
              "warning: a restore that was cut short had left a version of src/main.c that no snapshot had; it is "
              "src/main.c.tidewrack-1 in #5\n");
    EXPECT_EQ(world.ok({"cat", "5", "src/main.c.tidewrack-1"}) + world.ok({"cat", "5", "folder/inside"}),
              "somebody's wordsmoved as a whole");
    EXPECT_EQ(f.listing("project").find("-12-ab-"), std::string::npos);
    EXPECT_FALSE(f.has(marks));
    world.ok({"restore", "1"});
    EXPECT_EQ(f.listing("project"), before);
    world.ok({"restore", "2"});
    EXPECT_EQ(f.read("project/.tidewrack-12-3"), "the user's own, with a name like ours");
}

// A copy may have been cut short anywhere, so the next restore looks for what is left of it.
TEST_F(RestoreTest, remembersThatItRanOutOfMemory) {
    Engine engine(world.store());
    engine.progress = [](const char* what, std::size_t) {
        if (std::string_view(what) == "restored") throw std::bad_alloc();
    };
    f.remove("project/a.txt");
    const RestoreResult result = engine.restore(world.project(), 1, std::nullopt, true);
    EXPECT_EQ(warningTexts(result).front(), "couldn't restore a.txt: Cannot allocate memory");
    EXPECT_TRUE(result.leavesTemporaries);
}

TEST_F(RestoreTest, givesAFileItsNameBackThatAKilledRestoreHadMovedAside) {
    const std::string marks = "store/projects/" + world.project().id + "/restores";
    f.write("project/a.txt", "second\n");
    world.ok({"snap"});
    f.remove("project/a.txt");
    f.write(marks, ".tidewrack-12-ab- 2 1\n");
    f.write("project/.tidewrack-12-ab-0-a.txt", "first\n");  // was about to replace it
    f.write("project/.tidewrack-12-ab-1-a.txt", "second\n"); // was there
    f.write("project/.tidewrack-12-ab-2-a.txt", "");         // lost its content in a power cut
    const std::string row = "! a.txt  a restore that was cut short moved it aside; it would be put back\n";
    EXPECT_EQ(world.ok({"restore", "2", "link", "--dry-run"}).substr(0, row.size()), row);
    EXPECT_NE(world.ok({"restore", "2", "link"})
                  .find("warning: a restore that was cut short had moved a.txt aside; it is back\n"),
              std::string::npos);
    EXPECT_EQ(f.read("project/a.txt"), "second\n");
    EXPECT_EQ(f.listing("project").find("-12-ab-"), std::string::npos);
    EXPECT_FALSE(f.has("project/a.txt.tidewrack-1"));
    EXPECT_FALSE(f.has(marks));
    // A temporary name has no room for all of a long one, and several may begin alike.
    const std::string start(240, 'n');
    const std::string end = std::string(15, '2');
    for (const char letter : {'1', '2', '3'})
        f.write("project/" + start + std::string(15, letter), std::string("long ") + letter);
    world.ok({"snap"});
    f.write(marks, ".tidewrack-12-ac- 5 5\n");
    f.remove("project/" + start + end);
    const std::string cut = start.substr(0, 255 - std::string(".tidewrack-12-ac-0-").size());
    f.write("project/.tidewrack-12-ac-0-" + cut, "long 2");
    f.write("project/.tidewrack-12-ac-1-" + cut, "somebody's words");
    EXPECT_NE(world.ok({"restore", "5", "link", "--dry-run"}).find("! " + start + end + "  a restore"),
              std::string::npos);
    const std::string found = cut + ".tidewrack-1";
    EXPECT_NE(world.ok({"restore", "5", "link"}).find("it is " + found + " in #"), std::string::npos);
    EXPECT_EQ(f.read("project/" + start + end) + f.read("project/" + found), "long 2somebody's words");
}

TEST_F(RestoreTest, leavesNothingInAFolderWhoseHistoryGoes) {
    f.write("store/projects/" + world.project().id + "/restores", ".tidewrack-12-ab- 1 1\n");
    f.remove("project/a.txt");
    f.write("project/.tidewrack-12-ab-0-a.txt", "first\n");
    f.write("project/.tidewrack-12-ab-1", "half a co");
    f.write("project/src/.tidewrack-12-ab-2-x", "somebody's words");
    EXPECT_NE(world.run({"untrack", "--dry-run"}).err.find("a version of src/x that no snapshot has"),
              std::string::npos);
    EXPECT_EQ(world.run({"untrack"}).err,
              "warning: a restore that was cut short had moved a.txt aside; it is back\n"
              "warning: a restore that was cut short had left a version of src/x that no snapshot had; it is "
              "src/x.tidewrack-1 now\n");
    EXPECT_EQ(f.listing("project").find("-12-ab-"), std::string::npos);
    EXPECT_EQ(f.read("project/a.txt") + f.read("project/src/x.tidewrack-1"), "first\nsomebody's words");
}

// A vault restore has no project around it. What is another's, or not known from a note, stays.
TEST_F(RestoreTest, clearsUpAfterAVaultRestoreThatWasKilled) {
    for (const auto& [number, name] : {std::pair("0", "f"), std::pair("1", "g")}) {
        const std::string copy = std::string(".tidewrack-12-ab-") + number;
        f.write("home/" + copy + "/half", "a copy");
        f.write(std::string("home/aside") + number, "the user's");
        f.write(std::string("store/vault/restore.tidewrack-999999999-") + number,
                f.at("home") + "\n" + copy + "\n" + name + "\naside" + number + "\n");
    }
    f.write("home/g", "old");
    f.write("store/vault/restore.tidewrack-999999999-2", ""); // a power cut took the rest
    EXPECT_EQ(world.run({"restore", "1"}).err,
              "warning: a vault restore that was cut short had moved " + f.at("home/f") + " aside; it is back\n");
    EXPECT_EQ(listFolder(f.at("home")).size(), 3U) << f.listing("home");
    EXPECT_EQ(f.read("home/f") + f.read("home/g") + f.read("home/aside1"), "the user'soldthe user's");
    EXPECT_EQ(f.listing("store/vault").find("restore."), std::string::npos);
}

// A folder that can't be read is no reason to look for ever for what is left, unless a restore can have worked in it.
TEST_F(RestoreTest, forgetsAKilledRestoreWhereNothingOfItCanBe) {
    const std::string marks = "store/projects/" + world.project().id + "/restores";
    const std::string stays = unprivileged(f, [&] {
        f.makeFolder("project/closed");
        std::string result;
        for (const char* file : {"", "project/closed/file"}) {
            if (*file != '\0') f.write(file, "kept");
            world.ok({"snap"});
            f.write(marks, ".tidewrack-12-ab- 1 1\n");
            EXPECT_EQ(::chmod(f.at("project/closed").c_str(), 0), 0);
            (void)world.run({"restore", "1", "a.txt"});
            result += f.has(marks) ? "stays " : "goes ";
            EXPECT_EQ(::chmod(f.at("project/closed").c_str(), 0700), 0);
        }
        return result;
    });
    EXPECT_EQ(stays, "goes stays ");
}

// A snapshot that is taken before the next restore lists what the killed one had moved aside.
TEST_F(RestoreTest, bringsNothingBackUnderANameOfItsOwn) {
    const auto left = [&](const std::string& path, const char* text) { f.write("project/" + path, text); };
    left("a.txt.tidewrack-1", "taken");
    left(".tidewrack-12-ab-0-a.txt", "first\n");
    left(".tidewrack-12-ab-1-a.txt", "somebody's words");
    left(".tidewrack-12-ab-c", "the user's own, with a name like ours");
    const std::string all = f.listing("project");
    world.ok({"snap"});
    world.ok({"restore", "2"});
    EXPECT_EQ(f.listing("project"), all) << "what is there may be the user's after all";
    for (const char* name : {"a.txt", ".tidewrack-12-ab-0-a.txt", ".tidewrack-12-ab-1-a.txt", ".tidewrack-12-ab-c"})
        f.remove(std::string("project/") + name);
    EXPECT_EQ(world.ok({"restore", "2", "--dry-run"}), "+ .tidewrack-12-ab-c\n+ a.txt\n+ a.txt.tidewrack-2\n"
                                                       "Would restore 3 files, remove 0 files. Nothing was changed.\n");
    world.ok({"restore", "2"});
    EXPECT_EQ(f.read("project/a.txt") + f.read("project/a.txt.tidewrack-2"), "first\nsomebody's words");
    EXPECT_EQ(f.listing("project").find("-12-ab-0"), std::string::npos);
    EXPECT_EQ(f.listing("project").find("-12-ab-1"), std::string::npos);
    EXPECT_TRUE(f.has("project/.tidewrack-12-ab-c"));
}

// A change through a shared mapping leaves the times alone, so that the safety snapshot can't see it.
TEST_F(RestoreTest, keepsWhatChangedUnseen) {
    f.write("project/a.txt", "second\n");
    f.write("project/new", "new");
    const Descriptor file(::open(f.at("project/a.txt").c_str(), O_RDWR | O_CLOEXEC));
    auto* const mapped = static_cast<char*>(::mmap(nullptr, 7, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
    ASSERT_NE(mapped, MAP_FAILED);
    mapped[0] = 'M'; // not every volume tells the first such change either
    world.ok({"snap"});
    mapped[0] = 'S';
    ::munmap(mapped, 7);
    // The same from the other side: what is kept is not what is there.
    const std::string kept = Engine(world.store()).contentPath(world.project(), 2, "new").value();
    ::chmod(kept.c_str(), 0644);
    ASSERT_EQ(writeAll(Descriptor(::open(kept.c_str(), O_WRONLY | O_CLOEXEC)).get(), "old"), 0);
    world.ok({"restore", "1"});
    EXPECT_EQ(f.listing("project"), before);
    EXPECT_EQ(world.ok({"cat", "3", "a.txt"}) + world.ok({"cat", "3", "new"}), "Second\nnew");
    world.ok({"prune"});
    world.ok({"restore", "3"});
    EXPECT_EQ(f.read("project/a.txt") + f.read("project/new"), "Second\nnew");
}

TEST_F(RestoreTest, refusesARootThatIsNoFolderAnyMore) {
    ASSERT_EQ(::rename(f.at("project").c_str(), f.at("moved").c_str()), 0);
    const Engine engine(world.store());
    const Project project = world.store().projects().at(0);
    EXPECT_THROW(engine.restore(project, 1, std::nullopt, true), TidewrackError);
    f.link("project", f.at("moved"));
    EXPECT_EQ(thrownBy([&] { return engine.restore(project, 1, std::nullopt, true); }),
              world.projectPath() +
                  " is no longer a folder (it's a symlink or file now). Refusing to restore into it.");
}

// Else no snapshot could tell how closed it was.
TEST_F(RestoreTest, leavesAFolderThatGitIgnoresAsClosedAsItWas) {
    f.write("project/build/x", "x");
    world.ok({"snap"});
    if (!git(f.at("project"), "init -q")) GTEST_SKIP() << "git is not installed";
    f.write("project/.gitignore", "build/\n");
    // What a killed restore left there before is found all the same.
    f.write("store/projects/" + world.project().id + "/restores", ".tidewrack-12-ab- 2 1\n");
    f.write("project/build/.tidewrack-12-ab-0-x", "somebody's words");
    EXPECT_NE(world.ok({"restore", "2", "a.txt"}).find("it is build/x.tidewrack-1 now\n"), std::string::npos);
    f.remove("project/build/x");
    ::chmod(f.at("project/build").c_str(), 0500);
    world.ok({"restore", "2", "build/x"});
    EXPECT_EQ(f.read("project/build/x"), "x");
    EXPECT_NE(f.listing("project").find("build " + std::to_string(0500)), std::string::npos);
}

TEST_F(RestoreTest, worksWithoutSpecialRights) {
    const std::string report = unprivileged(f, [&] {
        f.write("project/fixed/file", "fixed");
        ::chmod(f.at("project/fixed").c_str(), 0555);
        world.ok({"snap"});
        const std::string wanted = f.listing("project");
        // A folder made read-only since takes its files again, and a read-only one comes back as it was.
        f.remove("project/src/main.c");
        ::chmod(f.at("project/src").c_str(), 0555);
        f.remove("project/fixed");
        std::string text = world.ok({"restore", "2"});
        if (f.listing("project") != wanted) text += f.listing("project");
        // Whoever closes a folder makes all below it look deleted.
        for (const char* command : {"restore", "undo"}) {
            ::chmod(f.at("project/src").c_str(), 0);
            text += world.ok({command, "4"});
            ::chmod(f.at("project/src").c_str(), 0755); // should that have failed
            if (f.listing("project") != wanted) text += f.listing("project");
        }
        const std::string row = world.ok({"log", "-n", "1"});
        text += row.substr(row.find("restored")); // without its age
        // What can't be read couldn't be saved, so it isn't replaced.
        f.write("project/a.txt", "changed");
        ::chmod(f.at("project/a.txt").c_str(), 0);
        text += world.ok({"restore", "4", "--dry-run"});
        text += world.ok({"restore", "4"});
        text += world.ok({"undo", "10"});
        ::chmod(f.at("project/a.txt").c_str(), 0644);
        text += world.run({"cat", "10", "a.txt"}).err;
        world.ok({"snap"});
        return text + world.ok({"cat", "13", "a.txt"});
    });
    const std::string warning = "warning: couldn't save a.txt: Permission denied\n";
    const std::string unread = "warning: couldn't read src: Permission denied; not saved\n";
    EXPECT_EQ(report, "Restored 2 files, removed 0 files. Undo this with: tidewrack restore 3\n"
                      "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 5\n" +
                          unread + "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 7\n" + unread +
                          "restored  \"After undoing #4\"  →  no changes yet\n"
                          "! a.txt  it couldn't be saved first (it couldn't be read: Permission denied)\n"
                          "Would restore 0 files, remove 0 files. Nothing was changed.\n"
                          "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 9\n" +
                          warning +
                          "warning: couldn't restore a.txt: it couldn't be saved first (it couldn't be read: "
                          "Permission denied)\n"
                          "Nothing changed after #10, so there's nothing to undo.\n" +
                          warning +
                          "To undo the changes made before #10, run: tidewrack undo 9\n"
                          "tidewrack: the content of a.txt wasn't kept in snapshot #10: it couldn't be read: "
                          "Permission denied\nchanged");
}

TEST_F(RestoreTest, worksInFoldersClosedToTheirOwner) {
    const std::string report = unprivileged(f, [&] {
        world.ok({"snap"}); // the files are another user's now
        f.write("project/cache/module/file", "as downloaded");
        for (const char* folder : {"project/cache/module", "project/cache"}) ::chmod(f.at(folder).c_str(), 0555);
        world.ok({"snap"});
        const std::string wanted = f.listing("project");
        std::string text = world.ok({"restore", "2"});
        if (f.listing("project") != before) text += f.listing("project");
        text += world.ok({"restore", "4"});
        if (f.listing("project") != wanted) text += f.listing("project");
        ::chmod(f.at("project/cache/module").c_str(), 0755);
        f.write("project/cache/module/file", "edited");
        ::chmod(f.at("project/cache/module").c_str(), 0555);
        text += world.ok({"restore", "3", "cache/module/file"});
        if (f.listing("project") != wanted) text += f.listing("project");
        // A closed folder in a closed folder is in no listing.
        f.remove("project/src/deep/er/x");
        for (const char* folder : {"project/src/deep/er", "project/src/deep"}) ::chmod(f.at(folder).c_str(), 0);
        text += world.ok({"restore", "9"});
        if (f.listing("project") != wanted) text += f.listing("project");
        // What a snapshot couldn't see may have been there.
        ::chmod(f.at("project/src").c_str(), 0);
        world.ok({"snap"});
        ::chmod(f.at("project/src").c_str(), 0755);
        text += world.ok({"restore", "12"});
        ::chmod(f.at("project/src").c_str(), 0755);
        return text + f.read("project/src/main.c");
    });
    EXPECT_EQ(report, "Restored 0 files, removed 1 file. Undo this with: tidewrack restore 4\n"
                      "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 6\n"
                      "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 8\n"
                      "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 10\n"
                      "warning: couldn't read src/deep: Permission denied; not saved\n"
                      "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 13\n"
                      "warning: kept what is in src/: it couldn't be read when that snapshot was taken\n"
                      "int main;\n");
}

TEST_F(RestoreTest, isNotLedOutsideByADamagedListing) {
    f.write("outside", "not yours");
    const Project project = world.project();
    ManifestBuilder builder;
    const Manifest first = world.manifestOf(1);
    for (const char* path : {"../outside", "src/../../outside", "/outside", "src/.."})
        builder.add(path, *first.find("a.txt"));
    world.history().writeManifest(ProjectLock(world.history().lockPath()), 1, builder.finish(), PendingWrites());
    world.ok({"restore", "1", "--keep-new"});
    EXPECT_EQ(f.read("outside"), "not yours");
    EXPECT_EQ(f.read("project/a.txt"), "first\n");
}

TEST_F(RestoreTest, lostOrDamagedContentReplacesNothing) {
    const auto content = [&](const char* path) {
        return Engine(world.store()).contentPath(world.project(), 1, path).value();
    };
    for (const char* path : {"a.txt", "src/main.c"}) {
        EXPECT_EQ(::chmod(content(path).c_str(), 0600), 0); // contents are read-only, which binds everybody but root
        EXPECT_EQ(::truncate(content(path).c_str(), 3), 0);
    }
    EXPECT_EQ(::unlink(content("src/deep/er/x").c_str()), 0);
    EXPECT_EQ(world.run({"cat", "1", "a.txt"}).err,
              "tidewrack: Corrupt store data: what was kept of a.txt is damaged\n");
    f.write("project/a.txt", "the only good copy");
    f.remove("project/src/main.c");
    f.write("project/src/main.c/new", "makes way for nothing");
    f.remove("project/src/deep/er/x");
    const RestoreResult result = Engine(world.store()).restore(world.project(), 1, std::nullopt, true);
    EXPECT_EQ(warningTexts(result),
              (Lines{"couldn't restore src/main.c: a folder with content we don't keep is in the way",
                     "couldn't restore a.txt: what was kept of it is damaged",
                     "couldn't restore src/deep/er/x: No such file or directory"}));
    EXPECT_TRUE(pathsOf(result.outcomes, PathOutcome::Action::restored).empty());
    EXPECT_EQ(f.read("project/a.txt"), "the only good copy");
    EXPECT_EQ(f.read("project/src/main.c/new"), "makes way for nothing");
}

TEST_F(RestoreTest, givesWhatRootMakesToTheOwnerOfWhatItJoins) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can";
    constexpr uid_t owner = 12345;
    ASSERT_EQ(::chown(world.projectPath().c_str(), owner, owner), 0);
    f.remove("project/src");
    world.ok({"restore", "1"});
    for (const char* lines : {"1\n2\n3\n", "one\n2\n3\n", "one\n2\nthree\n"}) {
        f.write("project/lines", lines);
        ASSERT_EQ(::chown(f.at("project/lines").c_str(), owner, owner), 0);
        if (std::string(lines).find("three") == std::string::npos) world.ok({"snap"});
    }
    world.ok({"undo", "4..5"});
    EXPECT_EQ(f.read("project/lines"), "1\n2\nthree\n");
    for (const char* path : {"project/src", "project/src/deep/er", "project/lines"}) {
        struct stat status {};
        ASSERT_EQ(::stat(f.at(path).c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, owner) << path;
    }
}

// A preview aims at what acting then does.
TEST_F(RestoreTest, doesWhatItsPlanAimsAt) {
    Project project = world.project();
    project.maxFileSize = 10;
    f.write("project/huge", "more than ten bytes");
    f.write("project/new/file", "new");
    f.remove("project/src/deep");
    f.write("project/src/deep", "a file now");
    f.write("project/a.txt", "second\n");
    const Engine engine(world.store());
    const SnapshotMeta now = engine.snapshot(project, {"manual", {}, {}, {}, {}}).meta;
    const Manifest current = world.history().manifest(now);
    const Manifest target = world.manifestOf(1);
    auto aim =
        aimOf(planRestore({target, current, [](std::string_view) { return true; }, {}, true, false}), current, {});
    auto done = engine.restore(project, 1, std::nullopt, true).outcomes;
    const auto order = [](const PathOutcome& a, const PathOutcome& b) {
        return std::tie(a.path, a.action) < std::tie(b.path, b.action);
    };
    std::sort(aim.begin(), aim.end(), order);
    std::sort(done.begin(), done.end(), order);
    EXPECT_EQ(aim, done);
    EXPECT_EQ(aim.size(), 8U);
}

TEST_F(RestoreTest, aDryRunPromisesNothingThatTheActRefuses) {
    f.write("project/gen/a", "made");
    world.ok({"snap"});
    f.write("project/gen/mine", "later");
    f.remove("project/src/deep");
    f.write("project/src/deep", "a file");
    struct Row {
        std::vector<std::string> words;
        const char* planned;
        const char* done;
    };
    const Row rows[] = {
        {{"undo", "1"}, "! gen  Directory not empty\n- gen/a\nWould", "couldn't remove gen: Directory not empty\n"},
        {{"restore", "1", "src/deep/er/x"},
         "! src/deep/er/x  src/deep is now a file, not a folder\nWould restore 0 files",
         "skipped src/deep/er/x: src/deep is now a file, not a folder\n"}};
    for (const Row& row : rows) {
        std::vector<std::string> dry = row.words;
        dry.emplace_back("--dry-run");
        const std::string plan = world.ok(dry);
        EXPECT_NE(plan.find(row.planned), std::string::npos) << plan;
        const std::string text = world.ok(row.words);
        EXPECT_NE(text.find(row.done), std::string::npos) << text;
    }
}
