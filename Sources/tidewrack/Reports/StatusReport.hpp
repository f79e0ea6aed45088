#pragma once
// Whether a folder's history works, and what mends it where it doesn't.

#include "Agents/LoggedEvents.hpp"
#include "Engine/NotKept.hpp"
#include "Output.hpp"
#include "Store/Records.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct StatusReport {
    enum class Git { answers, silent, missing };
    struct AgentState {
        std::string agent;
        std::string state; // as `hooks status` has it
        std::optional<std::string> hint;
        std::optional<LoggedEvent> latest;
    };
    struct Trouble {
        std::string what;
        std::string mend; // a command, or what else helps
    };

    std::string folder;
    std::optional<Project> project; // none: it is not tracked
    std::int64_t snapshots = 0;
    std::optional<SnapshotMeta> newest;
    NotKept notKept; // by the newest
    std::int64_t bytes = 0;
    bool sharesBlocks = false;
    Git git = Git::answers;
    std::vector<AgentState> agents;
    std::vector<LoggedEvent> failures; // of hooks, the latest ones
    std::vector<Trouble> troubles;
};

[[nodiscard]] std::string statusText(const StatusReport& report, Date now, const Look& look);
[[nodiscard]] nlohmann::json statusJson(const StatusReport& report);

} // namespace tidewrack
