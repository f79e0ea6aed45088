// What the shells' completions offer: they hand over the words typed so far and get back what may follow.
//
// One candidate a line, with a tab and a description behind it. ":paths" and ":folders" ask the shell for its own names
// of files and folders.

#include "Agents/Agent.hpp"
#include "Commands/Commands.hpp"
#include "CompletionScripts.hpp"
#include "Invocation.hpp"
#include "Reports/TextReports.hpp"
#include "SnapshotWord.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Timeline/Timeline.hpp"
#include "Vault/Vault.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace tidewrack {

namespace {

constexpr std::size_t mostOffered = 50;
constexpr std::size_t longestDescription = 60;

// The words before the one that is being typed, taken apart.
struct Typed {
    std::vector<std::string> words; // without options
    std::set<std::string> flags;
    std::map<std::string, std::string> values; // of options
    const Option* waiting = nullptr;           // the option whose value is being typed
    std::optional<std::string> project;        // --project's value
    std::optional<std::string> folder;         // -C's value
    std::string current;
};

// As the command means it that the words before name.
const Option* optionNamed(std::string_view name, const std::vector<std::string>& words = {}) {
    if (const Command* command = commandOf(words))
        if (const Option* option = command->option(name)) return option;
    for (const Option& option : globalOptions())
        if (option.name == name) return &option;
    for (const Command& command : commandTable())
        if (const Option* option = command.option(name)) return option;
    return nullptr;
}

Typed takenApart(const std::vector<std::string>& words) {
    Typed typed;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool last = i + 1 == words.size();
        if (last) {
            typed.current = words[i];
        } else if (takesValue(words[i])) {
            std::size_t value = i + 1;
            if (words[value] == "=" && value + 1 < words.size()) ++value; // some shells part "--option=value"
            if (value + 1 == words.size()) typed.waiting = optionNamed(words[i], typed.words);
            if (value + 1 < words.size()) typed.values[words[i]] = words[value];
            if (words[i] == "--project" && value + 1 < words.size()) typed.project = words[value];
            if (words[i] == "-C" && value + 1 < words.size()) typed.folder = words[value];
            i = value - (typed.waiting != nullptr ? 1 : 0);
        } else if (words[i].starts_with("--")) {
            typed.flags.insert(words[i]);
        } else {
            typed.words.push_back(words[i]);
        }
    }
    return typed;
}

class Offers {
  public:
    Offers(Invocation& call, const Typed& typed) : call_(call), typed_(typed) {}

    void print() {
        if (typed_.waiting != nullptr)
            fill(typed_.waiting->fill, 0);
        else if (typed_.current.starts_with('-'))
            options();
        else if (typed_.words.empty())
            fill(Fill::command, 0);
        else
            words();
    }

  private:
    void offer(std::string_view word, std::string_view description) {
        const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
        if (!word.starts_with(typed_.current) || std::any_of(word.begin(), word.end(), isControl)) return;
        const std::string text(firstCharacters(escapedControls(description), longestDescription));
        call_.print(std::string(word) + "\t" + text + "\n");
    }

    void options() {
        const Command* command = commandOf(typed_.words);
        for (const Option& option : globalOptions()) offer(option.name, option.help);
        if (typed_.words.empty()) {
            offer("--version", "print the version");
            if (const Option* project = optionNamed("--project")) offer(project->name, project->help);
        } else if (command != nullptr) {
            for (const Option& option : command->options) offer(option.name, option.help);
        }
    }

    void words() {
        const Command* command = commandOf(typed_.words);
        if (typed_.words.size() == 1) commands(typed_.words[0] + " ");
        if (command == nullptr || command->fills.empty()) return;
        std::size_t index = typed_.words.size() - command->nameWords();
        // A turn may be chosen by an option in place of the snapshot's number: then only paths follow.
        if (command->fills.front() == Fill::snapshot && command->fills.back() == Fill::path && choosesTurn(*command))
            index = command->fills.size() - 1;
        if (index < command->mostWords) fill(command->fills[std::min(index, command->fills.size() - 1)], index);
    }

    [[nodiscard]] bool choosesTurn(const Command& command) const {
        for (const char* option : {"--last", "--turn", "--session", "--session-of"})
            if (command.option(option) != nullptr && (typed_.flags.contains(option) || typed_.values.contains(option)))
                return true;
        return false;
    }

    // The next word of the commands that begin with `before`.
    void commands(std::string_view before) {
        std::set<std::string_view> offered;
        for (const Command& command : commandTable()) {
            if (!command.name.starts_with(before) || command.name.starts_with('_')) continue;
            const std::string_view rest = command.name.substr(before.size());
            const std::string_view word = rest.substr(0, rest.find(' '));
            if (offered.insert(word).second) offer(word, command.summary);
        }
    }

    void fill(Fill what, std::size_t index) {
        switch (what) {
        case Fill::nothing: return;
        case Fill::path:
            call_.print(":paths\n");
            if (index > 0) lostNames();
            return;
        case Fill::folder: call_.print(":folders\n"); return;
        case Fill::snapshot: snapshots(); return;
        case Fill::turn: turns(); return;
        case Fill::session: sessions(); return;
        case Fill::agentOrAll: offer("all", "every agent"); [[fallthrough]];
        case Fill::agent:
            for (const Agent agent : allAgents) offer(rawValue(agent), "");
            return;
        case Fill::vaultEntry: vaultEntries(); return;
        case Fill::shell:
            for (const CompletionScript& script : completionScripts()) offer(script.shell, "");
            return;
        case Fill::command: commands(""); return;
        }
    }

