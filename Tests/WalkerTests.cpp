#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include "Walk/GitIgnore.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <numeric>
#include <set>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class WalkerTest : public ::testing::Test {
  protected:
    // The walked paths, sorted; folders with a final "/", those that git ignores with "!".
    std::string walked(const Walker::Options& options) const {
        std::string found = walked(options, 0);
        EXPECT_EQ(walked(options, INT64_MAX), found) << "a second thread that begins at once makes no difference";
        return found;
    }

    std::string walked(const Walker::Options& options, std::int64_t expected) const {
        Walker walker(f.path(), options);
        walker.expect(expected);
        return walked(walker);
    }

    std::string walkedProject() const {
        Project project;
        project.root = f.path();
        project.excludes = defaultExcludes();
        return walked(*projectWalker(project, {}));
    }

    static std::string walked(Walker& walker) {
        std::multiset<std::string> paths;
        walker.walk([&](const Walker::Item& item) {
            paths.insert(std::string(item.path) + (item.entry.kind == EntryKind::dir ? "/" : "") +
                         (item.entry.isIgnoredFolder() ? "! " : " "));
            return true;
        });
        return std::accumulate(paths.begin(), paths.end(), std::string());
    }

    TemporaryFolder f;
};

} // namespace

TEST_F(WalkerTest, foldersComeBeforeTheirContents) {
    for (int i = 0; i < 300; ++i) // enough folders for the second reader to take part
        f.write(std::to_string(i % 10) + "/" + std::to_string(i) + "/x/file", "");
    for (const std::int64_t expected : {std::int64_t{0}, INT64_MAX}) {
        std::set<std::string, std::less<>> seen;
        Walker walker(f.path(), {});
        walker.expect(expected);
        walker.walk([&](const Walker::Item& item) {
            const auto slash = item.path.rfind('/');
            EXPECT_TRUE(slash == std::string_view::npos || seen.contains(item.path.substr(0, slash))) << item.path;
            EXPECT_TRUE(seen.emplace(item.path).second) << item.path;
            return true;
        });
        EXPECT_EQ(seen.size(), 10U + 300 * 3);
        for (const std::size_t most : {1U, 2U, 400U}) {
            std::size_t count = 0;
            Walker stopped(f.path(), {});
            stopped.expect(expected);
            stopped.walk([&](const Walker::Item&) { return ++count < most; });
            EXPECT_EQ(count, most);
        }
        Walker(f.path(), {}).expect(expected); // and never walks
    }
    EXPECT_EQ(Walker::count(f.path(), {}, 1000), 910);
    EXPECT_EQ(Walker::count(f.path(), {}, 910), 910);
    EXPECT_EQ(Walker::count(f.path(), {}, 50), 51);
    EXPECT_EQ(Walker::count(f.path(), {"x"}, 1000), 310);
}

TEST_F(WalkerTest, leavesOutNamesAndSkippedPaths) {
    f.write("node_modules/a", "");
    f.write("sub/node_modules/a", "");
    f.write("other/node_modules", "a file of that name");
    f.link("link/node_modules", "..");
    f.write("nested/a", "");
    f.write("sub/nested/a", "");
    f.write("build/a", "");
    Walker::Options options;
    options.excludes = {"node_modules"};
    options.excludesIfIgnored = {"build"}; // nobody to ask
    options.skipPaths = {"nested", "sub/nest"};
    EXPECT_EQ(walked(options),
              "build/ build/a link/ link/node_modules other/ other/node_modules sub/ sub/nested/ sub/nested/a ");
    std::vector<std::string> asked;
    options.isIgnored = [&](std::string_view path) {
        asked.emplace_back(path);
        return true;
    };
    EXPECT_EQ(walked(options),
              "build/! link/ link/node_modules other/ other/node_modules sub/ sub/nested/ sub/nested/a ");
    EXPECT_EQ(asked, (std::vector<std::string>{"build", "build"})) << "once in each walk";
    Walker walker(f.path(), options);
    walker.walk([](const Walker::Item&) { return true; });
    std::vector<std::string> omitted = walker.omitted();
    std::sort(omitted.begin(), omitted.end());
    EXPECT_EQ(omitted, (std::vector<std::string>{"node_modules", "sub/node_modules"}));
}

