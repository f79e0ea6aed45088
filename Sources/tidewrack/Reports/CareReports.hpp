#pragma once
// What the commands that look after the history show.

#include "Engine/Check.hpp"
#include "Output.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace tidewrack {

struct CheckReport {
    std::vector<CheckedProject> projects;
    CheckedVault vault;
    bool withVault = false; // whether it was looked at

    [[nodiscard]] bool isHealthy() const;
};

[[nodiscard]] std::string checkText(const CheckReport& report, const Look& look);
[[nodiscard]] nlohmann::json checkJson(const CheckReport& report);

// "1 file", "2 files", of any word that takes an s.
[[nodiscard]] std::string countText(std::int64_t count, const std::string& word);

// "#1", "#1-#4, #7": ranges of numbers, ascending.
[[nodiscard]] std::string numbersText(const std::vector<std::int64_t>& numbers);

} // namespace tidewrack
