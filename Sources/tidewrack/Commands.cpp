// The dispatcher: one function per command.

#include "CommandLine.hpp"
#include "Commands/Hook.hpp"
#include "Commands/Hooks.hpp"
#include "Commands/Vault.hpp"
#include "Help.hpp"
#include "Progress.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Walk/GitIgnore.hpp"
#include "Walk/Walker.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <charconv>
#include <chrono>
#include <future>
#include <sstream>

namespace tidewrack {

namespace {

class Commands {
  public:
    Commands(const Args& args, Surroundings& around)
        : args_(args), around_(around), out_(around.out), engine_(Store::fromEnvironment(around.environment)),
          store_(engine_.store) {
        if (around.err.isTerminal())
            engine_.progress = [this](const char* what, std::size_t count) { progress_.show(what, count); };
    }

    // The commands that work on the store; false when `name` is none of them.
    bool run(const std::string& name) {
        using Command = void (Commands::*)();
        static const std::map<std::string, Command, std::less<>> commands = {{"track", &Commands::track},
                                                                             {"untrack", &Commands::untrack},
                                                                             {"projects", &Commands::projects},
                                                                             {"snap", &Commands::snap},
                                                                             {"log", &Commands::log},
                                                                             {"diff", &Commands::diff},
                                                                             {"restore", &Commands::restore},
                                                                             {"undo", &Commands::undo},
                                                                             {"cat", &Commands::cat},
                                                                             {"pin", &Commands::pin},
                                                                             {"unpin", &Commands::unpin},
                                                                             {"prune", &Commands::prune},
                                                                             {"_bench-walk", &Commands::benchWalk}};
        const auto found = commands.find(name);
        if (found == commands.end()) return false;
        (this->*found->second)();
        return true;
    }

  private:
    [[nodiscard]] std::string absolute(const std::string& path) const {
        if (path.starts_with('/')) return path;
        if (around_.currentFolder.empty())
            throw TidewrackError::io("Can't tell the current folder; it may have been deleted.");
        return absolutePath(path, around_.currentFolder);
    }

    // The project that contains `folder` (default: --project, else the current folder).
    [[nodiscard]] Project project(const std::optional<std::string>& folder = std::nullopt) const {
        const std::string path = absolute(folder ? *folder : args_.value("--project").value_or(around_.currentFolder));
        auto found = store_.projectContaining(path);
        if (!found) throw TidewrackError::notTracked(path);
        return *found;
    }

    [[nodiscard]] bool json() const { return args_.has("--json"); }

    void printJson(const nlohmann::json& value) {
        progress_.wipe();
        out_.line(prettyJson(value, Slashes::escaped));
    }

    void print(std::string_view text) {
        progress_.wipe();
        out_.write(text);
    }

    void warn(const std::vector<std::string>& warnings) {
        progress_.wipe();
        for (const std::string& warning : warnings) around_.err.line("warning: " + repairedUtf8(warning));
    }

    [[nodiscard]] bool colour() const {
        const auto off = around_.environment.find("NO_COLOR");
        return out_.isTerminal() && (off == around_.environment.end() || off->second.empty());
    }

    void track() {
        const std::string path = absolute(args_.word(1).value_or(around_.currentFolder));
        const Project project = store_.track(path, args_.has("--force"));
        const SnapshotResult first = engine_.snapshot(project, {"manual", {}, {}, {}, {}});
        if (json()) {
            printJson({{"project", toJson(project)}, {"snapshot", snapshotJson(first)}});
        } else {
            print("Started tracking " + project.root + "\n#" + std::to_string(first.meta.seq) + "  " +
                  std::to_string(first.meta.files) + " files  " + std::to_string(first.meta.durationMs) + " ms\n");
        }
        warn(first.warnings);
        if (const auto warning = store_.storageWarning(project)) warn({*warning});
    }

    void untrack() {
        const auto path = args_.word(1);
        if (path && path->empty()) throw CliError("missing path"); // a script's unset variable
        const Project project = this->project(path);
        // A word that is no folder, such as -h or a typing error, must not cost the history of the folder around it;
        // a tracked folder that is gone can still be given up by its name.
        if (path && Store::canonical(absolute(*path)) != project.root && !isFolder(absolute(*path)))
            throw TidewrackError::io(absolute(*path) + " is not a folder.");
        store_.untrack(project);
        print("Stopped tracking " + project.root + " and deleted its history.\n");
    }

