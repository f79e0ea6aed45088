#include "Engine/NotKept.hpp"

namespace tidewrack {

NotKept notKeptIn(const Manifest& listing) {
    NotKept result;
    for (const auto& [path, entry] : listing.items()) {
        if (entry.isIgnoredFolder()) ++result.ignoredFolders;
        if (!entry.notKept()) continue;
        if (entry.blob.starts_with("big:")) {
            ++result.tooLarge;
            result.tooLargeBytes += entry.size;
        } else {
            result.failed.push_back({std::string(path), entry.notKeptReason().value_or("")});
        }
    }
    return result;
}

} // namespace tidewrack
