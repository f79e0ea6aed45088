#include "Help.hpp"

namespace tidewrack {

namespace {

constexpr const char* helpBody = R"( — undo anything your AI agent did

Usage: tidewrack <command> [arguments] [options]

Projects
  track [path] [--force]        start keeping history of a folder (default: this one)
  untrack [path]                stop, and delete the history kept so far
  projects                      list the tracked folders

History
  snap [--label L]              take a snapshot now
       [--agent A] [--session S] [--turn T] [--kind K]
  log [-n N]                    list the latest snapshots (default 20), newest first
  diff A [B] [--patch]          what changed from snapshot A to B, or to now
  cat N path                    print a file as it was in snapshot N
  pin N, unpin N                keep a snapshot for ever, or no longer
  prune [--dry-run]             thin out old snapshots

Getting things back
  restore N [path...] [--keep-new]
                                put the folder, or some paths, back as they were at snapshot N
  undo N                        take back what changed between snapshot N and the next

Agents
  hooks status                  where hooks are installed
  hooks install [agent|all]     let agents take snapshots and be guarded (default: all that are present)
  hooks uninstall [agent|all]   remove the hooks
  hooks print <agent>           show the hooks, to add them by hand
  hook <agent>                  answer one hook event on standard input (called by the agents)
  vault                         list what was saved outside of projects
  vault restore <id>            put a vault entry back

  version, --version, -v        print the version
  help, --help, -h              print this text

Agents: claude, codex, cursor, gemini

Options
  --project PATH                act on the project that contains PATH, not this folder
  --home PATH                   the home folder whose agents `hooks` configures
  --json                        machine-readable output (track, projects, snap, log, diff, restore, undo, prune,
                                vault, hooks status)
An option's value is the next word (-n 5); options that a command does not know are ignored.

Environment
  TIDEWRACK_HOME                where the history is kept
                                (default: ~/Library/Application Support/Tidewrack)
  TIDEWRACK_TRACE=1             print how long each phase takes
  NO_COLOR=1                    no colours on a terminal
)";

} // namespace

const char* version() {
    return TIDEWRACK_VERSION;
}

std::string usageText() {
    return std::string("tidewrack ") + version() + helpBody;
}

} // namespace tidewrack
