// What the guard thinks of a command, for a person who wonders, and for a person's own shell.

#include "Shell/Guard.hpp"
#include "Agents/GuardRules.hpp"
#include "Agents/SaveBefore.hpp"
#include "Commands/Commands.hpp"
#include "Commands/Hooks.hpp"
#include "Engine/Tracking.hpp"
#include "Invocation.hpp"
#include "Platform/Terminal.hpp"
#include "Reports/GuardReport.hpp"
#include "Reports/PathWords.hpp"
#include "Shell/Lexer.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"
#include "Support/Text.hpp"
#include "Vault/GitStore.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <span>

namespace tidewrack::commands {

namespace {

constexpr int refused = 10; // what shells take for a no, like 130 where Ctrl-C was; another status lets the command run

// Notes for each path and folder of the decision which command of the line was the first to name it.
class Reasons {
  public:
    explicit Reasons(std::map<std::string, std::string>& because) : because_(because) {}

    void take(const shell::Command& command, const shell::Decision& soFar) {
        const std::string text = commandText(command);
        note(soFar.targets, seenTargets_, text);
        note(soFar.opaqueDirs, seenOpaque_, text);
        note(soFar.suspected, seenSuspected_, text);
        note(soFar.mentioned, seenMentioned_, text);
    }

  private:
    void note(const std::vector<std::string>& paths, std::size_t& seen, const std::string& command) {
        for (; seen < paths.size(); ++seen) because_.emplace(paths[seen], command);
    }

    std::map<std::string, std::string>& because_;
    std::size_t seenTargets_ = 0;
    std::size_t seenOpaque_ = 0;
    std::size_t seenSuspected_ = 0;
    std::size_t seenMentioned_ = 0;
};

void addRoots(const std::vector<Project>& projects, std::vector<std::string>& roots) {
    for (const Project& project : projects) roots.push_back(project.root);
}

// What lies in a git repository that is not tracked yet is saved with it.
void sortOutRepositories(const HookHandler& handler, GuardReport& report) {
    std::erase_if(report.vault, [&](const std::string& path) {
        const auto root = gitRoot(std::string(parentOf(Store::canonicalPlace(path))));
        if (!root || isTooBroad(handler.store, *root)) return false;
        if (std::find(report.beginning.begin(), report.beginning.end(), *root) == report.beginning.end())
            report.beginning.push_back(*root);
        return true;
    });
}

// As before a command, one that can't be read is passed over.
void addGitStates(GuardReport& report) {
    for (const shell::GitStoreUse& use : report.decision.gitStores) {
        try {
            if (const auto git = gitStoreFor(use.folder, use.named)) report.gitStates.push_back(git->root);
        } catch (const std::exception&) {
            continue;
        }
    }
    sortAndDedupe(report.gitStates);
}

GuardReport explained(const HookHandler& handler, const std::string& line, const std::string& folder) {
    GuardReport report;
    report.line = line;
    report.folder = folder;
    auto [program, opaque] = shell::parse(line);
    report.program = std::move(program);
    report.isCut = !opaque;
    HookContext context(handler, Agent::claude);
    context.loadProjects();
    shell::Context judged{folder, handler.home, handler.environment, {}};
    judged.protectedPaths = [&context] { return context.ownPaths(); };
    for (const Project& project : context.projects()) judged.projectRoots.push_back(project.root);
    Reasons reasons(report.because);
    judged.watch = [&](const shell::Command& command, const shell::Decision& soFar) { reasons.take(command, soFar); };
    GuardRules rules(handler.store, handler.home);
    if (const auto here = Store::projectContaining(folder, context.projects())) rules.add(*here);
    judged.isReader = [&](std::string_view name) { return rules.isReader(name); };
    judged.command = [&](std::span<const shell::Word> words) { rules.note(words); };
    report.decision = shell::analyze(line, judged);
    rules.strengthen(report.decision, context.projects());
    rules.leaveOutUncopied(report.decision, context.projects());
    report.faults = rules.faults();
    if (report.decision.verdict.kind == shell::Verdict::Kind::deny) return report;
    const SavePlan plan = planSaving(context, report.decision);
    addRoots(plan.projects, report.snapshots);
    addRoots(plan.guessed, report.ifChanged);
    report.vault = plan.outside;
    report.vaultGuess = plan.guessedOutside;
    for (auto* paths : {&report.vault, &report.vaultGuess})
        std::erase_if(*paths, [](const std::string& path) { return !exists(path); });
    sortOutRepositories(handler, report);
    addGitStates(report);
    return report;
}

} // namespace

int guardExplain(Invocation& call) {
    const auto line = call.args.word(0);
    if (!line) throw CliError("missing command; put quotes around it, as in: tidewrack guard explain 'rm -rf build'");
    if (call.args.positional.size() > 1)
        throw CliError("guard explain takes one command line; put quotes around it, as in: tidewrack guard explain "
                       "'rm -rf build'");
    HookHandler handler(call.store(), call.around.environment, homeFolder(call.around.environment));
    handler.autoTrack = false; // looking begins nothing
    const GuardReport report = explained(handler, *line, Store::canonical(call.absolute(".")));
    if (call.json())
        call.printJson(guardJson(report));
    else
        call.print(guardText(report, call.look()));
    call.warn(report.faults);
    return 0;
}

int guardOther(Invocation& /*call*/) {
    throw CliError("usage: tidewrack guard explain COMMAND");
}

// Called by a person's shell with the line that was typed. Whatever fails, the line runs.
int beforeCommand(Invocation& call) {
    const auto line = call.args.word(0);
    const auto chosen = call.around.environment.find("TIDEWRACK_SHELL");
    const std::size_t begin = line ? line->find_first_not_of(" \t") : std::string::npos;
    if (begin == std::string::npos || line->substr(begin).starts_with("TIDEWRACK_SHELL=off ") ||
        (chosen != call.around.environment.end() && chosen->second == "off"))
        return 0;
    try {
        HookHandler handler(Store::fromEnvironment(call.around.environment), call.around.environment,
                            homeFolder(call.around.environment));
        handler.autoTrack = false; // a person's own folders are for that person to track
        const shell::Verdict verdict = handler.beforeCommand(*line, call.around.currentFolder);
        switch (verdict.kind) {
        case shell::Verdict::Kind::allow: return 0;
        case shell::Verdict::Kind::deny:
            call.around.err.line("\n" + escapedControls(verdict.reason) +
                                 " To do it all the same, put TIDEWRACK_SHELL=off before it.");
            return refused;
        case shell::Verdict::Kind::ask: break;
        }
        const auto answer = askOnTerminal("\n" + escapedControls(verdict.reason) + " (yes/no) ");
        return isYes(answer.value_or("")) ? 0 : refused;
    } catch (const std::exception&) {
        return 0;
    }
}

} // namespace tidewrack::commands
