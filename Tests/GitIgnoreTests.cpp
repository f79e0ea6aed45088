// Nothing that a repository or the environment says makes git run anything, keeps the walk waiting or changes answers.

#include "Support/TestFolders.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Walk/GitIgnore.hpp"
#include "Walk/GitQuestion.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

using namespace std::chrono_literals;

class GitIgnoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!git(f.path(), "init -q")) GTEST_SKIP() << "git is not installed";
        f.makeFolder("build");
    }

    // A sparse partial clone whose missing rules would be fetched by a command, with an index whose changes a program
    // is to be asked about.
    void makePartialClone() const {
        f.write("sub/.gitignore", "build\n");
        f.makeFolder("sub/build");
        f.write("changed", "passes through a program");
        f.write(".gitattributes", "* filter=origin diff=origin merge=origin\n");
        ASSERT_TRUE(git(f.path(), "add sub/.gitignore changed"));
        ASSERT_TRUE(git(f.path(), "update-index --skip-worktree sub/.gitignore"));
        ASSERT_TRUE(git(f.path(), "-c core.fsmonitor=: update-index --fsmonitor"));
        ASSERT_TRUE(git(f.path(), "config core.repositoryFormatVersion 1"));
        for (const char* gone : {"sub/.gitignore", ".git/objects"}) f.remove(gone);
        f.makeFolder(".git/objects");
        for (const char* hook : {"fsmonitor-watchman", "post-index-change", "reference-transaction", "query-watchman"})
            f.write(std::string(".git/hooks/") + hook, "#!/bin/sh\ntouch '" + marks.at(hook) + "'\n");
        ASSERT_EQ(std::system(("chmod +x '" + f.at(".git/hooks") + "'/*").c_str()), 0);
        f.write(".git/config", f.read(".git/config") + "[extensions]\n\tpartialClone = origin\n[remote \"origin\"]\n" +
                                   "\turl = \"ext::sh -c touch% '" + marks.at("fetched") + "'\"\n" +
                                   "\tpromisor = true\n[protocol \"ext\"]\n\tallow = always\n");
    }

    // One setting, as the lines of a file, with a command as its value.
    [[nodiscard]] std::string setting(const std::string& key) const {
        const auto section = key.find('.');
        const auto name = key.rfind('.');
        return "[" + key.substr(0, section) +
               (section == name ? "]" : " \"" + key.substr(section + 1, name - section - 1) + "\"]") + "\n\t" +
               key.substr(name + 1) + " = \"touch '" + marks.at(key) + "';:\"\n";
    }

    // What is asked in a repository with these further settings leaves everything as it was.
    void ask(const std::string& settings, const std::string& what) const {
        const std::string before = f.read(".git/config");
        f.write(".git/config", before + settings);
        const auto ignore = GitIgnore::open(f.path());
        for (const char* path : {"build", "sub/build"}) (void)ignore->isIgnored(path);
        GitPatience patience = GitIgnore::patienceOfCommands;
        (void)cleanedByGit(f.path(), {"-d", "-x"}, patience);
        (void)changedForGit(f.path(), {f.at("changed")}, patience);
        f.write(".git/config", before);
        const std::string left = marks.listing();
        EXPECT_EQ(left, "") << what;
        if (!left.empty()) marks.remove(left.substr(0, left.find(' ')));
    }

    TemporaryFolder f;
    TemporaryFolder marks; // where everything that is run leaves something
};

// Every setting that the installed git knows, with a word in the place of what differs.
std::vector<std::string> knownSettings() {
    std::vector<std::string> result;
    const std::unique_ptr<FILE, int (*)(FILE*)> list(::popen("git help -c", "r"), ::pclose);
    char line[256];
    while (list && std::fgets(line, sizeof line, list.get()) != nullptr) {
        std::string key = line;
        key.erase(key.find_last_not_of('\n') + 1);
        if (key.find('.') == std::string::npos || key.find(' ') != std::string::npos) continue;
        if (key.starts_with("advice.") || key.starts_with("color.") || key.find("fsck.") != std::string::npos) continue;
        if (key.ends_with(".*")) key.replace(key.size() - 1, 1, "helper");
        const auto from = key.find('<');
        const bool ofCommand = key.starts_with("pager.") || key.starts_with("alias.");
        if (from != std::string::npos)
            key.replace(from, key.find('>') - from + 1, ofCommand ? "check-ignore" : "origin");
        result.push_back(key);
    }
    return result;
}

} // namespace

