#include "Agents/HookHandler.hpp"

#include "Shell/Guard.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <algorithm>
#include <exception>
#include <set>
#include <vector>

namespace tidewrack {

namespace {

constexpr std::size_t promptLabelLength = 300;
constexpr std::size_t commandLabelLength = 200;
constexpr std::size_t commandLogLength = 80;

// The length of the line break that `text` begins with; 0 for none.
std::size_t lineBreakLength(std::string_view text) {
    if (text.empty()) return 0;
    if (text[0] >= '\n' && text[0] <= '\r') return 1;
    if (text.starts_with("\u0085")) return 2;
    return text.starts_with("\u2028") || text.starts_with("\u2029") ? 3 : 0;
}

std::string savedText(const VaultEntry& entry) {
    return "vault " + entry.id + ": " + std::to_string(entry.items.size()) + " saved, " +
           std::to_string(entry.skipped.size()) + " skipped";
}

bool isFile(const std::string& path) {
    Attributes attributes;
    return attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 && attributes.kind == Attributes::Kind::file;
}

bool isIn(const std::vector<std::string>& sorted, const std::string& path) {
    return std::binary_search(sorted.begin(), sorted.end(), path);
}

// One event while it is being answered.
class HookCall {
  public:
    HookCall(const HookHandler& handler, Agent agent, TerminationDelayed* delayed)
        : handler_(handler), agent_(agent), delayed_(delayed) {}

    HookOutput answer(std::string_view input, const std::string& processFolder) {
        try {
            const auto object = parseJsonRepairingEscapes(input);
            if (!object || !object->is_object()) {
                log("?", "unreadable input (" + std::to_string(input.size()) + " bytes)");
                return {};
            }
            event_ = parseHookEvent(agent_, *object, processFolder);
            if (event_.kind != HookEvent::Kind::stop) mayBeEnded();
            switch (event_.kind) {
            case HookEvent::Kind::prompt: return prompt();
            case HookEvent::Kind::shell: return shell();
            case HookEvent::Kind::stop: return stop();
            case HookEvent::Kind::other: return {};
            }
        } catch (const std::exception& error) {
            logError(error);
        }
        return allowReply(agent_, event_.kind);
    }

  private:
    // --- What the three kinds of events do ---

    HookOutput prompt() {
        projects_ = handler_.store.projects();
        if (const auto project = projectFor(event_.cwd))
            log(event_.name, snapshot(*project, request("prompt", oneLine(event_.prompt, promptLabelLength), whole())));
        else
            log(event_.name, "not tracked: " + event_.cwd);
        return allowReply(agent_, event_.kind);
    }

    HookOutput shell() {
        loadProjectsForJudging();
        (void)projectFor(event_.cwd); // may start tracking it
        const std::string command = event_.command.value_or("");
        shell::Context context{Store::canonical(event_.cwd), handler_.home, handler_.environment, {}};
        for (const Project& project : projects_) context.projectRoots.push_back(project.root);
        const shell::Decision decision = shell::analyze(command, context);
        unjudged_.clear();
        const auto verdict = decision.verdict.kind;
        if (verdict == shell::Verdict::Kind::deny) {
            log(event_.name, "deny " + oneLine(command, commandLogLength));
            return denyReply(agent_, decision.verdict.reason);
        }
        const bool ask = verdict == shell::Verdict::Kind::ask;
        if (decision.targets.empty() && !decision.opaque && !ask) return allowReply(agent_, event_.kind);
        std::string notes;
        for (const std::string& note : saveBefore(command, decision)) notes += (notes.empty() ? "" : "; ") + note;
        log(event_.name, (ask ? "ask " : "allow ") + oneLine(command, commandLogLength) + " → " + notes);
        return ask ? askReply(agent_, decision.verdict.reason) : allowReply(agent_, event_.kind);
    }

