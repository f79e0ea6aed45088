#include "Agents/EditedFiles.hpp"

#include "Store/EditLog.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

// Other sessions that work in the same project record in between.
constexpr std::size_t mostRecordsRead = 8;

} // namespace

std::vector<std::string> EditedFiles::notHeld(const std::vector<std::string>& paths) {
    std::vector<std::string> unheld;
    for (const std::string& path : paths) {
        try {
            const std::string place = Store::canonicalPlace(path);
            sortOut(place, unheld);
            if (const std::string file = Store::canonical(path); file != place) sortOut(file, unheld);
        } catch (const std::exception& error) { // what cannot be told is saved
            context_.logError(error.what());
            unheld.push_back(path);
        }
    }
    return unheld;
}

void EditedFiles::sortOut(const std::string& path, std::vector<std::string>& unheld) {
    const auto project = context_.projectFor(std::string(parentOf(path))); // a link at the path is not followed
    if (!project) {
        if (exists(path)) unheld.push_back(path);
        return;
    }
    if (!holdsTurn(*project)) unheld.push_back(path);
    if (path.size() <= project->root.size()) return;
    try {
        noteEdit(context_.handler.store.history(*project).folder(),
                 {now(), std::string(rawValue(context_.agent)), context_.event.session, context_.event.turn,
                  path.substr(project->root.size() + (project->root == "/" ? 0 : 1))});
    } catch (const std::exception& error) { // the snapshots do not depend on it
        context_.logError(error.what());
    }
}

bool EditedFiles::holdsTurn(const Project& project) const {
    const HookEvent& event = context_.event;
    try {
        const History history = context_.handler.store.history(project);
        const std::vector<std::int64_t> seqs = history.seqs();
        const std::size_t count = std::min(seqs.size(), mostRecordsRead);
        for (std::size_t index = seqs.size(); index-- > seqs.size() - count;) {
            const SnapshotMeta record = history.snapshot(seqs[index]);
            if (record.session != event.session || record.agent != rawValue(context_.agent)) continue;
            return record.turn == event.turn && (record.kind == "prompt" || record.kind == "tool");
        }
    } catch (const std::exception&) {
        // When in doubt the file is saved.
    }
    return false;
}

} // namespace tidewrack
