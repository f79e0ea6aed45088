#include "Shell/WordValues.hpp"

#include "Shell/Braces.hpp"
#include "Shell/Budget.hpp"
#include "Shell/Lexer.hpp"
#include "Shell/Outputs.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view blanks = " \t\n";
constexpr std::string_view blanksAndGlobs = " \t\n*?[";

} // namespace

void setUnknown(Word& word) {
    word.text.clear();
    word.plain = 0;
    word.glob = word.splits = false;
    word.unknown = true;
}

WordValues::WordValues(const Context& context, Effects& effects, const Position& position)
    : context_(context), effects_(effects), position_(position), variables_(context.env) {}

// Most lines ask for no value at all.
void WordValues::begin() {
    if (!std::exchange(begun_, true)) variables_.assign("PWD", position_.folder());
}

void WordValues::beginSubshell() {
    begin();
    variables_.beginSubshell();
}

void WordValues::shiftParameters(std::size_t count) {
    auto parameters = exchangeParameters(std::nullopt);
    if (!parameters || count >= parameters->size()) return;
    const auto first = parameters->begin() + 1;
    parameters->erase(first, first + static_cast<std::ptrdiff_t>(count));
    exchangeParameters(std::move(parameters));
}

std::vector<Word> WordValues::allParameters() const {
    std::vector<Word> words;
    const auto& parameters = variables_.parameters();
    if (!parameters) setUnknown(words.emplace_back());
    for (std::size_t number = 1; parameters && number < parameters->size(); ++number) {
        Word& word = words.emplace_back();
        const auto& value = (*parameters)[number];
        if (value)
            word.text = *value;
        else
            setUnknown(word);
    }
    return words;
}

// The words that are "$@", "$*" or ${@:2} become those which the line's shell or function was called with. Where these
// are not known, the words stay, and are not followed.
void WordValues::expandParameters(std::vector<Word>& words) const {
    const auto isList = [](const Word& word) {
        return word.expands && (word.text.starts_with("$@") || word.text.starts_with("$*") ||
                                word.text.starts_with("${@") || word.text.starts_with("${*"));
    };
    if (!variables_.parameters() || std::none_of(words.begin(), words.end(), isList)) return;
    std::vector<Word> result;
    for (Word& word : words) {
        std::string_view rest = word.text;
        std::size_t first = 1;
        if (isList(word) && rest.starts_with("${")) {
            rest = rest.substr(3);
            if (rest.starts_with(':') && rest.size() > 2 && rest[1] > '0' && rest[1] <= '9') {
                first = static_cast<std::size_t>(rest[1] - '0');
                rest.remove_prefix(2);
            }
            rest = rest == "}" ? "" : "more";
        } else if (isList(word)) {
            rest.remove_prefix(2);
        }
        if (!isList(word) || !rest.empty()) {
            result.push_back(std::move(word));
            continue;
        }
        std::vector<Word> all = allParameters();
        for (std::size_t number = first; number <= all.size(); ++number) {
            Word& one = result.emplace_back(std::move(all[number - 1]));
            one.quoted = word.quoted;
            one.glob = !word.quoted && one.text.find_first_of("*?[") != std::string::npos;
        }
    }
    words = std::move(result);
}

void WordValues::give(const Word& assignment) {
    const std::size_t equals = assignment.text.find('=');
    std::string value = assignment.text.substr(equals + 1);
    if (value.starts_with("~/")) value.replace(0, 1, context_.home);
    if (!variables_.assign(assignment.text.substr(0, equals), std::move(value))) effects_.opaque(position_.folder());
}

std::string WordValues::valueOf(std::string_view name) {
    return std::string(variables_.value(name).value_or(""));
}

void WordValues::noteFolder(bool entered) {
    begun_ = true;
    variables_.assign("PWD", position_.folder());
    if (entered) variables_.assign("OLDPWD", position_.previous());
}

WordValues::Readings WordValues::read(std::vector<Word> words, const Command& command) {
    Readings readings{std::move(words), {}};
    expandAll(readings.whole, command);
    readings.apart = takenApart(readings.whole);
    return readings;
}

// The words as seen by a shell that splits an unquoted variable's value at its blanks and then matches patterns; empty
// when that is the same. Both readings count, since not all shells split.
std::vector<Word> WordValues::takenApart(const std::vector<Word>& words) {
    std::vector<Word> apart;
    const std::string_view between = separators_.empty() ? blanks : std::string_view(separators_);
    if (std::none_of(words.begin(), words.end(), [](const Word& word) { return word.splits; })) return apart;
    for (const Word& word : words) {
        if (!word.splits) {
            apart.push_back(word);
            continue;
        }
        const std::string_view text = word.text;
        for (std::size_t begin = text.find_first_not_of(between); begin != std::string_view::npos;) {
            const std::size_t end = std::min(text.find_first_of(between, begin), text.size());
            if (++alternatives_ > Budget::alternatives) {
                effects_.opaque(position_.folder());
                return {};
            }
            Word& part = apart.emplace_back();
            part.text = text.substr(begin, end - begin);
            part.glob = part.text.find_first_of("*?[") != std::string::npos;
            begin = text.find_first_not_of(between, end);
        }
    }
    return apart;
}

