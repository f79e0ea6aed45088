#pragma once
// What a listing names without its content.

#include "Store/Manifest.hpp"

#include <cstdint>
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

    [[nodiscard]] std::int64_t count() const { return tooLarge + static_cast<std::int64_t>(failed.size()); }
};

[[nodiscard]] NotKept notKeptIn(const Manifest& listing);

} // namespace tidewrack
