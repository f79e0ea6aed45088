#include "CommandTable.hpp"

#include "CommandOptions.hpp"
#include "Commands/Commands.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

using namespace options;

constexpr Fill aFolder[] = {Fill::folder};
constexpr Fill aPath[] = {Fill::path};
constexpr Fill aSnapshot[] = {Fill::snapshot};
constexpr Fill twoSnapshotsAndPaths[] = {Fill::snapshot, Fill::snapshot, Fill::path};
constexpr Fill snapshotAndPaths[] = {Fill::snapshot, Fill::path};
constexpr Fill turnAndPaths[] = {Fill::turn, Fill::path};
constexpr Fill snapshotFolderAndPaths[] = {Fill::snapshot, Fill::folder, Fill::path};
constexpr Fill anAgent[] = {Fill::agent};
constexpr Fill agentOrAll[] = {Fill::agentOrAll};
constexpr Fill aVaultEntry[] = {Fill::vaultEntry};
constexpr Fill aCommand[] = {Fill::command};
constexpr Fill aShell[] = {Fill::shell};

constexpr Command table[] = {
    {.name = "track",
     .words = "[path]",
     .group = Group::projects,
     .effect = Effect::adds,
     .fills = aFolder,
     .mostWords = 1,
     .options = trackOptions,
     .summary = "start keeping history of a folder (default: this one)",
     .details = "Takes the first snapshot. Very broad folders, such as the home folder, and folders with more than "
                "250000 files are refused without --force.",
     .example = "cd ~/project && tidewrack track",
     .run = commands::track},
    {.name = "untrack",
     .words = "[path]",
     .group = Group::projects,
     .effect = Effect::removesForGood,
     .fills = aFolder,
     .mostWords = 1,
     .options = untrackOptions,
     .summary = "stop, and delete the history kept so far",
     .details = "The folder itself stays as it is. Nothing brings a deleted history back.",
     .example = "tidewrack untrack ~/project",
     .run = commands::untrack},
    {.name = "projects",
     .group = Group::projects,
     .options = jsonOptions,
     .summary = "list the tracked folders",
     .details = "Each with the number of its snapshots and the age of the latest.",
     .example = "tidewrack projects",
     .run = commands::projects},
    {.name = "status",
     .group = Group::projects,
     .options = statusOptions,
     .summary = "whether this folder's history works",
     .details = "The newest snapshot and what it did not keep, the room that the history takes, the agents' hooks, "
                "their last events and failures; whatever is wrong with what mends it, and then the exit status is 1.",
     .example = "tidewrack status",
     .run = commands::status},
    {.name = "move",
     .words = "OLD [NEW]",
     .group = Group::projects,
     .effect = Effect::changes,
     .fills = aFolder,
     .mostWords = 2,
     .options = moveOptions,
     .summary = "let the history of a folder follow it to another place",
     .details =
         "OLD is where the folder was, and NEW, by default the current folder, where it is now. Tracked folders inside "
         "it go along. Nothing in the folder is touched.",
     .example = "tidewrack move ~/old-name ~/new-name",
     .run = commands::move},
    {.name = "exclude",
     .words = "PATH|PATTERN...",
     .group = Group::projects,
     .effect = Effect::changes,
     .fills = aPath,
     .mostWords = Command::anyNumber,
     .options = ruleOptions,
     .summary = "leave paths out of this folder's history from now on",
     .details = "A pattern, with *, ? or [ in it, has the meaning of a line in a .gitignore file; a project's "
                ".tidewrackignore has such lines as well. What is left out stays listed without its content, and no "
                "restore touches it. Older snapshots keep what they have.",
     .example = "tidewrack exclude data '*.log'",
     .run = commands::exclude},
    {.name = "include",
     .words = "PATH...",
     .group = Group::projects,
     .effect = Effect::changes,
     .fills = aPath,
     .mostWords = Command::anyNumber,
     .options = ruleOptions,
     .summary = "keep paths that are left out of this folder's history",
     .details = "Whatever leaves them out: exclude, .tidewrackignore, git, or a name such as node_modules. A pattern "
                "that was given to exclude is taken back by itself.",
     .example = "tidewrack include build/keep",
     .run = commands::include},
    {.name = "config list",
     .group = Group::projects,
     .options = configOptions,
     .summary = "what is set for this folder's history",
     .details =
         "One line for each setting: the largest file that is kept, how much room the history may take, the names "
         "of folders that are left out, and what exclude and include have added; of the whole store how much has "
         "to stay free on its volume, and how much room it may take.",
     .example = "tidewrack config list",
     .run = commands::configList},
    {.name = "config get",
     .words = "KEY",
     .group = Group::projects,
     .mostWords = 1,
     .options = projectOptions,
     .summary = "print the values of a setting, one a line",
     .details = "The keys are those of config list.",
     .example = "tidewrack config get patterns",
     .run = commands::configGet},
    {.name = "config set",
     .words = "KEY VALUE",
     .group = Group::projects,
     .effect = Effect::changes,
     .mostWords = 2,
     .options = projectOptions,
     .summary = "set the largest file that is kept, or how much room may be taken",
     .details =
         "maxFileSize (256M), project.cap and store.cap (none), and store.floor (1G, or 5 % of the volume) take bytes, "
         "or with K, M, G or T behind the number powers of 1024; default takes a setting back. Where a history or "
         "the store takes more than its cap its oldest snapshots go, but for pinned ones and those of the last 48 "
         "hours. Where less than store.floor is free no new file over 1 MiB is kept.",
     .example = "tidewrack config set project.cap 20G",
     .run = commands::configSet},
    {.name = "snap",
     .group = Group::history,
     .effect = Effect::adds,
     .options = snapOptions,
     .summary = "take a snapshot now",
     .details = "--kind, --agent, --session and --turn are for scripts and are recorded as they are given.",
     .example = "tidewrack snap --label \"before the clean-up\"",
     .run = commands::snap},
    {.name = "log",
     .words = "[path]",
     .group = Group::history,
     .fills = aPath,
     .mostWords = 1,
     .options = logOptions,
     .summary = "list the latest snapshots, newest first",
     .details =
         "The right-hand side tells what changed after each one, that is, what undoing it takes back: added "
         "(+), modified (~) and deleted (-) files. "
         "With a path, of a file or a folder, only the snapshots after which it changed are listed, with --patch what "
         "changed each time. A file is followed to the names that it had before.",
     .example = "tidewrack log -n 5",
     .run = commands::log},
    {.name = "timeline",
     .group = Group::history,
     .options = timelineOptions,
     .summary = "what happened, newest first: agents' turns, changes by others, restores",
     .details = "One row each: its snapshots, when it began, the agent, the prompt, and how many files were added (+), "
                "modified (~) and deleted (-) in all. Any of a turn's numbers names it: tidewrack undo --turn N.",
     .example = "tidewrack timeline --commands",
     .run = commands::timeline},
    {.name = "browse",
     .group = Group::history,
     .effect = Effect::opens,
     .options = browseOptions,
     .summary = "look through the history in a browser",
     .details = "A page with the timeline, what each turn changed, the versions of a file, search, the vault and "
                "status. It takes back turns, files and single hunks after a preview. This machine alone can reach it, "
                "at an address that is made anew each time; it ends with Ctrl-C or after an hour without a visitor.",
     .example = "tidewrack browse",
     .run = commands::browse},
    {.name = "show",
     .words = "[N] [path...]",
     .group = Group::history,
     .fills = turnAndPaths,
     .mostWords = Command::anyNumber,
     .options = showOptions,
     .summary = "what a turn did, line by line (default: the newest turn)",
     .details = "Its row of the timeline, the commands that were run, and what changed from its beginning to its end, "
                "or what of that changed at some paths.",
     .example = "tidewrack show 12",
     .run = commands::show},
    {.name = "diff",
     .words = "A|--last [B] [path...]",
     .group = Group::history,
     .fills = twoSnapshotsAndPaths,
     .mostWords = Command::anyNumber,
     .options = diffOptions,
     .summary = "what changed from snapshot A to B, or to now",
     .details =
         "Added paths stand behind +, modified ones behind ~, deleted ones behind -. Paths, of files or folders, "
         "narrow it down; -- before them parts them from B, where one is called like a snapshot.",
     .example = "tidewrack diff 12 --patch",
     .run = commands::diff},
    {.name = "find",
     .words = "TEXT|GLOB",
     .group = Group::history,
     .fills = aPath,
     .mostWords = 1,
     .options = findOptions,
     .summary = "where a path was in any snapshot, and how to get it back; with --lines what changed a text",
     .details =
         "TEXT is a part of the path; a pattern with *, ? or [ fits the whole name or, with a slash in it, the "
         "whole path. Case counts only where it has capitals. Each path comes with the snapshots that have it, "
         "when it went and in which turn, and the command that brings it back. With --lines TEXT is looked for in "
         "changed lines, and each turn that changed some comes with them, the newest first.",
     .example = "tidewrack find main.c --deleted",
     .run = commands::find},
    {.name = "cat",
     .words = "N path",
     .group = Group::history,
     .fills = snapshotAndPaths,
     .mostWords = 2,
     .options = projectOptions,
     .summary = "print a file as it was in snapshot N",
     .details = "The path is relative to the current folder.",
     .example = "tidewrack cat 12 src/main.c | less",
     .run = commands::cat},
    {.name = "pin",
     .words = "N",
     .group = Group::history,
     .effect = Effect::changes,
     .fills = aSnapshot,
     .mostWords = 1,
     .options = pinOptions,
     .summary = "keep a snapshot for ever",
     .details = "Pruning passes over it until it is unpinned.",
     .example = "tidewrack pin 12",
     .run = commands::pin},
    {.name = "unpin",
     .words = "N",
     .group = Group::history,
     .effect = Effect::changes,
     .fills = aSnapshot,
     .mostWords = 1,
     .options = pinOptions,
     .summary = "keep a snapshot no longer than others",
     .details = "It goes with a later prune, when it is old enough.",
     .example = "tidewrack unpin 12",
     .run = commands::unpin},
    {.name = "prune",
     .group = Group::history,
     .effect = Effect::changes,
     .options = pruneOptions,
     .summary = "thin out old snapshots",
     .details = "Every snapshot of the last 48 hours stays, then one per hour up to 7 days, then one per day up to 30 "
                "days; pinned ones stay for ever. Snapshots prune by themselves, at most once an hour.",
     .example = "tidewrack prune --dry-run",
     .run = commands::prune},
    {.name = "check",
     .group = Group::history,
     .effect = Effect::changes,
     .options = checkOptions,
     .summary = "look whether all that was kept is there and whole",
     .details =
         "Every record, listing and content of all projects, or of one with --project, and the vault: there, "
         "readable, and of the size, mode and time it was kept with. Tells which snapshots a damage costs; the "
         "exit status is 1 then. Changes nothing without --repair. That writes lost records anew from "
         "their listings, and contents from unchanged files of the project; what it can't mend it moves aside, into "
         "the folder `damaged` of the store, and deletes nothing.",
     .example = "tidewrack check --contents",
     .run = commands::check},
    {.name = "usage",
     .group = Group::history,
     .options = usageOptions,
     .summary = "how much room the history takes, and what takes most",
     .details = "Of all projects, or of one with --project, and of the vault: contents, and how much of them is shared "
                "with other files where the volume tells; listings, records; the largest contents and the turns that "
                "brought them; what a prune would free now.",
     .example = "tidewrack usage",
     .run = commands::usage},
    {.name = "mirror",
     .words = "DIR",
     .group = Group::history,
     .effect = Effect::removesForGood,
     .fills = aFolder,
     .mostWords = 1,
     .options = mirrorOptions,
     .summary = "keep a second copy of all histories in another folder",
     .details =
         "A new or empty folder, or an earlier mirror, which gets what is new and loses what was pruned since. It "
         "can be used in place of the store at any time: TIDEWRACK_HOME=DIR tidewrack log. On the same volume it "
         "shares the blocks or the files of the store. One that has snapshots of its own is refused.",
     .example = "tidewrack mirror /mnt/backup/tidewrack",
     .run = commands::mirror},
    {.name = "restore",
     .words = "N [path...]",
     .group = Group::gettingBack,
     .effect = Effect::changes,
     .fills = snapshotAndPaths,
     .mostWords = Command::anyNumber,
     .options = restoreOptions,
     .summary = "put the folder, or some paths, back as they were at snapshot N",
     .details = "Takes a safety snapshot first, whose number it prints: the restore can be undone as well. What was "
                "added since is removed, unless --keep-new is given.",
     .example = "tidewrack restore 12 src README.md",
     .run = commands::restore},
    {.name = "undo",
     .words = "[N|A..B] [path...]",
     .group = Group::gettingBack,
     .effect = Effect::changes,
     .fills = snapshotAndPaths,
     .mostWords = Command::anyNumber,
     .options = undoOptions,
     .summary = "take back a turn, a session, or what changed after snapshot N or from A to B",
     .details =
         "What was changed since stays: in text files line by line, as long as the lines don't clash. Where they do, "
         "or "
         "a file is no text, was deleted or made anew since, the path is left alone and the exit status is 3. A turn "
         "is taken back in every tracked project it worked in. `undo N` takes back what changed between snapshot N and "
         "the next, whatever came later to those paths. Takes a safety snapshot first: `tidewrack redo` takes the undo "
         "back.",
     .example = "tidewrack undo --last --dry-run",
     .run = commands::undo},
    {.name = "redo",
     .group = Group::gettingBack,
     .effect = Effect::changes,
     .mostWords = Command::anyNumber, // the command itself refuses them
     .options = redoOptions,
     .summary = "take back the newest undo or restore; again: the one before",
     .details = "With the same care for what was changed since. Takes a safety snapshot first.",
     .example = "tidewrack redo",
     .run = commands::redo},
    {.name = "export",
     .words = "N DIR|- [path...]",
     .group = Group::gettingBack,
     .effect = Effect::changes,
     .fills = snapshotFolderAndPaths,
     .mostWords = Command::anyNumber,
     .options = exportOptions,
     .summary = "write snapshot N, or some paths of it, into another folder",
     .details = "DIR is a new or an empty folder outside of tracked projects; nothing is overwritten, and the project "
                "stays as it is. - stands for a tar archive on standard output. What was not kept is named, and the "
                "exit status is 3 then.",
     .example = "tidewrack export 12 ~/before-the-clean-up",
     .run = commands::exportSnapshot},
    {.name = "hooks status",
     .group = Group::agents,
     .options = hooksStatusOptions,
     .summary = "where hooks are installed",
     .details = "One line for each agent.",
     .example = "tidewrack hooks status",
     .run = commands::hooksStatus},
    {.name = "hooks install",
     .words = "[agent|all]",
     .group = Group::agents,
     .effect = Effect::changes,
     .fills = agentOrAll,
     .mostWords = 1,
     .options = hooksChangeOptions,
     .summary = "let agents take snapshots and be guarded (default: all that are present)",
     .details = "The agent's configuration as it was is kept beside it.",
     .example = "tidewrack hooks install claude",
     .run = commands::hooksInstall},
    {.name = "hooks uninstall",
     .words = "[agent|all]",
     .group = Group::agents,
     .effect = Effect::changes,
     .fills = agentOrAll,
     .mostWords = 1,
     .options = hooksChangeOptions,
     .summary = "remove the hooks",
     .details = "The agent's configuration as it was is kept beside it.",
     .example = "tidewrack hooks uninstall all",
     .run = commands::hooksUninstall},
    {.name = "hooks print",
     .words = "<agent>",
     .group = Group::agents,
     .fills = anAgent,
     .mostWords = 1,
     .options = homeOptions,
     .summary = "show the hooks, to add them by hand",
     .details = "For a configuration that cannot be edited, because it has comments or is kept elsewhere.",
     .example = "tidewrack hooks print claude",
     .run = commands::hooksPrint},
    {.name = "hook",
     .words = "<agent>",
     .group = Group::agents,
     .fills = anAgent,
     .mostWords = 1,
     .options = hookOptions,
     .summary = "answer one hook event on standard input (called by the agents)",
     .details = "A failure inside is logged, and the agent's command allowed.",
     .example = "tidewrack hook claude <event.json",
     .run = commands::hook},
    {.name = "mcp",
     .group = Group::agents,
     .effect = Effect::changes,
     .options = mcpOptions,
     .summary = "offer the history to an agent, as tools of the Model Context Protocol",
     .details =
         "Answers on standard output what a client asks on standard input, until that ends: timeline, show, diff, "
         "find, cat, versions and status of one project. With --write also restore and undo, which tell first "
         "what they would do and take a safety snapshot. docs/mcp.md tells how clients are set up.",
     .example = "tidewrack mcp --project ~/project",
     .run = commands::mcp},
    {.name = "vault",
     .group = Group::agents,
     .options = jsonOptions,
     .summary = "list what was saved outside of projects",
     .details = "Newest first, with the command that was about to touch it. Entries are kept for 30 days.",
     .example = "tidewrack vault",
     .run = commands::vault},
    {.name = "vault restore",
     .words = "<id>",
     .group = Group::agents,
     .effect = Effect::changes,
     .fills = aVaultEntry,
     .mostWords = 1,
     .options = vaultRestoreOptions,
     .summary = "put a vault entry back",
     .details =
         "What stands in its place now is moved aside. git's own state of a repository goes into a new folder beside "
         "git's own, which stays as it is.",
     .example = "tidewrack vault restore 20260314-093005-1F3A9C",
     .run = commands::vaultRestore},
    {.name = "guard explain",
     .words = "COMMAND",
     .group = Group::agents,
     .mostWords = 1,
     .options = jsonOptions,
     .summary = "what a hook would see in a shell command, and save first",
     .details =
         "Nothing is run or saved. COMMAND is one word, in quotes: its commands, what it may delete or overwrite "
         "and because of which of them, what only running would show, the verdict with its reason, and where a "
         "hook would save what first.",
     .example = "tidewrack guard explain 'rm -rf build && make'",
     .run = commands::guardExplain},
    {.name = "run",
     .words = "-- COMMAND [word...]",
     .group = Group::agents,
     .effect = Effect::adds,
     .fills = aPath,
     .mostWords = Command::anyNumber,
     .options = projectOptions,
     .summary = "run a command between two snapshots, and tell what it changed",
     .details =
         "For agents and tools without hooks. What it changed in the project is told on standard error, with the "
         "command that takes it back. The exit status is that of COMMAND.",
     .example = "tidewrack run -- npm install",
     .run = commands::runCommand},
    {.name = "shell-init",
     .words = "bash|zsh|fish",
     .group = Group::agents,
     .fills = aShell,
     .mostWords = 1,
     .summary = "print what lets your own shell save and ask like a hook",
     .details = "For the shell's start-up file. A line that may delete or overwrite something is saved before it runs, "
                "and where a hook would ask an agent's user, you are asked. TIDEWRACK_SHELL=off switches it off.",
     .example = "echo 'eval \"$(tidewrack shell-init bash)\"' >>~/.bashrc",
     .run = commands::shellInit},
    {.name = "completion",
     .words = "bash|zsh|fish",
     .group = Group::others,
     .fills = aShell,
     .mostWords = 1,
     .summary = "print the completions for a shell",
     .details =
         "Packages bring them along. Without one: source <(tidewrack completion bash) in ~/.bashrc; for zsh write "
         "them into a file _tidewrack in a folder of $fpath, for fish into "
         "~/.config/fish/completions/tidewrack.fish.",
     .example = "tidewrack completion fish >~/.config/fish/completions/tidewrack.fish",
     .run = commands::completion},
    {.name = "version",
     .group = Group::others,
     .summary = "print the version",
     .example = "tidewrack version",
     .run = commands::version},
    {.name = "help",
     .words = "[command]",
     .group = Group::others,
     .fills = aCommand,
     .mostWords = 2,
     .summary = "print this text, or what a command does",
     .example = "tidewrack help restore",
     .run = commands::help},
    {.name = "hooks",
     .mostWords = Command::anyNumber,
     .options = hooksOptions,
     .summary = "install hooks into the agents, or see where they are",
     .example = "tidewrack hooks install",
     .run = commands::hooksOther},
    {.name = "config",
     .mostWords = Command::anyNumber,
     .options = configOptions,
     .summary = "what is set for this folder's history",
     .example = "tidewrack config list",
     .run = commands::config},
    {.name = "guard",
     .mostWords = Command::anyNumber,
     .summary = "what a hook would see in a shell command, and save first",
     .example = "tidewrack guard explain 'rm -rf build && make'",
     .run = commands::guardOther},
    {.name = "_bench-walk", .mostWords = 1, .options = projectOptions, .run = commands::benchWalk},
    {.name = "_before", .mostWords = 1, .run = commands::beforeCommand},
    {.name = "_complete", .mostWords = Command::anyNumber, .run = commands::complete},
};

