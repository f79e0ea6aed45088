#pragma once
// The options of commands, as the table names them.

#include "CommandTable.hpp"

namespace tidewrack::options {

inline constexpr Option force{"--force", "", "track a very broad or very large folder all the same"};
inline constexpr Option label{"--label", "L", "a text for the snapshot"};
inline constexpr Option agent{"--agent", "A", "the agent it was taken for", Fill::agent};
inline constexpr Option session{"--session", "S", "the agent's session"};
inline constexpr Option turn{"--turn", "T", "the turn in that session"};
inline constexpr Option kind{"--kind", "K", "its kind (default: manual)"};
inline constexpr Option atMost{"-n", "N", "at most so many (default 20)"};
inline constexpr Option patch{"--patch", "", "line by line, as a patch"};
inline constexpr Option clockTimes{"--time", "", "with times of day in place of ages"};
inline constexpr Option byTurns{"--turns", "", "one row for each turn, as timeline has it"};
inline constexpr Option changedOnly{"--changed", "", "without the rows after which nothing changed"};
inline constexpr Option stat{"--stat", "", "only how many lines of each file changed"};
inline constexpr Option content{"--content", "", "compare bytes: leave out files that were only touched"};
inline constexpr Option noPager{"--no-pager", "", "print straight to the terminal, not through $PAGER"};
inline constexpr Option keepNew{"--keep-new", "", "leave what was added since"};
inline constexpr Option dryRun{"--dry-run", "", "only tell what would be done"};
inline constexpr Option olderThan{"--before", "TIME", "all snapshots that are older, but for pinned ones"};
inline constexpr Option unasked{"--yes", "", "without a question"};
inline constexpr Option newestTurn{"--last", "", "what the newest turn changed"};
inline constexpr Option lastTurn{"--last", "", "the newest turn that changed something"};
inline constexpr Option ofTurn{"--turn", "N", "the turn that snapshot N belongs to", Fill::turn};
inline constexpr Option ofSession{"--session", "S", "all turns of a session; its beginning is enough", Fill::session};
inline constexpr Option sessionOf{"--session-of", "N", "all turns of the session that snapshot N belongs to",
                                  Fill::turn};
inline constexpr Option overwriteLater{"--force", "", "put paths back whole that were changed since"};
inline constexpr Option keepLater{"--keep-later", "", "leave paths alone that were changed since"};
inline constexpr Option here{"--here", "", "in this project only, not in others that the turn worked in"};
inline constexpr Option someHunks{"--hunk", "LIST",
                                  "of the one path named only these hunks, as 1,3, counted as show and diff list them; "
                                  "1:DIGEST, as --lines tells it, is none but that one"};
inline constexpr Option changedLines{"--lines", "", "with --json: the changed lines of each file, in hunks"};
inline constexpr Option withVault{"--vault", "", "also put back what was saved outside of projects for the turn"};
inline constexpr Option byAgent{"--agent", "A", "only turns of this agent", Fill::agent};
inline constexpr Option inSession{"--session", "S", "only turns of this session", Fill::session};
inline constexpr Option withCommands{"--commands", "", "with the commands that were run"};
inline constexpr Option picking{"-i", "", "pick from it in the terminal: read, preview and take back"};
inline constexpr Option asPage{"--html", "FILE", "write it as a page that a browser shows, with what each turn changed",
                               Fill::path};
inline constexpr Option withContents{"--contents", "", "with --html: put the changed lines in, without asking"};
inline constexpr Option withoutContents{"--no-contents", "",
                                        "with --html: leave changed lines, prompts and commands out"};
inline constexpr Option onPort{"--port", "N", "listen on that port (default: any free one)"};
inline constexpr Option noOpen{"--no-open", "", "only print the address"};
inline constexpr Option readOnly{"--read-only", "", "a page that changes nothing"};
inline constexpr Option everyByte{"--contents", "", "read every byte of what was kept"};
inline constexpr Option deleted{"--deleted", "", "only what is not in the folder now"};
inline constexpr Option inLines{"--lines", "", "in lines that were changed, not in names"};
inline constexpr Option amongRows{"-n", "N", "with --lines: in so many rows of the timeline"};
inline constexpr Option behindRows{"--skip", "N", "with --lines: behind so many of the newest rows"};
inline constexpr Option oneWord{"--short", "",
                                "one word, for a prompt: ok, untracked or trouble; without a look at the hooks' files"};
inline constexpr Option mend{"--repair", "", "mend what can be mended, and move aside what is damaged"};
inline constexpr Option asPlugin{"--plugin", "",
                                 "leave the event to the hooks that the user has installed, where they run"};
inline constexpr Option write{"--write", "", "also offer restore and undo"};
inline constexpr Option printHooks{"--print", "", "the same as the word print"};

inline constexpr Option project{"--project", "PATH", "act on the project that contains PATH, not this folder",
                                Fill::folder, true};
inline constexpr Option home{"--home", "PATH", "the home folder whose agents `hooks` configures", Fill::folder, true};
inline constexpr Option json{"--json", "", "machine-readable output", Fill::nothing, true};

inline constexpr Option globals[] = {{"-C", "DIR", "act as if started in DIR", Fill::folder, true},
                                     {"--help", "", "explain the command", Fill::nothing, true}};

inline constexpr Option trackOptions[] = {force, json};
inline constexpr Option untrackOptions[] = {dryRun, project, json};
inline constexpr Option jsonOptions[] = {json};
inline constexpr Option snapOptions[] = {label, agent, session, turn, kind, project, json};
inline constexpr Option logOptions[] = {atMost, clockTimes, byTurns, changedOnly, patch, noPager, project, json};
inline constexpr Option diffOptions[] = {newestTurn, patch, stat, content, changedLines, noPager, project, json};
inline constexpr Option projectOptions[] = {project};
inline constexpr Option pinOptions[] = {project, json};
inline constexpr Option pruneOptions[] = {dryRun, project, json};
inline constexpr Option forgetOptions[] = {olderThan, dryRun, unasked, project, json};
inline constexpr Option checkOptions[] = {everyByte, mend, project, json};
inline constexpr Option statusOptions[] = {oneWord, project, json};
inline constexpr Option usageOptions[] = {project, json};
inline constexpr Option mirrorOptions[] = {dryRun, json};
inline constexpr Option moveOptions[] = {dryRun, json};
inline constexpr Option ruleOptions[] = {dryRun, project, json};
inline constexpr Option configOptions[] = {project, json};
inline constexpr Option restoreOptions[] = {dryRun, keepNew, project, json};
inline constexpr Option undoOptions[] = {lastTurn,       ofTurn,    ofSession, sessionOf, someHunks, dryRun,
                                         overwriteLater, keepLater, here,      withVault, project,   json};
inline constexpr Option showOptions[] = {stat, changedLines, noPager, project, json};
inline constexpr Option redoOptions[] = {dryRun, overwriteLater, keepLater, project, json};
inline constexpr Option timelineOptions[] = {atMost,       byAgent,         inSession, withCommands, picking, asPage,
                                             withContents, withoutContents, noPager,   project,      json};
inline constexpr Option browseOptions[] = {onPort, noOpen, readOnly, project};
inline constexpr Option findOptions[] = {deleted, inLines, amongRows, behindRows, noPager, project, json};
inline constexpr Option exportOptions[] = {project, json};
inline constexpr Option hooksOptions[] = {printHooks, home};
inline constexpr Option hooksStatusOptions[] = {home, json};
inline constexpr Option homeOptions[] = {home};
inline constexpr Option hooksChangeOptions[] = {dryRun, home, json};
inline constexpr Option hookOptions[] = {asPlugin};
inline constexpr Option mcpOptions[] = {write, project};
inline constexpr Option vaultRestoreOptions[] = {dryRun, json};

} // namespace tidewrack::options
