#include "Shell/NestedText.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Quotes.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::array shells = {"sh"sv, "bash"sv, "zsh"sv, "dash"sv, "ksh"sv, "ash"sv, "mksh"sv, "rbash"sv, "fish"sv};
// Options of shells whose value is a word of its own.
constexpr std::array valueOptions = {"-o"sv, "+o"sv, "-O"sv, "+O"sv, "--rcfile"sv, "--init-file"sv};

// The same for parallel.
constexpr std::array parallelOptions = {"-j"sv,      "-P"sv,        "-N"sv,       "-n"sv,       "-I"sv,
                                        "-a"sv,      "-C"sv,        "-d"sv,       "-S"sv,       "--jobs"sv,
                                        "--delay"sv, "--timeout"sv, "--colsep"sv, "--joblog"sv, "--arg-file"sv};

// Options of at that list or remove jobs, or take one from a file.
constexpr std::array withoutInput = {"-l"sv, "-r"sv, "-d"sv, "-c"sv, "-f"sv};

constexpr NameFilter textFilter = [] {
    NameFilter filter;
    for (const std::string_view name : shells) filter.add(name);
    for (const std::string_view name : {"eval"sv, "trap"sv, "parallel"sv, "at"sv, "batch"sv}) filter.add(name);
    return filter;
}();

bool isShell(const std::vector<Word>& words) {
    return !words.empty() && std::find(shells.begin(), shells.end(), commandName(words.front())) != shells.end();
}

bool isOption(const Word& word) {
    return word.text.size() > 1 && (word.text[0] == '-' || word.text[0] == '+');
}

struct ShellCall {
    bool takesText = false;
    std::size_t operand = 0; // the place of the first one
};

ShellCall readShellCall(const std::vector<Word>& words) {
    ShellCall call;
    for (call.operand = 1; call.operand < words.size() && isOption(words[call.operand]); ++call.operand) {
        const std::string& text = words[call.operand].text;
        if (text == "--") {
            ++call.operand;
            break;
        }
        if (text[0] == '-' && text[1] != '-' && text.find('c') != std::string::npos) call.takesText = true;
        if (std::find(valueOptions.begin(), valueOptions.end(), text) != valueOptions.end()) ++call.operand;
    }
    call.operand = std::min(call.operand, words.size());
    return call;
}

NestedText joinedText(std::span<const Word> words) {
    NestedText nested;
    for (const Word& word : words) {
        if (!nested.text.empty()) nested.text += ' ';
        nested.text += word.text;
        nested.unknown = nested.unknown || word.unknown;
    }
    return nested;
}

// `text` with every {} replaced; behind it where there is none.
std::string filledIn(std::string_view text, std::string_view operand) {
    if (text.find("{}") != text.npos) return withItem(text, "{}", operand);
    std::string filled(text);
    return filled.append(text.empty() ? 0 : 1, ' ').append(operand);
}

std::string asWord(const Word& word) {
    return word.glob ? word.text : singleQuoted(word.text);
}

// parallel COMMAND ::: OPERAND...: a shell runs the command once for each operand; without ":::" it reads them.
NestedText parallelText(std::span<const Word> arguments) {
    std::size_t begin = 0;
    while (begin < arguments.size() && isOption(arguments[begin]) && arguments[begin].text != ":::"sv)
        begin += isIn(parallelOptions, arguments[begin].text) ? 2U : 1U;
    arguments = arguments.subspan(std::min(begin, arguments.size()));
    const auto list = std::find_if(arguments.begin(), arguments.end(),
                                   [](const Word& word) { return word.text == ":::"sv || word.text == ":::+"sv; });
    const NestedText command = joinedText({arguments.begin(), list});
    NestedText nested;
    nested.ownShell = true;
    nested.unknown = command.unknown;
    std::size_t count = 0;
    for (auto word = list; word != arguments.end(); ++word) {
        if (word->text.starts_with(":::")) continue;
        nested.unknown = nested.unknown || word->unknown || ++count > Budget::parallelOperands;
        nested.text += command.text.empty() ? word->text : filledIn(command.text, asWord(*word));
        nested.text += '\n';
        if (nested.text.size() <= Budget::nestedBytes) continue;
        nested.unknown = true;
        break;
    }
    if (list != arguments.end()) return nested;
    // What it reads is $1, which is not known.
    nested.text = filledIn(command.text, "\"$1\"");
    nested.parameters.emplace(2);
    nested.parameters->back().unknown = true;
    return nested;
}