    void projects() {
        const auto all = store_.projects();
        nlohmann::json list = nlohmann::json::array();
        std::string text;
        for (const Project& project : all) {
            std::vector<std::int64_t> seqs;
            std::optional<SnapshotMeta> latest;
            std::string state = "no snapshots";
            try {
                seqs = store_.seqs(project);
                if (!seqs.empty())
                    state = std::to_string(seqs.size()) + (seqs.size() == 1 ? " snapshot" : " snapshots");
                if (!seqs.empty()) latest = store_.snapshot(project, seqs.back());
                if (latest) state += ", latest " + ago(latest->created, now());
            } catch (const TidewrackError&) { // the other projects are still worth listing
                state = seqs.empty() ? "its snapshots are unreadable" : state + ", the latest is unreadable";
            }
            list.push_back(projectJson(project, seqs.size(), latest));
            text += project.root + "  " + state + "\n";
        }
        if (json())
            printJson(list);
        else if (all.empty())
            print("Nothing tracked yet. Run `tidewrack track` in a project folder.\n");
        else
            print(text);
    }

    void snap() {
        const Project project = this->project();
        const SnapshotRequest request{args_.value("--kind").value_or("manual"), args_.value("--label"),
                                      args_.value("--agent"), args_.value("--session"), args_.value("--turn")};
        const SnapshotResult result = engine_.snapshot(project, request);
        const SnapshotMeta& meta = result.meta;
        if (json())
            printJson(snapshotJson(result));
        else
            print("#" + std::to_string(meta.seq) + "  " + countsText({meta.added, meta.modified, meta.deleted}) +
                  " since the previous snapshot  " + std::to_string(meta.files) + " files  " +
                  std::to_string(meta.durationMs) + " ms\n");
        warn(result.warnings);
    }

    // "-n", 20 when it is not given.
    [[nodiscard]] std::size_t mostListed() const {
        const auto text = args_.value("-n");
        if (!text) return 20;
        const auto number = parseSeq(*text);
        if (!number) throw CliError("-n must be a whole number, 0 or more, got " + *text);
        return static_cast<std::size_t>(*number);
    }

    void log() {
        const std::size_t most = mostListed();
        const Project project = this->project();
        // Reading the records takes a while too, so the comparison runs meanwhile. Should they be unreadable, that is
        // told when it has come to its end.
        const auto newest = json() || most == 0 ? std::nullopt : store_.newestSeq(project);
        auto soFar = newest ? countsSoFar(project, *newest) : CountsSoFar();
        auto snapshots = store_.snapshots(project);
        std::reverse(snapshots.begin(), snapshots.end());
        if (snapshots.size() > most) snapshots.resize(most);
        if (json()) {
            nlohmann::json list = nlohmann::json::array();
            for (const SnapshotMeta& meta : snapshots) list.push_back(toJson(meta));
            printJson(list);
            return;
        }
        if (!snapshots.empty() && snapshots.front().seq != newest) { // one came or went meanwhile
            soFar = {};                                              // waits for the end of the other comparison
            soFar = countsSoFar(project, snapshots.front().seq);
        }
        const SnapshotMeta* newer = nullptr;
        for (const SnapshotMeta& meta : snapshots) {
            std::string after;
            if (newer == nullptr) {
                after = changesSoFar(soFar, meta.seq);
            } else {
                after = countsText({newer->added, newer->modified, newer->deleted});
            }
            print(logLine(meta, after, now()) + "\n");
            newer = &meta;
        }
    }

    using CountsSoFar = std::future<Changes::Counts>;

    [[nodiscard]] CountsSoFar countsSoFar(const Project& project, std::int64_t seq) const {
        return std::async(std::launch::async | std::launch::deferred, // deferred where no thread is to be had
                          [this, &project, seq] { return engine_.diff(project, seq, std::nullopt).fileCounts(); });
    }

    // The older snapshots are worth listing even when the newest cannot be compared with the folder.
    [[nodiscard]] std::string changesSoFar(CountsSoFar& soFar, std::int64_t seq) {
        try {
            const auto counts = soFar.get();
            return counts.sum() == 0 ? "no changes yet" : countsText(counts) + " so far";
        } catch (const TidewrackError& error) {
            warn({"can't tell what changed since #" + std::to_string(seq) + ": " + error.what()});
            return "unknown";
        }
    }