    HookOutput stop() {
        // Some clients end this hook right after starting it; the turn's snapshot must still be taken.
        const TerminationIgnored finishing;
        mayBeEnded(); // which does nothing now
        backUpDotfiles();
        projects_ = handler_.store.projects();
        std::vector<Project> turn;
        if (const auto project = Store::projectContaining(event_.cwd, projects_)) turn.push_back(*project);
        if (event_.session)
            for (const Project& project : projects_)
                if (!holds(turn, project) && isInTurn(project)) turn.push_back(project);
        for (const Project& project : turn)
            log(event_.name, snapshot(project, request("stop", "End of turn", whole())));
        return {};
    }

    void mayBeEnded() const {
        if (delayed_ != nullptr) delayed_->release();
    }

    void backUpDotfiles() {
        if (!handler_.backupDotfiles) return;
        try {
            const auto entry = handler_.vault.backupDotfilesIfDue(handler_.home, now(), share(3, 5));
            if (entry) log("dotfiles", savedText(*entry));
        } catch (const std::exception&) { // the turn's snapshots matter more
        }
    }

    // --- Saving before a command ---

    // What a command may touch, by where it is kept safe.
    struct Touched {
        std::vector<Project> projects;
        std::vector<std::string> outside;
    };

    // Takes the snapshots and vault copies; returns a note on each. One failure does not stop the others; the first
    // is thrown afterwards.
    std::vector<std::string> saveBefore(const std::string& command, const shell::Decision& decision) {
        const Touched touched = touchedBy(decision);
        const std::string label = "Before: " + oneLine(command, commandLabelLength);
        const Deadline deadline = share(4, 5); // leaves time for the vault
        std::vector<std::string> notes;
        std::exception_ptr failure;
        for (const Project& project : touched.projects) {
            try {
                notes.push_back(passed(deadline) ? "skipped " + project.root
                                                 : snapshot(project, request("tool", label, deadline)));
            } catch (const std::exception&) {
                if (passed(deadline))
                    notes.push_back("skipped " + project.root); // its lock was held all the time
                else if (!failure)
                    failure = std::current_exception();
            }
        }
        try {
            if (!touched.outside.empty())
                notes.push_back(savedText(
                    handler_.vault.save(touched.outside, command, std::string(rawValue(agent_)), event_.cwd, whole())));
        } catch (const std::exception&) {
            if (!failure) failure = std::current_exception();
        }
        if (failure) std::rethrow_exception(failure);
        return notes;
    }

    Touched touchedBy(const shell::Decision& decision) {
        Touched touched;
        for (const std::string& target : decision.targets) {
            const std::string place = Store::canonicalPlace(target);
            const std::string end = Store::canonical(target);
            const bool isLink = end != place;
            if (!addHolder(isLink ? std::string(parentOf(place)) : place, touched.projects))
                touched.outside.push_back(target);
            // A link may be removed, or written through.
            const bool follows = !isLink || isFile(end) || isIn(decision.followed, target);
            if (isLink && !addHolder(end, touched.projects) && follows) touched.outside.push_back(end);
            for (const Project& project : projects_) {
                if (!isAtOrBelow(project.root, end) || !isFolder(project.root)) continue;
                add(project, touched.projects);
                // Nobody was asked about a project unknown when the guard judged, and its snapshot lacks git's store.
                if (follows && unjudged_.contains(project.root) && isIn(decision.removed, target))
                    touched.outside.push_back(isLink ? end : target);
            }
        }
        for (const std::string& folder : decision.opaqueDirs)
            if (const auto project = projectFor(folder)) add(*project, touched.projects);
        std::sort(touched.outside.begin(), touched.outside.end());
        touched.outside.erase(std::unique(touched.outside.begin(), touched.outside.end()), touched.outside.end());
        return touched;
    }

    // Adds the project that `path` lies in. False when there is none.
    bool addHolder(const std::string& path, std::vector<Project>& to) {
        const auto holder = projectFor(path);
        if (holder) add(*holder, to);
        return holder.has_value();
    }

    // --- Projects ---

