#include "Engine/Forget.hpp"

#include "Store/Forgotten.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <utility>

namespace tidewrack {

namespace {

// The places among the records at which a turn began and ended; of one without an end, the number of records.
struct Turn {
    std::size_t begin = 0;
    std::size_t end = 0;
};

std::vector<Turn> turnsIn(const std::vector<SnapshotMeta>& records) {
    std::vector<Turn> turns;
    std::map<std::pair<std::string, std::string>, std::size_t> open;
    for (std::size_t at = 0; at < records.size(); ++at) {
        const SnapshotMeta& meta = records[at];
        const bool begins = meta.kind == "prompt";
        const bool ends = meta.kind == "stop";
        if (!begins && !ends && meta.kind != "tool") continue;
        const auto session = std::pair(meta.agent.value_or(""), meta.session.value_or(""));
        auto found = open.find(session);
        if (found != open.end() && (begins || ends)) {
            turns[found->second].end = at;
            open.erase(found);
            found = open.end();
        }
        if (found == open.end() && !ends) {
            open[session] = turns.size();
            turns.push_back({at, records.size()});
        }
    }
    return turns;
}

struct Plan {
    ForgetResult result;
    Forgotten forgotten;    // as it is from the beginning of the removal
    bool isPending = false; // an earlier one was cut short
};

// What can't be read may be one that is to go, or the turn of one, and a removal that has begun may not be lost.
std::vector<SnapshotMeta> readAll(const History& history, Forgotten& forgotten) {
    std::string text;
    const std::string path = forgottenPath(history.folder());
    if (const int error = readFile(path, text); error == 0)
        forgotten = decodeForgotten(text);
    else if (error != ENOENT)
        throw TidewrackError::io("read", path, error);
    std::vector<SnapshotMeta> records = history.snapshots();
    for (const std::int64_t seq : history.seqs()) {
        const bool isRead =
            std::any_of(records.begin(), records.end(), [&](const auto& each) { return each.seq == seq; });
        if (!isRead) throw TidewrackError::io("can't read the record of snapshot #" + std::to_string(seq));
    }
    return records;
}

Plan planForget(const History& history, const ForgetChoice& choice) {
    Plan plan;
    const std::vector<SnapshotMeta> records = readAll(history, plan.forgotten);
    std::set<std::int64_t> removed;
    const std::set<std::int64_t> pending(plan.forgotten.snapshots.begin(), plan.forgotten.snapshots.end());
    const std::set<std::int64_t> named(choice.seqs.begin(), choice.seqs.end());
    for (const std::int64_t seq : named)
        if (!pending.contains(seq)) (void)history.snapshot(seq); // throws where there is none
    ForgetResult& result = plan.result;
    for (const SnapshotMeta& meta : records) {
        const bool isOld = choice.before && meta.created < *choice.before;
        const bool isPending = pending.contains(meta.seq);
        if (isOld && meta.pinned && !isPending) result.left.push_back(meta.seq);
        if (!isPending && !named.contains(meta.seq) && (!isOld || meta.pinned)) continue;
        removed.insert(meta.seq);
        if (isPending) result.resumed.push_back(meta.seq);
        if (meta.pinned) result.pinned.push_back(meta.seq);
    }
    result.removed.assign(removed.begin(), removed.end());
    result.remaining = records.size() - removed.size();
    plan.forgotten.lose(lostWith(records, removed));
    plan.isPending = !pending.empty();
    plan.forgotten.snapshots = result.removed;
    return plan;
}

} // namespace

std::vector<Stretch> lostWith(const std::vector<SnapshotMeta>& records, const std::set<std::int64_t>& removed) {
    const auto isGone = [&](std::size_t at) { return removed.contains(records[at].seq); };
    // From the last one that stays at or before a place to the first one at or behind another.
    const auto around = [&](std::size_t from, std::size_t to) {
        while (from > 0 && isGone(from)) --from;
        while (to < records.size() && isGone(to)) ++to;
        return Stretch{isGone(from) ? 0 : records[from].seq,
                       to < records.size() ? records[to].seq : records.back().seq + 1};
    };
    std::vector<Stretch> lost;
    for (std::size_t at = 0; at < records.size(); ++at)
        if (isGone(at)) lost.push_back(around(at, at));
    for (const Turn& turn : turnsIn(records))
        if (isGone(turn.begin) || (turn.end < records.size() && isGone(turn.end)))
            lost.push_back(around(turn.begin, turn.end));
    return lost;
}

ForgetResult forget(const Engine& engine, const Project& project, const ForgetChoice& choice, Engine::Acting acting) {
    const History history = engine.store.history(project);
    if (acting == Engine::Acting::dryRun) {
        ForgetResult result = planForget(history, choice).result;
        const std::set<std::int64_t> removed(result.removed.begin(), result.removed.end());
        if (!removed.empty()) result.contents = foreseeRemoval(engine, project, removed).removedBlobs;
        return result;
    }
    const ProjectLock lock(history.lockPath());
    auto [result, forgotten, isPending] = planForget(history, choice);
    if (result.removed.empty() && !isPending) return result;
    const std::set<std::int64_t> removed(result.removed.begin(), result.removed.end());
    (void)foreseeRemoval(engine, project, removed); // what can't be removed is refused before anything is written
    writeForgotten(lock, history.folder(), forgotten);
    result.contents = removeSnapshots(engine, lock, project, removed).removedBlobs;
    history.bringRecordsToDisk(lock); // else a power cut may bring back a record that nobody would remove again
    forgotten.snapshots.clear();
    const auto seqs = history.seqs();
    if (!seqs.empty()) forgotten.dropBefore(seqs.front());
    writeForgotten(lock, history.folder(), forgotten);
    return result;
}

} // namespace tidewrack
