#include "Timeline/StepReader.hpp"

#include "Changes/Changes.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Timeline/PathPlanner.hpp"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <map>

namespace tidewrack {

namespace {

// So long at least no snapshot is pruned: a number that is missing was never recorded.
constexpr std::chrono::hours allKept{48};

bool covers(const Stretch& all, const Stretch& part) {
    return all.from <= part.from && (all.to == untilNow || (part.to != untilNow && part.to <= all.to));
}

std::string companyText(const TimelineRow::Company& company, const TimelineRow& row) {
    std::string text = company.agent.empty()        ? "another session"
                       : company.agent == row.agent ? "another session of " + company.agent
                                                    : company.agent;
    text += (company.seen ? " was" : " may have been");
    text += " at work here from #" + std::to_string(company.during.from);
    return text + (company.during.to == untilNow ? " on" : " to #" + std::to_string(company.during.to));
}

std::string missingText(const Stretch& stretch) {
    const bool one = stretch.to == stretch.from + 2;
    return "snapshot" + std::string(one ? "" : "s") + " #" + std::to_string(stretch.from + 1) +
           (one ? " is" : "–#" + std::to_string(stretch.to - 1) + " are") +
           " missing, so that it can't be told whose change this is";
}

std::string forgottenText(const Stretch& stretch) {
    return "snapshots were forgotten from #" + std::to_string(stretch.from) +
           (stretch.to == untilNow ? " on" : " to #" + std::to_string(stretch.to)) +
           ", so that it can't be told whose change this is";
}

std::string unreadText(std::int64_t seq) {
    return "what is on record of #" + std::to_string(seq) +
           " can't be read, so that it can't be told whose change this is";
}

// What differs, and what both have of the folders that git ignores in one of them.
Manifest reduced(const Manifest& listing, const Manifest& other, const std::vector<std::string>& paths) {
    ManifestBuilder builder;
    for (const std::string& path : paths)
        if (const Entry* entry = listing.find(path)) builder.add(path, *entry);
    for (const Manifest* each : {&listing, &other})
        for (const auto& item : each->items())
            if (const Entry* entry = item.entry.isIgnoredFolder() ? listing.find(item.path) : nullptr)
                builder.add(item.path, *entry);
    return builder.finish();
}

} // namespace

std::vector<Stretch> openStretches(const TimelineRow& row) {
    std::vector<Stretch> all(row.stretches.rbegin(), row.stretches.rend());
    if (row.isRunning() && !all.empty()) all.front().to = untilNow;
    return all;
}

UndoSteps StepReader::read(const std::vector<TimelineRow>& rows) {
    UndoSteps steps;
    for (const TimelineRow& row : rows)
        for (const Part& part : partsOf(row)) add(row, part, steps);
    return steps;
}

// Of a turn newest first what lies between two snapshots each, what is in no doubt in one piece.
std::vector<StepReader::Part> StepReader::partsOf(const TimelineRow& row) const {
    std::vector<Part> parts;
    for (const Stretch& stretch : openStretches(row)) {
        if (row.type != TimelineRow::Type::turn) {
            parts.push_back({stretch});
            if (row.type == TimelineRow::Type::outside && isLost(stretch)) parts.back().doubt = forgottenText(stretch);
            continue;
        }
        bool joins = false;
        std::int64_t to = stretch.to;
        for (auto at = records_.rbegin(); at != records_.rend() && at->seq >= stretch.from; ++at) {
            if (to != untilNow && at->seq >= to) continue;
            Part part = partOf(row, {at->seq, to});
            to = at->seq;
            const bool clear = part.doubt.empty();
            if (clear && joins)
                parts.back().stretch.from = at->seq;
            else
                parts.push_back(std::move(part));
            joins = clear;
        }
    }
    return parts;
}

bool StepReader::isLost(const Stretch& stretch) const {
    return forgotten_.isLostIn({stretch.from, stretch.to == untilNow ? INT64_MAX : stretch.to});
}

StepReader::Part StepReader::partOf(const TimelineRow& row, const Stretch& stretch) const {
    Part part{stretch};
    const auto isWithin = [&](const UnreadRecord& record) {
        return stretch.from < record.seq && (stretch.to == untilNow || record.seq < stretch.to);
    };
    if (const auto unread = std::find_if(unread_.begin(), unread_.end(), isWithin); unread != unread_.end()) {
        part.doubt = unreadText(unread->seq);
        return part;
    }
    const auto isKnown = [&](const Stretch& alone) { return covers(alone, stretch); };
    const bool isAlone = std::any_of(row.alone.begin(), row.alone.end(), isKnown);
    const bool gap = stretch.to != untilNow && stretch.to > stretch.from + 1 && !isAlone;
    const bool isBegin = row.beginLost && stretch.from == row.first;
    if (gap && (isBegin || record(stretch.from).created + allKept < now())) {
        part.doubt = missingText(stretch);
        return part;
    }
    if (isLost(stretch) && !isAlone) { // nor do names tell: what a person did to the same file may be in it
        part.doubt = forgottenText(stretch);
        return part;
    }
    for (const TimelineRow::Company& each : row.company)
        if (covers(each.during, stretch)) part.doubt += (part.doubt.empty() ? "" : "; ") + companyText(each, row);
    const auto isWait = [&](const Stretch& wait) { return covers(wait, stretch); };
    if (part.doubt.empty() && std::any_of(row.waits.begin(), row.waits.end(), isWait))
        part.doubt = "this came after the turn's end, while a task of it was still running";
    // A name that is lost may have been another's, which would make this look like this turn's own.
    const bool lacks = notes_.lackingUntil && row.began <= *notes_.lackingUntil;
    part.byEdits = !part.doubt.empty() && !lacks;
    return part;
}

void StepReader::add(const TimelineRow& row, const Part& part, UndoSteps& steps) {
    UndoStep step;
    step.doubt = part.doubt;
    const SnapshotMeta& from = record(part.stretch.from);
    if (part.stretch.to == untilNow) {
        step.before = listing(from);
        steps.open = steps.steps.size();
    } else {
        const SnapshotMeta& to = record(part.stretch.to);
        if (from.manifestOf == to.manifestOf) return;
        const Manifest after = listing(to);
        const Manifest before = listing(from);
        const std::vector<std::string> paths = changesWithFolderModes(before, after);
        if (paths.empty()) return;
        if (row.type == TimelineRow::Type::restore || row.type == TimelineRow::Type::undo)
            step.found = foundUnread(part.stretch.from, before, after, paths);
        step.before = reduced(before, after, paths);
        step.after = reduced(after, before, paths);
    }
    if (part.byEdits) noteOwners(row, part.stretch, step);
    steps.steps.push_back(std::move(step));
}

// What a restore's listing has in folders that it opened is what it put there, and what was there already: that is as
// in the newest listing before that looks into the folder.
std::optional<UndoStep::Paths> StepReader::foundUnread(std::int64_t from, const Manifest& before, const Manifest& after,
                                                       const std::vector<std::string>& paths) {
    std::map<std::string_view, std::string_view> unknown; // paths, with the folder that could not be read
    for (const std::string& path : paths)
        if (const auto folder = unreadAround(before, path); !folder.empty()) unknown.emplace(path, folder);
    UndoStep::Paths found;
    std::vector<std::string_view> alike; // folders that may have been made anew
    for (auto at = firstFrom(records_, from); !unknown.empty() && at != records_.begin(); --at) {
        const auto& older = *std::prev(at);
        if (older.seq + 1 != at->seq) return std::nullopt; // one that looked into it is pruned, maybe
        if (older.manifestOf == at->manifestOf) continue;
        const Manifest& listed = listing(older);
        std::erase_if(unknown, [&](const auto& each) {
            if (!listed.listsBelow(each.second)) return false;
            const Entry* was = listed.find(each.first);
            const Entry* is = after.find(each.first);
            if (was == nullptr || is == nullptr) return true;
            if (was->sameAttributes(*is))
                found.emplace(each.first);
            else if (isFolder(was) && isFolder(is) && was->ino == is->ino)
                alike.push_back(each.first);
            return true;
        });
    }
    if (!unknown.empty()) return std::nullopt;
    std::sort(alike.begin(), alike.end(), std::greater<>()); // what is in a folder comes before it
    for (const std::string_view folder : alike)
        if (const auto below = found.upper_bound(std::string(folder) + "/");
            below != found.end() && isAtOrBelow(*below, folder))
            found.emplace(folder);
    return found;
}

void StepReader::noteOwners(const TimelineRow& row, const Stretch& stretch, UndoStep& step) const {
    const SnapshotMeta& from = record(stretch.from);
    const SnapshotMeta* to = stretch.to == untilNow ? nullptr : &record(stretch.to);
    for (const NotedEdit& edit : notes_.edits) {
        if (edit.time < row.began || (to != nullptr && !isBefore(edit, *to))) continue;
        const bool own = edit.agent == row.agent && edit.session == row.session;
        UndoStep::Named& named = own ? step.own : step.others;
        named.ever.insert(edit.path);
        if (isBehind(edit, from)) named.then.insert(edit.path);
    }
}

const SnapshotMeta& StepReader::record(std::int64_t seq) const {
    const auto found = firstFrom(records_, seq);
    if (found == records_.end() || found->seq != seq) throw TidewrackError::noSnapshot(seq);
    return *found;
}

const Manifest& StepReader::listing(const SnapshotMeta& meta) {
    for (const auto& [number, manifest] : read_)
        if (number == meta.manifestOf) return manifest;
    if (read_.size() > 1) read_.erase(read_.begin());
    read_.emplace_back(meta.manifestOf, history_.manifest(meta));
    return read_.back().second;
}

} // namespace tidewrack
