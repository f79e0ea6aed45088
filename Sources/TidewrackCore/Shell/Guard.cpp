#include "Shell/Guard.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/DeepReading.hpp"
#include "Shell/Effects.hpp"
#include "Shell/GuardRun.hpp"
#include "Shell/Lexer.hpp"
#include "Shell/ListRules.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/Options.hpp"
#include "Shell/Position.hpp"
#include "Shell/Readers.hpp"
#include "Shell/WordValues.hpp"
#include "Shell/Wrappers.hpp"
#include "Shell/Writers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

bool mayAssign(const Word& word) {
    return word.expands && word.text.find("${") != std::string::npos && word.text.find('=') != std::string::npos;
}

// Whether a command can be passed over: its name means nothing here, and no ${X:=value} hides in its words.
bool isHarmless(Words words) {
    return !mayMatter(words.front()) && std::none_of(words.begin(), words.end(), mayAssign);
}

bool isCount(std::string_view text, std::size_t& count) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size();
}

// No shorter line sets an option of patterns and uses it.
constexpr std::size_t globOptionLength = 16;

// Whether the output of a harmless command may be known, for a shell that reads it.
bool mayFeedShell(const Word& name, const Command& command) {
    if (!command.toPipe) return false;
    if (name.text == "cat"sv) return !command.inputs.empty();
    return name.text == "echo"sv || name.text == "dirname"sv || name.text == "realpath"sv;
}

} // namespace

Decision Guard::run(std::string_view line) {
    if (line.find('_') != line.npos) followsLast_ = line.find("$_") != line.npos || line.find("${_") != line.npos;
    if (line.size() > globOptionLength && (line.find("glob") != line.npos || line.find("GLOB") != line.npos))
        takeGlobOptions(line);
    Lexer lexer(line);
    Command command;
    while (lexer.next(command)) {
        std::optional<Command> asWritten;
        if (context_.watch) asWritten = command;
        take(command);
        if (asWritten) context_.watch(*asWritten, effects_.soFar());
    }
    takeTraps();
    if (lexer.opaque() || effects_.isOpaque()) opaque();
    if (effects_.isOpaque()) noteGitStoresListed(line, effects_);
    const bool guess = effects_.isGuess();
    Decision decision = effects_.decide();
    if (guess && decision.verdict.kind != Verdict::Kind::deny)
        for (std::string& path : pathsAtRisk(line, decision, context_, effects_))
            decision.mentioned.push_back(std::move(path));
    sortAndDedupe(decision.mentioned);
    return decision;
}

// What bash and zsh call it that patterns match hidden names, or without regard to case.
void Guard::takeGlobOptions(std::string_view line) {
    for (const std::string_view option : {"dotglob"sv, "globdots"sv, "glob_dots"sv, "GLOBIGNORE="sv})
        if (line.find(option) != line.npos) effects_.matchHidden();
    for (const std::string_view option : {"nocaseglob"sv, "nocase_glob"sv, "no_case_glob"sv})
        if (line.find(option) != line.npos) effects_.ignoreCase();
    for (const std::string_view option : {"extendedglob"sv, "extended_glob"sv, "EXTENDED_GLOB"sv})
        if (line.find(option) != line.npos) effects_.matchExtended();
}

// A command of a text or body, which counts parentheses from its own begin, within so many of the line.
void Guard::takeInside(Command& command, std::size_t depth) {
    command.depth += depth;
    command.sharedDepth += depth;
    take(command);
}

void Guard::take(Command& command) {
    std::optional<std::vector<Word>> last;
    if (followsLast_ && !command.words.empty()) last.emplace(1, command.words.back());
    if (last) values_.expandAll(*last, command);
    takeCommand(command);
    if (last) values_.bindLoop("_", std::move(*last));
}

