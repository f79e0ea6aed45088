// What a project's history leaves out, and what it keeps all the same.

#include "Engine/Excluding.hpp"

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>

namespace tidewrack::commands {

namespace {

// Relative to the root. git's own folder has no snapshots of its own, and the whole project can't be meant.
std::string checkedPath(Invocation& call, const Project& project, const std::string& word) {
    std::string path = Engine::relative(project, call.absolute(word));
    if (path.empty())
        throw TidewrackError::refused(word + " is the project itself. To stop its history: tidewrack untrack");
    for (std::string_view at = path; !at.empty(); at = parentOf(at))
        if (lastComponent(at) == ".git") throw TidewrackError::refused(word + " is git's own, and never in snapshots.");
    if (path.find('\n') != std::string::npos)
        throw TidewrackError::refused("A path with a line break can't be a rule.");
    return path;
}

bool isPattern(const std::string& word) {
    return word.find_first_of("*?[") != std::string::npos;
}

std::string namesOf(Invocation& call, const std::vector<std::string>& names) {
    constexpr std::size_t most = 5;
    std::string text;
    for (std::size_t i = 0; i < std::min(names.size(), most); ++i) text += (i == 0 ? "" : ", ") + call.shown(names[i]);
    if (names.size() > most) text += " and " + std::to_string(names.size() - most) + " more";
    return text;
}

Manifest newestListing(Invocation& call, const Project& project) {
    const History history = call.store().history(project);
    const auto newest = history.latest();
    return newest ? history.manifest(*newest) : Manifest();
}

struct Rules {
    Project project; // with them
    std::vector<std::string> words;
    NewlyLeftOut out;                // what the newest snapshot has
    std::optional<SnapshotMeta> now; // that has them
};

// The project's patterns after each of the call's words; `change` returns them after one.
Rules changedRules(Invocation& call, const Project& project,
                   const std::function<std::vector<std::string>(const Project&, const std::string& word)>& change) {
    if (!call.args.word(0)) throw CliError("missing path");
    Rules rules{project, call.args.positional, {}, {}};
    for (const std::string& word : rules.words) {
        if (word.empty()) throw CliError("missing path");
        rules.project.patterns = change(rules.project, word);
    }
    return rules;
}

nlohmann::json rulesJson(const Rules& rules, bool dryRun) {
    nlohmann::json object = {{"version", 1},
                             {"dryRun", dryRun},
                             {"patterns", nlohmann::json::array()},
                             {"leftOut", nlohmann::json::array()}};
    for (const std::string& each : rules.project.patterns) object["patterns"].push_back(repairedUtf8(each));
    for (const std::string& each : rules.out.paths) object["leftOut"].push_back(repairedUtf8(each));
    if (rules.now) object["snapshot"] = rules.now->seq;
    return object;
}

// A snapshot right away: what changes by the rules alone is no turn's doing.
void record(Invocation& call, const Project& before, const std::string& name, Rules& rules) {
    if (rules.project.patterns == before.patterns) return;
    setPatterns(call.store(), before, rules.project.patterns);
    std::string label = name;
    for (const std::string& word : rules.words) label += " " + repairedUtf8(word);
    const SnapshotResult result = call.engine().snapshot(rules.project, {"manual", label, {}, {}, {}});
    rules.now = result.meta;
    std::vector<Warning> others = result.warnings;
    std::erase_if(others, [](const Warning& each) { return each.kind == Warning::Kind::leftOutNow; });
    call.warn(others);
}

} // namespace

int exclude(Invocation& call) {
    const Project project = call.project();
    Rules rules = changedRules(call, project, [&](const Project& sofar, const std::string& word) {
        if (word.starts_with('!') || word.starts_with('#')) throw CliError("A pattern doesn't begin with ! or #.");
        return excluding(sofar, isPattern(word) ? word : patternOf(checkedPath(call, project, word)));
    });
    rules.out = newlyLeftOut(rules.project, newestListing(call, project));
    const bool dryRun = call.args.has("--dry-run");
    if (!dryRun) record(call, project, "exclude", rules);
    if (call.json()) {
        call.printJson(rulesJson(rules, dryRun));
        return 0;
    }
    const std::string what = rules.out.paths.empty()
                                 ? "nothing that is there now"
                                 : namesOf(call, rules.out.paths) + " (" + countText(rules.out.files, "file") + ")";
    if (dryRun)
        call.print("Would leave out " + what + ".\n");
    else if (!rules.now)
        call.print("Left out already.\n");
    else
        call.print("Left out from #" + std::to_string(rules.now->seq) + " on: " + what +
                   ".\nOlder snapshots keep what they have.\n");
    return 0;
}

int include(Invocation& call) {
    const Project project = call.project();
    Rules rules = changedRules(call, project, [&](const Project& sofar, const std::string& word) {
        if (!isPattern(word)) return including(sofar, checkedPath(call, project, word));
        std::vector<std::string> patterns = sofar.patterns;
        if (std::erase(patterns, word) == 0)
            throw TidewrackError::refused("Nothing is left out by " + word + ". See: tidewrack config get patterns");
        return patterns;
    });
    const bool dryRun = call.args.has("--dry-run");
    const bool changes = rules.project.patterns != project.patterns;
    if (!dryRun) record(call, project, "include", rules);
    if (call.json())
        call.printJson(rulesJson(rules, dryRun));
    else if (!changes)
        call.print("Kept already.\n");
    else if (dryRun)
        call.print("Would keep " + namesOf(call, rules.words) + ".\n");
    else
        call.print("Kept from #" + std::to_string(rules.now->seq) + " on: " + namesOf(call, rules.words) + ".\n");
    return 0;
}

} // namespace tidewrack::commands
