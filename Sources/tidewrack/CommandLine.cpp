#include "CommandLine.hpp"

#include "Agents/Agent.hpp"
#include "Args.hpp"
#include "Commands/Commands.hpp"
#include "Engine/PathSearch.hpp"
#include "Help.hpp"
#include "Invocation.hpp"
#include "OptionCheck.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

// The command that the words name; its name is removed from them.
const Command& takeCommand(Args& args) {
    std::vector<std::string>& words = args.positional;
    if (words.empty()) words.emplace_back(args.has("--version") ? "version" : "help");
    if (words[0] == "-h") words[0] = "help";
    if (words[0] == "-v") words[0] = "version";
    const Command* command = commandOf(words);
    if (command == nullptr) throw CliError("unknown command " + words[0] + ". Run `tidewrack help`.");
    args.drop(command->nameWords());
    return *command;
}

bool asksForHelp(const Args& args) {
    const auto end =
        args.positional.begin() + static_cast<std::ptrdiff_t>(std::min(args.plainFrom, args.positional.size()));
    return args.has("--help") || std::find(args.positional.begin(), end, "-h") != end;
}

// -C: everything is as if the program had been started in that folder.
std::string startingFolder(const Args& args, const Surroundings& around) {
    const auto given = args.value("-C");
    if (!given) return around.currentFolder;
    std::string folder = absolutePath(*given, around.currentFolder);
    if (given->empty() || !isFolder(folder)) throw CliError("-C needs a folder, got " + *given);
    return folder;
}

// Whether the command takes a path, and the folder or any snapshot has this one.
bool mayBePath(const Command& command, const Args& args, Surroundings& around, const std::string& word) {
    const auto takes = [&](Fill fill) {
        return std::find(command.fills.begin(), command.fills.end(), fill) != command.fills.end();
    };
    if (!takes(Fill::path) && !takes(Fill::folder)) return false;
    try {
        if (exists(absolutePath(word, around.currentFolder))) return true;
        if (!takes(Fill::path)) return false;
        Invocation call(command, args, around);
        const Project project = call.project();
        const std::string path = Engine::relative(project, call.absolute(word));
        if (path.find_first_of("*?[") != path.npos) return true; // the search would take it for a pattern
        std::vector<UnreadRecord> unread;
        const auto records = call.store().history(project).snapshots(unread);
        const FoundPaths found = findPaths(call.engine(), project, records, NamePattern(path));
        // A listing that can't be read may have it.
        return !unread.empty() || !found.warnings.empty() ||
               std::any_of(found.paths.begin(), found.paths.end(),
                           [&](const FoundPath& each) { return isAtOrBelow(each.path, path); });
    } catch (const std::exception&) { // the command itself tells what is amiss
        return true;
    }
}

int dispatch(const std::vector<std::string>& words, Surroundings& around) {
    Args args(words);
    const bool usage = args.positional.empty() || args.positional.front() == "-h"; // no command is named
    const Command& command = takeCommand(args);
    around.currentFolder = startingFolder(args, around);
    // The hook of an agent gives its reply whatever its other words are.
    const bool answers = command.run == commands::hook && agentNamed(args.word(0).value_or(""));
    if (asksForHelp(args) && !answers) {
        around.out.write(usage && command.run == commands::help ? usageText() : helpText(command));
        return 0;
    }
    if (command.option("-n") != nullptr) args.takeJoinedNumber("-n");
    const auto isPath = [&](const std::string& word) { return mayBePath(command, args, around, word); };
    for (const std::string& warning : misunderstood(command, args, isPath))
        around.err.line("warning: " + around.err.shown(warning));
    Invocation call(command, std::move(args), around);
    return command.run(call);
}

} // namespace

int run(const std::vector<std::string>& words, Surroundings& around) {
    int status = 1;
    try {
        status = dispatch(words, around);
    } catch (const std::bad_alloc&) {
        around.err.line("tidewrack: out of memory");
    } catch (const std::exception& error) {
        around.err.line("tidewrack: " + around.err.shown(error.what()));
    }
    around.out.finish();
    // A reader that has closed its end is no failure; any other failed write is one.
    if (around.out.error() != 0 && around.out.error() != EPIPE) {
        around.err.line("tidewrack: can't write the output: " + errorText(around.out.error()));
        status = 1;
    }
    around.err.flush();
    return status;
}

} // namespace tidewrack