void Guard::takeCommand(Command& command) {
    elsewhere_.reset();
    effects_.beginCommand();
    std::vector<Word> lister = std::exchange(lister_, {});
    if (!command.fromPipe) {
        lister.clear();
        feeder_.reset();
        written_.reset();
    }
    if (functions_.recordsAt(nesting_, calls_)) functions_.record(command);
    if (!aliases_.empty() && takeAlias(command)) return;
    depth_ = command.depth;
    if (position_.leaveSubshells(command.sharedDepth)) values_.noteFolder(false);
    if (command.opaque) opaque();
    for (const Substitution& substitution : command.nested) takeNested(substitution.program);
    listed_ = std::move(lister);
    if (!command.braced.empty()) values_.expandBraceLists(command);
    std::vector<Word>& words = command.words;
    auto first = words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(words));
    if (!command.redirects.empty()) takeRedirects(command);
    if (!doubts_.empty()) std::erase_if(doubts_, [&](const Doubt& doubt) { return doubt.depth > command.sharedDepth; });
    settledDoubts_ = std::min(settledDoubts_, doubts_.size());
    if (!command.afterAnd) settledDoubts_ = doubts_.size();
    noteBranch(words);
    if (!command.redirects.empty()) takeDoubts(command, {});
    if (first == words.end() || takeDefinition(command)) return;
    noteTest({first, words.end()}, command);
    if (takeHarmless({first, words.end()}, command)) return;
    const bool declared = isDeclaration(*first);
    const bool refers = declared && first->text != "export"sv && hasOption({first + 1, words.end()}, 'n', "-n");
    if (declared) ++first;
    words.erase(words.begin(), first);
    if (command.isArray && !words.empty()) return takeArray(words, command);
    if (refers) return takeReferences(words);
    if (declared) takeNames(words, command);
    if (words.empty() || values_.assignAll(words, declared, command) || declared) return;
    const std::string_view last = words.back().text;
    const bool endsWithName = last == "cd"sv || last == "pushd"sv || last == "popd"sv;
    const std::vector<Word> unexpanded = values_.vary(words, command) ? words : std::vector<Word>();
    WordValues::Readings readings = values_.read(std::move(words), command);
    if (!readings.whole.empty() && readings.whole.front().unknown) opaque(); // what it runs is unknown
    peel(readings.apart);
    peel(readings.whole);
    if (command.toPipe && !readings.whole.empty() && listsFiles(readings.whole.front())) lister_ = readings.whole;
    if (takeInputs(readings.whole, command)) return;
    if (settledDoubts_ > 0) takeDoubts(command, readings.whole);
    const std::vector<Word>& apart = readings.apart;
    const bool loop = !apart.empty() && (apart.front().text == "for"sv || apart.front().text == "select"sv);
    if (loop && apart.size() > 3) readings.whole.insert(readings.whole.end(), apart.begin() + 3, apart.end());
    if (!readings.whole.empty() && takeBuiltin(readings.whole, command, !endsWithName)) return;
    const auto judgeRun = [&](WordValues::Readings&& run) {
        peel(run.apart);
        peel(run.whole);
        judge(std::move(run));
    };
    if (unexpanded.empty() || !values_.forEachRun(unexpanded, command, judgeRun)) judge(std::move(readings));
}

// True when nothing else of the command is to be judged.
bool Guard::takeHarmless(Words words, Command& command) {
    const Word& first = words.front();
    const bool looks = looksByGit(words);
    if (!looks && !isHarmless(words)) return false;
    if ((command.toPipe || nesting_ > 0) && (first.text == "ls"sv || listsMatches(words)))
        takeListing({words.begin(), words.end()}, command);
    if (functions_.contains(first.text)) return false;
    tell(words);
    const bool reads = (command.fromPipe || !command.inputs.empty()) && readsScript(commandName(first));
    if (!reads && (looks || isKnown(first, words.subspan(1)))) {
        if (mayFeedShell(first, command)) holdFeeder(command);
        return true;
    }
    if (isWriter(commandName(first))) return false;
    takeUnknown(first);
    return true;
}

void Guard::takeRedirects(Command& command) {
    values_.expandAll(command.redirects, command);
    for (const Word& target : command.redirects) {
        if (target.unknown) {
            effects_.opaqueWords(position_.folder());
            effects_.loseUnknownWords(position_.folder());
        }
        const Extent extent = target.appends ? Extent::kept : Extent::item;
        effects_.targetWord(target, position_.folder(), Links::itself, extent);
        for (const std::string& folder : position_.others()) {
            if (++otherRuns_ > Budget::otherRuns) return effects_.opaque(folder);
            effects_.targetWord(target, folder, Links::itself, extent);
        }
    }
}

void Guard::noteBranch(const std::vector<Word>& words) {
    if (words.empty() || words.front().quoted) return;
    const std::string_view text = words.front().text;
    if (text == "if"sv || text == "case"sv) ++branches_;
    if ((text == "fi"sv || text == "esac"sv) && branches_ > 0) --branches_;
}

// Whether a command within another one only looks, and lists nothing that may be meant by others.
bool Guard::onlyLooksWithin(const Command& command) const {
    const std::vector<Word>& words = command.words;
    if (words.empty() || command.opaque || command.isDefinition || command.isPattern || !command.redirects.empty() ||
        !command.inputs.empty() || !command.braced.empty() || !command.nested.empty())
        return false;
    if (!functions_.none() || !aliases_.empty() || wordsBeforeCommand(words) > 0) return false;
    if (!isHarmless(words) || words.front().text == "ls"sv || listsMatches(words)) return false;
    return !(command.fromPipe && readsScript(commandName(words.front()))) &&
           isKnown(words.front(), Words(words).subspan(1));
}

