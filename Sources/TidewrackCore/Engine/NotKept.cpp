#include "Engine/NotKept.hpp"

namespace tidewrack {

NotKept notKeptIn(const Manifest& listing) {
    NotKept result;
    for (const auto& [path, entry] : listing.items()) {
        if (entry.isIgnored()) ++(entry.kind == EntryKind::dir ? result.ignoredFolders : result.ignoredFiles);
        if (entry.isIgnored() || !entry.notKept()) continue;
        if (entry.blob.starts_with("big:")) {
            ++result.tooLarge;
            result.tooLargeBytes += entry.size;
        } else {
            result.failed.push_back({std::string(path), entry.notKeptReason().value_or("")});
        }
    }
    return result;
}

std::optional<Warning> leftOutSince(const Manifest& older, const Manifest& newer, const LeaveOutRules& rules) {
    if (rules.empty()) return std::nullopt;
    Warning warning;
    warning.kind = Warning::Kind::leftOutNow;
    for (const auto& [path, entry] : newer.items()) {
        if (!entry.isIgnored()) continue;
        const Entry* before = older.find(path);
        if (before == nullptr || before->isIgnored() || (entry.kind == EntryKind::dir && !older.listsBelow(path)))
            continue;
        if (rules.leavesOut(path, entry.kind == EntryKind::dir)) warning.entries.emplace_back(path);
    }
    return warning.entries.empty() ? std::nullopt : std::optional(warning);
}

} // namespace tidewrack
