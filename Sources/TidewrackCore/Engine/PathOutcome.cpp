#include "Engine/PathOutcome.hpp"

#include <algorithm>

namespace tidewrack {

std::vector<std::string> pathsOf(const std::vector<PathOutcome>& outcomes, PathOutcome::Action action) {
    std::vector<std::string> paths;
    for (const PathOutcome& outcome : outcomes)
        if (outcome.action == action) paths.push_back(outcome.path);
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::size_t filesAmong(const std::vector<PathOutcome>& outcomes, PathOutcome::Action action) {
    return static_cast<std::size_t>(std::count_if(outcomes.begin(), outcomes.end(), [&](const PathOutcome& outcome) {
        return outcome.action == action && outcome.kind != EntryKind::dir;
    }));
}

Obstacle obstacleIn(const Entry& recorded) {
    if (recorded.kind == EntryKind::dir) return {Obstacle::Reason::folderInTheWay};
    if (recorded.notKept()) return {Obstacle::Reason::notSavedFirst, 0, {}, std::string(recorded.blob)};
    return {};
}

} // namespace tidewrack
