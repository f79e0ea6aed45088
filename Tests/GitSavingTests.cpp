// What hooks save before git changes a work tree or its own store, with the real git.

#include "Support/HookFixture.hpp"

#include "Platform/Volumes.hpp"
#include "Support/Files.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Vault/GitStore.hpp"

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

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
    [[nodiscard]] std::vector<VaultEntry> states() const {
        std::vector<VaultEntry> entries = Vault(world.store()).entries();
        std::erase_if(entries, [](const VaultEntry& entry) { return entry.gitState.empty(); });
        return entries;
    }
    // The repositories of which a command leaves a copy of git's state.
    [[nodiscard]] Lines statesAfter(const std::string& command, const std::string& folder) const {
        EXPECT_EQ(answer(Agent::claude, Kind::shell, folder, command), HookOutput{}) << command;
        Lines roots;
        for (const VaultEntry& entry : states()) roots.push_back(entry.gitState);
        f.remove("store/vault");
        return roots;
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
        {"find . -name sub -exec rm -rf {} +", fresh, false}, // with its folder, perhaps
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

TEST_F(GitSaving, keepsGitsOwnStateAndPutsItBesideTheLiveOne) {
    makeRepository(project);
    world.ok({"track"});
    f.write("project/.git/hooks/pre-push", "mine");
    f.write("project/.git/hooks/pre-push.sample", "git's");
    EXPECT_EQ(shell("git branch -D topic"), HookOutput{});
    ASSERT_EQ(states().size(), 1U);
    const VaultEntry entry = states().front();
    EXPECT_EQ(log(), Lines{"claude PreToolUse allow git branch -D topic → git state of " + project + ": " + entry.id});
    ASSERT_TRUE(git(project, "branch -qD topic") && git(project, "reflog expire --expire=now --all"));
    const std::string list = world.ok({"vault"});
    EXPECT_NE(list.find("  git state of " + project + "\n    $ git branch -D topic\n"), list.npos) << list;

    const std::string before = f.listing("project/.git");
    EXPECT_NE(world.ok({"vault", "restore", entry.id, "--dry-run"}).find("would put git's state of"),
              std::string::npos);
    const json told = json::parse(world.ok({"vault", "restore", entry.id, "--json"}));
    EXPECT_EQ(f.listing("project/.git"), before) << "the live one stays as it is";
    const std::string folder = told.at("folder").get<std::string>();
    EXPECT_TRUE(folder.starts_with(project + "/.git.tidewrack-restored-")) << folder;
    const std::string hooks = folder.substr(f.path().size() + 1) + "/hooks";
    EXPECT_EQ(f.read(hooks + "/pre-push"), "mine");
    EXPECT_FALSE(f.has(hooks + "/pre-push.sample"));
    const auto run = [&](std::size_t which) {
        std::string command = told.at("commands").at(which).get<std::string>();
        if (const auto at = command.find("BRANCH:NEW-NAME"); at != command.npos) command.replace(at, 15, "topic:again");
        return std::system((command + " >'" + f.at("said") + "' 2>&1").c_str()) == 0;
    };
    EXPECT_TRUE(run(0)) << f.read("said");
    EXPECT_NE(f.read("said").find("refs/heads/topic@{0}: commit: more"), std::string::npos) << f.read("said");
    EXPECT_TRUE(run(1)) << f.read("said");
    EXPECT_TRUE(git(project, "rev-parse -q --verify again^{commit}"));
    EXPECT_TRUE(git(project, "add -A") && git(project, "diff --cached --quiet")) << "git leaves the folder alone";
    EXPECT_TRUE(run(2));
    EXPECT_FALSE(exists(folder));
    TimelineRow turn;
    turn.vault = {entry.id};
    EXPECT_TRUE(entriesToPutBack(world.store(), readVaultEntries(world.store()), {turn}).empty())
        << "no undo touches it";
}

// No snapshot holds it, and only where blocks can be shared does the vault.
TEST_F(GitSaving, saysThatGitsOwnHistoryGoesWithItsProject) {
    makeRepository(project);
    world.ok({"track"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // what changes in the same second may be newer
    for (const char* command :
         {"rm -rf .", "rm -rf ../project/", "rimraf .", "find . -delete", "rm -rf {*,.*}", "ls -A | xargs rm -rf",
          "find . | xargs rm -rf", "fd -H -d1 . -x rm -rf", "mv ../project ../elsewhere"}) {
        const bool goes = !std::string_view(command).starts_with("mv");
        const bool holds = !goes || volumeClones(f.path());
        const std::string said = answer(Agent::claude, Kind::shell, project, command).standardOutput.value_or("");
        EXPECT_NE(said.find(holds ? ". Tidewrack snapshotted it first; allow?"
                                  : ". Tidewrack snapshotted it first, but not git's own history. Allow?"),
                  said.npos)
            << command << said;
        EXPECT_EQ(states().size(), goes ? 1U : 0U) << command;
        f.remove("store/vault");
    }
}

TEST_F(GitSaving, copiesGitsStateBeforeItChangesAndOnlyThen) {
    makeRepository(project);
    world.ok({"track"});
    const std::map<std::string, std::string> places = {
        {"side", project + "/../side"}, {"bare", f.at("bare.git")}, {"super", f.at("super")}};
    ASSERT_TRUE(git(project, "worktree add -q ../side topic") && git(f.path(), "clone -q --bare project bare.git"));
    f.write("super/f", "x");
    makeRepository(f.at("super"));
    ASSERT_TRUE(git(f.at("super"), "-c protocol.file.allow=always submodule --quiet add ../project sub"));
    f.makeFolder("none");
    f.write("false/.git", "gitdir: /etc\n");
    struct Row {
        std::string command;
        std::string folder;
        Lines expected;
    };
    const std::string sub = f.at("super/sub");
    const Row rows[] = {
        {"git status; git log; git diff; git branch -av; git tag -l 'v*'; git stash list; git remote -v; git show",
         project,
         {}},
        {"git config user.name; git reflog; git worktree list; git symbolic-ref HEAD; git notes; git ls-files",
         project,
         {}},
        {"git commit --dry-run; git fetch --help; git clean -n", project, {}},
        {"git commit -m x; git push; git branch -d y", project + "/src", {project}},
        {"git tag -d v1", project, {project}},
        {"git config user.name x", project, {project}},
        {"git reflog delete HEAD@{1}", project, {project}},
        {"git update-ref -d refs/heads/x", project, {project}},
        {"git stash drop", project, {project}},
        {"git worktree remove ../side", project, {project}},
        {"git frobnicate", project, {project}},
        {"echo x | xargs git branch -D", project, {project}},
        {"sudo git -C " + f.at("side") + " commit -m x", "/", {f.at("side")}},
        {"git commit -m x", f.at("bare.git"), {f.at("bare.git")}},
        {"git branch -D x", f.at("bare.git/refs/heads"), {f.at("bare.git")}},
        {"git --git-dir=../bare.git branch -D x", project, {f.at("bare.git")}},
        {"GIT_DIR=" + f.at("bare.git") + " git branch -D x", "/", {f.at("bare.git")}},
        {"git --git-dir $NOBODY branch -D x", project, {}},
        {"git commit -m x", sub, {sub}},
        {"git commit -m x", f.at("none"), {}},
        {"git commit -m x", f.at("false"), {}},
    };
    for (const Row& row : rows) EXPECT_EQ(statesAfter(row.command, row.folder), row.expected) << row.command;
    EXPECT_EQ(shell("git worktree remove ../side"), HookOutput{});
    EXPECT_EQ(states().front().items.back().original, project + "/.git/worktrees");
    f.remove("store/vault");
    const auto store = gitStoreFor(f.at("side"));
    ASSERT_TRUE(store);
    EXPECT_EQ(store->folder + " " + store->common, project + "/.git/worktrees/side " + project + "/.git");
    EXPECT_EQ(gitStoreFor(sub)->folder, f.at("super/.git/modules/sub"));

    (void)log();
    f.write("project/.git/refs/out", "");
    f.remove("project/.git/refs/out");
    f.link("project/.git/refs/out", f.at("none"));                // of which a link is kept
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // what changes in the same second is copied again
    for (int round = 0; round < 3; ++round) (void)shell("git add .");
    EXPECT_EQ(log().size(), 1U) << "an unchanged state is copied once";
    ASSERT_TRUE(git(project, "tag new"));
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(shell("git add ."), HookOutput{});
    EXPECT_EQ(states().size(), 2U);
    const bool clones = volumeClones(f.path()); // then nothing takes room
    const auto added = [&](const std::string& command) {
        const std::size_t count = states().size();
        EXPECT_EQ(shell(command), HookOutput{}) << command;
        return states().size() - count;
    };
    f.write("project/.git/logs/large", std::string(std::size_t{17} << 20, 'x'));
    EXPECT_EQ(added("git add ."), 1U);
    EXPECT_EQ(states().front().skipped, clones ? Lines{} : Lines{project + "/.git/logs"});
    f.write("project/.git/index", std::string(std::size_t{2} << 20, 'x'));
    EXPECT_EQ(added("git add ."), clones ? 1U : 0U) << "a large index once an hour";
    EXPECT_EQ(added("git gc"), 1U) << "all work trees";
    const auto isObjects = [](const auto& item) { return item.original.ends_with("/objects"); };
    const auto kept = states().front().items;
    EXPECT_EQ(std::any_of(kept.begin(), kept.end(), isObjects), clones) << "objects where that takes no room";
    f.remove("store/vault");
    f.write("store/vault", ""); // it can't be written
    EXPECT_EQ(shell("git commit -m x"), HookOutput{}) << "nobody is asked";
}
