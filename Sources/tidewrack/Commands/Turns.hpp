#pragma once
// What `undo` does when it is given a turn, a session or a range instead of a snapshot.

#include "Args.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

class Invocation;

namespace commands {

[[nodiscard]] bool isUndoOfTurns(const Args& args);
int undoTurns(Invocation& call);
// `undo` without a word tells what `undo --last` would do, and asks, where somebody can answer.
[[nodiscard]] bool canAsk(Invocation& call);
int undoAsking(Invocation& call);
// Names the turn that a snapshot belongs to, where that is more than what changed up to the next one, or where nothing
// did (`idle`). Whether it named one.
bool hintAtTurn(Invocation& call, const Project& project, std::int64_t seq, bool idle);

} // namespace commands

} // namespace tidewrack