    void diff() {
        const std::int64_t from = args_.number(1, "snapshot");
        const auto to = args_.word(2) ? std::optional(args_.number(2, "second snapshot")) : std::nullopt;
        const Project project = this->project();
        if (args_.has("--patch")) {
            writePatch(store_, project, engine_.sides(project, from, to), colour() ? Colours::on : Colours::off,
                       [this](const std::string& section) { print(section); });
            return;
        }
        const Changes changes = engine_.diff(project, from, to);
        if (json())
            printJson(changesJson(changes));
        else
            print(changesText(changes, colour()));
    }

    void restore() {
        const std::int64_t to = args_.number(1, "snapshot");
        std::optional<std::vector<std::string>> paths;
        for (std::size_t i = 2; i < args_.positional.size(); ++i) {
            if (!paths) paths.emplace();
            // An unset variable of a script must not mean the whole folder.
            if (args_.positional[i].empty()) throw CliError("missing path");
            paths->push_back(absolute(args_.positional[i]));
        }
        printRestored(engine_.restore(project(), to, paths, !args_.has("--keep-new")));
    }

    void undo() {
        const std::int64_t turn = args_.number(1, "snapshot");
        const Project project = this->project();
        const RestoreResult result = engine_.undo(project, turn);
        const bool idle = result.nothingInScope;
        if (json() || !idle)
            printRestored(result);
        else
            print("Nothing changed after #" + std::to_string(turn) + ", so there's nothing to undo.\n" +
                  warningsText(result));
        const bool pruned = !result.warnings.empty() && result.warnings.front().starts_with("snapshots #");
        if (!json() && (idle || pruned)) hintAtEarlier(project, turn);
    }

    // Whoever meant the changes that led to a snapshot needs the number before it.
    void hintAtEarlier(const Project& project, std::int64_t turn) {
        const auto seqs = store_.seqs(project);
        const auto here = std::lower_bound(seqs.begin(), seqs.end(), turn);
        if (here == seqs.begin()) return;
        print("To undo the changes made before #" + std::to_string(turn) + ", run: tidewrack undo " +
              std::to_string(*std::prev(here)) + "\n");
    }

    void printRestored(const RestoreResult& result) {
        if (json())
            printJson(restoreJson(result));
        else
            print(restoreText(result));
    }

