#pragma once
// What `undo` does when it is given a turn, a session or a range instead of a snapshot.

#include "Args.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

class Invocation;
class TurnUndo;
struct TimelineRow;

namespace commands {

// Whether `undo` was given a turn, a session or a range.
[[nodiscard]] bool isUndoOfTurns(const Args& args);
int undoTurns(Invocation& call);
// `undo` without a word shows what `undo --last` would do and asks, where there is a terminal to ask on.
[[nodiscard]] bool canAsk(Invocation& call);
// The answer, down to the end of its line.
[[nodiscard]] bool saysYes(Invocation& call, const char* question);
int undoAsking(Invocation& call);
// Works out the rows' counts. Where a listing can't be read a warning tells so, and the row stays without.
void countAll(Invocation& call, const TurnUndo& undo, std::vector<TimelineRow>& rows);
// Throws CliError for an --agent that is none, and for a --session that has no row.
void refuseUnknownFilters(const Invocation& call, const TurnUndo& undo);
// Throws refused when no agent was at work in the project.
[[nodiscard]] const TimelineRow& newestTurn(const TurnUndo& undo);
// Names the turn that a snapshot belongs to, where that is more than what changed up to the next one, or where nothing
// did (`idle`); then also its next step that changed something. Whether it named one.
bool hintAtTurn(Invocation& call, const Project& project, std::int64_t seq, bool idle);

} // namespace commands

} // namespace tidewrack
