#pragma once
// Every command in one place: its name, the words and options it takes, its help, and the function that runs it. The
// reading of the command line, the usage, the help and the completions are made from it.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

class Invocation;

// What stands in the place of a word or of an option's value; completions offer it.
enum class Fill { nothing, path, folder, snapshot, turn, session, agent, agentOrAll, vaultEntry, shell, command };

struct Option {
    std::string_view name;
    std::string_view value; // what the value is; empty for a flag
    std::string_view help;
    Fill fill = Fill::nothing;
    bool common = false; // explained once for all commands

    [[nodiscard]] bool takesValue() const { return !value.empty(); }
};

enum class Group { projects, history, gettingBack, agents, others, hidden };

// What a misread word may cost: nothing, a snapshot more, something that can be taken back, a page that is open to who
// has its address, or something that nothing gives back.
enum class Effect { harmless, adds, changes, opens, removesForGood };

struct Command {
    static constexpr std::size_t anyNumber = static_cast<std::size_t>(-1);

    std::string_view name; // of one word, or of two: "vault restore"
    std::string_view words;
    Group group = Group::hidden;
    Effect effect = Effect::harmless;
    std::span<const Fill> fills; // of the words in order; the last one's also of those that follow
    std::size_t mostWords = 0;
    std::span<const Option> options;
    std::string_view summary; // one line
    std::string_view details; // the rest of the help
    std::string_view example;
    int (*run)(Invocation&) = nullptr; // returns the exit status

    [[nodiscard]] const Option* option(std::string_view optionName) const;
    [[nodiscard]] std::size_t nameWords() const { return name.find(' ') == std::string_view::npos ? 1 : 2; }
};

// In the order of the usage.
[[nodiscard]] std::span<const Command> commandTable();

// The command that the first words name, the longest name first; nullptr for none.
[[nodiscard]] const Command* commandOf(const std::vector<std::string>& words);

// The options of the program itself, which every command takes.
[[nodiscard]] std::span<const Option> globalOptions();
[[nodiscard]] bool isGlobalOption(std::string_view optionName);

// Whether any command's option of this name takes a value: options may stand before the command.
[[nodiscard]] bool takesValue(std::string_view optionName);

} // namespace tidewrack
