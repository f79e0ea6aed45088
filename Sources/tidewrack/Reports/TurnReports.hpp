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
// A line with a turn's session, and from when to when it was at work.
[[nodiscard]] std::string timesText(const TimelineRow& row, Date now, const Look& look);

// What is being taken back, in a few words: "turn #2–#4 of claude, "set the port"".
[[nodiscard]] std::string choiceText(const UndoChoice& choice, Date now, const Look& look);
// One line a path: "+ " put back, "- " removed, "~ " overwritten, "! " left alone.
[[nodiscard]] std::string undoText(const UndoResult& result, const Look& look);
// The snapshots before and after each of the rows.
[[nodiscard]] nlohmann::json spansJson(const std::vector<TimelineRow>& rows);
[[nodiscard]] nlohmann::json undoJson(const std::string& root, const UndoChoice& choice, const UndoResult& result);

} // namespace tidewrack
