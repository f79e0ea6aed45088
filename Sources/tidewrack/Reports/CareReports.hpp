#pragma once
// What the commands that look after the history show.

#include "Engine/Check.hpp"
#include "Engine/Repair.hpp"
#include "Engine/Usage.hpp"
#include "Output.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct CheckReport {
    std::vector<CheckedProject> projects;
    CheckedVault vault;
    bool withVault = false;                           // whether it was looked at
    std::optional<std::vector<RepairResult>> repairs; // what was mended before; none: nothing was to be

    [[nodiscard]] bool isHealthy() const;
};

[[nodiscard]] std::string checkText(const CheckReport& report, const Look& look);
[[nodiscard]] nlohmann::json checkJson(const CheckReport& report);

struct UsageReport {
    struct Turn {
        std::int64_t first = 0; // the snapshot that it began with
        std::string agent;
        std::string title;
    };
    struct Of {
        ProjectUsage usage;
        std::map<std::string, Turn> turns; // that brought large contents, by their names
    };
    std::vector<Of> projects;
    std::optional<VaultUsage> vault; // absent: not looked at
};

[[nodiscard]] std::string usageText(const UsageReport& report, const Look& look);
[[nodiscard]] nlohmann::json usageJson(const UsageReport& report);

// "#1", "#1-#4, #7": ranges of numbers, ascending.
[[nodiscard]] std::string numbersText(const std::vector<std::int64_t>& numbers);

} // namespace tidewrack
