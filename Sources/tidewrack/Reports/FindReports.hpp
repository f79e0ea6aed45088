#pragma once
// What a search for names found, as text and as JSON.

#include "Engine/PathSearch.hpp"
#include "Output.hpp"
#include "Timeline/LineSearch.hpp"
#include "Timeline/Timeline.hpp"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <vector>

namespace tidewrack {

struct FindReport {
    FoundPaths found;
    std::vector<SnapshotMeta> records; // ascending
    Timeline timeline;
    std::vector<NotedEdit> edits;
    std::function<std::string(const FoundPath&)> command; // which gets a lost path back
};

// Two lines for a path that is gone: where it was and when it went, and the command; one for the others.
[[nodiscard]] std::string findText(const FindReport& report, Date now, const Look& look);
[[nodiscard]] nlohmann::json findJson(const FindReport& report);

struct LineReport {
    LineFindings found;       // rows with their counts
    std::size_t searched = 0; // rows of the timeline
    std::size_t all = 0;      // how many it has
};

// Each row as the timeline has it, its files, and their lines.
[[nodiscard]] std::string linesFoundText(const LineReport& report, Date now, const Look& look);
[[nodiscard]] nlohmann::json linesFoundJson(const LineReport& report);

} // namespace tidewrack
