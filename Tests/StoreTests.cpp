#include "Support/TestHistory.hpp"

#include "Platform/Platform.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class StoreTest : public ::testing::Test {
  protected:
    void makeLeftover(const Project& project, const std::string& name) const {
        EXPECT_EQ(makeFolders(store.projectFolder(project) + "/" + name, 0755), 0);
    }

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
    EXPECT_EQ(Store::canonical(f.at("a/b/")), f.at("a/b"));
    EXPECT_EQ(Store::canonical(f.at("./a//b/../b/.")), f.at("a/b"));
    EXPECT_EQ(Store::canonical(f.at("link/b")), f.at("a/b"));
    EXPECT_EQ(Store::canonical(f.at("link/b/missing/too")), f.at("a/b/missing/too"));
    EXPECT_EQ(Store::canonical("/"), "/");
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
    EXPECT_NE(Store::projectID("/x/a"), Store::projectID("/y/a"));
}

TEST_F(StoreTest, tooBroadFolders) {
    for (const char* path : {"/", "/Users", "/System", "/Library", "/Applications", "/private", "/Volumes", "/opt",
                             "/usr", "/usr/", "/usr/bin/.."})
        EXPECT_TRUE(store.isTooBroad(path)) << path;
    for (const char* path : {"home", "home/Desktop", "home/Documents", "home/Downloads", "home/Library"})
        EXPECT_TRUE(store.isTooBroad(f.at(path))) << path;
    f.makeFolder("home/Documents/app");
    EXPECT_FALSE(store.isTooBroad(f.at("home/Documents/app")));
    EXPECT_FALSE(store.isTooBroad("/usr/local"));
    EXPECT_FALSE(store.isTooBroad("/home"));
}

