#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include "Engine/Tracking.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class StoreTest : public ::testing::Test {
  protected:
    World world;
    const TemporaryFolder& f = world.folder;
    Store store = world.store();
};

} // namespace

TEST_F(StoreTest, findsItsRoot) {
    EXPECT_EQ(Store::fromEnvironment({{"TIDEWRACK_HOME", "/s"}, {"HOME", "/home/a"}}).home, "/s");
    EXPECT_EQ(Store::fromEnvironment({{"TIDEWRACK_HOME", ""}, {"HOME", "/home/a"}}).home,
              "/home/a/Library/Application Support/Tidewrack");
    EXPECT_EQ(Store::fromEnvironment({{"HOME", ""}}).userHome, homeFolderOfUser());
    EXPECT_FALSE(f.has("store")); // nothing is created
}

TEST_F(StoreTest, canonicalSpelling) {
    f.makeFolder("a/b");
    f.link("link", f.at("a"));
    for (const char* path : {"a/b/", "./a//b/../b/.", "link/b"}) EXPECT_EQ(Store::canonical(f.at(path)), f.at("a/b"));
    EXPECT_EQ(Store::canonical(f.at("link/b/missing/too")), f.at("a/b/missing/too"));
    EXPECT_EQ(Store::canonical("//../"), "/");
    EXPECT_EQ(Store::canonical("."), Store::canonical(currentFolder()));
}

TEST_F(StoreTest, projectIds) {
    // The digits are what `printf %s ROOT | sha256sum` begins with.
    EXPECT_EQ(Store::projectID("/Users/ann/My App"), "my-app-b4971e2c");
    EXPECT_EQ(Store::projectID("/"), "8a5edab2");
    EXPECT_EQ(Store::projectID("/x/a..b").substr(0, 5), "a--b-");
    EXPECT_EQ(Store::projectID("/x/Über-Größe 9").substr(0, 16), "über-größe-9-");
    EXPECT_EQ(Store::projectID("/x/" + std::string(40, 'Q')).substr(0, 33), std::string(32, 'q') + "-");
}

TEST_F(StoreTest, tooBroadFolders) {
    f.makeFolder("home/Documents/app");
    for (const std::string& path : {std::string("/"), std::string("/usr/bin/.."), std::string("/home"),
                                    std::string("/tmp"), f.at("home"), f.at("home/Desktop")})
        EXPECT_TRUE(isTooBroad(store, path)) << path;
    for (const std::string& path : {f.at("home/Documents/app"), std::string("/usr/local"), std::string("/home/ann")})
        EXPECT_FALSE(isTooBroad(store, path)) << path;
}

