#include "Agents/HookHandler.hpp"

#include "Agents/AnswerInTime.hpp"
#include "Agents/EditedFiles.hpp"
#include "Agents/GuardRules.hpp"
#include "Agents/Question.hpp"
#include "Agents/Replaceable.hpp"
#include "Agents/SaveBefore.hpp"
#include "Agents/SnapshotTexts.hpp"
#include "Agents/TurnRecords.hpp"
#include "Shell/Effects.hpp"
#include "Shell/Guard.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Timeline/LoggedHook.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <span>
#include <vector>

namespace tidewrack {

namespace {

constexpr std::size_t promptLabelLength = 300;
constexpr std::size_t commandLogLength = 80;

// The length of the line break that `text` begins with; 0 for none.
std::size_t lineBreakLength(std::string_view text) {
    if (text.empty()) return 0;
    if (text[0] >= '\n' && text[0] <= '\r') return 1;
    if (text.starts_with("\u0085")) return 2;
    return text.starts_with("\u2028") || text.starts_with("\u2029") ? 3 : 0;
}

// One event while it is being answered.
class HookCall {
  public:
    HookCall(const HookHandler& handler, std::optional<Agent> agent, TerminationDelayed* delayed)
        : context_(handler, agent), delayed_(delayed) {}

    HookOutput answer(std::string_view input, const std::string& processFolder) {
        try {
            const auto object = parseJsonRepairingEscapes(input);
            if (!object || !object->is_object()) {
                context_.log("?", "unreadable input (" + std::to_string(input.size()) + " bytes)");
                return {};
            }
            context_.event = parseHookEvent(agent(), *object, processFolder, context_.handler.home);
            if (event_.kind != HookEvent::Kind::stop) mayBeEnded();
            switch (event_.kind) {
            case HookEvent::Kind::prompt: return prompt();
            case HookEvent::Kind::shell: return shell();
            case HookEvent::Kind::stop: return stop();
            case HookEvent::Kind::edit: return edit();
            case HookEvent::Kind::discard: return discard();
            case HookEvent::Kind::other: return {};
            }
        } catch (const std::exception& error) {
            context_.logError(error.what());
            return answerAfter(error.what());
        }
        return allowed();
    }

    // The verdict on a person's own command, with the words for the one who is asked or refused.
    shell::Verdict judge(const std::string& command, const std::string& folder) {
        context_.event.kind = HookEvent::Kind::shell;
        context_.event.name = "command";
        context_.event.cwd = folder;
        try {
            shell::Decision decision = shell::analyze(command, startJudging());
            askAboutUnreadable(decision);
            std::vector<std::string> unkept;
            return weigh(command, decision, unkept) ? save(command, decision, unkept) : verdict_;
        } catch (const std::exception& error) {
            context_.logError(error.what());
            return worded(verdict_, notSaved(error.what()));
        }
    }

  private:
    // Only an agent gets replies.
    [[nodiscard]] Agent agent() const { return context_.agent.value_or(Agent::claude); }

    // What was judged holds, whatever fails afterwards.
    [[nodiscard]] HookOutput answerAfter(const char* failure) const {
        return answerTo(worded(verdict_, notSaved(failure)));
    }
    static SavedBefore notSaved(const char* failure) {
        SavedBefore saved;
        saved.notSnapshotted = failure;
        return saved;
    }

    HookOutput prompt() {
        context_.loadProjects();
        if (const auto project = context_.projectFor(event_.cwd))
            snapshot(*project, "prompt", isBackgroundTask() ? "Background task finished" : promptLabel(),
                     isBackgroundTask());
        else
            context_.log(event_.name, "not tracked: " + event_.cwd);
        return allowed();
    }

    [[nodiscard]] std::string promptLabel() const { return oneLine(event_.prompt, promptLabelLength); }

    // Claude reports the end of a command in the background as a prompt, which nobody typed: no turn begins with it.
    [[nodiscard]] bool isBackgroundTask() const {
        return agent() == Agent::claude && event_.prompt && event_.prompt->starts_with("<task-notification>");
    }

    HookOutput shell() {
        const std::string command = event_.command.value_or("");
        shell::Decision decision = shell::analyze(command, startJudging());
        askAboutUnreadable(decision);
        return reply(command, std::move(decision));
    }