TEST_F(StoreTest, trackWritesTheRecordAndRefusesWhatIsUnsuitable) {
    const Project project = store.track(f.at("project/"), false);
    EXPECT_EQ(project.root, f.at("project"));
    EXPECT_EQ(project.excludes.front(), ".build");
    EXPECT_TRUE(std::is_sorted(project.excludes.begin(), project.excludes.end()));
    EXPECT_EQ(project.excludes.size(), 14U);
    EXPECT_EQ(project.excludesIfIgnored->front(), ".cache");
    EXPECT_TRUE(std::is_sorted(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end()));
    EXPECT_EQ(project.excludesIfIgnored->size(), 8U);
    EXPECT_EQ(project.maxFileSize, std::nullopt);
    for (const char* folder : {"snapshots", "manifests", "blobs"})
        EXPECT_TRUE(isFolder(store.projectFolder(project) + "/" + folder));
    struct stat status {};
    ASSERT_EQ(::stat(store.home.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);

    const std::string record = f.read("store/projects/" + project.id + "/project.json");
    f.link("other-name", f.at("project"));
    EXPECT_EQ(store.track(f.at("other-name"), true), project);
    EXPECT_EQ(store.track(f.at("project/../project"), false), project);
    EXPECT_EQ(f.read("store/projects/" + project.id + "/project.json"), record);

    f.write("file", "");
    EXPECT_EQ(thrownBy([&] { return store.track(f.at("file"), false); }), f.at("file") + " is not a folder.");
    EXPECT_EQ(thrownBy([&] { return store.track(f.at("no"), true); }), f.at("no") + " is not a folder.");
    for (const std::string& path : {f.at("store"), f.at("store/projects"), f.path()})
        EXPECT_EQ(thrownBy([&] { return store.track(path, true); }),
                  path + " contains Tidewrack's own history (" + f.at("store") + "). Track a project folder instead.");
    EXPECT_EQ(thrownBy([&] { return store.track(f.at("home"), false); }),
              f.at("home") + " is too broad to track. Track a project folder instead.");
    EXPECT_EQ(store.track(f.at("home"), true).root, f.at("home"));
    EXPECT_EQ(store.projects().size(), 2U);
}

TEST_F(StoreTest, findsTheNearestProject) {
    EXPECT_TRUE(store.projects().empty());
    EXPECT_EQ(store.projectContaining(f.path()), std::nullopt);
    f.makeFolder("project/a/b/c");
    f.makeFolder("project-too");
    const Project outer = store.track(f.at("project"), false);
    const Project inner = store.track(f.at("project/a/b"), false);
    EXPECT_EQ(store.projectContaining(f.at("project/a/b/c/missing")), inner);
    EXPECT_EQ(store.projectContaining(f.at("project/a/b")), inner);
    EXPECT_EQ(store.projectContaining(f.at("project/a")), outer);
    EXPECT_EQ(store.projectContaining(f.at("project-too")), std::nullopt);
    EXPECT_EQ(store.projectContaining(f.path()), std::nullopt);
}

TEST_F(StoreTest, brokenRegistryEntries) {
    const Project project = store.track(f.at("project"), false);
    f.makeFolder("store/projects/half-made");
    f.write("store/projects/stray-file", "");
    EXPECT_EQ(store.projects(), std::vector{project});
    for (const char* text : {"", "{", "[]", "{\"id\":\"x\"}", "\xff\xfe"}) {
        f.write("store/projects/zzz/project.json", text);
        EXPECT_THROW((void)store.projects(), TidewrackError) << text;
        const Outcome outcome = world.run({"log"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err.find("tidewrack: Corrupt store data: " + f.at("store/projects/zzz/project.json: ")), 0U);
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1); // one line
    }
}

TEST_F(StoreTest, snapshotNumbers) {
    const Project project = store.track(f.at("project"), false);
    EXPECT_TRUE(store.seqs(project).empty());
    EXPECT_EQ(store.latest(project), std::nullopt);
    EXPECT_EQ(store.highestLeftover(project), 0);
    const std::string folder = "store/projects/" + project.id + "/snapshots/";
    for (const char* name : {"10.json", "9.json", "notes.json", "7.json.tmp", "x.json", "1x.json", ".json"})
        f.write(folder + name, "");
    EXPECT_EQ(store.seqs(project), (std::vector<std::int64_t>{9, 10}));
    makeLeftover(project, "manifests/12.mf");
    makeLeftover(project, "manifests/99.mf.tmp");
    makeLeftover(project, "blobs/11");
    EXPECT_EQ(store.highestLeftover(project), 12);
    makeLeftover(project, "blobs/13");
    EXPECT_EQ(store.highestLeftover(project), 13);
    EXPECT_EQ(thrownBy([&] { return store.snapshot(project, 3); }), "No snapshot #3.");
    SnapshotMeta meta;
    meta.manifestOf = 3;
    EXPECT_EQ(thrownBy([&] { return store.manifest(meta, project); }), "Corrupt store data: missing manifest for #3");
    f.remove("store/projects/" + project.id + "/snapshots");
    EXPECT_TRUE(store.seqs(project).empty());
    EXPECT_TRUE(store.snapshots(project).empty());
}

// A process that dies while it writes a record must not take the readable ones with it.
TEST_F(StoreTest, halfWrittenRecordsAreNoSnapshots) {
    world.ok({"track"});
    const Project project = world.project();
    const std::string half = "store/projects/" + project.id + "/snapshots/" + temporaryName();
    f.write(half, "{\"seq\":");
    EXPECT_EQ(store.snapshots(project).size(), 1U);
    world.ok({"log"});
    EXPECT_NE(world.ok({"snap"}).find("#2"), std::string::npos);
    EXPECT_EQ(store.snapshots(project).size(), 2U);
    world.ok({"prune"});
    EXPECT_FALSE(f.has(half));
}

TEST_F(StoreTest, untrackRemovesTheHistoryOnly) {
    f.write("project/a", "a");
    world.ok({"track"});
    const Project project = world.project();
    store.untrack(project);
    EXPECT_EQ(f.listing("store"), "store/projects 448 /\n");
    EXPECT_EQ(f.read("project/a"), "a");
    EXPECT_EQ(thrownBy([&] { store.untrack(project); }), "can't open lock " + store.lockPath(project));
}

TEST_F(StoreTest, warnsOfVolumesThatCannotClone) {
    Project project = store.track(f.at("project"), false);
    EXPECT_EQ(store.storageWarning(project).has_value(), !volumeClones(project.root)); // the store lies beside it
    project.root = f.at("gone");
    EXPECT_EQ(store.storageWarning(project), std::nullopt);
}