// Settings of git whose values are commands, in small letters; of those with a part of the user's own the first and the
// last part.
constexpr std::array commandSettings = {"core.editor"sv,     "sequence.editor"sv, "core.pager"sv,    "diff.external"sv,
                                        "core.sshcommand"sv, "core.askpass"sv,    "core.fsmonitor"sv};
constexpr std::pair<std::string_view, std::string_view> namedSettings[] = {
    {"pager.", ""},          {"filter.", ".clean"}, {"filter.", ".smudge"},
    {"filter.", ".process"}, {"diff.", ".command"}, {"diff.", ".textconv"},
    {"merge.", ".driver"},   {"difftool.", ".cmd"}, {"mergetool.", ".cmd"},
};

bool isCommandSetting(std::string_view key) {
    return isIn(commandSettings, key) ||
           std::any_of(std::begin(namedSettings), std::end(namedSettings),
                       [&](const auto& parts) { return key.starts_with(parts.first) && key.ends_with(parts.second); });
}

// NAME=VALUE behind -c. An alias is run where it is the subcommand, with the words behind that.
void addSetting(std::string_view setting, std::span<const Word> behind, RunByGit& run) {
    const std::size_t equals = std::min(setting.find('='), setting.size());
    std::string key(setting.substr(0, equals));
    for (char& c : key) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    const std::string_view value = setting.substr(std::min(equals + 1, setting.size()));
    const bool runsShell = value.starts_with('!');
    if (isCommandSetting(key)) return run.add(std::string(value));
    if (key.starts_with("credential.") && key.ends_with("helper") && runsShell)
        return run.add(std::string(value.substr(1)));
    if (!key.starts_with("alias.")) return;
    const auto isName = [&](const Word& word) { return word.text == std::string_view(key).substr(6); };
    const auto name = std::find_if(behind.begin(), behind.end(), isName);
    if (name == behind.end() || run.texts.size() >= Budget::traps) return;
    std::string text = runsShell ? std::string(value.substr(1)) : "git " + std::string(value);
    for (auto word = name + 1; word != behind.end(); ++word)
        text.append(1, ' ').append(word->unknown ? "\"$1\"" : asWord(*word));
    run.add(std::move(text) + ' ');
}

// An option of a subcommand that holds a command: -x TEXT, --NAME TEXT.
struct TextOption {
    std::string_view subcommand;
    std::string_view name;
    std::string_view letters; // of options that take a word, of which x takes the text
};

// That of difftool runs with the names of two files behind it, that of rebase after each commit.
constexpr std::array textOptions = {TextOption{"difftool", "--extcmd", "tx"}, TextOption{"rebase", "--exec", "xsXCS"}};

void addTextOf(const TextOption& option, std::span<const Word> arguments, RunByGit& run) {
    for (std::size_t index = 0; index < arguments.size() && arguments[index].text != "--"sv; ++index) {
        const std::string_view text = arguments[index].text;
        const bool isLong = text.starts_with("--");
        const std::size_t end = isLong ? text.find('=') : text.find_first_of(option.letters, 1);
        const bool takesText = isLong ? text.starts_with("--e") && option.name.starts_with(text.substr(0, end))
                                      : end != text.npos && text[0] == '-' && text[end] == 'x';
        if (!takesText) continue;
        const bool isJoined = isLong ? end != text.npos : end + 1 < text.size();
        if (!isJoined && index + 1 == arguments.size()) return;
        const Word& value = isJoined ? arguments[index] : arguments[++index];
        if (!value.unknown) run.add(isJoined ? std::string(text.substr(end + 1)) : value.text);
    }
}

} // namespace