TEST_F(GitIgnoreTest, nothingThatARepositorySaysIsRun) {
    makePartialClone();
    const std::string monitored = setting("core.fsmonitor");
    f.write(".git/included", monitored + setting("core.sshCommand") + setting("core.hooksPath"));
    f.write(".git/config.worktree", monitored);
    const std::string before = f.listing(".git");
    ask("", "a missing object");
    ask(monitored, "a program asked for changes");
    ask("[include]\n\tpath = included\n", "the same in an included file");
    ask("[includeIf \"gitdir:/\"]\n\tpath = included\n", "the same in a file included on a condition");
    ask("[extensions]\n\tworktreeConfig = true\n", "the same in a work tree's own settings");
    ask("[core]\n\tfsmonitor = true\n[fsmonitor]\n\tallowRemote = true\n", "git's own watching process");
    ask("[core]\n\thooksPath = hooks\n\tfsmonitor = .git/hooks/fsmonitor-watchman\n", "a hook");
    const auto settings = knownSettings();
    EXPECT_GT(settings.size(), 300U);
    for (const std::string& key : settings) ask(setting(key), key);
    EXPECT_EQ(f.listing(".git"), before) << "nothing is written";
}

// Another repository or index, or another way to read paths, than those of the folder asked about.
TEST_F(GitIgnoreTest, theEnvironmentChangesNoAnswer) {
    f.write(".gitignore", "build\n");
    f.makeFolder("global");
    f.makeFolder("Build");
    f.write("home/.config/git/ignore", "global\n");
    TemporaryFolder other;
    ASSERT_TRUE(git(other.path(), "init -q"));
    const std::string answers = inOwnProcess([&] {
        ::setenv("HOME", f.at("home").c_str(), 1);
        ::unsetenv("XDG_CONFIG_HOME");
        std::string result;
        for (const auto& [name, value] : {std::pair<const char*, std::string>{"LANG", "C"},
                                          {"GIT_DIR", other.at(".git")},
                                          {"GIT_WORK_TREE", other.path()},
                                          {"GIT_INDEX_FILE", "/dev/zero"},
                                          {"GIT_LITERAL_PATHSPECS", "1"},
                                          {"GIT_ICASE_PATHSPECS", "1"},
                                          {"GIT_CEILING_DIRECTORIES", f.path() + ":" + f.at("..")},
                                          {"GIT_CONFIG_PARAMETERS", "'core.excludesfile='/dev/null''"},
                                          {"GIT_TRACE", marks.at("trace")},
                                          {"GIT_TRACE2_EVENT", marks.at("trace")}}) {
            ::setenv(name, value.c_str(), 1);
            const auto ignore = GitIgnore::open(f.path());
            std::string line;
            for (const char* path : {"build", "Build", "global", "home"})
                line += !ignore->isIgnored(path) ? '?' : *ignore->isIgnored(path) ? '+' : '-';
            if (line != "+-+-") result += name + (" " + line) + "\n";
            ::unsetenv(name);
        }
        return result;
    });
    EXPECT_EQ(answers, "") << "the user's global rules count, everything else is the repository's own";
    EXPECT_EQ(marks.listing(), "");
}

