#include "Page/Acts.hpp"

#include <algorithm>

namespace tidewrack::page {

Ran Desk::foresee(const Act& act) const {
    if (!act.hasDryRun) return {0, "null", ""};
    CommandWords dry = act.command;
    dry.words.insert(std::find(dry.words.begin(), dry.words.end(), "--"), "--dry-run");
    return run(dry);
}

std::optional<Ran> Desk::carryOut(const Act& act, const std::string& foreseen) const {
    if (foresee(act).out != foreseen) return std::nullopt;
    return run(act.command);
}

} // namespace tidewrack::page
