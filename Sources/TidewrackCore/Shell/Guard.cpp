#include "Shell/Guard.hpp"

#include "Shell/Braces.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/Effects.hpp"
#include "Shell/Expansion.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view blanks = " \t\n";
constexpr std::string_view blanksAndGlobs = " \t\n*?[";
constexpr std::size_t maxFolderLength = 4096;
constexpr std::size_t maxFolderChanges = 1'000;
constexpr std::size_t maxSavedFolders = 64;
constexpr std::size_t maxLoops = 8;
constexpr std::size_t maxAlternatives = 1'000;
constexpr std::size_t maxAlternativesPerLine = 10'000;
constexpr std::size_t maxBraceWordsPerLine = 2'000;

// A variable that takes several values one after the other, or (none) values that only running would show.
struct Loop {
    std::string name;
    std::vector<Word> values;
};

bool mentions(std::string_view text, std::string_view name) {
    for (std::size_t at = text.find('$'); at != std::string_view::npos; at = text.find('$', at + 1)) {
        std::string_view behind = text.substr(at + 1);
        if (behind.starts_with('{')) behind.remove_prefix(1);
        if (behind.starts_with(name) && nameLength(behind) == name.size()) return true;
    }
    return false;
}

bool mayAssign(const Word& word) {
    return word.expands && word.text.find("${") != std::string::npos && word.text.find('=') != std::string::npos;
}

// The work of expanding the words once more, counted in alternatives of usual size.
std::size_t costOf(const std::vector<Word>& words) {
    std::size_t bytes = 0;
    for (const Word& word : words) bytes += 64 + word.text.size();
    return 1 + bytes / 256;
}

// Whether a command can be passed over: its name means nothing here, and no ${X:=value} hides in its words.
bool isHarmless(std::vector<Word>::const_iterator first, std::vector<Word>::const_iterator end) {
    return first == end || (!mayMatter(*first) && std::none_of(first, end, mayAssign));
}

// Follows one command line from command to command: where it is, what its variables hold.
class Analysis {
  public:
    explicit Analysis(const Context& context)
        : context_(context), effects_(context), variables_(context.env), cwd_(absolutePath(context.cwd, "/")),
          previousCwd_(cwd_) {}

    Decision run(std::string_view command);

  private:
    void take(Simple& simple);
    void examineForEach(const std::vector<Word>& words, std::span<Loop* const> loops);
    std::vector<Loop*> choicesIn(const std::vector<Word>& words);
    void leaveSubshells(std::size_t sharedDepth);
    bool assignAll(const std::vector<Word>& words, bool declared);
    void assign(const Word& word, std::size_t equals);
    void expandBraceLists(Simple& simple);
    void expandAll(std::vector<Word>& words);
    void shortenOwnHome(Word& word) const;
    void expandOne(Word& word);
    void setUnknown(Word& word);
    std::vector<Word> expandedOverLoops(std::vector<Word> words);
    void expandOver(Word word, std::size_t loop, bool glob, std::vector<Word>& out);
    void bindLoop(std::string_view name, std::vector<Word> values);
    void forgetLoop(std::string_view name);
    std::vector<Word> takenApart(const std::vector<Word>& words);
    bool takeBuiltin(std::vector<Word>& words, std::size_t depth, bool hadArgument);
    void changeFolder(const std::vector<Word>& words, std::size_t depth, bool hadArgument);
    void enter(std::string folder, std::size_t depth);

    struct SavedFolder {
        std::size_t depth;
        std::string folder;
    };

    const Context& context_;
    Effects effects_;
    Variables variables_;
    std::string cwd_;
    std::string previousCwd_;
    std::vector<std::string> pushed_; // by pushd, for popd; as many as changes of folder are followed at most
    std::size_t folderChanges_ = 0;
    std::vector<SavedFolder> saved_; // to go back to when a parenthesis closes
    std::vector<Loop> loops_;
    std::size_t alternatives_ = 0;
    std::size_t braceWords_ = 0;
};

Decision Analysis::run(std::string_view command) {
    Lexer lexer(command);
    Simple simple;
    variables_.assign("PWD", cwd_);
    while (lexer.next(simple)) take(simple);
    if (lexer.opaque() || effects_.isOpaque()) effects_.opaque(cwd_);
    return effects_.decide();
}

