// What a shell really destroys must be among what the guard saw: each command is judged, then run.

#include "Support/GuardFixture.hpp"

#include "Agents/HookHandler.hpp"

#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

using namespace tidewrack;
using namespace tidewrack::shell;
using nlohmann::json;
using tidewrack::testing::TemporaryFolder;
using tidewrack::testing::World;

namespace {

// A project, a folder outside of projects and two in the home folder, all with the same files.
class Scratch {
  public:
    Scratch() {
        for (const std::string place : {"project/", "out/", "home/notes/", "home/Documents/"})
            for (const char* name : {"a.txt", "b.txt", "c.log", "sub/d.txt", "sub/deep/e.txt", "with blank"})
                files_.push_back(place + name);
        for (const std::string& file : files_) folder_.write(file, contentOf(file));
        folder_.write("project/list", "a.txt\nsub/d.txt\n");
        folder_.write("project/outside", folder_.at("out/a.txt") + "\n");
        folder_.write("project/values", "WHERE=" + folder_.at("out") + "\n");
        folder_.write("project/enter", "cd ../out\n");
        context_.cwd = folder_.at("project");
        context_.home = folder_.at("home");
        context_.env = {{"HOME", context_.home}, {"OUT", folder_.at("out")}};
        context_.projectRoots = {context_.cwd};
    }

    // Makes a repository of the folder, whose last commit holds something else.
    void makeRepository(const std::string& place) {
        const std::string git = "git -c user.name=a -c user.email=a@b ";
        run("cd " + place + " && mkdir ../kept && cp -r . ../kept && echo old > a.txt && echo old > sub/d.txt && " +
                git + "init -q && git add a.txt b.txt sub && " + git +
                "commit -qm x && cp -r ../kept/. . && rm -rf ../kept",
            "sh");
    }

    // What the command destroys unseen when this shell runs it.
    std::string lost(const std::string& command, const std::string& shell) {
        const Decision decision = analyze(command, context_);
        if (decision.verdict.kind != Verdict::Kind::allow) return {};
        run(command, shell);
        std::string lost;
        for (const std::string& file : files_)
            if (folder_.read(file) != contentOf(file) && !isSaved(folder_.at(file), decision)) lost += " " + file;
        return lost;
    }

    // What the command destroys and nothing brings back: an agent's hook is told of it, it runs, and then all projects
    // and what the vault holds are restored.
    std::string notRestored(const std::string& command) {
        world_.ok({"track"});
        HookHandler handler(world_.store(), context_.env, context_.home);
        const std::string event = json{
            {"hook_event_name", "PreToolUse"},
            {"cwd", context_.cwd},
            {"session_id", "session"},
            {"tool_name", "Bash"},
            {"tool_input",
             {{"command", command}}}}.dump();
        if (handler.handle(Agent::claude, event, context_.cwd) != HookOutput{}) return {}; // asked about, or refused
        run(command, "bash");
        destroys_ = !changedFiles().empty();
        for (const Project& project : world_.store().projects()) {
            if (!isFolder(project.root)) continue;
            world_.current = project.root;
            world_.ok({"restore", "last"});
        }
        for (const VaultEntry& entry : Vault(world_.store()).entries()) world_.ok({"vault", "restore", entry.id});
        return changedFiles();
    }
    [[nodiscard]] bool destroys() const { return destroys_; } // whether the command did, before that

  private:
    [[nodiscard]] std::string changedFiles() const {
        std::string changed;
        for (const std::string& file : files_)
            if (folder_.read(file) != contentOf(file)) changed += " " + file;
        return changed;
    }

    static std::string contentOf(const std::string& file) { return file + "\nof a line or two\n"; }

    // Without `_`: to a shell that does not set it, it would be the program that was started last.
    void run(const std::string& command, const std::string& shell) {
        std::string quoted;
        for (const char c : command) quoted += c == '\'' ? "'\\''" : std::string(1, c);
        const std::string line = "cd '" + context_.cwd + "' && HOME='" + context_.home + "' OUT='" + folder_.at("out") +
                                 "' TAR_OPTIONS= env -u _ " + shell + " -c '" + quoted + "' </dev/null >/dev/null 2>&1";
        (void)!std::system(line.c_str()); // whatever the command says of itself
    }

    // A project is saved as a whole, what lies elsewhere by itself.
    bool isSaved(const std::string& path, const Decision& decision) const {
        // A repository that is at risk is tracked before the command runs.
        std::string repository = path;
        while (repository.size() > 1 && !exists(joined(repository, ".git"))) repository = parentOf(repository);
        const std::string& root = isAtOrBelow(path, context_.cwd) || repository.size() < 2 ? context_.cwd : repository;
        const bool inProject = isAtOrBelow(path, root);
        const auto holds = [&](const std::string& saved) {
            return isAtOrBelow(path, saved) || (inProject && isAtOrBelow(saved, root));
        };
        const auto any = [&](const std::vector<std::string>& paths) {
            return std::any_of(paths.begin(), paths.end(), holds);
        };
        if (any(decision.targets) || any(decision.mentioned)) return true;
        return inProject && (any(decision.opaqueDirs) || any(decision.suspected));
    }

    World world_;
    const TemporaryFolder& folder_ = world_.folder;
    Context context_;
    std::vector<std::string> files_;
    bool destroys_ = false;
};

// Calls `visit` with each command of the table, its number and the folder that it works on: the project's or one of
// three ways to name one outside, in turn, for which "@" stands.
void forEachCommand(const std::function<void(const std::string&, std::size_t, const std::string&)>& visit) {
    const std::string places[] = {"../out", "~/notes", ".", "$OUT"};
    std::ifstream table(tidewrack::testing::inCheckout("Tests/Data/destroying-commands.txt"));
    std::size_t count = 0;
    for (std::string line; std::getline(table, line); ++count) {
        const std::string& place = places[count % std::size(places)];
        for (std::size_t at = line.find("\\n"); at != line.npos; at = line.find("\\n", at + 1))
            line.replace(at, 2, "\n");
        for (std::size_t at = line.find('@'); at != line.npos; at = line.find('@', at + 1))
            if (at == 0 || std::string_view("$[{").find(line[at - 1]) == std::string_view::npos) // but "$@", ${a[@]}
                line.replace(at, 1, place);
        visit(line, count, place);
    }
    EXPECT_GT(count, 200u);
}

} // namespace

// Of the shells other than bash, which differ in little, each has its turn.
TEST(ShellExecution, nothingIsDestroyedUnseen) {
    forEachCommand([](const std::string& command, std::size_t number, const std::string& place) {
        for (const std::string shell : {"bash", number % 2 == 0 ? "dash" : "zsh"}) {
            if (!exists("/bin/" + shell)) continue;
            Scratch scratch;
            if (command.find("git ") != command.npos) scratch.makeRepository(place);
            EXPECT_EQ(scratch.lost(command, shell), "") << shell << ": " << command;
        }
    });
}

TEST(ShellExecution, whatIsDestroyedComesBackByteForByte) {
    int destroying = 0;
    forEachCommand([&](const std::string& command, std::size_t number, const std::string& place) {
        if (number % 3 != 0) return;
        Scratch scratch;
        if (command.find("git ") != command.npos) scratch.makeRepository(place);
        EXPECT_EQ(scratch.notRestored(command), "") << command;
        if (scratch.destroys()) ++destroying;
    });
    EXPECT_GT(destroying, 50);
}