// Commands that run for what they print, in a shell of their own.
void Guard::takeNested(const Program& program) {
    const std::vector<Command>& commands = program.commands;
    if (std::all_of(commands.begin(), commands.end(), [&](const Command& one) { return onlyLooksWithin(one); })) {
        for (const Command& one : commands) tell(one.words);
        return;
    }
    Position position = position_;
    const std::size_t doubts = doubts_.size();
    values_.beginSubshell();
    ++nesting_;
    const std::size_t depth = depth_;
    for (Command command : commands) takeInside(command, depth);
    depth_ = depth;
    --nesting_;
    values_.endSubshell();
    if (doubts < doubts_.size()) doubts_.erase(doubts_.begin() + static_cast<std::ptrdiff_t>(doubts), doubts_.end());
    position_ = std::move(position);
}

void Guard::judge(WordValues::Readings readings) {
    const std::string folder = elsewhere_.value_or(position_.folder());
    for (auto* words : {&readings.apart, &readings.whole}) {
        if (words->empty()) continue;
        tell(*words);
        if (!listed_.empty() && commandName(words->front()) == "xargs"sv)
            examineListed(listed_, Words(*words).subspan(1), folder, effects_);
        if (const auto nested = nestedText(*words)) {
            takeTextIn(*nested, folder);
            if (words->front().text == "trap"sv && traps_.size() < Budget::traps) traps_.push_back(*nested);
            if (words->front().text == "fish"sv) (void)examine(*words, folder, effects_); // whose syntax is another
        } else if (!takeCall(*words) && !takeProgram(*words, folder) &&
                   (readings.apart.empty() || words == &readings.apart))
            takeUnknown(words->front());
        if (!elsewhere_ && !position_.others().empty()) judgeElsewhere(*words);
    }
}

// Removes wrappers; a text that they run as commands is judged.
void Guard::peel(std::vector<Word>& words) {
    given_.clear();
    if (words.empty()) return;
    Unwrapped around = unwrap(words);
    given_ = std::move(around.assignments);
    for (const Word& output : around.outputs)
        if (output.text != "/dev/null"sv) effects_.write(output, position_.folder());
    if (around.folder && around.folder->unknown) opaque();
    if (around.folder && !around.folder->text.empty())
        elsewhere_ = absolutePath(around.folder->text, position_.folder());
    if (around.text)
        takeTextIn({around.text->text, around.text->unknown, true}, elsewhere_.value_or(position_.folder()));
}

// NAME=(a b): the name stands for one after the other.
void Guard::takeArray(std::vector<Word>& words, const Command& command) {
    const auto isOption = [](const Word& word) { return word.text.starts_with('-') || word.text.starts_with('+'); };
    words.erase(words.begin(), std::find_if_not(words.begin(), words.end(), isOption)); // declare -a NAME=(a b)
    if (words.empty() || words.front().text.find('=') == std::string::npos) return opaque();
    const std::size_t end = words.front().text.find_first_of("+=");
    const std::string name = words.front().text.substr(0, end);
    const bool adds = words.front().text[end] == '+';
    words.erase(words.begin());
    values_.expandAll(words, command);
    if (adds)
        values_.extendLoop(name, std::move(words));
    else
        values_.bindLoop(name, std::move(words));
}

// declare -n NAME=OTHER: what the name stands for changes with the other one.
void Guard::takeReferences(const std::vector<Word>& words) {
    for (const Word& word : words)
        if (const std::size_t equals = assignmentAt(word); equals > 0)
            values_.bindLoop(word.text.substr(0, equals), {});
}

bool Guard::takeDefinition(const Command& command) {
    if (command.isPattern) return true;
    const bool isNamed = command.words.size() > 1 && command.words.front().text == "function"sv;
    if (isNamed || (command.isDefinition && command.words.size() == 1))
        functions_.begin(command.words[isNamed ? 1 : 0].text, command, nesting_, calls_);
    return command.isDefinition;
}

// Calls a function of this name. False where the program of that name may be meant: behind a wrapper, or where the
// function is defined elsewhere.
bool Guard::takeCall(const std::vector<Word>& words) {
    if (!functions_.contains(words.front().text)) return false;
    call(words);
    return !mayMatter(words.front());
}