TEST_F(WalkerTest, asksGitAboutIfIgnoredNames) {
    if (!git(f.path(), "init -q")) GTEST_SKIP() << "git is not installed";
    f.write(".gitignore", "build/\n/sub/dist\n*.o\nout\n!kept/out\n");
    for (const char* name :
         {"build/a", "sub/deeper/build/a", "dist/a", "sub/dist/a", "out/a", "kept/out/a", "x.o/a", "file/target"})
        f.write(name, "");
    const std::string expected = ".gitignore build/! dist/ dist/a file/ file/target kept/ kept/out/ kept/out/a out/! "
                                 "sub/ sub/deeper/ sub/deeper/build/! sub/dist/! x.o/ x.o/a ";
    EXPECT_EQ(walkedProject(), expected);
    EXPECT_TRUE(GitIgnore::insideRepo(f.at("sub/deeper")));
    f.remove(".git");
    EXPECT_FALSE(GitIgnore::insideRepo(f.at("sub/deeper")));
    EXPECT_EQ(GitIgnore::open(f.path()), nullptr);
    EXPECT_EQ(walkedProject().find('!'), std::string::npos);
}

TEST_F(WalkerTest, whereGitGivesNoAnswerTheEarlierListingDoes) {
    f.write(".git", "no repository");
    f.write("build/a", "");
    f.write("sub/build/a", "");
    EXPECT_EQ(walkedProject(), ".git build/ build/a sub/ sub/build/ sub/build/a ");
    Project project;
    project.root = f.path();
    const auto walker = projectWalker(project, {});
    std::vector<std::string> ignored;
    const auto body = [&](const Walker::Item& item) {
        if (item.entry.isIgnoredFolder()) ignored.emplace_back(item.path);
        return true;
    };
    walker->walk(body, [](std::string_view folder) { return folder == "sub/build"; });
    EXPECT_EQ(ignored, std::vector<std::string>{"sub/build"});
    EXPECT_EQ(walker->gitOutcome(), GitOutcome::failed) << "it ends at once";
}

TEST_F(WalkerTest, tellsWhatItCouldNotRead) {
    f.write("sub/inside/a", "");
    f.write("other", "");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    Walker walker(f.path(), {});
    walker.walk([&](const Walker::Item& item) { // the folder is opened after it was yielded
        return item.path != "sub/inside" || ::setrlimit(RLIMIT_NOFILE, &none) == 0;
    });
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(walker.unread(), (std::vector<Walker::Unread>{{"sub/inside", EMFILE, {}}}));
    Walker again(f.path(), {});
    again.walk([&](const Walker::Item& item) {
        if (item.path == "sub") f.remove("sub");
        return true;
    });
    EXPECT_TRUE(again.unread().empty()) << "what is gone by then is no fault";
}

TEST_F(WalkerTest, refusesARootThatIsNoFolder) {
    f.makeFolder("folder");
    f.link("link", "folder");
    const auto fault = [&](const std::string& name) {
        return thrownBy([&] { return Walker::count(f.at(name), {}, 1); });
    };
    EXPECT_EQ(fault("link"), f.at("link") + " is no longer a folder (it's a symlink or file now).");
    EXPECT_EQ(fault("gone"), "can't read " + f.at("gone") + ": No such file or directory");
}

TEST_F(WalkerTest, tellsTemporariesFromUserFiles) {
    for (const char* name :
         {".tidewrack-12-ab-3", "sub/.tidewrack-12-ab-0-name", ".tidewrack-12-3", ".tidewrack-12-ac-3"})
        f.write(name, "");
    f.makeFolder(".tidewrack-12-ab-9");
    Walker::Options options;
    std::vector<std::string> found;
    options.temporaries = {{".tidewrack-12-ab-"}, &found};
    EXPECT_EQ(walked(options, 0),
              ".tidewrack-12-3 .tidewrack-12-ab-9/ .tidewrack-12-ac-3 sub/ sub/.tidewrack-12-ab-0-name ");
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found,
              (std::vector<std::string>{".tidewrack-12-ab-3", ".tidewrack-12-ab-9", "sub/.tidewrack-12-ab-0-name"}));
}

// Deeper than any path that the system takes in one call.
TEST(DeepProject, isListedKeptAndRestored) {
    World world;
    const std::string name(200, 'd');
    constexpr std::size_t depth = 2 * PATH_MAX / 200;
    std::vector<Descriptor> chain(1);
    ASSERT_EQ(openFolder(world.projectPath(), chain[0]), 0);
    for (std::size_t i = 0; i < depth; ++i) {
        ASSERT_EQ(::mkdirat(chain.back().get(), name.c_str(), 0755), 0);
        chain.emplace_back(::openat(chain.back().get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    const Descriptor file(::openat(chain.back().get(), "deep", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(writeAll(file.get(), "deep content"), 0);
    world.ok({"track"});
    EXPECT_EQ(world.manifestOf(1).items().back().path.size(), depth * 201 + 4);
    chain.clear();
    world.folder.remove("project/" + name);
    EXPECT_EQ(world.ok({"restore", "1"}), "Restored 1 file, removed 0 files. Undo this with: tidewrack restore 2\n");
    EXPECT_NE(world.ok({"snap"}).find("no changes since the previous snapshot  1 files"), std::string::npos);
}
