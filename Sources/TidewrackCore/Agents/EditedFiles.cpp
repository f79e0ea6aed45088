#include "Agents/EditedFiles.hpp"

#include "Agents/KeptPaths.hpp"
#include "Agents/TurnRecords.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

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
    const auto record = recordOfTurn(context_, *project);
    if (record)
        context_.noteChange(path, HookContext::Extent::alone);
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

} // namespace tidewrack
