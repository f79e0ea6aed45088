// Starting and ending the history of a folder, and which folders have one.

#include "Commands/Commands.hpp"
#include "Engine/LostProject.hpp"
#include "Engine/Tracking.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

int track(Invocation& call) {
    const std::string path = call.absolute(call.args.word(0).value_or(call.around.currentFolder));
    const std::string root = Store::canonical(path);
    const auto isSame = [&](const Project& known) { return known.root == root; };
    const std::vector<Project> known = call.store().registry().projects;
    const bool isNew = std::none_of(known.begin(), known.end(), isSame);
    const auto lost = isNew && !call.args.has("--force") ? lostProjectLike(call.store(), root) : std::nullopt;
    const Project project = tidewrack::track(call.store(), path, call.args.has("--force"));
    const SnapshotResult first = call.engine().snapshot(project, {"manual", {}, {}, {}, {}});
    if (call.json()) {
        call.printJson({{"version", 1}, {"project", toJson(project)}, {"snapshot", snapshotJson(first)}});
    } else {
        call.print("Started tracking " + call.shown(project.root) + "\n#" + std::to_string(first.meta.seq) + "  " +
                   std::to_string(first.meta.files) + " files  " + std::to_string(first.meta.durationMs) + " ms\n");
    }
    if (lost)
        call.warn({root + " looks like " + lost->root + ", which is gone. To go on with its history instead, run: " +
                   "tidewrack untrack " + shellWord(root) + " && " + movingTo(lost->root, root)});
    call.warn(first.warnings);
    call.warn(call.store().storageWarnings(project));
    return 0;
}

namespace {

// The project that a word names by its root, or what an untrack that was cut short has left of it. A folder inside it,
// or a typing error, must not cost the history of the folder around it; a tracked folder that is gone can still be
// given up by its name.
Project namedProject(Invocation& call, const std::string& word) {
    if (word.empty()) throw CliError("missing path"); // a script's unset variable
    const std::string path = call.absolute(word);
    Project remains;
    remains.root = Store::canonical(path);
    remains.id = Store::projectID(remains.root);
    if (call.store().hasRemains(remains)) return remains;
    Project project = call.project(path);
    if (remains.root == project.root) return project;
    if (!isFolder(path)) throw TidewrackError::io(path + " is not a folder.");
    throw TidewrackError::refused(path + " is inside the tracked project " + project.root +
                                  ". To delete the history of all of it, name that folder.");
}

} // namespace

namespace {

// Without the history nobody would know what a restore that was cut short has left.
void clearUp(Invocation& call, const Project& project, Engine::Acting acting) {
    if (call.store().hasRemains(project)) return;
    try {
        RestoreResult left;
        left.outcomes = call.engine().clearUp(project, acting);
        call.warn(warningTexts(left));
    } catch (const TidewrackError& error) { // a damaged history can be given up all the same
        call.warn({std::string("can't tell what a restore that was cut short may have left: ") + error.what()});
    }
}

} // namespace

int untrack(Invocation& call) {
    const auto path = call.args.word(0);
    const Project project = path ? namedProject(call, *path) : call.project();
    const bool dryRun = call.args.has("--dry-run");
    const std::size_t count = dryRun || call.json() ? call.store().history(project).seqs().size() : 0;
    clearUp(call, project, dryRun ? Engine::Acting::dryRun : Engine::Acting::forReal);
    if (!dryRun) call.store().untrack(project);
    if (call.json()) {
        call.printJson(
            {{"version", 1}, {"dryRun", dryRun}, {"root", repairedUtf8(project.root)}, {"snapshots", count}});
        return 0;
    }
    if (dryRun) {
        call.print("Would stop tracking " + call.shown(project.root) + " and delete its history of " +
                   std::to_string(count) + (count == 1 ? " snapshot" : " snapshots") + ". Nothing was changed.\n");
        return 0;
    }
    call.print("Stopped tracking " + call.shown(project.root) + " and deleted its history.\n");
    return 0;
}

int projects(Invocation& call) {
    const auto [all, unreadable] = call.store().registry();
    nlohmann::json list = nlohmann::json::array();
    std::string text;
    for (const Project& project : all) {
        std::vector<std::int64_t> seqs;
        std::optional<SnapshotMeta> latest;
        std::string state = "no snapshots";
        try {
            const History history = call.store().history(project);
            seqs = history.seqs();
            if (!seqs.empty()) state = std::to_string(seqs.size()) + (seqs.size() == 1 ? " snapshot" : " snapshots");
            if (!seqs.empty()) latest = history.snapshot(seqs.back());
            if (latest) state += ", latest " + ago(latest->created, now());
        } catch (const TidewrackError&) { // the other projects are still worth listing
            state = seqs.empty() ? "its snapshots are unreadable" : state + ", the latest is unreadable";
        }
        list.push_back(projectJson(project, seqs.size(), latest));
        text += call.shown(project.root) + "  " + state + "\n";
    }
    if (call.json())
        call.printJson(list);
    else if (all.empty() && unreadable.empty())
        call.print("Nothing tracked yet. Run `tidewrack track` in a project folder.\n");
    else
        call.print(text);
    for (const Registry::Unreadable& each : unreadable) call.warn({each.reason});
    return 0;
}

} // namespace tidewrack::commands
