// A command between two snapshots, for agents and people without hooks.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <algorithm>

namespace tidewrack::commands {

namespace {

constexpr std::size_t mostShown = 20;

std::string typed(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + shellWord(word);
    return text;
}

// What names the project again where it is not the one around the folder.
std::string where(const Invocation& call) {
    const auto named = call.args.value("--project");
    return named ? " --project " + shellWord(call.absolute(*named)) : "";
}

// What takes back a command after which nothing could be recorded. Nothing goes back to a project whose root is gone.
std::string wayBack(const Invocation& call, const Project& project, std::int64_t before) {
    const std::string number = std::to_string(before);
    if (isFolder(project.root)) return "undo it with: tidewrack undo " + number + where(call);
    return "undo it with: " + makingFolder(project.root) + "tidewrack --project " + shellWord(project.root) +
           " restore " + number;
}

// The first changed paths, and how many more there are.
void tellChanges(Invocation& call, const Changes& changes, std::int64_t before, std::int64_t after) {
    Sink& err = call.around.err;
    std::string text = changesText(changes, {err.isTerminal(), false});
    std::size_t end = 0;
    for (std::size_t line = 0; line < mostShown && end < text.size(); ++line) end = text.find('\n', end) + 1;
    const auto more = std::count(text.begin() + static_cast<std::ptrdiff_t>(end), text.end(), '\n');
    text.resize(end);
    err.write(text);
    if (more > 0)
        err.line("and " + std::to_string(more) + " more: tidewrack diff " + std::to_string(before) + " " +
                 std::to_string(after) + where(call));
    err.line("Undo this with: tidewrack undo " + std::to_string(before) + ".." + std::to_string(after) + where(call));
}

} // namespace

int runCommand(Invocation& call) {
    if (call.args.plainFrom != 0 || call.args.positional.empty())
        throw CliError("usage: tidewrack run -- COMMAND [word...]");
    if (call.json()) call.warn({"run has no option --json; ignored"});
    const std::vector<std::string>& words = call.args.positional;
    const Project project = call.project();
    SnapshotRequest request{"manual", "Before: " + typed(words), {}, {}, {}};
    const SnapshotResult before = call.engine().snapshot(project, request);
    call.warn(before.warnings);
    call.around.out.flush();
    call.around.err.flush();
    int notRun = 0;
    const int status = runInForeground(words, call.around.currentFolder, notRun);
    try {
        request.label = "After: " + typed(words);
        request.onlyChanges = true;
        const SnapshotResult after = call.engine().snapshot(project, request);
        call.warn(after.warnings);
        // Agents' hooks may have taken snapshots in between.
        const std::int64_t first = before.meta.seq;
        const std::int64_t last = after.meta.seq;
        const Changes changes = last == first ? Changes() : call.engine().diff(project, first, last);
        if (changes.isEmpty())
            call.around.err.line("Nothing changed in " + call.around.err.shown(project.root) + ".");
        else
            tellChanges(call, changes, first, last);
    } catch (const TidewrackError& error) { // the command has run, and its status counts
        call.warn({error.what(), wayBack(call, project, before.meta.seq)});
    }
    if (notRun != 0) call.warn({"couldn't run " + words.front() + ": " + errorText(notRun)});
    return status;
}

} // namespace tidewrack::commands