void Analysis::take(Simple& simple) {
    leaveSubshells(simple.sharedDepth);
    if (simple.opaque) effects_.opaque(cwd_);
    if (!simple.braced.empty()) expandBraceLists(simple);
    std::vector<Word>& words = simple.words;
    auto first = words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(words));
    if (!simple.redirects.empty()) {
        expandAll(simple.redirects);
        for (const Word& target : simple.redirects) effects_.targetWord(target, cwd_);
    }
    if (isHarmless(first, words.end())) return;
    const bool declared = isDeclaration(*first);
    if (declared) ++first;
    words.erase(words.begin(), first);
    if (words.empty() || assignAll(words, declared)) return;
    const std::string_view last = words.back().text;
    const bool endsWithName = last == "cd"sv || last == "pushd"sv || last == "popd"sv;
    const std::vector<Loop*> choices = choicesIn(words);
    const std::vector<Word> unexpanded = choices.empty() ? std::vector<Word>() : words;
    expandAll(words);
    std::vector<Word> apart = takenApart(words);
    strip(words);
    strip(apart);
    const bool loop = !apart.empty() && (apart.front().text == "for"sv || apart.front().text == "select"sv);
    if (loop && apart.size() > 3) words.insert(words.end(), apart.begin() + 3, apart.end());
    if (!words.empty() && takeBuiltin(words, simple.depth, !endsWithName)) return;
    if (!choices.empty()) return examineForEach(unexpanded, choices);
    if (!apart.empty()) examine(apart, cwd_, effects_);
    if (!words.empty()) examine(words, cwd_, effects_);
}

// The loop variables of several values that the words mention; none when it would take too long to try them all.
std::vector<Loop*> Analysis::choicesIn(const std::vector<Word>& words) {
    std::vector<Loop*> choices;
    for (Loop& loop : loops_) {
        const auto isIn = [&](const Word& word) { return word.expands && mentions(word.text, loop.name); };
        if (loop.values.size() > 1 && std::any_of(words.begin(), words.end(), isIn)) choices.push_back(&loop);
    }
    if (!choices.empty() && alternatives_ + costOf(words) > maxAlternativesPerLine) {
        effects_.opaque(cwd_);
        choices.clear();
    }
    return choices;
}

// Examines a command as often as a loop runs it, each time with one value for every loop variable: side by side
// the values would take the places of each other's sources and destinations.
void Analysis::examineForEach(const std::vector<Word>& words, std::span<Loop* const> loops) {
    if (loops.empty()) {
        std::vector<Word> expanded = words;
        expandAll(expanded);
        std::vector<Word> apart = takenApart(expanded);
        strip(expanded);
        strip(apart);
        if (!apart.empty()) examine(apart, cwd_, effects_);
        if (!expanded.empty()) examine(expanded, cwd_, effects_);
        return;
    }
    std::vector<Word>& values = loops.front()->values;
    std::vector<Word> all = std::exchange(values, {});
    for (const Word& value : all) {
        alternatives_ += costOf(words) + value.text.size() / 256;
        if (alternatives_ > maxAlternativesPerLine) {
            effects_.opaque(cwd_);
            break;
        }
        values.assign(1, value);
        examineForEach(words, loops.subspan(1));
    }
    values = std::move(all);
}

// The words as a shell sees them that takes an unquoted variable's value apart at its blanks and then for
// patterns; empty when that is no other reading. Not all shells do, so that both readings count.
std::vector<Word> Analysis::takenApart(const std::vector<Word>& words) {
    std::vector<Word> apart;
    if (std::none_of(words.begin(), words.end(), [](const Word& word) { return word.splits; })) return apart;
    for (const Word& word : words) {
        if (!word.splits) {
            apart.push_back(word);
            continue;
        }
        const std::string_view text = word.text;
        for (std::size_t begin = text.find_first_not_of(blanks); begin != std::string_view::npos;) {
            const std::size_t end = std::min(text.find_first_of(blanks, begin), text.size());
            if (++alternatives_ > maxAlternativesPerLine) {
                effects_.opaque(cwd_);
                return {};
            }
            Word& part = apart.emplace_back();
            part.text = text.substr(begin, end - begin);
            part.glob = part.text.find_first_of("*?[") != std::string::npos;
            begin = text.find_first_not_of(blanks, end);
        }
    }
    return apart;
}

// A change of folder inside parentheses ends with them.
void Analysis::leaveSubshells(std::size_t sharedDepth) {
    while (!saved_.empty() && saved_.back().depth > sharedDepth) {
        cwd_ = std::move(saved_.back().folder);
        variables_.assign("PWD", cwd_);
        saved_.pop_back();
    }
}