TEST_F(StoreTest, trackWritesTheRecordAndRefusesWhatIsUnsuitable) {
    const Project project = track(store, f.at("project/"), false);
    EXPECT_EQ(project.root, f.at("project"));
    EXPECT_TRUE(std::is_sorted(project.excludes.begin(), project.excludes.end()));
    EXPECT_TRUE(std::is_sorted(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end()));
    EXPECT_EQ(project.excludes.size() + project.excludesIfIgnored->size(), 14U + 8U);
    struct stat status {};
    ASSERT_EQ(::stat(store.home.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    f.link("other-name", f.at("project"));
    EXPECT_EQ(track(store, f.at("other-name"), true), project);

    f.write("file", "");
    for (const char* name : {"file", "no"})
        EXPECT_EQ(thrownBy([&] { return track(store, f.at(name), true); }), f.at(name) + " is not a folder.");
    for (const std::string& path : {f.at("store"), f.at("store/projects"), f.path()})
        EXPECT_EQ(thrownBy([&] { return track(store, path, true); }),
                  path + " contains Tidewrack's own history (" + f.at("store") + "). Track a project folder instead.");
    EXPECT_EQ(thrownBy([&] { return track(store, f.at("home"), false); }),
              f.at("home") + " is too broad to track. Track a project folder instead.");
    EXPECT_EQ(thrownBy([&] { return track(store, "/", false); }),
              "/ is too broad to track. Track a project folder instead.");
    EXPECT_EQ(track(store, f.at("home"), true).root, f.at("home"));
    EXPECT_EQ(store.projects().size(), 2U);
}

TEST_F(StoreTest, findsTheNearestProject) {
    f.makeFolder("project/a/b/c");
    f.makeFolder("project-too");
    const Project outer = track(store, f.at("project"), false);
    const Project inner = track(store, f.at("project/a/b"), false);
    EXPECT_EQ(store.projectContaining(f.at("project/a/b/c/missing")), inner);
    EXPECT_EQ(store.projectContaining(f.at("project/a/b")), inner);
    EXPECT_EQ(store.projectContaining(f.at("project/a")), outer);
    for (const char* path : {"project-too", ""}) EXPECT_EQ(store.projectContaining(f.at(path)), std::nullopt);
}

TEST_F(StoreTest, believesNoStoreThatOthersCanWriteTo) {
    world.ok({"track"});
    const std::string home = f.at("store");
    EXPECT_EQ(::chmod(home.c_str(), 0777), 0);
    for (const char* command : {"log", "vault", "snap"})
        EXPECT_EQ(world.run({command}).err, "tidewrack: Everybody can write to Tidewrack's history " + home +
                                                ". Run: chmod o-w '" + home +
                                                "', or choose another folder with TIDEWRACK_HOME.\n");
    EXPECT_EQ(::chmod(home.c_str(), 0775), 0);
    world.ok({"log"});
    if (::geteuid() != 0) GTEST_SKIP() << "giving a folder away needs root";
    const auto log = [&] { return world.run({"log"}).err; };
    for (const char* open : {"", "store/projects"}) EXPECT_EQ(::chmod(f.at(open).c_str(), 0755), 0);
    EXPECT_EQ(unprivileged(f, log, "project"), "") << "one of root's";
    EXPECT_EQ(::chown(home.c_str(), 1234, 1234), 0);
    EXPECT_EQ(unprivileged(f, log, "project"), "tidewrack: Tidewrack's history " + home +
                                                   " belongs to another user. Choose another folder with "
                                                   "TIDEWRACK_HOME.\n");
    world.ok({"log"});
}

TEST_F(StoreTest, brokenRegistryEntries) {
    const Project project = track(store, f.at("project"), false);
    f.makeFolder("store/projects/half-made");
    f.write("store/projects/stray-file", "");
    EXPECT_EQ(store.projects(), std::vector{project});
    for (const char* text : {"", "{\"id\":\"x\"}", "\xff\xfe"}) {
        f.write("store/projects/zzz/project.json", text);
        const Outcome outcome = world.run({"snap"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err.find("tidewrack: Corrupt store data: " + f.at("store/projects/zzz/project.json: ")), 0U);
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1); // one line
        const Registry registry = store.registry();
        EXPECT_EQ(registry.projects, std::vector{project});
        ASSERT_EQ(registry.unreadable.size(), 1U);
        EXPECT_EQ(registry.unreadable[0].path, f.at("store/projects/zzz/project.json"));
        EXPECT_EQ("tidewrack: " + registry.unreadable[0].reason + "\n", outcome.err);
    }
    f.remove("store/projects/zzz");
    // A record that can't be read for a moment is no project, and yet no other one takes its place.
    const std::string record = f.at("store/projects/" + project.id + "/project.json");
    const std::string text = f.read("store/projects/" + project.id + "/project.json");
    f.remove("store/projects/" + project.id + "/project.json");
    ASSERT_EQ(::symlink(record.c_str(), record.c_str()), 0);
    const std::string reason = "can't read " + record + ": Too many levels of symbolic links";
    EXPECT_EQ(store.registry().unreadable, (std::vector<Registry::Unreadable>{{record, reason}}));
    EXPECT_EQ(thrownBy([&] { return track(store, f.at("project"), false); }),
              "There is a history for " + project.root + " already, but " + reason + ".");
    EXPECT_EQ(::unlink(record.c_str()), 0);
    f.write("store/projects/" + project.id + "/project.json", text);
    EXPECT_EQ(track(store, f.at("project"), false), project);
}

TEST_F(StoreTest, snapshotNumbers) {
    const Project project = track(store, f.at("project"), false);
    const History history = store.history(project);
    EXPECT_EQ(history.latest(), std::nullopt);
    EXPECT_EQ(history.highestLeftover(), 0);
    const std::string folder = "store/projects/" + project.id;
    for (const char* name : {"10.json", "9.json", "notes.json", "7.json.tmp", "x.json", "1x.json", ".json"})
        f.write(folder + "/snapshots/" + name, "");
    EXPECT_EQ(history.seqs(), (std::vector<std::int64_t>{9, 10}));
    std::vector<UnreadRecord> unread;
    EXPECT_EQ(history.snapshots(unread).size() + unread.size(), 2U);
    for (const char* name : {"10.json", "9.json"}) f.remove(folder + "/snapshots/" + name);
    EXPECT_EQ(history.snapshots().size(), 0U) << "the others are no records";
    for (const char* name : {"/manifests/12.mf", "/manifests/99.mf.tmp", "/blobs/11"}) f.makeFolder(folder + name);
    EXPECT_EQ(history.highestLeftover(), 12);
    f.makeFolder(folder + "/blobs/13");
    EXPECT_EQ(history.highestLeftover(), 13);
}

TEST_F(StoreTest, untrackRemovesTheHistoryOnly) {
    f.write("project/a", "a");
    world.ok({"track"});
    const Project project = world.project();
    store.untrack(project);
    EXPECT_EQ(f.listing("store"), "store/projects 448 /\n");
    EXPECT_EQ(f.read("project/a"), "a");
    EXPECT_EQ(thrownBy([&] { store.untrack(project); }), "can't open lock " + store.history(project).lockPath());
}

// What is left of a history is no project, and can be given up; a folder inside a project is not taken for it.
TEST_F(StoreTest, untrackFinishesWhatWasCutShort) {
    const std::string id = "store/projects/" + Store::projectID(f.at("project"));
    f.write("project/sub/a", "a");
    world.ok({"track"});
    const std::string record = f.read(id + "/project.json");
    f.write("store/projects/.tidewrack-999999999-0/project.json", record);
    f.write("store/projects/.tidewrack-999999999-0/blobs/1/0", "a");
    EXPECT_EQ(store.projects().size(), 1U);
    EXPECT_EQ(world.run({"check"}).status, 0);
    EXPECT_EQ(world.run({"untrack", "sub"}).err, "tidewrack: " + f.at("project/sub") +
                                                     " is inside the tracked project " + f.at("project") +
                                                     ". To delete the history of all of it, name that folder.\n");
    f.remove(id + "/project.json");
    EXPECT_EQ(world.ok({"untrack", "."}), "Stopped tracking " + f.at("project") + " and deleted its history.\n");
    EXPECT_EQ(f.listing("store"), "store/projects 448 /\n");
}

TEST_F(StoreTest, tracksWithoutWaitingLongerThanItMay) {
    f.write("home/repo/a", "a");
    const std::string repo = f.at("home/repo");
    f.makeFolder("store/projects/" + Store::projectID(repo));
    const Deadline soon = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    {
        const ProjectLock held(f.at("store/projects/" + Store::projectID(repo) + "/lock"));
        EXPECT_NE(thrownBy([&] {
                      return track(store, repo, false, {soon, {}});
                  }).find("can't lock "),
                  std::string::npos);
    }
    EXPECT_FALSE(wasRefusedLately(store, repo));
    EXPECT_EQ(thrownBy([&] {
                  return track(store, repo, false, {{}, soon});
              }),
              repo + " has more files than could be counted in time.");
    EXPECT_TRUE(wasRefusedLately(store, repo));
    ASSERT_EQ(::rename(repo.c_str(), f.at("home/old").c_str()), 0);
    f.makeFolder("home/repo");
    EXPECT_FALSE(wasRefusedLately(store, repo)) << "another folder";
}

TEST_F(StoreTest, whoWaitedForALockThatWasRemovedTakesTheNewOne) {
    const std::string path = f.at("lock");
    std::optional<ProjectLock> first(path);
    std::thread waiting([&] {
        const ProjectLock second(path);
        EXPECT_TRUE(f.has("lock"));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(::rename(path.c_str(), f.at("moved").c_str()), 0);
    first.reset();
    waiting.join();
}
