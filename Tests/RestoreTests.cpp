#include "Support/TestHistory.hpp"
#include "Support/VolumeFacts.hpp"

#include "Engine/Engine.hpp"
#include "Engine/Spelling.hpp"
#include "Platform/Platform.hpp"
#include "Support/Errors.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// A small project with one of everything, tracked as snapshot 1.
class RestoreTest : public ::testing::Test {
  protected:
    RestoreTest() {
        const auto& f = world.folder;
        f.write("project/a.txt", "first\n");
        f.write("project/src/main.c", "int main;\n");
        f.write("project/src/deep/er/x", "x");
        f.write(ofAnyBytes("project/bad\xff name"), "bytes");
        f.write(ofAnyBytes("project/bad\xfe name"), "other bytes");
        f.write("project/tab\there\\\n", "odd");
        f.link("project/link", "a.txt");
        f.link("project/dangling", "no/where");
        f.makeFolder("project/empty");
        ::chmod(f.at("project/src/main.c").c_str(), 04755);
        ::chmod(f.at("project/src/deep").c_str(), 0710);
        world.ok({"track"});
        before = f.listing("project");
    }

    World world;
    std::string before;
};

} // namespace

TEST_F(RestoreTest, touchesOnlyTheListedPaths) {
    const auto& f = world.folder;
    f.write("project/a.txt", "changed");
    f.remove("project/src/deep");
    f.write("project/src/new", "stays out of it");
    world.ok({"restore", "1", "src/deep/"});
    EXPECT_EQ(f.read("project/a.txt") + f.read("project/src/deep/er/x"), "changedx");
    EXPECT_EQ(world.run({"restore", "1", ""}).err, "tidewrack: missing path\n");
    EXPECT_EQ(world.run({"restore", "1", "/etc"}).err, "tidewrack: /etc is outside " + world.projectPath() + ".\n");
    world.ok({"restore", "1", ".", "--keep-new"});
    EXPECT_EQ(f.read("project/a.txt") + f.read("project/src/new"), "first\nstays out of it");
}

TEST_F(RestoreTest, neverWritesThroughALinkInAParentsPlace) {
    const auto& f = world.folder;
    f.makeFolder("elsewhere/deep/er");
    f.write("elsewhere/main.c", "not yours");
    f.remove("project/src");
    f.link("project/src", f.at("elsewhere"));
    const std::string out = world.ok({"restore", "1", "src/main.c"});
    EXPECT_NE(out.find("warning: skipped src/main.c: src is now a symlink to " + f.at("elsewhere") +
                       ". Restore src itself to bring the folder back.\n"),
              std::string::npos);
    EXPECT_EQ(f.read("elsewhere/main.c"), "not yours");
    world.ok({"restore", "1"});
    EXPECT_EQ(f.listing("elsewhere"),
              "elsewhere/deep 493 /\nelsewhere/deep/er 493 /\nelsewhere/main.c 420 = not yours\n");
    EXPECT_EQ(f.listing("project"), before);
    EXPECT_NE(world.ok({"snap"}).find("no changes since"), std::string::npos);
}

TEST_F(RestoreTest, leavesAloneWhatHistoryCannotBringBack) {
    const auto& f = world.folder;
    Project project = world.project();
    project.maxFileSize = 10;
    const Engine engine(world.store());
    f.write("project/huge", "more than ten bytes");
    f.write("project/a.txt", "also more than ten bytes");
    const RestoreResult result = engine.restore(project, 1, std::nullopt, true);
    EXPECT_EQ(result.warnings,
              (std::vector<std::string>{
                  "couldn't restore huge: it couldn't be saved first (it was larger than the size limit)",
                  "couldn't restore a.txt: it couldn't be saved first (it was larger than the size limit)"}));
    EXPECT_EQ(f.read("project/huge"), "more than ten bytes");
    EXPECT_EQ(f.read("project/a.txt"), "also more than ten bytes");
    // What the target did not keep is told as well.
    engine.snapshot(project, {"manual", {}, {}, {}, {}});
    f.remove("project/huge");
    const RestoreResult later = engine.restore(project, 4, std::nullopt, true);
    EXPECT_EQ(later.warnings, std::vector<std::string>{"couldn't restore huge: it was larger than the size limit when "
                                                       "that snapshot was taken"});
}

TEST_F(RestoreTest, sweepsUpWhatAKilledRestoreLeft) {
    const auto& f = world.folder;
    f.write("project/src/.tidewrack-2147483646-0", "half a file");
    const std::string ours = "project/.tidewrack-" + std::to_string(::getpid()) + "-0";
    f.write(ours, "of an earlier process with our number");
    f.write("project/.tidewrack-notes", "the user's own");
    EXPECT_NE(world.ok({"snap"}).find("+1 ~0 -0"), std::string::npos); // the user's own file only
    world.ok({"restore", "2"});
    EXPECT_FALSE(f.has("project/src/.tidewrack-2147483646-0"));
    EXPECT_FALSE(f.has(ours));
    EXPECT_EQ(f.read("project/.tidewrack-notes"), "the user's own");
}

