#include "Shell/GuardRun.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/Lexer.hpp"
#include "Shell/ListRules.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/Outputs.hpp"
#include "Shell/Wrappers.hpp"
#include "Shell/Writers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <utility>

namespace tidewrack::shell {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

namespace {

// Tells which commands of a text belong to the bodies of functions.
class FunctionBodies {
  public:
    // Whether the next command does, or begins one.
    bool hold(const Command& command) {
        const std::vector<Word>& words = command.words;
        if (isIn_ && isBegun_ && braces_ == 0 && command.sharedDepth <= depth_) isIn_ = false;
        const bool isNamed = words.size() > 1 && words.front().text == "function"sv;
        if (isNamed || (command.isDefinition && !words.empty())) {
            names_.insert(words[isNamed ? 1 : 0].text);
            if (!isIn_) depth_ = command.depth;
            isBegun_ = isBegun_ && isIn_;
            isIn_ = true;
        }
        if (!isIn_) return false;
        isBegun_ = isBegun_ || !command.isDefinition;
        const auto end = words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(words));
        for (auto word = words.begin(); word != end; ++word) braces_ += word->text == "{"sv ? 1U : 0U;
        if (!words.empty() && words.front().text == "}"sv && braces_ > 0) --braces_;
        return true;
    }

    [[nodiscard]] bool contains(std::string_view name) const { return names_.find(name) != names_.end(); }

  private:
    std::set<std::string, std::less<>> names_;
    bool isIn_ = false;
    bool isBegun_ = false;
    std::size_t depth_ = 0; // how many parentheses the definition is in
    std::size_t braces_ = 0;
};

} // namespace

// What ls prints may become the operands of another command.
void Guard::takeListing(std::vector<Word> words, const Command& command) {
    values_.expandAll(words, command);
    if (command.toPipe) lister_ = words;
    const auto grep = words.empty() ? std::nullopt : listingGrep(words);
    std::vector<Word> operands = grep ? grep->roots : std::vector<Word>(words.begin() + 1, words.end());
    std::erase_if(operands, [](const Word& word) { return word.text.starts_with('-'); });
    const bool deep = grep.has_value();
    for (const Word& word : operands) {
        if (word.unknown || !effects_.takesListing()) continue;
        std::string path = absolutePath(word.text, position_.folder());
        if (word.glob)
            effects_.list({std::string(parentOf(path)), {std::string(lastComponent(path))}, false});
        else
            effects_.list({std::move(path), {}, deep});
    }
    if (operands.empty()) effects_.list({position_.folder(), {}, deep});
}

// What a harmless command writes is looked at where a shell reads it.
void Guard::holdFeeder(Command& command) {
    feeder_.emplace();
    feeder_->words.swap(command.words);
    feeder_->inputs.swap(command.inputs);
    feeder_->nested.swap(command.nested);
}

std::optional<std::string> Guard::writtenBefore() {
    if (!feeder_) return std::exchange(written_, std::nullopt);
    const Command feeder = *std::exchange(feeder_, std::nullopt);
    std::vector<Word> words = feeder.words;
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(words)));
    values_.expandAll(words, feeder);
    return outputOf(words, feeder);
}

// What a command writes into a pipe, and what a shell is given to read. True when nothing else is to be judged.
bool Guard::takeInputs(const std::vector<Word>& words, Command& command) {
    if (!command.fromPipe && !command.toPipe && command.inputs.empty()) return false;
    const std::string_view name = words.empty() ? ""sv : commandName(words.front());
    const bool readsItems = name == "xargs"sv;
    const bool runsText = readsCommands(words);
    const bool followsText = readsScript(name) && (command.fromPipe || !command.inputs.empty()); // ed, sqlite3
    std::optional<std::string> text;
    if (readsItems || runsText || followsText) {
        if (command.fromPipe) text = writtenBefore();
        if (!text && command.inputs.size() == 1 && command.inputs.front().kind == Input::Kind::text)
            text = textOf(command.inputs.front(), command);
    }
    feeder_.reset();
    written_ = command.toPipe ? outputOf(words, command) : std::nullopt;
    if (readsItems && text) examineItems(*text, Words(words).subspan(1), position_.folder(), effects_);
    if (readsItems && !text && listed_.empty())
        examineUnknownList(Words(words).subspan(1), position_.folder(), effects_);
    if (followsText && !examineInput(name, text, position_.folder(), effects_)) takeUnknown(words.front());
    if (!runsText) return false;
    const bool isGiven = command.inputs.size() == 1 && command.inputs.front().kind == Input::Kind::text;
    if (!text && !isGiven) return false;
    takeText({text.value_or(""), !text, true});
    return true;
}

// What a command prints, as far as that is known without running it.
std::optional<std::string> Guard::outputOf(const std::vector<Word>& words, const Command& command) {
    auto text = literalOutput(words);
    if (text || words.empty()) return text;
    const bool readsText = command.inputs.size() == 1 && command.inputs.front().kind == Input::Kind::text;
    if (readsText && words.size() == 1 && words.front().text == "cat"sv) // cat <<EOF | sh
        return textOf(command.inputs.front(), command);
    std::vector<std::string> texts;
    for (const Word& word : words) {
        if (word.unknown || word.glob) return std::nullopt;
        texts.push_back(word.text);
    }
    return printedBy(texts, position_.folder(), effects_);
}