// True when the words are nothing but assignments, which are recorded. Behind a declaration word they are
// recorded also among options and plain names.
bool Analysis::assignAll(const std::vector<Word>& words, bool declared) {
    const auto at = [](const Word& word) {
        const std::size_t equals = assignmentAt(word);
        return nameLength(word.text) == equals ? equals : 0;
    };
    const bool all = std::all_of(words.begin(), words.end(), [&](const Word& word) { return at(word) > 0; });
    if (!all && !declared) return false;
    for (const Word& word : words)
        if (const std::size_t equals = at(word); equals > 0) assign(word, equals);
    return all;
}

void Analysis::assign(const Word& word, std::size_t equals) {
    const std::string name = word.text.substr(0, equals);
    Word value = word;
    value.text.erase(0, equals + 1);
    value.tilde = value.text.starts_with('~') && equals + 1 < word.plain;
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
    if (!variables_.assign(name, std::move(value.text))) effects_.opaque(cwd_);
}

void Analysis::expandBraceLists(Simple& simple) {
    std::vector<Word> words;
    words.reserve(simple.words.size());
    std::size_t taken = 0;
    const auto takeUntil = [&](std::size_t end) {
        for (; taken < end; ++taken) words.push_back(std::move(simple.words[taken]));
    };
    for (const BracedWord& braced : simple.braced) {
        if (!holdsBraceList(braced.source) || assignmentAt(simple.words[braced.index]) > 0) continue;
        const auto sources = braceWords_ < maxBraceWordsPerLine ? expandBraces(braced.source) : std::nullopt;
        if (!sources) {
            effects_.opaque(cwd_);
            if (braceWords_ >= maxBraceWordsPerLine) break;
            continue;
        }
        takeUntil(braced.index);
        ++taken;
        braceWords_ += sources->size();
        Simple one;
        for (const std::string& source : *sources) {
            Lexer lexer(source);
            if (!lexer.next(one)) continue;
            for (Word& word : one.words) words.push_back(std::move(word));
        }
    }
    if (taken == 0) return;
    takeUntil(simple.words.size());
    simple.words = std::move(words);
}

