// What hooks save before git changes a work tree, with the real git.

#include "Support/HookFixture.hpp"

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr const char* author = "-c user.name=a -c user.email=a@b ";

class GitSaving : public HookHandlerTest {
  protected:
    // Two branches, of which the second has a commit more.
    void makeRepository(const std::string& folder) const {
        ASSERT_TRUE(git(folder, "init -q -b main"));
        ASSERT_TRUE(git(folder, "add -A") && git(folder, author + std::string("commit -qm first")));
        ASSERT_TRUE(git(folder, "checkout -qb topic"));
        ASSERT_TRUE(git(folder, author + std::string("commit -q --allow-empty -m more")));
        ASSERT_TRUE(git(folder, "checkout -q main"));
    }
    void SetUp() override {
        if (!git(f.path(), "init -q")) GTEST_SKIP() << "git is not installed";
        f.remove(".git");
    }
};

} // namespace

// A file that is too large for snapshots is in none of them.
TEST_F(GitSaving, savesWhatGitTakesOfWhatNoSnapshotHolds) {
    const auto large = [&](const std::string& name, const std::string& more = "") {
        f.write("project/" + name, "larger than the limit " + more);
    };
    f.write("project/.gitignore", "ignored*\n");
    large("tracked.bin");
    large("same.bin");
    makeRepository(project);
    world.ok({"track"});
    limitSizes(15);
    large("tracked.bin", "and changed");
    large("same.bin", "and committed");
    ASSERT_TRUE(git(project, author + std::string("commit -qm second same.bin")));
    large("sub/new \"one\".bin");
    large("ignored.bin");
    struct Row {
        std::string command;
        std::string saved;   // names below the project
        bool certain = true; // asked about where nothing can hold them
    };
    const std::string fresh = "sub/new \"one\".bin";
    const Row rows[] = {
        {"git clean -fdx", "ignored.bin " + fresh},
        {"git clean -q -ffd", fresh},
        {"git clean -fdX", "ignored.bin"},
        {"git clean -f", ""}, // which enters no folder
        {"git clean -fdx -- sub", fresh},
        {"git clean -fdx --exclude='*.bin'", ""},
        {"cd sub && git clean -fx ..", "ignored.bin " + fresh},
        {"git clean -fdxe 'ig*'; git clean -n -i", fresh},
        {"git reset --hard", "tracked.bin"},
        {"cd sub; git reset -q --hard HEAD", "tracked.bin"},
        {"git reset --keep", "tracked.bin", false},
        {"git checkout .", "tracked.bin"},
        {"git checkout -qf", "tracked.bin"},
        {"git checkout -- tracked.bin", "tracked.bin"},
        {"git checkout -- src", ""},
        {"git restore tracked.bin", "tracked.bin"},
        {"git restore --staged .", "tracked.bin", false},
        {"git restore '*.bin'", "tracked.bin", false},
        {"git stash", "tracked.bin", false}, // it is in the stash afterwards
        {"git stash -u", fresh + " tracked.bin", false},
        {"git stash -a", "ignored.bin " + fresh + " tracked.bin", false},
        {"git --work-tree=. clean -fdx", "ignored.bin same.bin " + fresh + " tracked.bin", false}, // nobody asks git
        {"find . -name '*.bin' -delete", "ignored.bin same.bin " + fresh + " tracked.bin"},
        {"find . -type f -name 't*' -exec rm {} +", "tracked.bin"},
        {"find . -maxdepth 1 -iname '*.BIN' -delete", "ignored.bin same.bin tracked.bin"},
        {"find . -name '*.txt' -delete", ""},
        {"find . -name 'ig*' -mtime +1 -delete", "ignored.bin", false},
        {"git clean -n; git status; git log", ""},
    };
    const auto saves = [&](const Row& row, std::int64_t mostFiles) {
        HookHandler handler(world.store(), world.environment, home);
        handler.vault.mostFiles = mostFiles;
        return handler.handle(Agent::claude, event(Agent::claude, Kind::shell, project, row.command), project);
    };
    for (const Row& row : rows) {
        EXPECT_EQ(saves(row, 100000), HookOutput{}) << row.command;
        std::string saved;
        for (const std::string& path : savedOutside())
            saved += (saved.empty() ? "" : " ") + path.substr(project.size() + 1);
        EXPECT_EQ(saved, row.saved) << row.command;
        const std::string said = saves(row, 0).standardOutput.value_or("");
        EXPECT_EQ(said.find("can't save") != said.npos, row.certain && !row.saved.empty()) << row.command << said;
        f.remove("store/vault");
    }
}