// True when the words are nothing but assignments, which are recorded. Behind a declaration word they are
// recorded also among options and plain names.
bool WordValues::assignAll(const std::vector<Word>& words, bool declared, const Command& command) {
    command_ = &command;
    const auto at = [](const Word& word) {
        const std::size_t equals = assignmentAt(word);
        const std::size_t length = nameLength(word.text);
        return length == equals || (length + 1 == equals && word.text[length] == '+') ? equals : 0;
    };
    const bool all = std::all_of(words.begin(), words.end(), [&](const Word& word) { return at(word) > 0; });
    if (!all && !declared) return false;
    for (const Word& word : words)
        if (const std::size_t equals = at(word); equals > 0) assign(word, equals);
    return all;
}

void WordValues::assign(const Word& word, std::size_t equals) {
    const bool adds = word.text[equals - 1] == '+';
    const std::string name = word.text.substr(0, adds ? equals - 1 : equals);
    Word value = word;
    value.text.erase(0, equals + 1);
    value.tilde = value.text.starts_with('~') && equals + 1 < word.plain && !adds;
    if (adds) value.text.insert(0, "${" + name + "}");
    if (name == "IFS"sv) separators_.clear();
    std::size_t tildes = 0; // a:~/b
    for (std::size_t at = word.quoted ? word.text.npos : value.text.find(":~/");
         at != std::string::npos && ++tildes < Budget::tildesInValue; at = value.text.find(":~/", at))
        value.text.replace(at + 1, 1, context_.home);
    value.plain = 0;
    value.expands = true;
    if (!loops_.empty()) {
        std::vector<Word> values;
        expandOver(std::move(value), 0, false, values);
        if (values.size() != 1 || values.front().unknown) return bindLoop(name, std::move(values));
        value = std::move(values.front());
        forgetLoop(name);
    } else {
        expandOne(value);
        if (value.unknown) return bindLoop(name, {});
    }
    if (name == "IFS"sv && !value.text.empty()) separators_ = value.text + std::string(blanks);
    if (!variables_.assign(name, std::move(value.text))) effects_.opaque(position_.folder());
}

void WordValues::expandBraceLists(Command& command) {
    std::vector<Word> words;
    words.reserve(command.words.size());
    std::size_t taken = 0;
    const auto takeUntil = [&](std::size_t end) {
        for (; taken < end; ++taken) words.push_back(std::move(command.words[taken]));
    };
    for (const BracedWord& braced : command.braced) {
        if (!holdsBraceList(braced.source) || assignmentAt(command.words[braced.index]) > 0) continue;
        const auto sources = braceWords_ < Budget::braceWords ? expandBraces(braced.source) : std::nullopt;
        if (!sources) {
            effects_.opaque(position_.folder());
            if (braceWords_ >= Budget::braceWords) break;
            braceWords_ += Budget::braceWordsPerList; // as many may have been made
            continue;
        }
        takeUntil(braced.index);
        ++taken;
        braceWords_ += sources->size();
        Command one;
        for (const std::string& source : *sources) {
            Lexer lexer(source);
            if (!lexer.next(one)) continue;
            for (Word& word : one.words) {
                if (!one.nested.empty()) setUnknown(word); // its marks count in another command
                words.push_back(std::move(word));
            }
        }
    }
    if (taken == 0) return;
    takeUntil(command.words.size());
    command.words = std::move(words);
}

void WordValues::expandAll(std::vector<Word>& words, const Command& command) {
    command_ = &command;
    expandParameters(words);
    const bool overLoops = !loops_.empty();
    if (overLoops) words = expandedOverLoops(std::move(words));
    std::size_t kept = 0;
    for (std::size_t index = 0; index < words.size(); ++index) {
        Word& word = words[index];
        if (!overLoops) expandOne(word);
        if (word.text.empty() && !word.quoted && !word.unknown) continue;
        if (kept != index) words[kept] = std::move(word);
        ++kept;
    }
    words.resize(kept);
}

// The user's own ~name is ~; ~- and ~+ are the folder before and this one.
void WordValues::shortenOwnHome(Word& word) const {
    const std::string_view text = word.text;
    if (text.starts_with("~-") || text.starts_with("~+")) {
        if (text.size() == 2 || text[2] == '/')
            word.text.replace(0, 2, text[1] == '-' ? position_.previous() : position_.folder());
        return;
    }
    for (const std::string_view variable : {"USER"sv, "LOGNAME"sv}) {
        const auto user = context_.env.find(variable);
        if (user == context_.env.end() || user->second.empty()) continue;
        const std::string_view rest = std::string_view(word.text).substr(1);
        const std::size_t length = user->second.size();
        if (!rest.starts_with(user->second) || (rest.size() > length && rest[length] != '/')) continue;
        word.text.erase(1, length);
        return;
    }
}