// A function runs with the words behind its name as its parameters.
void Guard::call(const std::vector<Word>& words) {
    const auto body = functions_.body(words.front().text);
    if (!body) return; // what it does was judged where it is defined
    calledCommands_ += body->size();
    if (calls_ >= Budget::nesting || calledCommands_ > Budget::calledCommands) return opaque();
    auto before = values_.exchangeParameters(parametersFrom(words));
    const std::size_t depth = depth_;
    ++calls_;
    for (Command command : *body) takeInside(command, depth);
    depth_ = depth;
    --calls_;
    values_.exchangeParameters(std::move(before));
}

// Whether git only looks, and the line has given nothing to it that it might run.
bool Guard::looksByGit(Words words) const {
    return words.front().text == "git"sv && !values_.hasAssigned() && gitSettings_.empty() && onlyLooks(words) &&
           std::none_of(words.begin(), words.end(), mayAssign) &&
           std::none_of(words.begin(), words.end(), [](const Word& word) { return word.text.starts_with("--output"); });
}

// The text of an alias stands in place of its name. False where a program may be meant: most shells replace none in
// scripts.
bool Guard::takeAlias(const Command& command) {
    const std::size_t at = wordsBeforeCommand(command.words);
    if (at >= command.words.size() || command.words[at].quoted || command.words[at].expands) return false;
    const auto found = aliases_.find(command.words[at].text);
    if (found == aliases_.end()) return false;
    const auto alias = aliases_.extract(found); // which is not replaced in its own text
    nestedBytes_ += alias.mapped().size();
    std::vector<Command> commands = parse(alias.mapped()).program.commands;
    if (commands.empty() || !commands.back().nested.empty() || nestedBytes_ > Budget::nestedBytes) {
        opaque();
    } else {
        Command& last = commands.back();
        Command whole = command;
        const auto name = whole.words.erase(whole.words.begin() + static_cast<std::ptrdiff_t>(at));
        whole.words.insert(name, last.words.begin(), last.words.end());
        for (BracedWord& braced : whole.braced) braced.index += last.words.size() - 1;
        last = std::move(whole);
        for (Command& one : commands) {
            one.depth = command.depth;
            one.sharedDepth = command.sharedDepth;
            take(one);
        }
    }
    aliases_.insert_or_assign(alias.key(), alias.mapped());
    return !mayMatter(command.words[at]);
}

// A text that is parsed as commands, where it runs.
void Guard::takeText(const NestedText& nested) {
    nestedBytes_ += nested.text.size();
    if (nested.unknown && !nested.ownShell) values_.noteOthersUnknown();
    if (nested.unknown || nesting_ >= Budget::nesting || nestedBytes_ > Budget::nestedBytes) return opaque();
    std::optional<Position> before;
    std::vector<NestedText> traps;
    const std::size_t doubts = doubts_.size();
    if (nested.ownShell) {
        before = position_;
        traps.swap(traps_);
        values_.beginSubshell();
        for (const Word& word : std::exchange(given_, {})) values_.give(word);
    }
    std::optional<Parameters> parameters;
    if (nested.ownShell)
        parameters = values_.exchangeParameters(nested.parameters ? std::optional(parametersFrom(*nested.parameters))
                                                                  : std::nullopt);
    ++nesting_;
    Lexer lexer(nested.text);
    const std::size_t depth = depth_;
    for (Command command; lexer.next(command);) takeInside(command, depth);
    if (nested.ownShell) takeTraps();
    depth_ = depth;
    if (lexer.opaque()) opaque();
    --nesting_;
    if (!before) return;
    traps_ = std::move(traps);
    if (doubts < doubts_.size()) doubts_.erase(doubts_.begin() + static_cast<std::ptrdiff_t>(doubts), doubts_.end());
    values_.endSubshell();
    values_.exchangeParameters(std::move(parameters));
    position_ = std::move(*before);
}

// The same in another folder.
void Guard::takeTextIn(const NestedText& nested, const std::string& folder) {
    if (folder == position_.folder()) return takeText(nested);
    const Position before = position_;
    values_.beginSubshell();
    if (position_.enter(folder, depth_)) values_.noteFolder(true);
    takeText(nested);
    values_.endSubshell();
    position_ = before;
}

// Traps run when their shell ends, with the values of then; one that runs sooner has been judged where it is set.
void Guard::takeTraps() {
    for (const NestedText& trap : std::exchange(traps_, {})) takeText(trap);
    traps_.clear(); // what a trap sets in its turn
}

