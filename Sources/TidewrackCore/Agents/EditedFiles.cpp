#include "Agents/EditedFiles.hpp"

#include "Agents/KeptPaths.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

// Other sessions that work in the same project record in between.
constexpr std::size_t mostRecordsRead = 8;

} // namespace

std::vector<std::string> EditedFiles::notHeld(const std::vector<std::string>& paths, std::vector<std::string>& unkept) {
    std::vector<std::string> unheld;
    for (const std::string& path : paths) {
        try {
            const std::string place = Store::canonicalPlace(path);
            sortOut(place, unheld, unkept);
            if (const std::string file = Store::canonical(path); file != place) sortOut(file, unheld, unkept);
        } catch (const std::exception& error) { // what cannot be told is saved
            context_.logError(error.what());
            unheld.push_back(path);
        }
    }
    std::sort(unkept.begin(), unkept.end());
    return unheld;
}

void EditedFiles::sortOut(const std::string& path, std::vector<std::string>& unheld, std::vector<std::string>& unkept) {
    const auto project = context_.projectFor(std::string(parentOf(path))); // a link at the path is not followed
    if (!project) {
        if (exists(path)) unheld.push_back(path);
        return;
    }
    const auto record = recordOfTurn(*project);
    if (record)
        context_.noteChange(path);
    else
        unheld.push_back(path); // noted behind the snapshot that is taken for it
    if (record ? lacks(*record, *project, path)
               : KeptPaths(context_.handler.store.history(*project), *project).mayLeaveOut(path) && exists(path))
        unkept.push_back(path);
}

// The listing is read only where it may tell something else than that the file is held.
bool EditedFiles::lacks(const SnapshotMeta& record, const Project& project, const std::string& path) const {
    KeptPaths kept(context_.handler.store.history(project), project, record);
    return (record.notKept > 0 || kept.mayLeaveOut(path)) && exists(path) && !kept.holds(path);
}

// The snapshot from which the turn's edits can be taken back.
std::optional<SnapshotMeta> EditedFiles::recordOfTurn(const Project& project) const {
    const HookEvent& event = context_.event;
    try {
        const History history = context_.handler.store.history(project);
        const std::vector<std::int64_t> seqs = history.seqs();
        const std::size_t count = std::min(seqs.size(), mostRecordsRead);
        for (std::size_t index = seqs.size(); index-- > seqs.size() - count;) {
            SnapshotMeta record = history.snapshot(seqs[index]);
            if (record.session != event.session || record.agent != context_.caller()) continue;
            if (record.turn != event.turn || (record.kind != "prompt" && record.kind != "tool")) break;
            return record;
        }
    } catch (const std::exception&) {
        // When in doubt the file is saved.
    }
    return std::nullopt;
}

} // namespace tidewrack
