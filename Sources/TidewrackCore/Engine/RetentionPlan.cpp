#include "Engine/RetentionPlan.hpp"

#include <algorithm>
#include <map>
#include <string>

namespace tidewrack {

namespace {

constexpr std::int64_t hour = 3600;
constexpr std::int64_t day = 86400;

std::set<std::int64_t> numbersToKeep(const std::vector<SnapshotMeta>& snapshots, Date now, std::optional<Date> upTo) {
    std::set<std::int64_t> keep;
    std::map<std::string, std::int64_t> buckets; // the newest snapshot of each
    for (const SnapshotMeta& meta : snapshots) {
        const std::int64_t created = secondsOf(meta.created);
        const std::int64_t age = secondsOf(now) - created;
        if (meta.pinned || std::chrono::seconds(age) < keepsAll)
            keep.insert(meta.seq);
        else if (upTo && meta.created <= *upTo && &meta != &snapshots.back())
            continue;
        else if (age < 7 * day)
            buckets["h" + std::to_string(created / hour)] = meta.seq;
        else if (age < 30 * day)
            buckets["d" + std::to_string(created / day)] = meta.seq;
    }
    for (const auto& [bucket, seq] : buckets) keep.insert(seq);
    return keep;
}

// A snapshot takes contents over from its direct predecessor only; one recorded after a restore takes them from any
// earlier snapshot, and one whose record was recovered may have been such a one. Where the direct predecessor is gone
// nothing vouches for the contents.
bool isVouchedFor(const SnapshotMeta& meta, const SnapshotMeta* before) {
    return before != nullptr && before->seq == meta.seq - 1 && meta.kind != "restored" && meta.kind != "recovered";
}

void planContents(const std::vector<SnapshotMeta>& snapshots, RetentionPlan& plan) {
    const SnapshotMeta* before = nullptr;
    for (const SnapshotMeta& meta : snapshots) {
        if (!plan.manifestsInUse.contains(meta.manifestOf)) {
            plan.manifestsFreed.insert(meta.manifestOf);
            // What it names beside its own contents is named by the one before it, which is either kept or removed
            // and looked at in the same way.
            const bool itsOwn = meta.manifestOf == meta.seq || (before && before->manifestOf == meta.manifestOf);
            if (!itsOwn || !isVouchedFor(meta, before)) plan.freesOwnContentsOnly = false;
        }
        before = &meta;
    }
}

// Whether the clock seems to have been set between these moments. Small steps back do not count: a restore's records
// have the time of its beginning, and clocks are put right by seconds all the time.
bool isJump(Date earlier, Date later) {
    const std::int64_t passed = (later - earlier).count();
    return passed > 400 * day || passed < -hour;
}

} // namespace

bool clockIsConfirmed(std::span<const Date> records, Date now) {
    if (records.empty()) return true;
    const Date* since = nullptr; // the record that the clock jumped to last
    for (std::size_t i = 1; i < records.size(); ++i)
        if (isJump(records[i - 1], records[i])) since = &records[i];
    const Date newest = records.back();
    return !isJump(newest, now) && (since == nullptr || (newest - *since).count() >= 2 * day);
}

bool clockIsConfirmed(const std::vector<SnapshotMeta>& snapshots, Date now) {
    std::vector<Date> records;
    records.reserve(snapshots.size());
    for (const SnapshotMeta& meta : snapshots) records.push_back(meta.created);
    return clockIsConfirmed(records, now);
}

RetentionPlan planRemoval(const std::vector<SnapshotMeta>& snapshots, const std::set<std::int64_t>& remove) {
    RetentionPlan plan;
    std::set<std::int64_t> toRead;
    const SnapshotMeta* before = nullptr; // the latest kept snapshot so far
    for (const SnapshotMeta& meta : snapshots) {
        if (remove.contains(meta.seq)) {
            plan.remove.push_back(meta.seq);
            continue;
        }
        plan.manifestsInUse.insert(meta.manifestOf);
        if (!isVouchedFor(meta, before)) toRead.insert(meta.manifestOf);
        before = &meta;
    }
    plan.manifestsToRead.assign(toRead.rbegin(), toRead.rend());
    planContents(snapshots, plan);
    return plan;
}

RetentionPlan planRetention(const std::vector<SnapshotMeta>& snapshots, Date now, std::optional<Date> upTo) {
    const auto keep = numbersToKeep(snapshots, now, upTo);
    std::set<std::int64_t> remove;
    for (const SnapshotMeta& meta : snapshots)
        if (!keep.contains(meta.seq)) remove.insert(meta.seq);
    return planRemoval(snapshots, remove);
}

} // namespace tidewrack
