#include "Help.hpp"

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::size_t helpColumn = 32;
constexpr std::size_t lineLength = 80;

constexpr std::string_view ending = R"(
Agents: claude, codex, cursor, gemini, copilot, qwen, opencode, droid

Environment
  TIDEWRACK_HOME                where the history is kept
                                (default: ~/Library/Application Support/Tidewrack)
  TIDEWRACK_TRACE=1             print how long each phase takes
  TIDEWRACK_SHELL=off           what shell-init set up does nothing
  NO_COLOR=1                    no colours on a terminal
  PAGER                         what shows long output on a terminal (default: less)
)";

std::string_view title(Group group) {
    switch (group) {
    case Group::projects: return "Projects";
    case Group::history: return "History";
    case Group::gettingBack: return "Getting things back";
    case Group::agents: return "Agents";
    case Group::others: return "Others";
    case Group::hidden: return "";
    }
    return "";
}

std::string spelled(const Option& option) {
    std::string text(option.name);
    if (option.takesValue()) text.append(" ").append(option.value);
    return text;
}

std::string synopsis(const Command& command) {
    std::string text(command.name);
    if (!command.words.empty()) text.append(" ").append(command.words);
    for (const Option& option : command.options)
        if (!option.common) text.append(" [").append(spelled(option)).append("]");
    return text;
}

// Words in lines of at most 80 columns; all but the first begin with `indent` spaces, which starts at `column`.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t column) {
    std::string result;
    bool fresh = true; // this line is empty so far
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        if (!fresh && column + 1 + word.size() > lineLength) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!fresh) {
            result += ' ';
            ++column;
        }
        result += word;
        column += word.size();
        fresh = false;
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return result;
}

// What is explained on the left, and the explanation beside it or, where that is too long, below.
std::string row(const std::string& left, const std::string& right) {
    std::string text = "  " + wrapped(left, 6, 2);
    if (text.size() + 2 > helpColumn) text += "\n";
    const std::size_t start = text.rfind('\n') + 1;
    text.resize(std::max(text.size(), start + helpColumn), ' ');
    return text + wrapped(right, helpColumn, helpColumn) + "\n";
}

// "track, projects, snap"
std::string commandsWith(const Option& option) {
    std::string text;
    for (const Command& command : commandTable()) {
        if (command.group == Group::hidden || command.option(option.name) == nullptr) continue;
        if (!text.empty()) text += ", ";
        text += command.name;
    }
    return text;
}

std::vector<Option> commonOptions() {
    std::vector<Option> options(globalOptions().begin(), globalOptions().end());
    for (const Command& command : commandTable())
        for (const Option& option : command.options)
            if (option.common && std::none_of(options.begin(), options.end(),
                                              [&](const Option& known) { return known.name == option.name; }))
                options.push_back(option);
    return options;
}

} // namespace

const char* version() {
    return TIDEWRACK_VERSION;
}

std::string usageText() {
    std::string text = std::string("tidewrack ") + version() +
                       " — undo anything your AI agent did\n\nUsage: tidewrack <command> [arguments] [options]\n";
    for (const Group group : {Group::projects, Group::history, Group::gettingBack, Group::agents, Group::others}) {
        text.append("\n").append(title(group)).append("\n");
        for (const Command& command : commandTable())
            if (command.group == group) text += row(synopsis(command), std::string(command.summary));
    }
    text += "\nOptions\n";
    for (const Option& option : commonOptions())
        text += row(spelled(option),
                    std::string(option.help) + (option.name == "--json" ? " (" + commandsWith(option) + ")" : ""));
    return text.append(ending);
}

std::string helpText(const Command& command) {
    std::string text = "Usage: tidewrack " + synopsis(command) + "\n\n";
    std::string summary(command.summary);
    if (!summary.empty() && summary[0] >= 'a' && summary[0] <= 'z')
        summary[0] = static_cast<char>(summary[0] - 'a' + 'A');
    text += wrapped(summary + ".", 0, 0) + "\n";
    if (!command.details.empty()) text += wrapped(command.details, 0, 0) + "\n";
    const std::string family = std::string(command.name) + " ";
    std::string below;
    for (const Command& other : commandTable())
        if (other.name.starts_with(family)) below += row(synopsis(other), std::string(other.summary));
    if (!below.empty()) text += "\nCommands\n" + below;
    if (!command.options.empty()) text += "\nOptions\n";
    for (const Option& option : command.options) text += row(spelled(option), std::string(option.help));
    if (!command.example.empty()) text.append("\nExample\n  ").append(command.example).append("\n");
    return text;
}

namespace commands {

int help(Invocation& call) {
    if (call.args.positional.empty()) {
        call.print(usageText());
        return 0;
    }
    const Command* command = commandOf(call.args.positional);
    if (command == nullptr)
        throw CliError("unknown command " + repairedUtf8(call.args.positional[0]) + ". Run `tidewrack help`.");
    call.print(helpText(*command));
    return 0;
}

int version(Invocation& call) {
    call.print(std::string(tidewrack::version()) + "\n");
    return 0;
}

} // namespace commands

} // namespace tidewrack