    // The folder of a project whose record can't be read is none of the roots that the guard knows.
    void askAboutUnreadable(shell::Decision& decision) const {
        if (!context_.hasUnreadableRecords() && context_.knowsProjects()) return;
        for (const std::string& path : decision.removed) {
            const std::string folder = Store::canonical(path);
            if (!context_.knowsProjects() && isFolder(folder) && !isReplaceable(folder, handler_.environment, folder))
                decision.verdict.raiseTo({shell::Verdict::Kind::ask,
                                          "This deletes " + folder + ", which may hold a tracked project." +
                                              std::string(shell::snapshotPromise),
                                          folder});
            const auto roots = context_.unreadableIn(folder, context_.share(1, 5));
            if (!roots.empty()) shell::askIfContainsProject(folder, roots, decision.verdict);
        }
    }

    HookOutput edit() {
        const shell::Context judged = startJudging();
        shell::Decision decision = shell::judgeFiles(event_.paths, event_.fileAct, judged);
        const std::size_t more = event_.paths.size() - 1;
        return reply("editing " + event_.paths.front() + (more > 0 ? " and " + std::to_string(more) + " more" : ""),
                     std::move(decision));
    }

    HookOutput discard() {
        (void)startJudging();
        shell::Decision decision;
        decision.targets.push_back(event_.cwd);
        decision.removed = decision.targets;
        decision.gitStores.push_back({event_.cwd, {}});
        return reply("removing the work tree " + event_.cwd, std::move(decision));
    }

    HookOutput reply(const std::string& action, shell::Decision decision) {
        std::vector<std::string> unkept;
        if (!weigh(action, decision, unkept)) return answerTo(verdict_);
        const auto saving = [&] { return answerTo(save(action, decision, unkept)); };
        if (!handler_.patience) return saving();
        return answerInTime(context_.after(*handler_.patience), saving, [&](const char* why) {
            const SavedBefore nothing = nothingSaved(context_, decision, why);
            if (nothing.unsaved) verdict_.kind = shell::Verdict::Kind::ask;
            return answerTo(worded(verdict_, nothing));
        });
    }

    // Settles the verdict on `action`, a command or what stands for one, as far as that shows without saving. Whether
    // anything is to be saved, or said of it.
    bool weigh(const std::string& action, shell::Decision& decision, std::vector<std::string>& unkept) {
        verdict_ = decision.verdict;
        if (verdict_.kind != shell::Verdict::Kind::deny && (isAsking() || ownRules_ || needsSaving(decision))) {
            attempt([&] { ownRules().strengthen(decision, context_.projects()); });
            verdict_ = decision.verdict;
            if (ownRules_)
                for (const std::string& fault : ownRules_->faults()) context_.logError(fault);
        }
        if (verdict_.kind == shell::Verdict::Kind::deny) {
            logAction("deny ", action, {});
            return false;
        }
        // Files that this turn's snapshot of their project holds already are noted as the turn's. What else the tool is
        // about to change is saved like a command's targets.
        if (event_.kind == HookEvent::Kind::edit)
            attempt([&] { decision.targets = EditedFiles(context_).notHeld(event_.paths, unkept); });
        if (ownRules_) ownRules_->leaveOutUncopied(decision, context_.projects());
        if (isAsking() || needsSaving(decision) || !unkept.empty()) return true;
        noteMade(decision);
        return false;
    }

    [[nodiscard]] bool isAsking() const { return verdict_.kind == shell::Verdict::Kind::ask; }

    static bool touchesFiles(const shell::Decision& decision) {
        return !decision.targets.empty() || decision.opaque || !decision.suspected.empty() ||
               !decision.mentioned.empty();
    }

    static bool needsSaving(const shell::Decision& decision) {
        return touchesFiles(decision) || !decision.gitStores.empty();
    }

    // Saves what is at stake, and puts the verdict into words.
    shell::Verdict save(const std::string& action, const shell::Decision& decision,
                        const std::vector<std::string>& unkept) {
        try {
            const SavedBefore saved = saveBefore(context_, action, decision, unkept);
            for (const std::string& failure : saved.failures) context_.logError(failure); // each a line of its own
            noteMade(decision);
            if (saved.unsaved) verdict_.kind = shell::Verdict::Kind::ask;
            const char* kind = verdict_.kind == shell::Verdict::Kind::ask ? "ask " : "allow ";
            if (!isAboutGitAlone(decision) || !saved.notes.empty())
                attempt([&] { logAction(kind, action, saved.notes); });
            return worded(verdict_, saved);
        } catch (const std::exception& error) {
            context_.logError(error.what());
            return worded(verdict_, notSaved(error.what()));
        }
    }