const Command* named(std::string_view name) {
    const auto found =
        std::find_if(std::begin(table), std::end(table), [&](const Command& command) { return command.name == name; });
    return found == std::end(table) ? nullptr : found;
}

} // namespace

const Option* Command::option(std::string_view optionName) const {
    const auto found =
        std::find_if(options.begin(), options.end(), [&](const Option& option) { return option.name == optionName; });
    return found == options.end() ? nullptr : &*found;
}

std::span<const Command> commandTable() {
    return table;
}

const Command* commandOf(const std::vector<std::string>& words) {
    if (words.empty() || words[0].find(' ') != std::string::npos) return nullptr;
    if (words.size() > 1)
        if (const Command* command = named(words[0] + " " + words[1])) return command;
    return named(words[0]);
}

std::span<const Option> globalOptions() {
    return globals;
}

bool isGlobalOption(std::string_view optionName) {
    return std::any_of(std::begin(globals), std::end(globals),
                       [&](const Option& option) { return option.name == optionName; });
}

bool takesValue(std::string_view optionName) {
    if (!optionName.starts_with('-')) return false;
    for (const Option& option : globals)
        if (option.name == optionName) return option.takesValue();
    for (const Command& command : table)
        if (const Option* option = command.option(optionName)) return option->takesValue();
    return false;
}

} // namespace tidewrack
