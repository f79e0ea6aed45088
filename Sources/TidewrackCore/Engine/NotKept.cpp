#include "Engine/NotKept.hpp"

#include "Support/Text.hpp"

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

std::string tooLargeText(const NotKept& notKept) {
    if (notKept.tooLarge == 0) return {};
    const bool one = notKept.tooLarge == 1;
    return countText(notKept.tooLarge, "file") + " of " + bytesText(notKept.tooLargeBytes) +
           (one ? " is" : " in all are") + " listed but not kept";
}

} // namespace tidewrack
