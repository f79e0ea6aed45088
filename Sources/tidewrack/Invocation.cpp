#include "Invocation.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Engine/LostProject.hpp"
#include "Pager.hpp"
#include "Platform/Process.hpp"
#include "Reports/PathWords.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Timeline/Timeline.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

Look lookOf(const Surroundings& around) {
    const auto variable = [&](std::string_view name) {
        const auto found = around.environment.find(name);
        return found == around.environment.end() ? std::string() : found->second;
    };
    const bool terminal = around.out.isTerminal();
    return {terminal, terminal && variable("NO_COLOR").empty() && variable("TERM") != "dumb"};
}

// Throws where a record that can't be read is of a folder nearer than the root that was found: what was meant for that
// project must not happen to the one around it.
void refuseUnreadable(const Registry& registry, const std::string& path, const std::string& root) {
    if (registry.unreadable.empty()) return;
    for (std::string folder = Store::canonical(path); folder != root && !folder.empty();
         folder = folder == "/" ? std::string() : std::string(parentOf(folder)))
        for (const Registry::Unreadable& each : registry.unreadable)
            if (lastComponent(parentOf(each.path)) == Store::projectID(folder)) throw TidewrackError::io(each.reason);
}

// The history that may be meant, where the folder was renamed or moved.
std::string lostHint(const Store& store, const std::string& folder) {
    const auto lost = lostProjectLike(store, folder);
    return lost ? " It looks like " + lost->root + ", which is gone: " + movingTo(lost->root, folder) : std::string();
}

} // namespace

Invocation::Invocation(const Command& called, Args words, Surroundings& surroundings)
    : command(called), args(std::move(words)), around(surroundings), look_(lookOf(surroundings)) {}

const Engine& Invocation::engine() {
    if (engine_) return *engine_;
    engine_.emplace(Store::fromEnvironment(around.environment));
    if (around.err.isTerminal())
        engine_->progress = [this](const char* what, std::size_t count) { progress_.show(what, count); };
    return *engine_;
}

std::string Invocation::absolute(const std::string& path) const {
    if (path.starts_with('/')) return path;
    if (around.currentFolder.empty())
        throw TidewrackError::io("Can't tell the current folder; it may have been deleted.");
    return absolutePath(path, around.currentFolder);
}

Project Invocation::project(const std::optional<std::string>& folder) {
    if (args.value("--project") == "") throw CliError("--project needs a value"); // a script's unset variable
    const std::string path = absolute(folder ? *folder : args.value("--project").value_or(around.currentFolder));
    const Registry registry = store().registry();
    auto found = Store::projectContaining(path, registry.projects);
    refuseUnreadable(registry, path, found ? found->root : std::string());
    for (const Registry::Unreadable& each : registry.unreadable)
        if (!found && isFolder(each.path)) throw TidewrackError::io(each.reason); // that of all records
    if (!found) throw TidewrackError::notTracked(path, lostHint(store(), Store::canonical(path)));
    return *found;
}

std::vector<std::string> Invocation::relativePaths(const Project& project, std::size_t first) const {
    std::vector<std::string> paths;
    for (std::size_t i = first; i < args.positional.size(); ++i) {
        // An unset variable of a script must not mean the whole folder.
        if (args.positional[i].empty()) throw CliError("missing path");
        paths.push_back(Engine::relative(project, absolute(args.positional[i])));
    }
    return paths;
}

SnapshotWord Invocation::snapshotWord(std::size_t index, const char* name) const {
    const auto text = args.word(index);
    if (const auto word = text ? tidewrack::snapshotWord(*text, now()) : std::nullopt) return *word;
    return {SnapshotWord::Kind::number, args.number(index, name), {}}; // throws
}

std::int64_t Invocation::number(const Project& project, const SnapshotWord& word) {
    if (word.kind == SnapshotWord::Kind::number) return word.number;
    std::vector<UnreadRecord> unread;
    const auto snapshots = store().history(project).snapshots(unread);
    std::int64_t lastTurn = 0;
    if (word.kind == SnapshotWord::Kind::lastTurn) {
        const Timeline timeline = Timeline::of(project.root, snapshots);
        if (const TimelineRow* turn = timeline.newestTurn()) lastTurn = turn->first;
    }
    const auto fits = [&](const SnapshotMeta& meta) {
        switch (word.kind) {
        case SnapshotWord::Kind::number: return meta.seq == word.number;
        case SnapshotWord::Kind::newest: return true;
        case SnapshotWord::Kind::lastTurn: return meta.seq == lastTurn;
        case SnapshotWord::Kind::time: return meta.created <= word.time;
        }
        return false;
    };
    const auto found = std::find_if(snapshots.rbegin(), snapshots.rend(), fits);
    if (found != snapshots.rend()) {
        progress_.wipe();
        for (const UnreadRecord& record : unread)
            if (record.seq > found->seq) warn({"#" + std::to_string(record.seq) + " is passed over: " + record.reason});
        around.err.line("#" + std::to_string(found->seq) + ", " + clockText(found->created, now()));
        return found->seq;
    }
    if (snapshots.empty()) throw CliError("there is no snapshot yet");
    if (word.kind == SnapshotWord::Kind::lastTurn) throw CliError("no agent's turn is in this history");
    throw CliError("no snapshot is that old; the oldest is #" + std::to_string(snapshots.front().seq) + ", " +
                   clockText(snapshots.front().created, now()));
}

void Invocation::page() {
    if (!look_.terminal || json() || args.has("--no-pager")) return;
    const auto terminal = around.environment.find("TERM");
    if (terminal != around.environment.end() && terminal->second == "dumb") return;
    if (const auto pager = pagerOf(around.environment)) around.out.pageThrough(*pager);
}

void Invocation::print(std::string_view text) {
    progress_.wipe();
    around.out.write(text);
}

void Invocation::printJson(const nlohmann::json& value) {
    print(prettyJson(value, Slashes::escaped) + "\n");
}

void Invocation::warn(const std::vector<std::string>& warnings) {
    progress_.wipe();
    for (const std::string& warning : warnings) around.err.line("warning: " + around.err.shown(warning));
}

void Invocation::warn(const std::vector<Warning>& warnings) {
    warn(warningTexts(warnings));
}

void Invocation::warnOfUnread(const std::vector<UnreadRecord>& unread, const std::string& root) {
    const std::string where = root.empty() ? "#" : "in " + root + " #";
    for (const UnreadRecord& record : unread)
        warn(std::vector<std::string>{where + std::to_string(record.seq) + " is left out: " + record.reason});
}

bool isYes(const std::string& answer) {
    const std::string word = lowercased(answer);
    return word == "y" || word == "yes";
}

} // namespace tidewrack
