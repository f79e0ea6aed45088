#include "Platform/Attributes.hpp"
#include "Support/TestFolders.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Engine/UnreadFolders.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class SnapshotTest : public ::testing::Test {
  protected:
    SnapshotResult snap() const { return Engine(world.store()).snapshot(world.project(), {"manual", {}, {}, {}, {}}); }
    std::string storeFile(const std::string& name) const { return "store/projects/" + world.project().id + "/" + name; }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

// A log that never stands still is kept as far as it went, and again by the next snapshot.
TEST_F(SnapshotTest, keepsWhatIsWrittenToAllTheTime) {
    f.write("project/log", "");
    std::atomic<bool> done = false;
    std::thread writer([&] {
        std::ofstream log(f.at("project/log"));
        for (int line = 0; !done; ++line) log << line << std::endl; // each line at once
    });
    world.ok({"track"});
    const SnapshotResult during = snap();
    done = true;
    writer.join();
    for (const char* number : {"1", "2"}) {
        const std::string kept = world.ok({"cat", number, "log"});
        EXPECT_EQ(f.read("project/log").substr(0, kept.size()), kept);
    }
    for (const Warning& warning : during.warnings) EXPECT_EQ(warning, (Warning{Warning::Kind::savedInPart, "log"}));
}

// Without a limit of the project's own: 256 MiB, to the byte. Sparse files make them cheap.
TEST_F(SnapshotTest, leavesOutWhatIsTooLarge) {
    for (const auto& [name, size] : {std::pair("project/most", 268435456), {"project/more", 268435457}}) {
        f.write(name, "");
        ASSERT_EQ(::truncate(f.at(name).c_str(), size), 0);
    }
    world.ok({"track"});
    EXPECT_EQ(world.manifestOf(1).find("more")->blob.substr(0, 14), "big:268435457:");
    struct stat status {};
    ASSERT_EQ(::stat(Engine(world.store()).contentPath(world.project(), 1, "most")->c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 268435456);
    EXPECT_LT(status.st_blocks, 2048); // its holes take no room in the store either
    Project project = world.project();
    project.maxFileSize = 268435457;
    EXPECT_EQ(Engine(world.store()).snapshot(project, {"manual", {}, {}, {}, {}}).changes,
              (Changes{{}, {"more"}, {}, {}})); // within the limit now
}

// Where the system grants no further threads, the work is done by one.
TEST_F(SnapshotTest, needsNoSecondThread) {
    for (int i = 0; i < 100; ++i) f.write("project/" + std::to_string(i) + "/file", std::to_string(i));
    const std::string report = unprivileged(f, [&] {
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NPROC, &none) != 0) return std::string("no limit set");
        world.ok({"track"});
        f.remove("project/7");
        return world.ok({"restore", "1"});
    });
    EXPECT_EQ(report, "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 2\n");
    EXPECT_EQ(world.ok({"cat", "1", "99/file"}), "99");
}

// What the walk could not see is as it was in the previous listing, and what it saw is not.
TEST(UnreadFolders, stayAsTheyWere) {
    const auto listing = [](const std::vector<std::string>& paths) {
        ManifestBuilder builder;
        for (const std::string& path : paths) {
            Entry entry;
            if (path.ends_with('/')) entry.kind = EntryKind::dir;
            builder.add(path.substr(0, path.find_last_not_of('/') + 1), entry);
        }
        return builder.finish();
    };
    const Manifest previous =
        listing({"f/", "f-g", "f/a/", "f/a/x", "f/a/y", "f/a-b", "f/b", "f/c/", "f/c/x", "f/c/x/y", "g/", "g/x"});
    struct Case {
        const char* what;
        std::vector<std::string> walked;
        std::vector<Walker::Unread> unread;
        std::string listed;
        std::string kept{};
    };
    const Case cases[] = {
        {"read", {"f/", "g/"}, {}, "f g "},
        {"not opened", {"f/", "g/"}, {{"f", EMFILE, {}}}, "f f/a f/a-b f/a/x f/a/y f/b f/c f/c/x f/c/x/y g ", "all"},
        {"read in part",
         {"f/", "f/a/", "f/a/y", "f/new"},
         {{"f", EIO, {}}},
         "f f/a f/a-b f/a/y f/b f/c f/c/x f/c/x/y f/new ",
         "all"},
        {"entries unknown", {"f/", "f/a-b"}, {{"f", EIO, {"a", "gone"}}}, "f f/a f/a-b f/a/x f/a/y ", "partly"},
        {"an entry of the root",
         {"f-g"},
         {{"", EIO, {"f"}}},
         "f f-g f/a f/a-b f/a/x f/a/y f/b f/c f/c/x f/c/x/y ",
         "all"},
        {"new", {"h/"}, {{"h", EIO, {}}, {"", EIO, {"i", "j"}}}, "h ", "nothing nothing"},
        {"may not be read", {"f/"}, {{"f", EACCES, {}}}, "f ", "nothing"},
    };
    for (const Case& each : cases) {
        Manifest made = listing(each.walked);
        std::string kept;
        for (const Kept all : keepUnread(each.unread, previous, made))
            kept += std::string(kept.empty() ? "" : " ") + (all == Kept::all       ? "all"
                                                            : all == Kept::nothing ? "nothing"
                                                                                   : "partly");
        std::string listed;
        for (const auto& [path, entry] : made.items()) listed += std::string(path) + " ";
        EXPECT_EQ(listed, each.listed) << each.what;
        EXPECT_EQ(kept, each.kept) << each.what;
    }
}

