#pragma once
// What a listing names without its content.

#include "Engine/Warning.hpp"
#include "Store/Manifest.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct NotKept {
    struct Failed {
        std::string path;
        std::string reason; // in words
    };
    std::int64_t tooLarge = 0;      // files over the limit
    std::int64_t tooLargeBytes = 0; // in these
    std::vector<Failed> failed;     // what could not be kept
    std::int64_t ignoredFolders = 0;
    std::int64_t ignoredFiles = 0; // and links

    [[nodiscard]] std::int64_t count() const { return tooLarge + static_cast<std::int64_t>(failed.size()); }
};

[[nodiscard]] NotKept notKeptIn(const Manifest& listing);
// Tells what the owner's rules leave out of the newer listing, and the older one still has.
[[nodiscard]] std::optional<Warning> leftOutSince(const Manifest& older, const Manifest& newer,
                                                  const LeaveOutRules& rules);

} // namespace tidewrack