// [ -n "$NAME" ] && COMMAND, if test "$NAME"; then COMMAND: there the name has a value.
void Guard::noteTest(Words words, const Command& command) {
    if (!command.afterAnd && command.words.front().text != "then"sv) values_.noteFilled({});
    const std::string_view name = words.front().text;
    if ((name != "["sv && name != "[["sv && name != "test"sv) || words.size() < 2) return;
    const std::size_t before = wordsBeforeCommand(command.words);
    if (before > 0 && command.words[before - 1].text == "!"sv) return;
    words = words.subspan(1);
    if (words.back().text == "]"sv || words.back().text == "]]"sv) words = words.first(words.size() - 1);
    if (words.size() == 2 && words.front().text == "-n"sv) words = words.subspan(1);
    if (words.size() != 1 || !words.front().text.starts_with('$')) return;
    std::string_view text = std::string_view(words.front().text).substr(1);
    if (text.starts_with('{')) text.remove_prefix(1);
    const std::string_view rest = text.substr(nameLength(text));
    if (rest.empty() || rest == "}"sv || rest == ":-}"sv) values_.noteFilled(text.substr(0, nameLength(text)));
}

// What a file gives names is in force from now on. What else it does is as little known as what a script does.
void Guard::takeSourced(const std::vector<Word>& words) {
    if ((words.front().text != "."sv && words.front().text != "source"sv) || words.size() < 2) return;
    const bool isGuess = effects_.isGuess();
    opaque(); // before the file leads elsewhere
    const std::string path = absolutePath(words[1].text, position_.folder());
    const std::vector<std::string> made = effects_.namesMadeIn(parentOf(path));
    const bool isThere = words[1].unknown || effects_.mayExist(path, "/") || isGuess ||
                         std::find(made.begin(), made.end(), lastComponent(path)) != made.end();
    if (isThere && (words[1].unknown || !takeValuesFrom(path))) values_.noteOthersUnknown();
}

// export $(grep -v '^#' .env | xargs): names that a command prints, most likely those of the files that it reads.
void Guard::takeNames(const std::vector<Word>& words, const Command& command) {
    bool isUnknown = false;
    for (const Word& word : words) {
        if (!word.expands || word.text.starts_with('~') || assignmentAt(word) > 0) continue;
        const std::size_t length = nameLength(word.text);
        if (length > 0 && word.text.substr(length).starts_with('=')) {
            values_.noteUnknown(word.text.substr(0, length)); // within quotes
            continue;
        }
        isUnknown = true;
        const auto number = markedSubstitution(word.text);
        if (!number || *number >= command.nested.size()) continue;
        for (const Command& inner : command.nested[*number].program.commands)
            for (const Word& file : inner.words)
                if (!file.expands && !file.text.starts_with('-'))
                    (void)takeValuesFrom(absolutePath(file.text, position_.folder()));
    }
    if (isUnknown) values_.noteOthersUnknown();
}

bool Guard::takeValuesFrom(const std::string& path) {
    struct stat status {};
    if (!effects_.takesLook() || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    nestedBytes_ += static_cast<std::size_t>(status.st_size);
    std::string text;
    if (++filesRead_ > Budget::filesOfValues || nesting_ >= Budget::nesting || nestedBytes_ > Budget::nestedBytes ||
        status.st_size > static_cast<off_t>(Budget::listBytes) || readFile(path, text) != 0)
        return false;
    takeValues(text);
    return true;
}

// Only assignments and changes of the folder are followed, those in functions not at all.
void Guard::takeValues(std::string_view text) {
    ++nesting_;
    Lexer lexer(text);
    FunctionBodies bodies;
    const std::size_t depth = depth_;
    const std::size_t branches = branches_;
    for (Command command; lexer.next(command);) {
        const std::vector<Word>& words = command.words;
        const auto first = words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(words));
        if (bodies.hold(command) || first == words.end()) continue;
        const bool assigns = assignmentAt(*first) > 0 || isDeclaration(*first) || command.isArray;
        const bool isLoad = first->text == "."sv || first->text == "source"sv;
        const bool changesValues = isBuiltin(first->text) && first->text != "trap"sv && first->text != "alias"sv;
        if (first->text == "eval"sv || bodies.contains(first->text)) values_.noteOthersUnknown();
        const bool isCertain = branches_ == branches && !command.afterAnd && !command.afterOr;
        if (isLoad || (assigns ? isCertain : changesValues)) {
            takeInside(command, depth);
            continue;
        }
        for (auto word = first; assigns && word != words.end(); ++word)
            if (assignmentAt(*word) > 0) values_.noteUnknown(word->text.substr(0, nameLength(word->text)));
        noteBranch(words);
    }
    if (lexer.opaque()) values_.noteOthersUnknown();
    branches_ = branches;
    depth_ = depth;
    --nesting_;
}

std::optional<std::string> Guard::textOf(const Input& input, const Command& command) {
    std::vector<Word> words = {input.word};
    values_.expandAll(words, command);
    if (words.size() != 1 || words.front().unknown) return std::nullopt;
    return std::move(words.front().text);
}

} // namespace tidewrack::shell
