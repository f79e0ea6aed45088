#include "Timeline/Elsewhere.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Vault/Vault.hpp"

#include <algorithm>
#include <optional>

namespace tidewrack {

using Type = TimelineRow::Type;

std::vector<LoggedHook> readLoggedHooks(const Store& store) {
    std::string log;
    return readFile(store.home + "/hooks.log", log) == 0 ? loggedHooks(log) : std::vector<LoggedHook>();
}

namespace {

// The newest records of another project, back to the first one that is older than `since`.
std::vector<SnapshotMeta> recordsSince(const History& history, Date since) {
    std::vector<SnapshotMeta> records;
    const auto seqs = history.seqs();
    for (auto seq = seqs.rbegin(); seq != seqs.rend(); ++seq) {
        try {
            records.push_back(history.snapshot(*seq));
        } catch (const TidewrackError&) { // it costs what it alone tells
            continue;
        }
        if (records.back().created < since) break;
    }
    std::reverse(records.begin(), records.end());
    return records;
}

// Whether the entry can have been made in the turn.
bool mayBeOf(const VaultEntry& entry, const TimelineRow& row) {
    if (row.type != Type::turn || row.agent != entry.agent) return false;
    if (entry.session && row.session) {
        if (entry.session != row.session) return false;
        if (entry.turn && row.turn) return entry.turn == row.turn;
    }
    const bool before = row.ended ? entry.created <= *row.ended : !row.next || entry.created < *row.next;
    return row.began <= entry.created && before && (row.ended || row.isRunning() || entry.session);
}

void addVaultEntries(const Store& store, const Project& project, std::vector<TimelineRow>& rows) {
    for (const VaultEntry& entry : Vault(store).entries()) {
        if (!entry.agent || (!entry.session && !isAtOrBelow(Store::canonical(entry.cwd), project.root))) continue;
        TimelineRow* only = nullptr;
        int found = 0;
        for (TimelineRow& row : rows) {
            if (!mayBeOf(entry, row)) continue;
            only = &row;
            ++found;
        }
        if (found == 1 && std::find(only->vault.begin(), only->vault.end(), entry.id) == only->vault.end())
            only->vault.push_back(entry.id);
    }
}

} // namespace

void addElsewhere(const Store& store, const Project& project, std::vector<TimelineRow>& rows) {
    std::optional<Date> since;
    for (const TimelineRow& row : rows)
        if (row.type == Type::turn && (!since || row.began < *since)) since = row.began;
    if (!since) return;
    addVaultEntries(store, project, rows);
    for (const Project& other : store.registry().projects) {
        if (other.id == project.id) continue;
        try {
            const Timeline there = Timeline::of(other.root, recordsSince(store.history(other), *since));
            for (TimelineRow& row : rows)
                if (std::any_of(there.rows.begin(), there.rows.end(),
                                [&](const auto& each) { return isSameTurn(row, each); }))
                    row.projects.push_back(other.root);
        } catch (const TidewrackError&) { // another project's damage is no reason to tell nothing of this one
        }
    }
}

} // namespace tidewrack
