#include "Timeline/Elsewhere.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Vault/Vault.hpp"

#include <algorithm>
#include <chrono>
#include <optional>

namespace tidewrack {

using Type = TimelineRow::Type;

std::vector<LoggedHook> readLoggedHooks(const Store& store) {
    std::string log;
    return readFile(store.home + "/hooks.log", log) == 0 ? loggedHooks(log) : std::vector<LoggedHook>();
}

// Those of git's own state put nothing back where it was.
std::vector<VaultEntry> readVaultEntries(const Store& store) {
    try {
        std::vector<VaultEntry> entries = Vault(store).entries();
        std::erase_if(entries, [](const VaultEntry& entry) { return !entry.gitState.empty(); });
        return entries;
    } catch (const TidewrackError&) {
        return {};
    }
}

namespace {

// The log of the hooks has whole seconds, and is written when a hook ends.
constexpr std::chrono::minutes longestHook{1};

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

// One command may have a snapshot in several projects, and a vault entry as well.
void addCommand(TimelineRow::Command command, TimelineRow& row) {
    const auto isSame = [&](const TimelineRow::Command& each) {
        const auto apart = each.time < command.time ? command.time - each.time : each.time - command.time;
        return each.command == command.command && apart <= longestHook;
    };
    auto& all = row.commands;
    if (std::any_of(all.begin(), all.end(), isSame)) return;
    const auto isLater = [](Date time, const TimelineRow::Command& each) { return time < each.time; };
    all.insert(std::upper_bound(all.begin(), all.end(), command.time, isLater), std::move(command));
}

void addCommandsFrom(const Project& other, const TimelineRow& there, TimelineRow& row) {
    if (row.title.empty() && there.prompted) row.title = there.title;
    if (std::find(row.projects.begin(), row.projects.end(), other.root) == row.projects.end())
        row.projects.push_back(other.root);
    for (TimelineRow::Command command : there.commands) {
        command.project = other.root;
        addCommand(std::move(command), row);
    }
}

// Those that the vault alone tells of.
void addVaultCommands(const std::vector<VaultEntry>& entries, const std::vector<LoggedHook>& hooks, TimelineRow& row) {
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) { // the oldest of a second first
        const std::string& id = entry->id;
        if (std::find(row.vault.begin(), row.vault.end(), id) == row.vault.end()) continue;
        const auto hook = std::find_if(hooks.begin(), hooks.end(), [&](const LoggedHook& each) {
            return std::find(each.vault.begin(), each.vault.end(), id) != each.vault.end();
        });
        addCommand({0, entry->command, hook == hooks.end() ? "" : hook->verdict, entry->created, "", id}, row);
    }
}

// None where several sessions may have made it.
const TimelineRow* turnOf(const VaultEntry& entry, const Timeline& timeline) {
    const TimelineRow* newest = nullptr;
    for (const TimelineRow& row : timeline.rows) {
        if (!mayBeOf(entry, row)) continue;
        if (newest != nullptr && newest->session != row.session) return nullptr;
        if (newest == nullptr || newest->began < row.began) newest = &row;
    }
    return newest;
}

} // namespace

void addVaultEntries(const std::vector<VaultEntry>& entries, const Project& project, const Timeline& timeline,
                     std::vector<TimelineRow>& rows) {
    for (const VaultEntry& entry : entries) {
        if (!entry.agent || (!entry.session && !isAtOrBelow(Store::canonical(entry.cwd), project.root))) continue;
        const TimelineRow* turn = turnOf(entry, timeline);
        if (turn == nullptr) continue;
        for (TimelineRow& row : rows)
            if (row.own == turn->own && std::find(row.vault.begin(), row.vault.end(), entry.id) == row.vault.end())
                row.vault.push_back(entry.id);
    }
}

void addElsewhere(const Store& store, const Project& project, const Timeline& timeline,
                  std::vector<TimelineRow>& rows) {
    std::optional<Date> since;
    for (const TimelineRow& row : rows)
        if (row.type == Type::turn && (!since || row.began < *since)) since = row.began;
    if (!since) return;
    const std::vector<LoggedHook> hooks = readLoggedHooks(store);
    for (const Project& other : store.registry().projects) {
        if (other.id == project.id) continue;
        try {
            const Timeline there = Timeline::of(other.root, recordsSince(store.history(other), *since), hooks);
            for (TimelineRow& row : rows)
                for (const TimelineRow& each : there.rows)
                    if (isSameTurn(row, each)) addCommandsFrom(other, each, row);
        } catch (const TidewrackError&) { // another project's damage is no reason to tell nothing of this one
        }
    }
    const std::vector<VaultEntry> entries = readVaultEntries(store);
    addVaultEntries(entries, project, timeline, rows);
    for (TimelineRow& row : rows) addVaultCommands(entries, hooks, row);
}

std::vector<VaultEntry> entriesToPutBack(const Store& store, const std::vector<VaultEntry>& all,
                                         const std::vector<TimelineRow>& rows) {
    const auto isNamed = [&](const VaultEntry& entry) {
        return std::any_of(rows.begin(), rows.end(), [&](const TimelineRow& row) {
            return std::find(row.vault.begin(), row.vault.end(), entry.id) != row.vault.end();
        });
    };
    const Vault vault(store);
    std::vector<VaultEntry> entries;
    std::vector<std::string> seen;
    const auto isSeen = [&](const VaultEntry::Item& item) {
        return std::any_of(seen.begin(), seen.end(),
                           [&](const auto& path) { return isAtOrBelow(item.original, path); });
    };
    for (auto entry = all.rbegin(); entry != all.rend(); ++entry) { // the oldest has what was there before
        if (!isNamed(*entry)) continue;
        const auto& items = entry->items;
        if (!std::all_of(items.begin(), items.end(), isSeen) && !vault.isBack(*entry)) entries.push_back(*entry);
        for (const VaultEntry::Item& item : items) seen.push_back(item.original);
    }
    std::reverse(entries.begin(), entries.end());
    return entries;
}

} // namespace tidewrack