    void snapshots() {
        std::vector<UnreadRecord> unread;
        auto all = call_.store().history(call_.project(typed_.project)).snapshots(unread);
        std::reverse(all.begin(), all.end());
        if (all.size() > mostOffered) all.resize(mostOffered);
        for (const SnapshotMeta& meta : all)
            offer(std::to_string(meta.seq), ago(meta.created, now()) + "  " + meta.label.value_or(meta.kind));
    }

    // Newest first, as far as their records can be read.
    std::vector<TimelineRow> turnRows() {
        const Project project = call_.project(typed_.project);
        std::vector<UnreadRecord> unread;
        auto rows = Timeline::of(project.root, call_.store().history(project).snapshots(unread)).rows;
        std::erase_if(rows, [](const TimelineRow& row) { return row.type != TimelineRow::Type::turn; });
        if (rows.size() > mostOffered) rows.resize(mostOffered);
        return rows;
    }

    static std::string describe(const TimelineRow& row) {
        const std::string title = row.title.empty() ? titleText(row.title, {}) : row.title;
        return ago(row.began, now()) + "  " + row.agent.value_or("") + "  " + title;
    }

    void turns() {
        for (const TimelineRow& row : turnRows()) offer(std::to_string(row.first), describe(row));
    }

    void sessions() {
        std::set<std::string> offered;
        for (const TimelineRow& row : turnRows())
            if (row.session && offered.insert(*row.session).second) offer(*row.session, describe(row));
    }

    // The snapshot that holds what the folder may have lost: the one that is named, or the one before the chosen turn.
    std::optional<std::int64_t> stateBefore() {
        const auto rows = choosesTurn(*commandOf(typed_.words)) ? turnRows() : std::vector<TimelineRow>();
        if (typed_.flags.contains("--last")) return rows.empty() ? std::nullopt : std::optional(rows.front().first);
        const TimelineRow* turn = nullptr;
        for (const char* option : {"--turn", "--session-of"})
            for (const TimelineRow& row : rows)
                if (const auto number = numberAfter(option); number && row.first <= *number && *number <= row.last)
                    turn = &row;
        if (turn != nullptr && typed_.values.contains("--turn")) return turn->first;
        const auto session = turn != nullptr ? turn->session : valueOf("--session");
        for (auto row = rows.rbegin(); row != rows.rend() && session; ++row)
            if (row->session.value_or("").starts_with(*session)) return row->first;
        if (!rows.empty() || typed_.words.size() < 2) return std::nullopt;
        const auto word = snapshotWord(typed_.words[1].substr(0, typed_.words[1].find("..")), now()); // A of A..B
        return word ? std::optional(call_.number(call_.project(typed_.project), *word)) : std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> valueOf(const char* option) const {
        const auto found = typed_.values.find(option);
        return found == typed_.values.end() ? std::nullopt : std::optional(found->second);
    }
    [[nodiscard]] std::optional<std::int64_t> numberAfter(const char* option) const {
        const auto value = valueOf(option);
        return value ? snapshotNumber(*value) : std::nullopt;
    }

    void vaultEntries() {
        for (const VaultEntry& entry : Vault(call_.store()).entries())
            offer(entry.id, ago(entry.created, now()) + "  " + entry.command);
    }

    // The names that the snapshot holds and the folder no longer does: no shell can know them.
    void lostNames() {
        const auto number = stateBefore();
        if (!number) return;
        const Project project = call_.project(typed_.project);
        const std::size_t slash = typed_.current.rfind('/');
        const std::string typedFolder = slash == std::string::npos ? "" : typed_.current.substr(0, slash + 1);
        const std::string folder = call_.absolute(typedFolder.empty() ? "." : typedFolder);
        const std::string relative = Engine::relative(project, folder);
        const std::string before = relative.empty() ? "" : relative + "/";
        std::set<std::string> offered;
        const History history = call_.store().history(project);
        const Manifest manifest = history.manifest(history.snapshot(*number));
        for (const Manifest::Item& item : manifest.items()) {
            if (!item.path.starts_with(before)) continue;
            const std::string_view rest = item.path.substr(before.size());
            const std::string name(rest.substr(0, rest.find('/')));
            const bool isFolderName = rest.size() > name.size() || item.entry.kind == EntryKind::dir;
            if (exists(joined(folder, name)) || !offered.insert(name).second) continue;
            offer(typedFolder + name + (isFolderName ? "/" : ""), "only in #" + std::to_string(*number));
        }
    }

    Invocation& call_;
    const Typed& typed_;
};

} // namespace

namespace commands {

// What cannot be read is not offered; a completion has nowhere to say so.
int complete(Invocation& call) {
    if (call.args.positional.empty()) return 0;
    const Typed typed = takenApart(call.args.positional);
    try {
        if (typed.folder) call.around.currentFolder = call.absolute(*typed.folder);
        Offers(call, typed).print();
    } catch (const std::exception&) {
    }
    return 0;
}

int completion(Invocation& call) {
    const std::string shell = call.args.word(0).value_or("");
    for (const CompletionScript& script : completionScripts()) {
        if (script.shell != shell) continue;
        call.print(script.text);
        return 0;
    }
    throw CliError(shell.empty() ? "which shell? usage: tidewrack completion bash|zsh|fish"
                                 : "there are no completions for " + shell + "; use bash, zsh or fish");
}

} // namespace commands

} // namespace tidewrack
