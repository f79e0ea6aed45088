#include "Agents/HookContext.hpp"

#include "Agents/ConfigFile.hpp"
#include "Agents/Installer.hpp"
#include "Agents/SnapshotTexts.hpp"
#include "Engine/Tracking.hpp"
#include "Platform/Attributes.hpp"
#include "Store/EditLog.hpp"
#include "Store/MirrorNotes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Timeline/LoggedHook.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <fcntl.h>

#include <utility>

namespace tidewrack {

namespace {

// Beginning to track may not delay a verdict: the command may be one that has to be refused.
constexpr auto lockPatience = std::chrono::milliseconds(200);
constexpr auto countPatience = std::chrono::seconds(1);

} // namespace

void HookContext::loadProjects() {
    mayTrack_ = false;
    Registry registry;
    try {
        registry = handler.store.registry();
    } catch (const TidewrackError& error) { // then nothing is believed or saved; what may be lost is asked about
        if (error.kind() != TidewrackError::Kind::refused) throw;
        for (const Project& project : handler.store.registryAsItIs().projects) distrusted_.push_back(project.root);
        noSaving_ = error.what();
        if (noSaving_.starts_with('E')) noSaving_.front() = 'e';
        throw;
    }
    projects_ = std::move(registry.projects);
    mayTrack_ = true;
    unreadable_.clear();
    for (const Registry::Unreadable& record : registry.unreadable) {
        logError(record.reason);
        if (!isFolder(record.path)) {
            unreadable_.emplace(lastComponent(parentOf(record.path)));
            continue;
        }
        mayTrack_ = false; // nothing tells which projects there are
        knowsProjects_ = false;
        noSaving_ = record.reason;
    }
}

std::optional<Project> HookContext::projectFor(const std::string& folder) {
    if (auto project = Store::projectContaining(folder, projects_)) return project;
    // Beginning to track counts the whole repository and takes a full snapshot.
    if (!handler.autoTrack || !mayTrack_ || passed(share(2, 5))) return std::nullopt;
    const auto root = gitRoot(Store::canonical(folder));
    if (!root || isTooBroad(handler.store, *root) || untrackable_.contains(*root)) return std::nullopt;
    if (wasRefusedLately(handler.store, *root)) return std::nullopt;
    if (unreadable_.contains(Store::projectID(*root))) return std::nullopt;
    const auto start = std::chrono::steady_clock::now();
    try {
        projects_.push_back(track(handler.store, *root, false, {start + lockPatience, start + countPatience}));
    } catch (const std::exception& error) {
        handler.log.append("-", "track", start, "didn't auto-track " + *root + ": " + error.what());
        untrackable_.insert(*root);
        return std::nullopt;
    }
    unjudged_.insert(*root);
    handler.log.append("-", "track", start, "auto-tracked " + *root);
    return projects_.back();
}

// Nothing but its name tells which folder such a record is of.
std::vector<std::string> HookContext::unreadableIn(const std::string& folder, const Deadline& deadline) const {
    constexpr std::size_t mostFolders = 10'000;
    std::vector<std::string> found;
    std::vector<std::string> folders{folder};
    for (std::size_t at = 0; at < folders.size() && !passed(deadline); ++at) {
        if (hasUnreadableRecord(folders[at])) found.push_back(folders[at]);
        if (found.size() == unreadable_.size()) break;
        const std::string parent = folders[at]; // the list moves when it grows
        (void)visitNames(parent, [&](const char* name) {
            std::string path = joined(parent, name);
            Attributes attributes;
            if (attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 && attributes.kind == Attributes::Kind::folder)
                folders.push_back(std::move(path));
            return folders.size() < mostFolders;
        });
    }
    return found;
}

namespace {

// The command line is looked for in the plain text: it may be in a file that is no plain JSON, pasted by hand.
bool holdsHooks(const std::string& path) {
    try {
        const auto text = readConfig(path);
        return text && programOf(*text);
    } catch (const std::exception&) { // what cannot be read runs no hook
        return false;
    }
}

} // namespace

std::vector<shell::OwnPath> HookContext::ownPaths() const {
    using Role = shell::OwnPath::Role;
    // Where agents put the plugin that they install.
    constexpr const char* pluginFolders[] = {"/.claude/plugins/cache/tidewrack", "/.codex/plugins/cache/tidewrack",
                                             "/.gemini/extensions/tidewrack"};
    std::vector<shell::OwnPath> paths;
    if (exists(handler.store.home))
        paths = {{Store::canonical(handler.store.home), Role::history}, {LeaveOutRules::fileName, Role::rules}};
    // A mirror takes the store's place when that is lost.
    for (const std::string& mirror : mirrorsOrNone(handler.store.home))
        if (exists(mirror)) paths.push_back({Store::canonical(mirror), Role::history});
    const HookInstaller installer{handler.home, {}};
    for (const Agent each : allAgents) {
        const std::string path = installer.configPath(each);
        if (!holdsHooks(path)) continue;
        paths.push_back({Store::canonicalPlace(path), Role::hooks});
        if (std::string file = Store::canonical(path); file != paths.back().path)
            paths.push_back({std::move(file), Role::hooks});
    }
    for (const char* const folder : pluginFolders)
        if (const std::string path = handler.home + folder; exists(path))
            paths.push_back({Store::canonicalPlace(path), Role::hooks});
    return paths;
}

SnapshotRequest HookContext::request(const char* kind, std::string label, const Deadline& deadline) const {
    SnapshotRequest request;
    request.kind = kind;
    request.label = std::move(label);
    if (agent) request.agent = rawValue(*agent);
    request.session = event.session;
    request.turn = event.turn;
    request.deadline = deadline;
    request.registry = &projects_;
    request.gitPatience = &gitPatience_;
    return request;
}

std::string HookContext::noteOn(const SnapshotResult& result, const Project& project) {
    std::string note = "#" + std::to_string(result.meta.seq) + " " + loggedText(project.root);
    if (result.late > 0) note += ", " + std::to_string(result.late) + " skipped";
    return note;
}

void HookContext::noteChange(const std::string& path, Extent extent) const {
    if (!agent) return; // a person has no turns
    const std::string folder(parentOf(path));
    const auto project = Store::projectContaining(folder, projects_); // a link at the path is not followed
    if (!project || path.size() <= project->root.size()) return;
    Attributes attributes;
    const bool alone = extent == Extent::alone && attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 &&
                       attributes.kind == Attributes::Kind::folder;
    const std::string named = std::string(pathBelow(path, project->root)) + (alone ? folderAlone : "");
    try {
        const History history = handler.store.history(*project);
        noteEdit(history.folder(), {now(), std::string(rawValue(*agent)), event.session, event.turn, named,
                                    history.newestSeq().value_or(0)});
    } catch (const std::exception& error) { // the snapshots do not depend on it
        logError(error.what());
    }
}

Gaps HookContext::gapsIn(const SnapshotResult& result) {
    Gaps gaps;
    gaps.count = static_cast<std::size_t>(result.unsaved);
    if (result.firstUnsaved) {
        gaps.path = result.firstUnsaved->path;
        gaps.reason = result.firstUnsaved->failure.text();
    }
    for (const Warning& warning : result.warnings)
        if (warning.kind == Warning::Kind::unread && gaps.count++ == 0) gaps.reason = warningText(warning);
    return gaps;
}

namespace {

// A sentence as a note, which does not hold what parts notes.
std::string asNote(std::string sentence) {
    for (auto at = sentence.find("; "); at != sentence.npos; at = sentence.find("; ", at)) sentence[at] = ',';
    return loggedText(sentence);
}

} // namespace

std::vector<std::string> HookContext::notesOnGaps(const SnapshotResult& result) {
    std::vector<std::string> notes;
    if (const Gaps gaps = gapsIn(result); gaps.count > 0)
        notes.push_back(std::to_string(gaps.count) +
                        " not saved: " + asNote(gaps.path.empty() ? gaps.reason : gaps.path + ": " + gaps.reason));
    for (const Warning& warning : result.warnings)
        if (warning.kind == Warning::Kind::gitLate || warning.kind == Warning::Kind::gitFailed ||
            warning.kind == Warning::Kind::leftOutNow)
            notes.push_back(asNote(warningText(warning)));
    return notes;
}

std::string noteOn(const VaultEntry& entry) {
    return "vault " + entry.id + ": " + std::to_string(entry.items.size()) + " saved, " +
           std::to_string(entry.skipped.size()) + " skipped";
}

} // namespace tidewrack
