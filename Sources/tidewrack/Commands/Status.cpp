// Whether the history of this folder works.

#include "Agents/GuardRules.hpp"
#include "Agents/LoggedEvents.hpp"
#include "Commands/Commands.hpp"
#include "Commands/Hooks.hpp"
#include "Commands/UndoElsewhere.hpp"
#include "Engine/Caps.hpp"
#include "Engine/Usage.hpp"
#include "Invocation.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Reports/StatusReport.hpp"
#include "Store/Settings.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Walk/GitIgnore.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>

namespace tidewrack::commands {

namespace {

constexpr std::size_t mostFailures = 3;
constexpr auto failureMatters = std::chrono::hours(24);

std::optional<Project> projectOf(Invocation& call) {
    try {
        return call.project();
    } catch (const TidewrackError& error) {
        if (error.kind() != TidewrackError::Kind::notTracked) throw;
        return std::nullopt;
    }
}

// The project, or why there is none.
void addProject(Invocation& call, StatusReport& report) {
    report.folder = call.absolute(call.args.value("--project").value_or(call.around.currentFolder));
    const std::size_t before = report.troubles.size();
    for (const Registry::Unreadable& each : call.store().registry().unreadable)
        report.troubles.push_back({each.reason, "Run: tidewrack check --repair"});
    try {
        report.project = projectOf(call);
        if (!report.project) report.troubles.push_back({"This folder isn't tracked", "Run: tidewrack track"});
    } catch (const TidewrackError& error) {
        if (report.troubles.size() == before) report.troubles.push_back({error.what(), {}});
    }
}

// In a repository git is asked what a snapshot asks it: one that knows its own version may still refuse the repository.
StatusReport::Git askGit(const std::string& root) {
    const std::string program = gitProgram();
    if (program.empty()) return StatusReport::Git::missing;
    if (const auto ignore = GitIgnore::open(root)) {
        (void)ignore->isIgnored(defaultExcludesIfIgnored().front());
        return ignore->outcome() == GitOutcome::answered ? StatusReport::Git::answers : StatusReport::Git::silent;
    }
    ChildProcess git;
    std::string answer;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    int error = git.start({program, {"--version"}, {}});
    while (error == 0 && answer.find('\n') == std::string::npos) error = git.receive(answer, until);
    return answer.starts_with("git version") ? StatusReport::Git::answers : StatusReport::Git::silent;
}

// Whether the latest that some agent's hook did was to fail.
bool failing(const LoggedEvents& events) {
    return std::any_of(events.latest.begin(), events.latest.end(), [](const auto& each) {
        return each.second.isFailure() && now() - each.second.time < failureMatters;
    });
}

// What the newest snapshot does not tell: of older records, and whether there can be a next one.
void addDamage(const History& history, StatusReport& report) {
    try {
        std::vector<UnreadRecord> unread;
        std::set<std::int64_t> listings;
        for (const SnapshotMeta& meta : history.snapshots(unread)) listings.insert(meta.manifestOf);
        if (report.newest) listings.erase(report.newest->manifestOf); // that was read
        for (const std::int64_t seq : listings)
            if (const std::string fault = history.manifestFault(seq); !fault.empty())
                report.troubles.push_back({fault, "Run: tidewrack check"});
        for (const UnreadRecord& record : unread)
            if (record.seq != history.newestSeq()) // that is told already
                report.troubles.push_back({record.reason, "Run: tidewrack check"});
    } catch (const TidewrackError& error) {
        report.troubles.push_back({error.what(), "Run: tidewrack check"});
    }
    for (const std::string& path : {history.lockPath(), history.snapshotsFolder()}) {
        if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 || errno == ENOENT) continue;
        report.troubles.push_back({"No snapshot can be taken: can't write " + path + ": " + errorText(errno), {}});
        break;
    }
}

// What room is left, and what the histories take of it.
void addRoom(const Engine& engine, StatusReport& report) {
    const auto over = [&](std::int64_t bytes, const std::optional<std::int64_t>& cap, const char* what,
                          const char* key) {
        if (cap && bytes > *cap)
            report.troubles.push_back({std::string(what) + " takes " + bytesText(bytes) + ", more than its " + key +
                                           " of " + bytesText(*cap) +
                                           ": what is pinned or not older than 48 hours stays",
                                       "Run: tidewrack prune, or: tidewrack config set " + std::string(key) + " SIZE"});
    };
    over(report.bytes, report.project->cap, "This history", "project.cap");
    try {
        const Settings settings = readSettings(engine.store.home);
        if (settings.cap)
            over(storeBytes(engine.store, engine.store.registry().projects), settings.cap, "The store", "store.cap");
    } catch (const TidewrackError& error) {
        report.troubles.push_back({error.what(), {}});
    }
    if (isAlmostFull(engine.store.home))
        report.troubles.push_back({"Only " + bytesText(volumeRoom(engine.store.home).free) +
                                       " is free on the history's volume: new files over 1 MiB are not kept",
                                   "Make room, or: tidewrack config set store.floor SIZE"});
}

void addSnapshots(const Engine& engine, StatusReport& report) {
    const Project& project = *report.project;
    const History history = engine.store.history(project);
    const auto trouble = [&](const std::string& what) { report.troubles.push_back({what, "Run: tidewrack check"}); };
    try {
        Engine::checkRoot(project);
    } catch (const TidewrackError& error) {
        std::string what = error.what();
        if (what.ends_with('.')) what.pop_back();
        report.troubles.push_back({what, exists(project.root) ? "Run: tidewrack restore last, once it is a folder again"
                                                              : "Run: " + bringingBack(project, "last")});
    }
    try {
        report.snapshots = static_cast<std::int64_t>(history.seqs().size());
        report.newest = history.latest();
        if (report.newest) report.notKept = notKeptIn(history.manifest(*report.newest));
    } catch (const TidewrackError& error) {
        trouble(error.what());
    }
    addDamage(history, report);
    if (report.snapshots == 0) report.troubles.push_back({"There is no snapshot yet", "Run: tidewrack snap"});
    if (!report.notKept.failed.empty())
        report.troubles.push_back({countText(static_cast<std::int64_t>(report.notKept.failed.size()), "path") +
                                       " could not be kept by the newest snapshot",
                                   "Try again: tidewrack snap"});
    report.bytes = storedBytes(history);
    addRoom(engine, report);
    report.sharesBlocks = history.sharesVolume() && volumeClones(project.root);
    report.git = askGit(project.root);
    if (report.git != StatusReport::Git::answers && GitIgnore::insideRepo(project.root))
        report.troubles.push_back({"git doesn't tell which folders it ignores", "See what `git status` says"});
}

void addHooks(Invocation& call, StatusReport& report) {
    std::string log;
    (void)readFile(call.store().home + "/hooks.log", log);
    LoggedEvents events = loggedEvents(log);
    const std::size_t passed = events.failures.size() - std::min(events.failures.size(), mostFailures);
    report.failures.assign(events.failures.begin() + static_cast<std::ptrdiff_t>(passed), events.failures.end());
    if (failing(events)) report.troubles.push_back({"A hook failed: " + report.failures.back().message.substr(7), {}});
    bool present = false;
    bool installed = false;
    const HookInstaller installer = installerFor(call);
    for (const Agent agent : allAgents) {
        StatusReport::AgentState state{std::string(rawValue(agent)), {}, {}, {}};
        const auto status = hooksStatusOf(installer, agent);
        state.state = status.state;
        state.hint = status.hint;
        present = present || state.state != "agent not found";
        installed = installed || state.state == "installed";
        if (state.hint) report.troubles.push_back({"The hooks of " + state.agent + ": " + *state.hint, {}});
        if (const auto latest = events.latest.find(state.agent); latest != events.latest.end())
            state.latest = latest->second;
        report.agents.push_back(std::move(state));
    }
    if (present && !installed)
        report.troubles.push_back({"No agent's hooks are installed", "Run: tidewrack hooks install"});
}

// A fault in the user's own rules for the guard.
void addRules(Invocation& call, StatusReport& report) {
    GuardRules rules(call.store(), homeFolder(call.around.environment));
    if (report.project) rules.add(*report.project);
    for (const std::string& fault : rules.faults())
        report.troubles.push_back({fault, "Its form: tidewrack help guard"});
}

// The end of a file.
std::string tailOf(const std::string& path) {
    constexpr off_t most = 4096;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) return {};
    const off_t size = ::lseek(file.get(), 0, SEEK_END);
    std::string text(static_cast<std::size_t>(std::min(size, most)), '\0');
    const ssize_t count = ::pread(file.get(), text.data(), text.size(), std::max<off_t>(size - most, 0));
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

// For prompts: only what a glance tells.
const char* shortStatus(Invocation& call) {
    try {
        const auto project = projectOf(call);
        if (!project) return "untracked";
        const History history = call.store().history(*project);
        const auto newest = history.latest();
        if (!newest || !history.manifestFault(newest->manifestOf).empty() || !isFolder(project->root)) return "trouble";
        const LoggedEvents events = loggedEvents(tailOf(call.store().home + "/hooks.log"));
        return failing(events) ? "trouble" : "ok";
    } catch (const TidewrackError&) {
        return "trouble";
    }
}

} // namespace

int status(Invocation& call) {
    if (call.args.has("--short")) {
        if (call.json()) throw CliError("one word is no JSON: give --short or --json");
        const std::string word = shortStatus(call);
        call.print(word + "\n");
        return word == "ok" ? 0 : 1;
    }
    StatusReport report;
    addProject(call, report);
    if (report.project) addSnapshots(call.engine(), report);
    addHooks(call, report);
    addRules(call, report);
    if (call.json())
        call.printJson(statusJson(report));
    else
        call.print(statusText(report, now(), call.look()));
    return report.troubles.empty() ? 0 : 1;
}

} // namespace tidewrack::commands
