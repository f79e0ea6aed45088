#pragma once
// The timeline and what taking a turn back does, as text and as JSON.

#include "Output.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace tidewrack {

// Rows whose counts are known.
[[nodiscard]] std::string timelineText(const std::vector<TimelineRow>& rows, bool commands, Date now, const Look& look);
[[nodiscard]] nlohmann::json timelineJson(const std::vector<TimelineRow>& rows);

// What is being taken back, in a few words: "turn #2–#4 of claude, "set the port"".
[[nodiscard]] std::string choiceText(const UndoChoice& choice, const Look& look);
// One line a path: "+ " put back, "- " removed, "~ " overwritten, "! " left alone.
[[nodiscard]] std::string undoText(const UndoResult& result, const Look& look);
[[nodiscard]] nlohmann::json undoJson(const std::string& root, const UndoChoice& choice, const UndoResult& result);

} // namespace tidewrack