    // Whether the command does no more than change git's own store, which is copied where that has changed.
    static bool isAboutGitAlone(const shell::Decision& decision) {
        return decision.verdict.kind == shell::Verdict::Kind::allow && !touchesFiles(decision) &&
               !decision.gitStores.empty();
    }

    // What a command makes is the turn's like what it takes.
    void noteMade(const shell::Decision& decision) const {
        for (const std::string& path : decision.made)
            attempt([&] { context_.noteChange(Store::canonicalPlace(path), HookContext::Extent::alone); });
    }

    // Read when a line needs them: most don't.
    GuardRules& ownRules() {
        if (ownRules_) return *ownRules_;
        ownRules_.emplace(handler_.store, handler_.home);
        if (const auto here = Store::projectContaining(event_.cwd, context_.projects())) ownRules_->add(*here);
        return *ownRules_;
    }

    static shell::Verdict worded(shell::Verdict verdict, const SavedBefore& saved) {
        if (verdict.kind == shell::Verdict::Kind::ask) verdict.reason = question(verdict, saved);
        return verdict;
    }

    [[nodiscard]] HookOutput answerTo(const shell::Verdict& verdict) const {
        switch (verdict.kind) {
        case shell::Verdict::Kind::deny: return denyReply(agent(), verdict.reason);
        case shell::Verdict::Kind::ask: return askReply(agent(), event_.kind, verdict.reason);
        case shell::Verdict::Kind::allow: break;
        }
        return allowed();
    }

    void logAction(const char* verdict, const std::string& action, const std::vector<std::string>& notes) const {
        std::string line = verdict + loggedCommand(oneLine(action, commandLogLength));
        for (const std::string& note : notes) line += (&note == &notes.front() ? " → " : "; ") + note;
        context_.log(event_.name, line);
    }

    // A failure in here costs nothing but itself.
    template <typename Action>
    void attempt(Action action) const {
        try {
            action();
        } catch (const std::exception& error) {
            context_.logError(error.what());
        }
    }

    shell::Context startJudging() {
        attempt([&] { context_.loadProjects(); });
        attempt([&] { (void)context_.projectFor(event_.cwd); }); // may start tracking it
        shell::Context judged{event_.cwd, handler_.home, handler_.environment, {}};
        attempt([&] { judged.cwd = Store::canonical(event_.cwd); });
        judged.protectedPaths = [this] { return ownPaths(); };
        // What fails in these must not end the judging.
        judged.isReader = [this](std::string_view program) {
            bool reads = false;
            attempt([&] { reads = ownRules().isReader(program); });
            return reads;
        };
        judged.command = [this](std::span<const shell::Word> words) { attempt([&] { ownRules().note(words); }); };
        for (const Project& project : context_.projects()) judged.projectRoots.push_back(project.root);
        for (const std::string& root : context_.distrusted()) judged.projectRoots.push_back(root);
        if (context_.hasUnreadableRecords())
            for (std::string folder = judged.cwd; folder.size() > 1; folder = parentOf(folder))
                if (context_.hasUnreadableRecord(folder)) judged.projectRoots.push_back(folder);
        context_.beginJudging();
        return judged;
    }

    // Telling which files hold our hooks takes reading them. What else was judged holds when that fails.
    [[nodiscard]] std::vector<shell::OwnPath> ownPaths() const {
        try {
            return context_.ownPaths();
        } catch (const std::exception& error) {
            context_.logError(error.what());
            return {};
        }
    }

    HookOutput stop() {
        // Some clients end this hook right after starting it; the turn's snapshot must still be taken.
        const TerminationIgnored finishing;
        mayBeEnded(); // which does nothing now
        attempt([this] { endTurns(); });
        backUpDotfiles(); // last: an agent that ends a late hook may end it here
        return {};
    }

    void endTurns() {
        context_.loadProjects();
        const auto here = Store::projectContaining(event_.cwd, context_.projects());
        const auto prompted = here ? promptTime(context_, *here) : std::nullopt;
        if (event_.endsSession) return endSession();
        if (here) endTurn(*here);
        if (!event_.session) return;
        for (const Project& project : context_.projects())
            if ((!here || project.id != here->id) && isInTurn(context_, project, prompted)) endTurn(project);
    }