    // The guard's own verdict must count even when the registry cannot be read. Everything is then taken to lie
    // outside projects, so that what a command touches goes into the vault.
    void loadProjectsForJudging() {
        try {
            projects_ = handler_.store.projects();
        } catch (const std::exception& error) {
            mayTrack_ = false;
            logError(error);
        }
    }

    // The tracked project around `folder`; starts tracking the git repository around it when there is none.
    std::optional<Project> projectFor(const std::string& folder) {
        if (auto project = Store::projectContaining(folder, projects_)) return project;
        // Beginning to track takes a count of the whole repository and a full snapshot.
        if (!handler_.autoTrack || !mayTrack_ || passed(share(2, 5))) return std::nullopt;
        const auto root = gitRoot(Store::canonical(folder));
        if (!root || handler_.store.isTooBroad(*root) || untrackable_.contains(*root)) return std::nullopt;
        const auto start = std::chrono::steady_clock::now();
        try {
            projects_.push_back(handler_.store.track(*root, false));
        } catch (const std::exception& error) {
            handler_.log.append("-", "track", start, "didn't auto-track " + *root + ": " + error.what());
            untrackable_.insert(*root);
            return std::nullopt;
        }
        unjudged_.insert(*root);
        handler_.log.append("-", "track", start, "auto-tracked " + *root);
        return projects_.back();
    }

    // Whether the turn that ends has begun or worked in the project.
    [[nodiscard]] bool isInTurn(const Project& project) const {
        try {
            const auto latest = handler_.store.latest(project);
            return latest && latest->session == event_.session && (latest->kind == "tool" || latest->kind == "prompt");
        } catch (const std::exception&) { // another project's damage is no reason to lose this turn's snapshots
            return false;
        }
    }

    static bool holds(const std::vector<Project>& projects, const Project& project) {
        return std::any_of(projects.begin(), projects.end(),
                           [&](const Project& other) { return other.id == project.id; });
    }
    static void add(const Project& project, std::vector<Project>& to) {
        if (!holds(to, project)) to.push_back(project);
    }

    // --- Snapshots, time and the log ---

    [[nodiscard]] SnapshotRequest request(const char* kind, std::string label, const Deadline& deadline) const {
        return {kind,     std::move(label), std::string(rawValue(agent_)), event_.session, event_.turn,
                deadline, &projects_};
    }

    // Returns the note on it.
    [[nodiscard]] std::string snapshot(const Project& project, const SnapshotRequest& request) const {
        const SnapshotResult result = handler_.engine.snapshot(project, request);
        const std::string note = "#" + std::to_string(result.meta.seq) + " " + project.root;
        return result.late == 0 ? note : note + ", " + std::to_string(result.late) + " skipped";
    }

    [[nodiscard]] Deadline whole() const { return start_ + handler_.budget; }
    [[nodiscard]] Deadline share(int part, int of) const { return start_ + handler_.budget * part / of; }

    void log(std::string_view event, std::string_view message) const {
        handler_.log.append(rawValue(agent_), event, start_, message);
    }
    void logError(const std::exception& error) const { log(event_.name, std::string("error: ") + error.what()); }

    const HookHandler& handler_;
    const Agent agent_;
    TerminationDelayed* const delayed_;
    const HookLog::Instant start_ = std::chrono::steady_clock::now();
    HookEvent event_;
    std::vector<Project> projects_; // all tracked ones
    bool mayTrack_ = true;
    std::set<std::string> unjudged_;    // roots of projects that the guard did not know when it judged
    std::set<std::string> untrackable_; // repositories that could not be tracked in this call
};

} // namespace

HookHandler::HookHandler(const Store& owner, Environment variables, std::string userHome)
    : store(owner), engine(owner), vault(owner), log(owner), environment(std::move(variables)),
      home(std::move(userHome)) {}

HookOutput HookHandler::handle(Agent agent, std::string_view input, const std::string& processFolder,
                               TerminationDelayed* delayed) const {
    return HookCall(*this, agent, delayed).answer(input, processFolder);
}

std::optional<std::string> gitRoot(std::string path) {
    while (!path.empty()) {
        if (exists(joined(path, ".git"))) return path;
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