TEST_F(RestoreTest, undoOfTheNewestSnapshotAndOfNothing) {
    world.folder.write("project/a.txt", "now");
    world.ok({"undo", "1"});
    EXPECT_EQ(world.folder.read("project/a.txt"), "first\n");
    EXPECT_EQ(world.ok({"undo", "3"}), "Nothing changed after #3, so there's nothing to undo.\n"
                                       "To undo the changes made before #3, run: tidewrack undo 2\n");
    EXPECT_EQ(world.run({"undo", "77"}).err, "tidewrack: No snapshot #77.\n");
}

TEST_F(RestoreTest, undoSaysWhenSnapshotsInBetweenArePruned) {
    for (const char* text : {"2", "3", "4"}) {
        world.folder.write("project/a.txt", text);
        world.ok({"snap"});
    }
    const Project project = world.project();
    for (const std::int64_t seq : {2, 3}) ::unlink(world.store().metaPath(project, seq).c_str());
    const std::string out = world.ok({"undo", "1"});
    EXPECT_NE(out.find("warning: snapshots #2–#3 were pruned, so this undid everything from #1 to #4\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(world.folder.read("project/a.txt"), "first\n");
}

TEST_F(RestoreTest, refusesARootThatIsNoFolderAnyMore) {
    const auto& f = world.folder;
    ASSERT_EQ(::rename(f.at("project").c_str(), f.at("moved").c_str()), 0);
    const Engine engine(world.store());
    const Project project = world.store().projects().at(0);
    EXPECT_THROW(engine.restore(project, 1, std::nullopt, true), TidewrackError);
    f.link("project", f.at("moved"));
    EXPECT_EQ(thrownBy([&] { return engine.restore(project, 1, std::nullopt, true); }),
              world.projectPath() +
                  " is no longer a folder (it's a symlink or file now). Refusing to restore into it.");
}

TEST_F(RestoreTest, worksWithoutSpecialRights) {
    const auto& f = world.folder;
    const std::string report = unprivileged(f, [&] {
        f.write("project/fixed/file", "fixed");
        ::chmod(f.at("project/fixed").c_str(), 0555);
        world.ok({"snap"});
        const std::string wanted = f.listing("project");
        // A folder made read-only since takes its files again, and a read-only one comes back as it was.
        f.remove("project/src/main.c");
        ::chmod(f.at("project/src").c_str(), 0555);
        f.remove("project/fixed");
        std::string text = world.run({"restore", "2"}).out;
        if (f.listing("project") != wanted) text += f.listing("project");
        // What can't be read couldn't be saved, so it isn't replaced.
        f.write("project/a.txt", "changed");
        ::chmod(f.at("project/a.txt").c_str(), 0);
        text += world.run({"restore", "2"}).out;
        ::chmod(f.at("project/a.txt").c_str(), 0644);
        return text + f.read("project/a.txt");
    });
    EXPECT_EQ(report, "Restored 2 files, removed 0 files. Undo this with: tidewrack restore 3\n"
                      "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 5\n"
                      "warning: couldn't save a.txt: Permission denied\n"
                      "warning: couldn't restore a.txt: it couldn't be saved first (it couldn't be read: Permission "
                      "denied)\n"
                      "changed");
}

// Whoever closes a folder makes all below it look deleted.
TEST_F(RestoreTest, opensFoldersThatWereClosed) {
    const auto& f = world.folder;
    const std::string report = unprivileged(f, [&] {
        world.ok({"snap"}); // the files have this user's attributes now
        const std::string wanted = f.listing("project");
        std::string text;
        for (const char* command : {"restore", "undo"}) {
            ::chmod(f.at("project/src").c_str(), 0);
            text += world.run({command, "2"}).out;
            ::chmod(f.at("project/src").c_str(), 0755); // should that have failed
            if (f.listing("project") != wanted) text += f.listing("project");
            text += world.ok({"log", "-n", "1"}).substr(4);
        }
        // Nothing to undo is told also where something can't be read.
        ::chmod(f.at("project/a.txt").c_str(), 0);
        world.run({"snap"});
        text += world.run({"undo", "7"}).out;
        ::chmod(f.at("project/a.txt").c_str(), 0644);
        return text;
    });
    EXPECT_EQ(report, "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 3\n"
                      "0s ago  restored  \"After restoring #2\"  →  no changes yet\n"
                      "Restored 0 files, removed 0 files. Undo this with: tidewrack restore 5\n"
                      "0s ago  restored  \"After undoing #2\"  →  no changes yet\n"
                      "Nothing changed after #7, so there's nothing to undo.\n"
                      "warning: couldn't save a.txt: Permission denied\n"
                      "To undo the changes made before #7, run: tidewrack undo 6\n");
}

TEST_F(RestoreTest, isNotLedOutsideByADamagedListing) {
    const auto& f = world.folder;
    f.write("outside", "not yours");
    const Project project = world.project();
    ManifestBuilder builder;
    const Manifest first = world.manifestOf(1);
    for (const char* path : {"../outside", "src/../../outside", "/outside", "src/.."})
        builder.add(path, *first.find("a.txt"));
    world.store().writeManifest(ProjectLock(world.store().lockPath(project)), project, 1, builder.finish(),
                                PendingWrites());
    world.ok({"restore", "1", "--keep-new"});
    EXPECT_EQ(f.read("outside"), "not yours");
    EXPECT_EQ(f.read("project/a.txt"), "first\n");
}

TEST_F(RestoreTest, lostOrDamagedContentReplacesNothing) {
    const auto& f = world.folder;
    const Manifest kept = world.manifestOf(1);
    const auto content = [&](const char* path) {
        return world.store().blobPath(world.project(), kept.find(path)->blob);
    };
    for (const char* path : {"a.txt", "src/main.c"}) EXPECT_EQ(::truncate(content(path).c_str(), 3), 0);
    EXPECT_EQ(::unlink(content("src/deep/er/x").c_str()), 0);
    EXPECT_EQ(world.run({"cat", "1", "a.txt"}).err,
              "tidewrack: Corrupt store data: what was kept of a.txt is damaged\n");
    f.write("project/a.txt", "the only good copy");
    f.remove("project/src/main.c");
    f.remove("project/src/deep/er/x");
    const RestoreResult result = Engine(world.store()).restore(world.project(), 1, std::nullopt, true);
    EXPECT_EQ(result.warnings,
              (std::vector<std::string>{"couldn't restore a.txt: what was kept of it is damaged",
                                        "couldn't restore src/deep/er/x: No such file or directory",
                                        "couldn't restore src/main.c: what was kept of it is damaged"}));
    EXPECT_TRUE(result.restored.empty());
    EXPECT_EQ(f.read("project/a.txt"), "the only good copy");
    EXPECT_FALSE(f.has("project/src/main.c"));
}

TEST_F(RestoreTest, takesAnySpellingOnAVolumeThatIgnoresCase) {
    const auto& f = world.folder;
    f.write("project/caf\u00e9", "one code point");
    world.ok({"snap"});
    if (!volumeIgnoresCase(f.path())) {
        EXPECT_EQ(world.run({"cat", "2", "A.TXT"}).err, "tidewrack: A.TXT isn't in snapshot #2\n");
        GTEST_SKIP() << "this volume minds case";
    }
    EXPECT_EQ(world.ok({"cat", "2", "A.TXT"}), "first\n");
    EXPECT_EQ(world.ok({"cat", "2", "cafe\u0301"}), "one code point");
    f.remove("project/src");
    EXPECT_EQ(world.ok({"restore", "2", "SRC/Main.c"}).find("Restored 1 file, removed 0 files."), 0U);
    EXPECT_EQ(f.read("project/src/main.c"), "int main;\n");
    // A file that only changed its name's case gets the old one back.
    ASSERT_EQ(::rename(f.at("project/a.txt").c_str(), f.at("project/A.txt").c_str()), 0);
    world.ok({"restore", "2", "a.TXT"});
    EXPECT_NE(f.listing("project").find("a.txt 420 = first\n"), std::string::npos);
    EXPECT_EQ(f.listing("project").find("A.txt"), std::string::npos);
}

TEST(Spelling, isTheOneOfTheListings) {
    const auto listing = [](std::initializer_list<const char*> paths) {
        ManifestBuilder builder;
        for (const char* path : paths) builder.add(path, {});
        return builder.finish();
    };
    const Manifest then = listing({"README", "src", "src/caf\u00e9", "stra\u00dfe"});
    const Manifest today = listing({"ReadMe", "src", "src/caf\u00e9"});
    using Paths = std::vector<std::string>;
    EXPECT_EQ(asListed({"readme", "SRC/Cafe\u0301", "gone", ""}, {&then, &today}),
              (Paths{"README", "ReadMe", "src/caf\u00e9", "gone", ""}));
    EXPECT_EQ(asListed({"README"}, {&then, &today}), (Paths{"README", "ReadMe"}));
    EXPECT_EQ(asListed({"Src", "src/cafe"}, {&today}), (Paths{"src", "src/cafe"}));
}
