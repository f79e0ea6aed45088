// What a shell really destroys must be among what the guard saw: each command is judged, then run.

#include "Support/GuardFixture.hpp"

#include "Support/Paths.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace tidewrack;
using namespace tidewrack::shell;
using tidewrack::testing::TemporaryFolder;

namespace {

// A project, a folder outside of projects and two in the home folder, all with the same files.
class Scratch {
  public:
    Scratch() {
        for (const std::string place : {"project/", "out/", "home/notes/", "home/Documents/"})
            for (const char* name : {"a.txt", "b.txt", "c.log", "sub/d.txt", "sub/deep/e.txt", "with blank"})
                files_.push_back(place + name);
        for (const std::string& file : files_) folder_.write(file, file + "\nof a line or two\n");
        folder_.write("project/list", "a.txt\nsub/d.txt\n");
        folder_.write("project/outside", folder_.at("out/a.txt") + "\n");
        context_.cwd = folder_.at("project");
        context_.home = folder_.at("home");
        context_.env = {{"HOME", context_.home}, {"OUT", folder_.at("out")}};
        context_.projectRoots = {context_.cwd};
    }

    // What the command destroys unseen.
    std::string lost(const std::string& command) {
        const Decision decision = analyze(command, context_);
        if (decision.verdict.kind != Verdict::Kind::allow) return {};
        run(command);
        std::string lost;
        for (const std::string& file : files_)
            if (folder_.read(file) != file + "\nof a line or two\n" && !isSaved(folder_.at(file), decision))
                lost += " " + file;
        return lost;
    }

  private:
    void run(const std::string& command) {
        std::string quoted;
        for (const char c : command) quoted += c == '\'' ? "'\\''" : std::string(1, c);
        const std::string line = "cd '" + context_.cwd + "' && HOME='" + context_.home + "' OUT='" + folder_.at("out") +
                                 "' TAR_OPTIONS= bash -c '" + quoted + "' </dev/null >/dev/null 2>&1";
        (void)!std::system(line.c_str()); // whatever the command says of itself
    }

    // A project is saved as a whole, what lies elsewhere by itself.
    bool isSaved(const std::string& path, const Decision& decision) const {
        const bool inProject = isAtOrBelow(path, context_.cwd);
        const auto holds = [&](const std::string& saved) {
            return isAtOrBelow(path, saved) || (inProject && isAtOrBelow(saved, context_.cwd));
        };
        const auto any = [&](const std::vector<std::string>& paths) {
            return std::any_of(paths.begin(), paths.end(), holds);
        };
        if (any(decision.targets) || any(decision.mentioned)) return true;
        return inProject && (any(decision.opaqueDirs) || any(decision.suspected));
    }

    TemporaryFolder folder_;
    Context context_;
    std::vector<std::string> files_;
};

} // namespace

// "@" stands for the folder: the project's or one of three ways to name one outside, in turn.
TEST(ShellExecution, nothingIsDestroyedUnseen) {
    const std::string places[] = {"../out", "~/notes", ".", "$OUT"};
    std::ifstream table(tidewrack::testing::inCheckout("Tests/Data/destroying-commands.txt"));
    std::size_t count = 0;
    for (std::string line; std::getline(table, line); ++count) {
        const std::string& place = places[count % std::size(places)];
        for (std::size_t at = line.find("\\n"); at != line.npos; at = line.find("\\n", at + 1))
            line.replace(at, 2, "\n");
        for (std::size_t at = line.find('@'); at != line.npos; at = line.find('@', at + place.size()))
            line.replace(at, 1, place);
        EXPECT_EQ(Scratch().lost(line), "") << line;
    }
    EXPECT_GT(count, 200u);
}