// A pipe that nobody writes into, wherever git looks.
TEST_F(GitIgnoreTest, isWaitedForNoLongerThanItMay) {
    f.write(".git/info/exclude", "build\n");
    EXPECT_EQ(GitIgnore::open(f.path())->isIgnored("build"), true);
    for (const char* place : {".gitignore", ".git/info/exclude", ".git/index", ".git/config", ".git/HEAD"}) {
        const std::string before = f.read(place);
        f.remove(place);
        ASSERT_EQ(::mkfifo(f.at(place).c_str(), 0600), 0);
        const auto began = std::chrono::steady_clock::now();
        {
            GitIgnore::Patience left = 50ms;
            const auto ignore = GitIgnore::open(f.path(), 1min, &left);
            EXPECT_EQ(ignore->isIgnored("build"), std::nullopt) << place;
            EXPECT_EQ(ignore->isIgnored("sub/build"), std::nullopt)
                << place << ": what git would say is no longer asked";
            const auto next = GitIgnore::open(f.path(), 1min, &left);
            EXPECT_EQ(next->isIgnored("build"), std::nullopt) << place << ": nor by another walk that shares the time";
            EXPECT_EQ(next->outcome(), GitOutcome::late) << place;
        }
        EXPECT_LT(std::chrono::steady_clock::now() - began, 5s) << place;
        EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD) << place << ": it is ended and reaped";
        f.remove(place);
        if (before != "<missing>") f.write(place, before);
    }
    EXPECT_EQ(GitIgnore::open(f.path())->isIgnored("build"), true);
}

// It ends at once in both cases, but only a repository has rules that are then not known.
TEST_F(GitIgnoreTest, tellsAGitThatFailsFromAFolderWithoutARepository) {
    struct Row {
        const char* what;
        std::function<void()> happens;
        GitOutcome outcome;
    };
    const std::string config = f.read(".git/config");
    const auto breakHead = [&] {
        f.write(".git/config", config);
        f.write(".git/HEAD", "x");
    };
    const auto leadNowhere = [&] {
        f.remove(".git");
        f.write(".git", "gitdir: nowhere\n");
    };
    const Row rows[] = {
        {"it works", [] {}, GitOutcome::answered},
        {"broken settings", [&] { f.write(".git/config", config + "[core\n"); }, GitOutcome::failed},
        {"a broken repository", breakHead, GitOutcome::failed},
        {"a folder that is none", [&] { f.remove(".git/HEAD"); }, GitOutcome::answered},
        {"a repository that is gone", leadNowhere, GitOutcome::failed},
    };
    for (const Row& row : rows) {
        row.happens();
        const auto ignore = GitIgnore::open(f.path());
        EXPECT_EQ(ignore->outcome(), GitOutcome::answered) << row.what << ": nothing is asked yet";
        const bool answers = ignore->isIgnored("build").has_value();
        EXPECT_EQ(answers, std::string_view(row.what) == "it works") << row.what;
        EXPECT_EQ(ignore->outcome(), row.outcome) << row.what;
    }
}

// git gives up when it is asked about a path in a submodule, or takes a colon for one of its signs.
TEST_F(GitIgnoreTest, gitGoesOnAnsweringBehindWhatItCannotAnswer) {
    for (const std::string module : {"module", "inTree"})
        ASSERT_TRUE(git(f.path(), "update-index --add --cacheinfo 160000," + std::string(40, '1') + "," + module));
    f.write("module/.git", "gitdir: ../.git/modules/module\n");
    f.write("tree/.git", "gitdir: " + f.at(".git/worktrees/tree") + "\n");
    f.write("inTree/.git", "gitdir: " + f.at(".git/worktrees/tree/modules/inTree") + "\n"); // of such a tree's own
    f.write(".git/info/exclude", "build\n");
    for (const char* folder : {"module", "inTree", "tree", "tree/deep", ":!a", ":(b"})
        f.makeFolder(std::string(folder) + "/build");
    const auto ignore = GitIgnore::open(f.path());
    for (const char* path : {"module/build", "inTree/build"}) EXPECT_EQ(ignore->isIgnored(path), false) << path;
    for (const char* path : {"tree/build", "tree/deep/build", ":!a/build", ":(b/build"})
        EXPECT_EQ(ignore->isIgnored(path), true) << path;
    EXPECT_EQ(ignore->isIgnored(std::string_view("a\0b", 3)), false);
}

