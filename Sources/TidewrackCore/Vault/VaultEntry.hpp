#pragma once
// The record of one vault entry: what was saved, before which command.

#include "Support/Dates.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Why a path was not saved.
enum class NotSaved : std::uint8_t {
    notThere,     // nothing is at the path
    inStore,      // it is a part of Tidewrack's own history
    special,      // a socket, a pipe or a device: it holds nothing that a copy could keep
    tooManyFiles, // in the folder
    tooLarge,     // for a copy from another volume, or for the hourly one
    noRoom,       // on the history's volume
    noTime,       // before the deadline
    unreadable,
};

[[nodiscard]] const char* rawValue(NotSaved reason); // as records have it

struct VaultEntry {
    struct Item {
        std::string original; // the absolute path that was saved
        std::string stored;   // "items/<n>", relative to the entry's folder
        std::string kind;     // "file", "dir" or "link"
        std::string parent;   // the canonical folder that `original` lay in; empty in a record without it

        bool operator==(const Item&) const = default;
    };

    std::string id; // its folder's name in the vault
    Date created{};
    std::int64_t nanos = 0;           // behind `created`: puts the entries of one second in order; 0 in older records
    std::string command;              // the agent's shell command, or what else asked for the copies
    std::optional<std::string> agent; // absent: no agent asked for it
    std::optional<std::string> session;
    std::optional<std::string> turn;
    std::string cwd;      // the folder the command was to run in
    std::string gitState; // the repository of which git's own state is all that this holds; empty: other things
    std::vector<Item> items;
    std::vector<std::string> skipped; // paths that were not saved
    std::vector<NotSaved> reasons;    // one for each of `skipped`; empty in a record without them

    // Of one of `skipped`; none in a record without reasons.
    [[nodiscard]] std::optional<NotSaved> reason(std::size_t index) const;
    // Whether something was there that could have been saved.
    [[nodiscard]] bool isLeftOut(std::size_t index) const;
    [[nodiscard]] std::size_t leftOut() const; // how many of `skipped`

    bool operator==(const VaultEntry&) const = default;
    [[nodiscard]] bool isOlderThan(const VaultEntry& other) const;
};

[[nodiscard]] nlohmann::json toJson(const VaultEntry& entry);

// Reads a record's text; `source` names it in the error. Throws TidewrackError corrupt.
[[nodiscard]] VaultEntry decodeVaultEntry(std::string_view text, const std::string& source);

} // namespace tidewrack