// As parameters: the first word is $0. A pattern becomes what it matches.
Parameters Guard::parametersFrom(Words words) {
    Parameters parameters;
    for (const Word& word : words.first(std::min(words.size(), Budget::parameters))) {
        if (!word.glob) {
            parameters.push_back(word.unknown ? std::nullopt : std::optional(word.text));
            continue;
        }
        const std::string whole = absolutePath(word.text, position_.folder());
        std::vector<std::string> paths = effects_.resolve(word, position_.folder());
        if (paths.empty()) parameters.emplace_back();
        for (std::string& path : paths) {
            if (parameters.size() >= Budget::parameters) break;
            const bool isMatch = !isAtOrBelow(whole, path); // else the folder that stands for all
            parameters.push_back(isMatch ? std::optional(std::move(path)) : std::nullopt);
        }
    }
    return parameters;
}

void Guard::tell(Words words) const {
    if (context_.command && !onlyLooks(words)) context_.command(words);
}

// Whether the user says that a program only reads of which nothing else is known.
bool Guard::readsByRule(const Word& name) const {
    return context_.isReader && !name.unknown && context_.isReader(commandName(name));
}

// A program that may do anything. Within a substitution its effect counts as one that only running shows.
void Guard::takeUnknown(const Word& name) {
    if (readsByRule(name)) return;
    if (nesting_ > 0)
        opaque();
    else
        effects_.suspect(position_.folder());
}

// Commands that change what the line knows, not the disk.
bool Guard::takeBuiltin(std::vector<Word>& words, const Command& command, bool hadArgument) {
    const std::string_view name = words.front().text;
    takeSourced(words);
    if (!isBuiltin(name)) return false;
    if (name == "cd"sv || name == "pushd"sv || name == "popd"sv) {
        // In a pipe or in the background a shell of its own changes the folder.
        if (command.toPipe || command.inBackground) return true;
        if (command.afterAnd || command.afterOr || branches_ > 0)
            noteDoubt(words, command.afterOr, command.depth);
        else if (words.back().text.starts_with('/'))
            doubts_.clear();
        else if (words.size() > 1 && words.back().text != "-"sv)
            moveDoubts(words.back().text);
        // Behind a || cd b && the command runs in either.
        settledDoubts_ = command.afterOr ? doubts_.size() : std::min(settledDoubts_, doubts_.size());
        changeFolder(words, command.depth, hadArgument);
        return true;
    }
    if ((name == "for"sv || name == "select"sv) && words.size() > 1) {
        const bool listed = words.size() > 2 && words[2].text == "in";
        std::vector<Word> values = values_.allParameters();
        if (listed) values.assign(std::make_move_iterator(words.begin() + 3), std::make_move_iterator(words.end()));
        values_.bindLoop(words[1].text, std::move(values));
        return true;
    }
    if (name == "set"sv) {
        if (words.size() > 1 && words[1].text == "--")
            values_.exchangeParameters(parametersFrom(Words(words).subspan(1)));
        return true;
    }
    if (name == "shift"sv) {
        std::size_t count = 1;
        if (words.size() > 1 && !isCount(words[1].text, count))
            values_.exchangeParameters(std::nullopt);
        else
            values_.shiftParameters(count);
        return true;
    }
    if (name == "alias"sv) {
        for (const Word& word : Words(words).subspan(1))
            if (const std::size_t equals = word.text.find('='); equals != std::string::npos && !word.unknown)
                if (aliases_.size() < Budget::aliases)
                    aliases_[word.text.substr(0, equals)] = word.text.substr(equals + 1);
        return true;
    }
    if (name == "mapfile"sv || name == "readarray"sv) {
        const bool named = words.size() > 1 && !words.back().text.starts_with('-');
        values_.bindLoop(named ? std::string_view(words.back().text) : "MAPFILE"sv, {});
        return true;
    }
    if (name == "printf"sv && words.size() > 2 && words[1].text == "-v") {
        values_.bindLoop(words[2].text, {});
        return true;
    }
    if (name == "read"sv) {
        for (std::size_t index = 1; index < words.size(); ++index)
            if (nameLength(words[index].text) == words[index].text.size() && !words[index].text.empty())
                values_.bindLoop(words[index].text, {});
        return true;
    }
    return false;
}

Decision analyze(std::string_view command, const Context& context) {
    return Guard(context).run(command);
}

Decision judgeFiles(const std::vector<std::string>& paths, FileAct act, const Context& context) {
    Effects effects(context);
    for (const std::string& path : paths) {
        const bool goes = act == FileAct::removes || (act == FileAct::moves && &path == &paths.front());
        if (goes && isFolder(path))
            effects.targetWord(Word{path}, context.cwd, Links::itself,
                               act == FileAct::removes ? Extent::removed : Extent::moved);
        else
            effects.target(path, context.cwd);
    }
    return effects.decide();
}

} // namespace tidewrack::shell