// Folders come and go in the history by their own doing alone, not by git's being slow.
TEST(SilentGit, leavesIgnoredFoldersAsTheyWere) {
    World world;
    if (!git(world.projectPath(), "init -q")) GTEST_SKIP() << "git is not installed";
    world.folder.write("project/.git/info/exclude", "build\n");
    world.folder.write("project/build/made", "");
    world.folder.write("project/dist/kept", "");
    world.ok({"track"});
    world.folder.write("project/sub/build/made", "");
    ASSERT_EQ(::mkfifo((world.projectPath() + "/.gitignore").c_str(), 0600), 0);
    const Engine engine(world.store());
    SnapshotRequest request{"tool", {}, {}, {}, {}};
    request.deadline = std::chrono::steady_clock::now() + 10s;
    GitIgnore::Patience left = 100ms;
    request.gitPatience = &left;
    const auto began = std::chrono::steady_clock::now();
    const SnapshotResult result = engine.snapshot(world.project(), request);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
    EXPECT_LE(left, 0ms);
    EXPECT_EQ(warningTexts(result.warnings),
              std::vector<std::string>{"git didn't say in time which folders it ignores; those of the "
                                       "previous snapshot still are"});
    EXPECT_EQ(result.changes.added, (std::vector<std::string>{"sub", "sub/build", "sub/build/made"}));
    EXPECT_EQ(result.changes.modified.size() + result.changes.deleted.size(), 0U);
    EXPECT_TRUE(world.manifestOf(result.meta.seq).listsIgnored("build"));
    // Where the previous listing is lost, the one before it tells.
    const std::string manifests = world.history().manifestsFolder() + "/";
    for (const bool known : {true, false}) {
        left = 0ms;
        const std::int64_t newest = *world.history().newestSeq();
        for (std::int64_t seq = known ? newest : 1; seq <= newest; ++seq)
            (void)::unlink((manifests + std::to_string(seq) + ".mf").c_str());
        const SnapshotResult next = engine.snapshot(world.project(), request);
        EXPECT_EQ(warningText(next.warnings.back()),
                  known ? "git didn't say in time which folders it ignores; those of snapshot #1 still are"
                        : "git didn't say in time which folders it ignores; none counts as ignored");
        EXPECT_EQ(world.manifestOf(next.meta.seq).listsIgnored("build"), known);
    }
}

TEST(SilentGit, isToldOfWhereItFails) {
    World world;
    if (!git(world.projectPath(), "init -q")) GTEST_SKIP() << "git is not installed";
    world.folder.write("project/.git/info/exclude", "build\n");
    world.folder.write("project/build/made", "");
    const std::string config = world.folder.read("project/.git/config");
    struct Row {
        const char* command;
        const char* settings; // more of them
        std::string warning;
        bool ignored;
    };
    const Row rows[] = {{"track", "[core\n", "none counts as ignored\n", false},
                        {"snap", "", "", true},
                        {"snap", "[core\n", "those of the previous snapshot still are\n", true}};
    for (const Row& row : rows) {
        world.folder.write("project/.git/config", config + row.settings);
        const std::string said = world.run({row.command}).err;
        const std::string failed = "warning: git couldn't say which folders it ignores (see what `git status` says); ";
        EXPECT_EQ(said.find(failed) != said.npos, !row.warning.empty()) << said;
        EXPECT_NE(said.find(row.warning), said.npos) << said;
        EXPECT_EQ(world.manifestOf(*world.history().newestSeq()).listsIgnored("build"), row.ignored) << said;
    }
}

// Each would wait five seconds by itself.
TEST(SilentGit, isWaitedForOnceHoweverOftenACommandWalks) {
    World world;
    if (!git(world.projectPath(), "init -q")) GTEST_SKIP() << "git is not installed";
    world.folder.makeFolder("project/build");
    world.ok({"track"});
    ASSERT_EQ(::mkfifo((world.projectPath() + "/.gitignore").c_str(), 0600), 0);
    const Engine engine(world.store());
    engine.gitPatience = 100ms;
    const auto began = std::chrono::steady_clock::now();
    std::vector<Warning> warnings = engine.snapshot(world.project(), {"manual", {}, {}, {}, {}}).warnings;
    (void)engine.diff(world.project(), 1, std::nullopt, &warnings);
    const auto ofRestore = engine.restore(world.project(), 1, std::nullopt, false).safetyWarnings;
    EXPECT_LT(std::chrono::steady_clock::now() - began, 4s);
    for (const auto& each : {warnings, ofRestore}) {
        ASSERT_EQ(each.size(), 1U);
        EXPECT_EQ(each.front().kind, Warning::Kind::gitLate);
    }
}