    // Of a turn that was cut off no agent tells the end; a turn that has ended stays as it is.
    void endSession() {
        for (const Project& project : context_.projects())
            if (hasOpenTurn(context_, project)) endTurn(project);
    }

    // One project's failure costs the others nothing.
    void endTurn(const Project& project) {
        try {
            snapshot(project, "stop",
                     event_.interrupted   ? "Interrupted"
                     : event_.endsSession ? "End of session"
                                          : "End of turn",
                     std::nullopt, endOfTurn(context_, project));
        } catch (const std::exception& error) {
            context_.logError(error.what());
        }
    }

    void snapshot(const Project& project, const char* kind, std::string label,
                  std::optional<bool> background = std::nullopt, std::optional<TurnEnd> end = std::nullopt) const {
        SnapshotRequest request = context_.request(kind, std::move(label), context_.whole());
        request.background = background;
        request.end = std::move(end);
        const SnapshotResult result = handler_.engine.snapshot(project, request);
        std::string line = HookContext::noteOn(result, project);
        for (const std::string& note : HookContext::notesOnGaps(result)) line += "; " + note;
        if (const std::string tooLarge = tooLargeText(result.notKept); !tooLarge.empty()) line += "; " + tooLarge;
        context_.log(event_.name, line);
    }

    void backUpDotfiles() {
        if (!handler_.backupDotfiles || passed(context_.share(3, 5))) return; // the next turn's end has time for it
        try {
            const auto entry = handler_.vault.backupDotfilesIfDue(handler_.home, now(), context_.share(3, 5));
            if (entry) context_.log("dotfiles", noteOn(*entry));
        } catch (const std::exception&) { // the turn's snapshots matter more
        }
    }

    void mayBeEnded() const {
        if (delayed_ != nullptr) delayed_->release();
    }

    [[nodiscard]] HookOutput allowed() const { return allowReply(agent(), event_.kind); }

    HookContext context_;
    const HookHandler& handler_ = context_.handler;
    const HookEvent& event_ = context_.event;
    std::optional<GuardRules> ownRules_;
    shell::Verdict verdict_; // on the event, as soon as it is known
    TerminationDelayed* const delayed_;
};

} // namespace

HookHandler::HookHandler(const Store& owner, Environment variables, std::string userHome)
    : store(owner), engine(owner), vault(owner), log(owner), environment(std::move(variables)),
      home(std::move(userHome)) {}

HookOutput HookHandler::handle(Agent agent, std::string_view input, const std::string& processFolder,
                               TerminationDelayed* delayed) const {
    return HookCall(*this, agent, delayed).answer(input, processFolder);
}

shell::Verdict HookHandler::beforeCommand(const std::string& command, const std::string& folder) const {
    return HookCall(*this, std::nullopt, nullptr).judge(command, folder);
}

namespace {

// Anybody may leave a ".git" in a folder that all can write to; git believes none of another user either.
bool isTrusted(const struct stat& status) {
    return status.st_uid == ::geteuid() || status.st_uid == 0 || ::geteuid() == 0;
}

} // namespace

std::optional<std::string> gitRoot(std::string path) {
    while (!path.empty()) {
        struct stat status {};
        if (::lstat(joined(path, ".git").c_str(), &status) == 0 && isTrusted(status)) return path;
        std::string parent(parentOf(path));
        if (parent == path) break;
        path = std::move(parent);
    }
    return std::nullopt;
}

std::string oneLine(const std::optional<std::string>& text, std::size_t longest) {
    std::string line;
    bool broken = false;
    for (std::string_view rest = text ? std::string_view(*text) : std::string_view(); !rest.empty();) {
        const std::size_t length = lineBreakLength(rest);
        if (length == 0) {
            if (broken && !line.empty()) line += ' ';
            line += rest.front();
        }
        broken = length > 0;
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    const auto begin = line.find_first_not_of(" \t");
    if (begin == line.npos) return {};
    line = line.substr(begin, line.find_last_not_of(" \t") - begin + 1);
    const std::string_view whole = firstCharacters(line, longest);
    if (whole.size() == line.size()) return line;
    return std::string(firstCharacters(line, longest - 1)) + "…";
}

} // namespace tidewrack