    void cat() {
        const std::int64_t seq = args_.number(1, "snapshot");
        const auto path = args_.word(2);
        if (!path) throw CliError("missing path");
        const Project project = this->project();
        const std::string relative = Engine::relative(project, absolute(*path));
        const auto content = engine_.contentPath(project, seq, relative);
        if (!content) throw CliError(repairedUtf8(*path) + " isn't in snapshot #" + std::to_string(seq));
        const Descriptor file(::open(content->c_str(), O_RDONLY | O_CLOEXEC));
        if (!file && errno != ENOENT) throw TidewrackError::io("read", *content, errno);
        if (!file) throw CliError(notKeptText(project, seq, *content, *path));
        std::string bytes(1 << 16, '\0');
        while (true) {
            const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throw TidewrackError::io("read", *content, errno);
            if (count == 0) return;
            out_.write(std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
        }
    }

    // `place` is where the content would be kept; why it is not there is told by its name.
    [[nodiscard]] std::string notKeptText(const Project& project, std::int64_t seq, const std::string& place,
                                          const std::string& shown) const {
        Entry entry;
        entry.blob = std::string_view(place).substr(store_.blobPath(project, "").size());
        return "the content of " + repairedUtf8(shown) + " wasn't kept in snapshot #" + std::to_string(seq) + ": " +
               entry.notKeptReason().value_or("it is missing from the store");
    }

    void pin() { setPinned(true); }
    void unpin() { setPinned(false); }

    void setPinned(bool pinned) {
        const std::int64_t seq = args_.number(1, "snapshot");
        engine_.setPinned(project(), seq, pinned);
        print((pinned ? "Pinned #" : "Unpinned #") + std::to_string(seq) + ".\n");
    }

    void prune() {
        const bool dryRun = args_.has("--dry-run");
        const PruneResult result = engine_.prune(project(), now(), dryRun);
        if (json())
            printJson(pruneJson(result, dryRun));
        else
            print((dryRun ? "Would remove " : "Removed ") + std::to_string(result.removedSnapshots.size()) +
                  " snapshots, " + std::to_string(result.removedBlobs) + " stored files.\n");
    }

    void benchWalk() {
        const Project project = this->project(args_.word(1));
        for (const bool withGit : {true, false}) {
            const auto start = std::chrono::steady_clock::now();
            std::size_t count = 0;
            const auto body = [&](const Walker::Item&) {
                ++count;
                return true;
            };
            if (withGit) {
                projectWalker(project, {})->walk(body);
            } else {
                Walker::Options options;
                options.excludes = NameSet(project.excludes.begin(), project.excludes.end());
                Walker(project.root, std::move(options)).walk(body);
            }
            const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
            char text[96];
            std::snprintf(text, sizeof text, "walk %s git: %zu entries %.1f ms\n", withGit ? "with" : "without", count,
                          elapsed.count());
            print(text);
        }
    }

    const Args& args_;
    Surroundings& around_;
    Sink& out_;
    ProgressLine progress_;
    Engine engine_;
    const Store& store_;
};

void hooks(const Args& args, Surroundings& around) {
    const auto path = around.environment.find("PATH");
    const std::string searchPath = path == around.environment.end() ? std::string() : path->second;
    HookInstaller installer;
    installer.home = args.value("--home").value_or(homeFolder(around.environment));
    installer.home = absolutePath(installer.home, around.currentFolder);
    installer.binary = calledProgram(around.calledAs, searchPath, around.currentFolder).value_or(executablePath());
    std::vector<std::string> words(args.positional.begin() + 1, args.positional.end());
    if (args.has("--print")) words.insert(words.begin(), "print");
    if (args.has("--json") && words == std::vector<std::string>{"status"}) {
        around.out.write(hooksStatusJson(installer));
        return;
    }
    std::ostringstream text;
    try {
        runHooks(words, installer, text);
    } catch (...) {
        around.out.write(text.str());
        throw;
    }
    around.out.write(text.str());
}

int hook(const Args& args, Surroundings& around) {
    const HookOutput reply = runHook({args.positional.begin() + 1, args.positional.end()}, around);
    if (reply.standardOutput) around.out.line(*reply.standardOutput);
    if (reply.standardError) around.err.line(*reply.standardError);
    return reply.exitCode;
}

void vault(const Args& args, Surroundings& around) {
    const Vault vault(Store::fromEnvironment(around.environment));
    const std::vector<std::string> words(args.positional.begin() + 1, args.positional.end());
    around.out.write(words.empty() && args.has("--json") ? vaultJson(vault) : runVault(words, vault, now()));
}

int dispatch(const std::vector<std::string>& words, Surroundings& around) {
    const Args args(words);
    std::string name = args.word(0).value_or(args.has("--version") ? "version" : "help");
    if (args.has("--help") && name != "hook") name = "help";
    if (name == "help" || name == "-h") {
        around.out.write(usageText());
    } else if (name == "version" || name == "-v") {
        around.out.line(version());
    } else if (name == "hooks") {
        hooks(args, around);
    } else if (name == "hook") {
        return hook(args, around);
    } else if (name == "vault") {
        vault(args, around);
    } else if (!Commands(args, around).run(name)) {
        throw CliError("unknown command " + repairedUtf8(name) + ". Run `tidewrack help`.");
    }
    return 0;
}

} // namespace

int run(const std::vector<std::string>& words, Surroundings& around) {
    int status = 1;
    try {
        status = dispatch(words, around);
    } catch (const std::bad_alloc&) {
        around.err.line("tidewrack: out of memory");
    } catch (const std::exception& error) {
        around.err.line(std::string("tidewrack: ") + repairedUtf8(error.what()));
    }
    around.out.flush();
    // A reader that has gone has seen all it wanted; any other failure to write is one.
    if (around.out.error() != 0 && around.out.error() != EPIPE) {
        around.err.line("tidewrack: can't write the output: " + errorText(around.out.error()));
        status = 1;
    }
    around.err.flush();
    return status;
}

} // namespace tidewrack