std::optional<NestedText> nestedText(const std::vector<Word>& words) {
    if (words.size() < 2 || !textFilter.mayHold(commandName(words.front()))) return std::nullopt;
    const std::span<const Word> all(words);
    const std::string_view name = words.front().text;
    if (name == "eval") return joinedText(all.subspan(1));
    if (name == "trap") {
        const std::size_t at = words[1].text == "--" ? 2 : 1;
        if (at + 1 >= words.size() || words[at].text == "-" || words[at].text == "-p") return std::nullopt;
        return joinedText(all.subspan(at, 1));
    }
    if (commandName(words.front()) == "parallel"sv) return parallelText(all.subspan(1));
    if (!isShell(words)) return std::nullopt;
    const ShellCall call = readShellCall(words);
    if (!call.takesText || call.operand >= words.size()) return std::nullopt;
    NestedText nested = joinedText(all.subspan(call.operand, 1));
    nested.ownShell = true;
    nested.parameters.emplace(words.begin() + static_cast<std::ptrdiff_t>(call.operand) + 1, words.end());
    return nested;
}

std::string withItem(std::string_view text, std::string_view sign, std::string_view item) {
    std::string filled;
    while (filled.size() <= Budget::nestedBytes) {
        const std::size_t at = std::min(text.find(sign), text.size());
        filled += text.substr(0, at);
        if (at == text.size()) break;
        filled += item;
        text.remove_prefix(at + sign.size());
    }
    return filled;
}

void RunByGit::add(std::string text) {
    if (texts.size() >= Budget::traps || text.find_first_of(" \t\n;&|<>$`") == text.npos) return;
    NestedText& nested = texts.emplace_back();
    nested.text = std::move(text);
    nested.ownShell = true;
}

RunByGit textsRunByGit(const std::vector<Word>& words, const std::string& folder) {
    RunByGit run{{}, folder};
    std::size_t index = 1;
    for (; index + 1 < words.size() && isOption(words[index]); ++index) {
        const std::string& option = words[index].text;
        const Word& value = words[index + 1];
        if (option == "-C"sv && !value.unknown && !value.glob && run.folder.size() <= Budget::folderLength)
            run.folder = absolutePath(value.text, run.folder);
        if (option == "-c"sv && !value.unknown) addSetting(value.text, std::span(words).subspan(index + 2), run);
        if (option == "-C"sv || option == "-c"sv || option == "--git-dir"sv || option == "--work-tree"sv) ++index;
    }
    for (const TextOption& option : textOptions)
        if (index < words.size() && words[index].text == option.subcommand)
            addTextOf(option, std::span(words).subspan(index + 1), run);
    return run;
}

bool readsCommands(const std::vector<Word>& words) {
    if (words.empty() || !textFilter.mayHold(commandName(words.front()))) return false;
    if (const std::string_view name = commandName(words.front()); name == "at"sv || name == "batch"sv) {
        const auto needsNone = [](const Word& word) { return isIn(withoutInput, word.text); };
        return std::none_of(words.begin() + 1, words.end(), needsNone);
    }
    if (!isShell(words)) return false;
    const ShellCall call = readShellCall(words);
    const auto reads = [](const Word& word) { return word.text == "-s" || word.text == "-"; };
    return !call.takesText && (call.operand == words.size() || std::any_of(words.begin() + 1, words.end(), reads));
}

std::optional<std::string> literalOutput(const std::vector<Word>& words) {
    if (words.empty() || (words.front().text != "echo" && words.front().text != "printf")) return std::nullopt;
    const bool formats = words.front().text == "printf";
    std::string output;
    for (std::size_t index = 1; index < words.size(); ++index) {
        const std::string& text = words[index].text;
        if (words[index].unknown || words[index].glob) return std::nullopt;
        if (!formats && index == 1 && (text == "-n" || text == "-e" || text == "-ne" || text == "-en")) continue;
        if (formats && text.find('%') != std::string::npos) {
            // A format that only lists its operands.
            if (text.find_first_not_of("%s\\n0 ") != std::string::npos) return std::nullopt;
            continue;
        }
        for (std::size_t at = 0; at < text.size();)
            if (text[at] == '\\')
                at += decodeAnsiEscape(std::string_view(text).substr(at), output);
            else
                output += text[at++];
        output += formats && index == 1 ? "" : formats ? "\n" : " ";
    }
    return output;
}

} // namespace tidewrack::shell
