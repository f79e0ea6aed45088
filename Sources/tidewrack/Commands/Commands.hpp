#pragma once
// The functions behind the command table, which says what each does. All return the exit status and throw what went
// wrong.

#include <cstddef>
#include <string>

namespace tidewrack {

class Invocation;
struct Args;

namespace commands {

// Projects.cpp
int track(Invocation& call);
int untrack(Invocation& call);
int projects(Invocation& call);

// Log.cpp
// "-n", 20 when it is not given.
[[nodiscard]] std::size_t mostListed(const Args& args);
int log(Invocation& call);

// Snapshots.cpp
int snap(Invocation& call);
int diff(Invocation& call);

// Find.cpp
int find(Invocation& call);

// Export.cpp
int exportSnapshot(Invocation& call);

// Contents.cpp
int cat(Invocation& call);

// Care.cpp
int pin(Invocation& call);
int unpin(Invocation& call);
int prune(Invocation& call);
int forget(Invocation& call);
int check(Invocation& call);
int usage(Invocation& call);
int benchWalk(Invocation& call);

// Mirror.cpp
int mirror(Invocation& call);

// Move.cpp
int move(Invocation& call);

// Excluding.cpp
int exclude(Invocation& call);
int include(Invocation& call);

// Config.cpp
int configList(Invocation& call);
int configGet(Invocation& call);
int configSet(Invocation& call);
int config(Invocation& call); // `config` with no word, or with one that it does not know

// GettingBack.cpp
int restore(Invocation& call);
int undo(Invocation& call);

// Turns.cpp
int timeline(Invocation& call);
int show(Invocation& call);
int redo(Invocation& call);

// Browse.cpp
// Both become the program that makes the page, and return only by a throw.
int browse(Invocation& call);
int timelineAsPage(Invocation& call, const std::string& file);
int pickFromTimeline(Invocation& call);

// Hooks.cpp
int hooksStatus(Invocation& call);
int hooksInstall(Invocation& call);
int hooksUninstall(Invocation& call);
int hooksPrint(Invocation& call);
int hooksOther(Invocation& call); // `hooks` with no word, or with one that it does not know

// Status.cpp
int status(Invocation& call);

// Hook.cpp
int hook(Invocation& call);

// Mcp.cpp
int mcp(Invocation& call);

// Guard.cpp
int guardExplain(Invocation& call);
int guardOther(Invocation& call);
int beforeCommand(Invocation& call);

// ShellInit.cpp
int shellInit(Invocation& call);

// Run.cpp
int runCommand(Invocation& call);

// Vault.cpp
int vault(Invocation& call);
int vaultRestore(Invocation& call);

// Help.cpp
int help(Invocation& call);
int version(Invocation& call);

// Completion.cpp
int complete(Invocation& call);
int completion(Invocation& call);

} // namespace commands

} // namespace tidewrack