void WordValues::expandOne(Word& word) {
    if (!word.expands) return;
    begin();
    const bool marked = word.text.find(firstMarkByte) != std::string::npos;
    if (marked && !replaceMarks(word.text)) {
        noteKnownFolder(word, word.text.find(firstMarkByte));
        return setUnknown(word);
    }
    const std::size_t dollar = word.text.find('$');
    const bool isBelow = dollar != std::string::npos && word.text.find('/') < dollar;
    const std::string before = isBelow ? word.text.substr(0, dollar) : std::string();
    const bool tilde = word.tilde;
    if (word.tilde && word.text.size() > 1 && word.text[1] >= '0' && word.text[1] <= '9')
        return setUnknown(word); // a folder that was pushed
    if (word.tilde) shortenOwnHome(word);
    variables_.setUnfollowed(false);
    const bool whole = word.plain == word.text.size() && dollar != std::string::npos;
    const bool bare = !word.quoted && (whole || marked);
    expandInPlace(word, context_.home, variables_);
    if (word.glob && word.text.find_first_of("*?[") == std::string::npos) word.glob = false; // it was the ? of ${X:?}
    const auto holds = [&](std::string_view signs) { return word.text.find_first_of(signs) != std::string::npos; };
    word.splits = bare && (holds(word.glob ? blanks : blanksAndGlobs) || holds(separators_));
    if (!variables_.unfollowed()) return;
    if (isBelow) {
        word.text = before;
        word.tilde = tilde;
        noteKnownFolder(word, before.size());
    }
    setUnknown(word);
}

// What an unknown word stands for lies in the folder that its text names before the byte `end`.
void WordValues::noteKnownFolder(Word word, std::size_t end) {
    const std::size_t slash = word.text.rfind('/', end);
    if (slash == std::string::npos || slash >= end) return;
    word.text.resize(slash + 1);
    word.expands = true;
    variables_.setUnfollowed(false);
    expandInPlace(word, context_.home, variables_);
    if (!variables_.unfollowed()) effects_.noteUnknownIn(absolutePath(word.text, position_.folder()));
}

// Puts the output of the commands in a word in place of their marks; false when it cannot be known.
bool WordValues::replaceMarks(std::string& text) {
    std::string replaced;
    std::size_t taken = 0;
    for (std::size_t at = text.find(firstMarkByte); at != std::string::npos; at = text.find(firstMarkByte, at + 1)) {
        const auto number = markedSubstitution(std::string_view(text).substr(at));
        if (!number || command_ == nullptr || *number >= command_->nested.size()) continue;
        const auto output = outputOf(command_->nested[*number]);
        if (!output || output->find('$') != std::string::npos || !variables_.handOut(output->size())) return false;
        replaced.append(text, taken, at - taken).append(*output);
        taken = at + markLength;
    }
    if (taken > 0) text = replaced.append(text, taken);
    return true;
}

// Of commands that print the same whenever they run.
std::optional<std::string> WordValues::outputOf(const Substitution& substitution) {
    const std::vector<Command>& commands = substitution.program.commands;
    if (substitution.kind != Substitution::Kind::output || commands.empty() || commands.size() > 2) return std::nullopt;
    const auto words = knownWords(commands.front());
    if (!words) return std::nullopt;
    if (commands.size() == 1) return printedBy(*words, position_.folder(), effects_);
    // cd FOLDER && pwd
    const auto next = knownWords(commands[1]);
    const bool tells = next && next->front() == "pwd" && words->front() == "cd" && words->size() == 2;
    if (!tells || commands[1].afterOr || (*words)[1].empty() || (*words)[1][0] == '-') return std::nullopt;
    return absolutePath((*words)[1], position_.folder());
}

// The words of a command within a word; none where some are not known.
std::optional<std::vector<std::string>> WordValues::knownWords(const Command& command) {
    const auto keepsOutput = [](const Word& target) { return target.text == "/dev/null"; };
    if (command.words.empty() || !command.inputs.empty() || command.toPipe || command.fromPipe ||
        !std::all_of(command.redirects.begin(), command.redirects.end(), keepsOutput))
        return std::nullopt;
    const Command* outer = std::exchange(command_, &command);
    std::vector<std::string> known;
    for (Word word : command.words) {
        if (!word.glob) expandOne(word);
        if (word.glob || word.unknown) break;
        known.push_back(std::move(word.text));
    }
    command_ = outer;
    return known.size() == command.words.size() ? std::optional(std::move(known)) : std::nullopt;
}

std::size_t assignmentAt(const Word& word) {
    const std::size_t equals = word.text.find('=');
    if (equals == std::string::npos || equals >= word.plain || nameLength(word.text) == 0) return 0;
    return word.text[0] >= '0' && word.text[0] <= '9' ? 0 : equals;
}

} // namespace tidewrack::shell