TEST_F(SnapshotTest, warnsOfWhatMayNotBeRead) {
    f.write("project/closed/inside", "a");
    using Lines = std::vector<std::string>;
    const std::string leftOut = "warning: couldn't read closed: Permission denied; left out\n";
    EXPECT_EQ(unprivileged(f,
                           [&] {
                               world.ok({"track"});
                               if (::chmod(f.at("project/closed").c_str(), 0) != 0) return std::string("not closed");
                               std::string told;
                               for (const Lines& words : std::initializer_list<Lines>{{"snap"},
                                                                                      {"diff", "1"},
                                                                                      {"diff", "1", "--stat"},
                                                                                      {"log"},
                                                                                      {"restore", "1", "--dry-run"}})
                                   told += world.run(words).err;
                               return told;
                           }),
              "warning: couldn't read closed: Permission denied; not saved\n" + leftOut + leftOut + leftOut + leftOut +
                  "warning: what is in closed can't be seen before it is opened; what was changed in it stays as it "
                  "is\n");
}

TEST_F(SnapshotTest, countsWhatItCouldNotKeep) {
    f.write("project/closed", "a");
    EXPECT_EQ(unprivileged(f,
                           [&] {
                               world.ok({"track"});
                               if (::chmod(f.at("project/closed").c_str(), 0) != 0) return std::string("not closed");
                               const SnapshotResult result = snap();
                               if (!result.firstUnsaved) return std::string("all kept");
                               return std::to_string(result.unsaved) + " " + result.firstUnsaved->path + ": " +
                                      result.firstUnsaved->failure.text();
                           }),
              "1 closed: Permission denied");
}

TEST_F(SnapshotTest, anUnreadablePreviousSnapshotMeansAFullOne) {
    f.write("project/a", "a");
    world.ok({"track"});
    f.write("project/b", "b");
    snap();
    const auto expectFull = [&](std::int64_t seq, const std::string& why) {
        const SnapshotResult result = snap();
        EXPECT_EQ(warningTexts(result.warnings),
                  std::vector<std::string>{"previous snapshot #" + std::to_string(seq - 1) + " is unreadable (" + why +
                                           "); taking a full one"});
        EXPECT_EQ(result.meta.added, 2);
        EXPECT_EQ(result.meta.manifestOf, seq);
        EXPECT_EQ(world.ok({"cat", std::to_string(seq), "a"}), "a");
    };
    f.remove(storeFile("manifests/2.mf"));
    expectFull(3, "Corrupt store data: missing manifest for #2");
    f.write(storeFile("manifests/3.mf"), "nonsense");
    const std::string damaged = "Corrupt store data: a manifest that can't be decompressed in " +
                                f.at(storeFile("manifests/3.mf")) + ", the listing of #3";
    expectFull(4, damaged);
    f.write(storeFile("snapshots/4.json"), "{}");
    expectFull(5, "Corrupt store data: " + f.at(storeFile("snapshots/4.json")) + ": \"seq\" is missing");
    world.ok({"restore", "1", "a"});
    EXPECT_EQ(world.run({"restore", "3"}).err, "tidewrack: " + damaged + "\n");
}

TEST_F(SnapshotTest, prunesOnceAnHour) {
    f.write("project/a", "a");
    world.ok({"track"});
    const std::string path = f.at(storeFile("last-prune"));
    Attributes marker;
    ASSERT_EQ(attributesAt(AT_FDCWD, path.c_str(), marker), 0);
    EXPECT_EQ(marker.size, 0);
    rewriteRecord(world, 1, [](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(24 * 31); });
    const auto seqs = [&] { return world.history().seqs(); };
    snap();
    EXPECT_EQ(seqs(), (std::vector<std::int64_t>{1, 2})); // not due
    const std::int64_t anHour = 3'600'000'000'000;
    ASSERT_EQ(setModificationTime(AT_FDCWD, path.c_str(), marker.mtime - anHour - 2'000'000'000), 0);
    (void)Engine(world.store()).snapshot(world.project(), {"tool", {}, {}, {}, {}, std::chrono::steady_clock::now()});
    EXPECT_EQ(seqs(), (std::vector<std::int64_t>{1, 2, 3})) << "a snapshot that is late leaves it to the next one";
    snap();
    EXPECT_EQ(seqs(), (std::vector<std::int64_t>{2, 3, 4}));
    // One of the future counts as due, but to a snapshot of the future nothing is old.
    const auto old = [](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(24 * 440); };
    for (const std::int64_t seq : {2, 3}) rewriteRecord(world, seq, old);
    ASSERT_EQ(setModificationTime(AT_FDCWD, path.c_str(), marker.mtime + 24 * 365 * anHour), 0);
    rewriteRecord(world, 4, [](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(47); });
    snap();
    EXPECT_EQ(seqs(), (std::vector<std::int64_t>{2, 3, 4, 5})) << "the clock may have been set two days ago";
    rewriteRecord(world, 4, [](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(49); });
    ASSERT_EQ(setModificationTime(AT_FDCWD, path.c_str(), marker.mtime + 24 * 365 * anHour), 0);
    snap();
    EXPECT_EQ(seqs(), (std::vector<std::int64_t>{4, 5, 6}));
    // A prune that fails does not take the snapshot with it.
    ASSERT_EQ(::unlink(path.c_str()), 0);
    f.write(storeFile("snapshots/1.json"), "broken");
    const SnapshotResult result = snap();
    ASSERT_EQ(result.warnings.size(), 1U);
    EXPECT_EQ(warningText(result.warnings[0]).find("prune failed: Corrupt store data: "), 0U);
    EXPECT_EQ(result.meta.seq, 7);
}
