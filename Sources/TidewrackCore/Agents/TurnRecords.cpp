#include "Agents/TurnRecords.hpp"

#include "Agents/HookContext.hpp"
#include "Agents/HookHandler.hpp"

#include <cstddef>
#include <exception>

namespace tidewrack {

namespace {

// Other sessions that work in the same project record in between.
constexpr std::size_t fewRecords = 8;
constexpr std::size_t recordsOfATurn = 64;

// Calls `isEnough` with the newest records, newest first, until it says so or `most` were read.
template <typename IsEnough>
void readNewest(const HookContext& context, const Project& project, std::size_t most, IsEnough isEnough) {
    try {
        const History history = context.handler.store.history(project);
        const auto seqs = history.seqs();
        for (std::size_t at = seqs.size(); at-- > 0 && seqs.size() - at <= most;)
            if (isEnough(history.snapshot(seqs[at]))) return;
    } catch (const std::exception&) { // a snapshot, or an answer, matters more than what the records tell
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

TurnEnd endOfTurn(const HookContext& context, const Project& project) {
    const HookEvent& event = context.event;
    TurnEnd end{event.interrupted, std::nullopt, std::nullopt};
    readNewest(context, project, recordsOfATurn, [&](const SnapshotMeta& record) {
        if (!isOfSession(record, context)) return false;
        if (record.kind == "stop" || (event.turn && record.turn && record.turn != event.turn)) return true;
        end.began = record.seq;
        if (record.kind == "prompt" && record.background != true) end.title = record.label.value_or("");
        return end.title.has_value();
    });
    return end;
}

} // namespace tidewrack