// Expands the words where they stand. What an unset variable leaves behind outside quotes is no word at all.
void Analysis::expandAll(std::vector<Word>& words) {
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

// The user's own ~name is ~.
void Analysis::shortenOwnHome(Word& word) const {
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

// A word whose value cannot be known becomes empty: a guess such as "/*" for "$unknown/*" would be refused for
// no reason. It stays where it is, because many commands tell sources from destinations by their places.
void Analysis::setUnknown(Word& word) {
    word.text.clear();
    word.plain = 0;
    word.glob = word.splits = false;
    word.unknown = true;
    effects_.opaque(cwd_);
}

void Analysis::expandOne(Word& word) {
    if (!word.expands) return;
    if (word.tilde) shortenOwnHome(word);
    variables_.setUnfollowed(false);
    const bool bare = !word.quoted && word.plain == word.text.size() && word.text.find('$') != std::string::npos;
    expandInPlace(word, context_.home, variables_);
    if (word.glob && word.text.find_first_of("*?[") == std::string::npos) word.glob = false; // it was the ? of ${X:?}
    word.splits = bare && word.text.find_first_of(word.glob ? blanks : blanksAndGlobs) != std::string::npos;
    if (variables_.unfollowed()) setUnknown(word);
}

std::vector<Word> Analysis::expandedOverLoops(std::vector<Word> words) {
    std::vector<Word> result;
    result.reserve(words.size());
    for (Word& word : words) {
        if (word.expands)
            expandOver(std::move(word), 0, false, result);
        else
            result.push_back(std::move(word));
    }
    return result;
}

// Adds the word once for every value of every loop variable that it mentions.
void Analysis::expandOver(Word word, std::size_t loop, bool glob, std::vector<Word>& out) {
    while (loop < loops_.size() && !mentions(word.text, loops_[loop].name)) ++loop;
    if (loop == loops_.size()) {
        word.glob |= glob;
        expandOne(word);
        out.push_back(std::move(word));
        return;
    }
    if (loops_[loop].values.empty()) {
        setUnknown(word);
        out.push_back(std::move(word));
        return;
    }
    for (const Word& value : loops_[loop].values) {
        alternatives_ += 1 + (word.text.size() + value.text.size()) / 256;
        if (alternatives_ > maxAlternativesPerLine) return effects_.opaque(cwd_);
        variables_.assign(loops_[loop].name, value.text);
        expandOver(word, loop + 1, glob || value.glob, out);
    }
}

void Analysis::bindLoop(std::string_view name, std::vector<Word> values) {
    forgetLoop(name);
    variables_.assign(name, "");
    const auto isUnknown = [](const Word& value) { return value.unknown; };
    values.erase(std::remove_if(values.begin(), values.end(), isUnknown), values.end());
    if (loops_.size() >= maxLoops || values.size() > maxAlternatives) return effects_.opaque(cwd_);
    loops_.push_back({std::string(name), std::move(values)});
}

void Analysis::forgetLoop(std::string_view name) {
    loops_.erase(std::remove_if(loops_.begin(), loops_.end(), [&](const Loop& loop) { return loop.name == name; }),
                 loops_.end());
}

// Commands that change what the line knows, not the disk.
bool Analysis::takeBuiltin(std::vector<Word>& words, std::size_t depth, bool hadArgument) {
    const std::string_view name = words.front().text;
    if (name == "cd"sv || name == "pushd"sv || name == "popd"sv) {
        changeFolder(words, depth, hadArgument);
        return true;
    }
    if ((name == "for"sv || name == "select"sv) && words.size() > 1) {
        const bool listed = words.size() > 2 && words[2].text == "in";
        const auto firstValue = std::make_move_iterator(listed ? words.begin() + 3 : words.end());
        bindLoop(words[1].text, std::vector<Word>(firstValue, std::make_move_iterator(words.end())));
        return true;
    }
    if (name == "read"sv) {
        for (std::size_t index = 1; index < words.size(); ++index)
            if (nameLength(words[index].text) == words[index].text.size() && !words[index].text.empty())
                bindLoop(words[index].text, {});
        return true;
    }
    return false;
}

void Analysis::changeFolder(const std::vector<Word>& words, std::size_t depth, bool hadArgument) {
    if (++folderChanges_ > maxFolderChanges) return effects_.opaque(cwd_);
    const auto isOption = [](const Word& word) { return word.text.size() > 1 && word.text.starts_with('-'); };
    const auto argument = std::find_if_not(words.begin() + 1, words.end(), isOption);
    const std::string_view name = words.front().text;
    if (name == "popd"sv) {
        if (pushed_.empty()) return;
        std::string folder = std::move(pushed_.back());
        pushed_.pop_back();
        return enter(std::move(folder), depth);
    }
    if (argument == words.end()) {
        // Without an argument cd goes home; one that came to nothing leads nowhere that is known.
        if (hadArgument) return effects_.opaque(cwd_);
        if (name == "cd"sv) return enter(absolutePath(context_.home, "/"), depth);
        if (!pushed_.empty()) enter(std::exchange(pushed_.back(), cwd_), depth);
        return;
    }
    if (name == "pushd"sv) pushed_.push_back(cwd_);
    if (argument->text == "-") return enter(previousCwd_, depth);
    const auto folders = effects_.resolve(*argument, cwd_);
    if (folders.size() > 1 || argument + 1 != words.end()) effects_.opaque(cwd_);
    // The others are where a loop comes to when it runs again.
    for (const std::string& folder : folders)
        if (folder != folders.front()) effects_.opaque(folder);
    for (auto other = argument; ++other != words.end();) {
        if (++folderChanges_ > maxFolderChanges) break;
        for (const std::string& folder : effects_.resolve(*other, cwd_)) effects_.opaque(folder);
    }
    if (!folders.empty()) enter(folders.front(), depth);
}

void Analysis::enter(std::string folder, std::size_t depth) {
    if (folder.size() > maxFolderLength) return effects_.opaque(cwd_);
    const bool saved = depth == 0 || (!saved_.empty() && saved_.back().depth >= depth);
    if (!saved && saved_.size() < maxSavedFolders) saved_.push_back({depth, cwd_});
    previousCwd_ = std::exchange(cwd_, std::move(folder));
    variables_.assign("PWD", cwd_);
    variables_.assign("OLDPWD", previousCwd_);
}

} // namespace

Decision analyze(std::string_view command, const Context& context) {
    return Analysis(context).run(command);
}

Decision judgeFiles(const std::vector<std::string>& paths, const Context& context) {
    Effects effects(context);
    for (const std::string& path : paths) effects.target(path, context.cwd);
    return effects.decide();
}

} // namespace tidewrack::shell
