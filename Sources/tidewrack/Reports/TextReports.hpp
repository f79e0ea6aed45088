#pragma once
// What the commands show as text: relative ages, change counts, change lists, the log.

#include "Engine/Engine.hpp"
#include "Output.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// "59s ago", "3m ago", "2h ago", "5d ago"; whole units, truncated.
[[nodiscard]] std::string ago(Date date, Date now);

// "+3 ~0 -1", or "no changes" when all are 0.
[[nodiscard]] std::string countsText(const Changes::Counts& counts);

// A turn's prompt, or what else stands for a title, at most 60 characters long.
[[nodiscard]] std::string shortTitle(const std::string& title);
// The same in quotes; "(no prompt)" where a turn began with an empty one, or its beginning was not seen.
[[nodiscard]] std::string titleText(const std::string& title, const Look& look);

// "1 file", "2 files"
[[nodiscard]] std::string filesText(std::size_t count);

// One line per changed path: "+ ", "~ " or "- " and the path, folders with a final "/"; "No changes." for none.
[[nodiscard]] std::string changesText(const Changes& changes, const Look& look);

// The one-line summary and a "warning: " line for each path left alone.
[[nodiscard]] std::string restoreText(const RestoreResult& result, const Look& look = {});
// What a dry run found: one line for each path, with the sign of what would become of it, and the sums.
[[nodiscard]] std::string planText(const RestoreResult& result, const Look& look);
// The line of a dry run for what a restore that was cut short has left.
[[nodiscard]] std::string interruptedRow(const PathOutcome& outcome, const Look& look);
// The warnings alone.
[[nodiscard]] std::string warningsText(const RestoreResult& result, const Look& look = {});

// One line of the log, whatever the label holds; `when` is its age or time, `after` what changed after that snapshot,
// in words.
[[nodiscard]] std::string logLine(const SnapshotMeta& meta, const std::string& when, const std::string& after,
                                  const Look& look);
// The line of a snapshot of which nothing can be told.
[[nodiscard]] std::string logLine(const UnreadRecord& record, const Look& look);

} // namespace tidewrack
