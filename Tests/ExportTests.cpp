// An old state in a folder of its own, or in an archive.

#include "Support/TestFolders.hpp"

#include "Engine/TarStream.hpp"
#include "Engine/Tracking.hpp"
#include "Platform/Attributes.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <cstdlib>
#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class Exporting : public ::testing::Test {
  protected:
    Exporting() {
        Project project = track(world.store(), world.projectPath(), false);
        project.maxFileSize = 10000;
        f.write("project/run.sh", "#!/bin/sh\n");
        (void)::chmod(f.at("project/run.sh").c_str(), 04750);
        f.write("project/" + longPath, std::string(1000, 'x')); // longer than a field of an archive's header
        f.write("project/empty", "");
        f.write("project/closed/file", "c");
        f.makeFolder("project/hollow");
        f.link("project/link", std::string(120, 'd'));
        (void)::chmod(f.at("project/closed").c_str(), 0500);
        for (const char* path : {"run.sh", "closed", "link", "empty"})
            (void)setModificationTime(AT_FDCWD, f.at(std::string("project/") + path).c_str(),
                                      1'234'567'890'123'456'000);
        (void)setModificationTime(AT_FDCWD, f.at("project/empty").c_str(), -1'500'000'000);
        before = tree("project");
        (void)Engine(world.store()).snapshot(project, {"manual", {}, {}, {}, {}});
        f.write("project/run.sh", "changed");
        f.remove("project/empty");
    }
    // Every path in a folder, as TemporaryFolder lists it.
    std::string tree(const std::string& folder) const {
        return std::regex_replace(f.listing(folder), std::regex("(^|\\n)" + folder + "/"), "$1");
    }
    // Runs `tar` with these words on the bytes. It complains of old times.
    void unpack(const std::string& archive, const std::string& folder) const {
        f.write("old.tar", archive);
        f.makeFolder(folder);
        ASSERT_EQ(std::system(("tar -xpf " + f.at("old.tar") + " -C " + f.at(folder) + " 2>/dev/null").c_str()), 0);
    }
    void expectTimes(const std::string& folder) const {
        for (const char* path : {"run.sh", "closed", "link", "empty"}) {
            Attributes there;
            ASSERT_EQ(attributesAt(AT_FDCWD, f.at(folder + "/" + path).c_str(), there), 0) << path;
            const bool old = std::string(path) == "empty";
            EXPECT_EQ(there.mtime, old ? -1'500'000'000 : 1'234'567'890'123'456'000) << path;
        }
    }

    World world;
    const TemporaryFolder& f = world.folder;
    const std::string longPath = std::string(90, 'a') + "/" + std::string(200, 'b') + "/\xc3\xbc";
    std::string before;
};

} // namespace

TEST_F(Exporting, intoAFolder) {
    const std::string project = f.listing("project");
    EXPECT_EQ(world.ok({"export", "1", "../out/old"}), "Exported 5 files of #1 to ../out/old.\n");
    EXPECT_EQ(tree("out/old"), before);
    expectTimes("out/old");
    EXPECT_EQ(f.listing("project"), project);
    EXPECT_EQ(world.history().newestSeq(), 1);
    world.ok({"export", "last", f.at("part"), "closed/file", "hollow"});
    EXPECT_EQ(f.listing("part"), "part/closed 320 /\npart/closed/file 420 = c\npart/hollow 493 /\n");
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{"../out"}, f.at("out") + " is not empty. Choose a new or an empty folder."},
        {{"sub"},
         f.at("project/sub") + " is inside of the tracked project " + world.projectPath() +
             ". Choose a folder elsewhere."},
        {{"../store/x"}, f.at("store/x") + " is inside of Tidewrack's own history. Choose a folder elsewhere."},
        {{"../old.txt"}, f.at("old.txt") + " is not a folder."},
        {{"../new", "nope"}, "nope isn't in snapshot #1."},
        {{"../new", ""}, "missing path"},
        {{}, "missing folder, or - for a tar archive on standard output"},
        {{"-", "--json"}, "--json goes with a folder only: the archive takes standard output"}};
    f.write("old.txt", "");
    for (const auto& [words, said] : refused) {
        std::vector<std::string> all{"export", "1"};
        all.insert(all.end(), words.begin(), words.end());
        const Outcome outcome = world.run(all);
        EXPECT_EQ(std::to_string(outcome.status) + outcome.out + outcome.err, "1tidewrack: " + said + "\n");
    }
    EXPECT_FALSE(f.has("new") || f.has("project/sub") || f.has("store/x"));
}

TEST_F(Exporting, asAnArchive) {
    unpack(world.ok({"export", "1", "-"}), "unpacked");
    EXPECT_EQ(tree("unpacked"), before);
    expectTimes("unpacked");
    unpack(world.ok({"export", "1", "-", longPath}), "part");
    EXPECT_TRUE(f.has("part/" + longPath));
    EXPECT_FALSE(f.has("part/run.sh"));
}

TEST_F(Exporting, namesWhatWasNotKept) {
    json record = json::parse(f.read("store/projects/" + world.project().id + "/project.json"));
    record["maxFileSize"] = 5;
    f.write("store/projects/" + world.project().id + "/project.json", record.dump());
    f.write("project/.gitignore", "build/\n");
    f.write("project/build/x", "");
    f.write("project/large", "too large");
    ASSERT_TRUE(git(f.at("project"), "init -q"));
    world.ok({"snap"});
    const std::string content =
        "store/projects/" + world.project().id + "/blobs/" + std::string(world.manifestOf(2).find("closed/file")->blob);
    f.remove(content);
    f.write(content, "cut short");
    const std::string large = "it was larger than the size limit when that snapshot was taken";
    const Outcome outcome = world.run({"export", "2", "../new"});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.err.find("warning: couldn't export large: " + large + "\n"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("warning: couldn't export closed/file: what was kept of it is damaged\n"),
              std::string::npos);
    EXPECT_NE(outcome.err.find("\nbuild is left out: it is ignored\n"), std::string::npos);
    EXPECT_FALSE(f.has("new/large") || f.has("new/closed/file") || f.has("new/build"));
    EXPECT_EQ(world.run({"export", "2", "-", "large"}).status, 3);
    EXPECT_EQ(world.run({"export", "2", "../other", "build"}).status, 3) << "asked for by name";
    EXPECT_EQ(world.run({"export", "2", "../third", "hollow"}).status, 0);
}

// Fields that no file of a test fills: what is too large for octal digits goes into records, and those count
// themselves.
TEST(TarStream, largeNumbersGoIntoRecords) {
    std::string bytes;
    TarStream tar([&](std::string_view more) { bytes += more; });
    TarEntry entry;
    entry.path = "x";
    entry.size = std::int64_t{1} << 36;
    entry.user = 3'000'000;
    entry.mtime = 5'000'000'001;
    tar.begin(entry);
    EXPECT_EQ(bytes.size(), 3 * 512U);
    EXPECT_EQ(bytes.substr(512, 60), "21 mtime=5.000000001\n" + std::string("20 size=68719476736\n") +
                                         std::string("15 uid=3000000\n") + std::string(4, '\0'))
        << bytes.substr(512, 60);
    EXPECT_EQ(bytes.substr(2 * 512 + 108, 8), std::string("7777777\0", 8));
    EXPECT_EQ(bytes.substr(156, 1) + bytes.substr(257, 8), "x" + std::string("ustar\00000", 8));
}
