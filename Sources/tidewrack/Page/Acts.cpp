#include "Page/Acts.hpp"

#include "PlanIdentity.hpp"
#include "Support/Json.hpp"

#include <algorithm>
#include <utility>

namespace tidewrack::page {

namespace {

using nlohmann::json;

json chosenHunks(const Desk& desk, const Act& act) {
    json found = json::array();
    if (act.hunks.empty()) return found;
    const auto document = parseJson(desk.run(act.hunkLines).out);
    if (document && (*document)["files"].size() == 1) {
        const json& hunks = (*document)["files"][0]["hunks"];
        for (const ChosenHunk& chosen : act.hunks)
            if (chosen.number > 0 && chosen.number <= hunks.size() &&
                hunks[chosen.number - 1]["digest"] == chosen.digest)
                found.push_back(hunks[chosen.number - 1]);
    }
    if (found.size() != act.hunks.size())
        throw OtherHunk("The file's hunks are others by now; nothing was done. Look at them again.");
    return found;
}

} // namespace

Foreseen Desk::foresee(const Act& act) const {
    Ran dryRun;
    json told;
    if (act.hasDryRun) {
        CommandWords dry = act.command;
        dry.words.insert(std::find(dry.words.begin(), dry.words.end(), "--"), "--dry-run");
        dryRun = run(dry);
        told = parseJson(dryRun.out).value_or(json(json::value_t::discarded));
    }
    json hunks = chosenHunks(*this, act);
    std::string identity = told.is_discarded() ? "" : planIdentity(act.command.words, told, root);
    return {std::move(dryRun), std::move(told), std::move(hunks), std::move(identity)};
}

std::optional<Ran> Desk::carryOut(const Act& act, const std::string& identity) const {
    if (foresee(act).identity != identity) return std::nullopt;
    return run(act.command);
}

} // namespace tidewrack::page
