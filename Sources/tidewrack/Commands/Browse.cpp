// The page of the history, which a program beside this one makes.

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Timeline/TurnUndo.hpp"

#include <unistd.h>

#include <cerrno>

namespace tidewrack::commands {

namespace {

constexpr std::size_t mostPicked = 10000; // rows of the picker, which draws those in sight
constexpr std::size_t everyRow = 1000000; // of a file, which is for keeping

// This process becomes the other program, with the environment of the call.
[[noreturn]] void become(const Invocation& call, const std::vector<std::string>& words) {
    const std::string program = tidewrack::joined(std::string(parentOf(executablePath())), "tidewrack-browse");
    std::vector<std::string> texts{program};
    texts.insert(texts.end(), words.begin(), words.end());
    std::vector<std::string> environment;
    for (const auto& [name, value] : call.around.environment) environment.push_back(name + "=" + value);
    const auto pointers = [](std::vector<std::string>& list) {
        std::vector<char*> all;
        all.reserve(list.size() + 1);
        for (std::string& each : list) all.push_back(each.data());
        all.push_back(nullptr);
        return all;
    };
    call.around.out.flush();
    call.around.err.flush();
    (void)::execve(program.c_str(), pointers(texts).data(), pointers(environment).data());
    if (errno == ENOENT)
        throw TidewrackError::io("The page is a program of its own, which is missing: " + program +
                                 ". Packages install it; a build makes it where the HTTP library is there.");
    throw TidewrackError::io("start", program, errno);
}

void addFilters(const Invocation& call, std::vector<std::string>& words) {
    for (const char* option : {"--agent", "--session"})
        if (const auto value = call.args.value(option)) words.push_back(std::string(option) + "=" + *value);
}

} // namespace

int browse(Invocation& call) {
    std::vector<std::string> words{call.project().root};
    if (const auto port = call.args.value("--port")) {
        words.push_back("--port=" + std::to_string(portNumber(*port)));
    }
    for (const char* flag : {"--no-open", "--read-only"})
        if (call.args.has(flag)) words.emplace_back(flag);
    become(call, words);
}

int pickFromTimeline(Invocation& call) {
    if (!canAsk(call)) throw CliError("timeline -i needs a terminal");
    const auto terminal = call.around.environment.find("TERM");
    if (terminal == call.around.environment.end() || terminal->second == "dumb")
        throw CliError("timeline -i needs a terminal whose cursor can be moved");
    const std::size_t most = call.args.value("-n") ? mostListed(call.args) : mostPicked;
    const Project project = call.project();
    refuseUnknownFilters(call, TurnUndo(call.engine(), project));
    std::vector<std::string> words{project.root, "--pick", "-n", std::to_string(most)};
    addFilters(call, words);
    become(call, words);
}

int timelineAsPage(Invocation& call, const std::string& file) {
    if (file.empty() || file.ends_with('/')) throw CliError("--html needs the name of a file, got \"" + file + "\"");
    if (call.args.has("--commands")) throw CliError("--html writes the commands anyway: leave --commands out");
    const std::string path = call.absolute(file);
    if (exists(path)) throw CliError(file + " is there already");
    if (call.json()) throw CliError("--html writes a page: leave --json out");
    const Project project = call.project();
    refuseUnknownFilters(call, TurnUndo(call.engine(), project));
    const bool some = call.args.value("-n").has_value();
    const std::size_t most = some ? mostListed(call.args) : everyRow;
    bool contents = call.args.has("--contents");
    const bool noContents = call.args.has("--no-contents");
    if (contents && noContents) throw CliError("--contents or --no-contents: which of them?");
    if (!contents && !noContents) {
        if (!canAsk(call))
            throw CliError("Whoever gets the file can read the changed lines, prompts and commands in it: say "
                           "--contents, or --no-contents to leave them out");
        call.print("The file will hold the changed lines, prompts and commands of " +
                   (some ? "up to " + std::to_string(most) : std::string("all")) +
                   " turns, of files that others may not be meant to read too. Without them it holds the names of "
                   "files, times, agents and sessions. ");
        contents = saysYes(call, "Put them in? (yes/no) ");
    }
    std::vector<std::string> words{project.root, "--html=" + path, "-n", std::to_string(most)};
    if (!contents) words.emplace_back("--no-contents");
    addFilters(call, words);
    become(call, words);
}

} // namespace tidewrack::commands
