#pragma once
// The record of one vault entry: what was saved, before which command.

#include "Support/Dates.hpp"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct VaultEntry {
    struct Item {
        std::string original; // the absolute path that was saved
        std::string stored;   // "items/<n>", relative to the entry's folder
        std::string kind;     // "file", "dir" or "link"

        bool operator==(const Item&) const = default;
    };

    std::string id; // its folder's name in the vault
    Date created{};
    std::string command;              // the agent's shell command, or what else asked for the copies
    std::optional<std::string> agent; // absent: no agent asked for it
    std::string cwd;                  // the folder the command was to run in
    std::vector<Item> items;
    std::vector<std::string> skipped; // paths that were not saved

    bool operator==(const VaultEntry&) const = default;
};

[[nodiscard]] nlohmann::json toJson(const VaultEntry& entry);

// Reads a record's text; `source` names it in the error. Throws TidewrackError corrupt.
[[nodiscard]] VaultEntry decodeVaultEntry(std::string_view text, const std::string& source);

} // namespace tidewrack
