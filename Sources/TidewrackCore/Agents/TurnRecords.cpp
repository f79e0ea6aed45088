#include "Agents/TurnRecords.hpp"

#include "Agents/HookContext.hpp"
#include "Agents/HookHandler.hpp"
#include "Store/Forgotten.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <set>
#include <string>
#include <utility>

namespace tidewrack {

namespace {

// Other sessions that work in the same project record in between.
constexpr std::size_t fewRecords = 8;
constexpr std::size_t recordsOfATurn = 64;

// An agent that is not heard of for so long was cut off.
constexpr std::chrono::hours longestAtWork{24};

// Calls `isEnough` with the newest records, newest first, until it says so or `most` were read. Returns whether all of
// these could be.
template <typename IsEnough>
bool readNewest(const HookContext& context, const Project& project, std::size_t most, IsEnough isEnough) {
    try {
        const History history = context.handler.store.history(project);
        const auto seqs = history.seqs();
        for (std::size_t at = seqs.size(); at-- > 0 && seqs.size() - at <= most;)
            if (isEnough(history.snapshot(seqs[at]))) break;
        return true;
    } catch (const std::exception&) { // a snapshot, or an answer, matters more than what the records tell
        return false;
    }
}

bool isOfSession(const SnapshotMeta& record, const HookContext& context) {
    return record.session == context.event.session && record.agent == context.caller();
}

} // namespace

std::optional<SnapshotMeta> recordOfTurn(const HookContext& context, const Project& project) {
    std::optional<SnapshotMeta> found;
    readNewest(context, project, fewRecords, [&](const SnapshotMeta& record) {
        if (!isOfSession(record, context)) return false;
        if (record.turn == context.event.turn && (record.kind == "prompt" || record.kind == "tool")) found = record;
        return true;
    });
    return found;
}

std::optional<Date> promptTime(const HookContext& context, const Project& project) {
    std::optional<Date> time;
    if (context.event.turn) return time;
    readNewest(context, project, fewRecords, [&](const SnapshotMeta& record) {
        if (record.kind == "prompt" && record.session == context.event.session) time = record.created;
        return time.has_value();
    });
    return time;
}

bool hasOpenTurn(const HookContext& context, const Project& project) {
    bool isOpen = false;
    if (!context.event.session) return isOpen;
    readNewest(context, project, fewRecords, [&](const SnapshotMeta& record) {
        if (!isOfSession(record, context)) return false;
        isOpen = record.kind != "stop";
        return true;
    });
    return isOpen;
}

bool isInTurn(const HookContext& context, const Project& project, const std::optional<Date>& prompted) {
    const HookEvent& event = context.event;
    bool isIn = false;
    readNewest(context, project, 1, [&](const SnapshotMeta& latest) {
        if (latest.session == event.session && (latest.kind == "tool" || latest.kind == "prompt"))
            isIn = event.turn && latest.turn ? latest.turn == event.turn : !prompted || *prompted <= latest.created;
        return true;
    });
    return isIn;
}

namespace {

// Whether another session had not ended its turn before snapshot `began`, and may be at work since.
bool mayHaveCompany(const HookContext& context, const Project& project, std::int64_t began) {
    using Session = std::pair<std::optional<std::string>, std::optional<std::string>>;
    std::set<Session> seen;
    std::optional<Date> newest;
    bool any = false;
    const bool isRead = readNewest(context, project, recordsOfATurn, [&](const SnapshotMeta& record) {
        if (!newest) newest = record.created;
        if (record.created + longestAtWork < *newest) return true;
        const bool isNext = record.seq < began && seen.emplace(record.agent, record.session).second;
        if (isNext && !isOfSession(record, context)) any = any || record.kind == "prompt" || record.kind == "tool";
        return any;
    });
    return any || !isRead;
}

// Whether snapshots were forgotten that may have told of another session.
bool isLostSince(const HookContext& context, const Project& project, std::int64_t began) {
    return readForgotten(context.handler.store.history(project).folder()).isLostIn({began, INT64_MAX});
}

} // namespace

TurnEnd endOfTurn(const HookContext& context, const Project& project) {
    const HookEvent& event = context.event;
    TurnEnd end{event.interrupted, std::nullopt, std::nullopt, false};
    std::optional<std::int64_t> newest;
    bool others = false;
    readNewest(context, project, recordsOfATurn, [&](const SnapshotMeta& record) {
        if (!newest) newest = record.seq;
        const bool own = isOfSession(record, context);
        if (own && (record.kind == "stop" || (event.turn && record.turn && record.turn != event.turn))) return true;
        others = others || !own;
        if (!own) return false;
        end.began = record.seq;
        end.alone = !others;
        if (record.kind == "prompt" && record.background != true) end.title = record.label.value_or("");
        return end.title.has_value();
    });
    // Where nothing was recorded in between there is nothing that could be missing.
    end.alone = end.alone && *end.began < *newest && !mayHaveCompany(context, project, *end.began) &&
                !isLostSince(context, project, *end.began);
    return end;
}

} // namespace tidewrack
