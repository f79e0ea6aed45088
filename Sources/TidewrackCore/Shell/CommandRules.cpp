#include "Shell/CommandRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CopyRules.hpp"
#include "Shell/DeepReading.hpp"
#include "Shell/FindRules.hpp"
#include "Shell/GitRules.hpp"
#include "Shell/Lexer.hpp"
#include "Shell/ListRules.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/OptionEffects.hpp"
#include "Shell/Options.hpp"
#include "Shell/Readers.hpp"
#include "Shell/Scripts.hpp"
#include "Shell/Wrappers.hpp"
#include "Shell/Writers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

constexpr std::array declarations = {"export"sv, "local"sv, "declare"sv, "typeset"sv, "readonly"sv};

constexpr std::array reservedWords = {"if"sv, "then"sv, "elif"sv, "else"sv,     "while"sv, "until"sv,
                                      "do"sv, "{"sv,    "!"sv,    "function"sv, "coproc"sv};

// Commands that change what the line knows, not the disk.
constexpr std::array builtins = {"cd"sv,    "pushd"sv,     "popd"sv,   "for"sv, "select"sv,  "read"sv, "trap"sv,
                                 "alias"sv, "readarray"sv, "printf"sv, "set"sv, "mapfile"sv, "shift"sv};

class Examination;

struct Rule {
    std::string_view name;
    void (Examination::*apply)();
    std::string_view letters{}; // short options that take a word
    std::string_view options{}; // long ones, each between blanks
};

class Examination {
  public:
    Examination(Words words, const std::string& cwd, Effects& effects)
        : name_(commandName(words.front())), arguments_(words.subspan(1)), cwd_(cwd), effects_(effects) {}

    bool run(); // false when there is no rule for the command

    void runScript();
    void git();
    void remove();
    void move();
    void copy();
    void targetOperands(Extent extent = Extent::item);
    void tee();
    void truncate();
    void copyBlocks();
    void editInPlace();
    void find();
    void fd();
    void xargs();
    void changeModes();
    void make();
    void tidewrack();

  private:
    [[nodiscard]] Operands operands() const { return operandsOf(arguments_, rule_->letters, rule_->options); }
    void takeUnknownWords();
    [[nodiscard]] std::optional<std::string> folderOfItems(const Word& word) const;
    void lookAtRemoved(const Rule& rule, Words command) const;
    void loseItems(Words command) const;

    std::string_view name_;
    const Rule* rule_ = nullptr;
    Words arguments_;
    const std::string& cwd_;
    Effects& effects_;
};

using E = Examination;

// Sorted by name, for the search.
constexpr Rule rules[] = {
    {".", &E::runScript},
    {"at", &E::runScript},
    {"bash", &E::runScript},
    {"batch", &E::runScript},
    {"bun", &E::runScript},
    {"bunx", &E::runScript},
    {"cargo", &E::runScript},
    {"chgrp", &E::changeModes},
    {"chmod", &E::changeModes},
    {"chown", &E::changeModes},
    {"cp", &E::copy, "St", " --suffix --target-directory "},
    {"dash", &E::runScript},
    {"dd", &E::copyBlocks},
    {"deno", &E::runScript},
    {"ditto", &E::copy},
    {"eval", &E::runScript},
    {"fd", &E::fd},
    {"fdfind", &E::fd},
    {"find", &E::find},
    {"fish", &E::runScript},
    {"git", &E::git},
    {"go", &E::runScript},
    {"gsed", &E::editInPlace, "efl", " --expression --file --line-length "},
    {"install", &E::copy, "SgmotB", " --suffix --target-directory --group --mode --owner "},
    {"ksh", &E::runScript},
    {"ln", &E::copy, "St", " --suffix --target-directory "},
    {"make", &E::runScript},
    {"mkdir", &E::make, "mZ", " --mode --context "},
    {"mv", &E::move, "St", " --suffix --target-directory "},
    {"node", &E::runScript},
    {"npm", &E::runScript},
    {"npx", &E::runScript},
    {"osascript", &E::runScript},
    {"parallel", &E::runScript},
    {"perl", &E::editInPlace, "eEIMm", ""},
    {"perl6", &E::runScript},
    {"pnpm", &E::runScript},
    {"python", &E::runScript},
    {"python3", &E::runScript},
    {"rimraf", &E::remove, "", " --impl --tmp --max-retries --retry-delay --backoff "},
    {"rm", &E::remove},
    {"rmdir", &E::remove},
    {"rsync", &E::copy, "efBTM",
     " --rsh --filter --exclude --include --exclude-from --include-from --files-from --backup-dir --temp-dir "
     "--rsync-path --port --log-file --chmod --chown "},
    {"ruby", &E::runScript},
    {"sed", &E::editInPlace, "efl", " --expression --file --line-length "},
    {"sh", &E::runScript},
    {"shred", &E::remove, "ns", " --iterations --size "},
    {"source", &E::runScript},
    {"srm", &E::remove},
    {"swift", &E::runScript},
    {"tee", &E::tee},
    {"tidewrack", &E::tidewrack},
    {"tidewrack-browse", &E::tidewrack}, // what `tidewrack browse` becomes
    {"touch", &E::make, "drt", " --date --reference --time "},
    {"trash", &E::remove},
    {"truncate", &E::truncate, "rs", " --reference --size "},
    {"unlink", &E::remove},
    {"xargs", &E::xargs},
    {"yarn", &E::runScript},
    {"zsh", &E::runScript},
};

static_assert(isSortedByName(rules));
constexpr NameIndex<Rule> ruleIndex(rules);

constexpr NameFilter reservedFilter = [] {
    NameFilter filter;
    for (const std::string_view name : reservedWords) filter.add(name);
    return filter;
}();

bool isReserved(const Word& word) {
    return word.plain == word.text.size() && reservedFilter.mayHold(word.text) && isIn(reservedWords, word.text);
}

constexpr NameFilter builtinFilter = [] {
    NameFilter filter;
    for (const std::string_view name : builtins) filter.add(name);
    return filter;
}();

constexpr NameFilter commandFilter = [] {
    NameFilter filter;
    for (const std::string_view name : agentsWithPlugins) filter.add(name);
    for (const std::string_view name : declarations) filter.add(name);
    for (const std::string_view name : builtins) filter.add(name);
    for (const Rule& rule : rules) filter.add(rule.name);
    return filter;
}();

bool onlyReads(const Rule& rule, Words arguments);

// Whether a program without a rule leaves all files as they are.
bool changesNothing(std::string_view name, Words arguments) {
    if (isWriter(name)) return writesNothing(name, arguments);
    return isReader(name) && !isToldToWrite(name, arguments);
}

bool Examination::run() {
    rule_ = ruleIndex.find(name_);
    if (rule_ == nullptr) return false;
    (this->*rule_->apply)();
    const auto isUnknown = [](const Word& word) { return word.unknown; };
    if (std::any_of(arguments_.begin(), arguments_.end(), isUnknown) && !onlyReads(*rule_, arguments_))
        takeUnknownWords();
    return true;
}

void Examination::takeUnknownWords() {
    effects_.opaqueWords(cwd_);
    const bool copiesThere = rule_->apply == &E::copy && arguments_.back().unknown;
    if (copiesThere || rule_->apply == &E::remove || rule_->apply == &E::move || rule_->apply == &E::tee ||
        rule_->apply == &E::truncate || rule_->apply == &E::editInPlace)
        effects_.loseUnknownWords(cwd_);
}

// Its effect lies in a script.
void Examination::runScript() {
    if (!onlyTellsOfItself(name_, arguments_) && !hasReadingSubcommand(name_, arguments_) &&
        !onlyChecks(name_, arguments_))
        effects_.opaque(cwd_);
}

void Examination::git() {
    examineGit(arguments_, cwd_, effects_);
}

void Examination::find() {
    examineFind(arguments_, cwd_, effects_);
}

void Examination::fd() {
    examineFd(arguments_, cwd_, effects_);
}

void Examination::tidewrack() {
    if (name_ == "tidewrack"sv) return effects_.ownCommand(arguments_);
    std::vector<Word> words(1);
    words.front().text = "browse";
    effects_.ownCommand(words);
}

void Examination::remove() {
    const bool isRimraf = name_ == "rimraf"sv;
    const bool whole = isRimraf || name_ == "rmdir"sv || isRecursive(arguments_);
    const Extent extent = whole ? Extent::removed : Extent::item;
    for (const Word* operand : operands().words) {
        effects_.targetWord(*operand, cwd_, linksOf(*operand), extent);
        // It matches patterns itself, by its version and options.
        if (!isRimraf || operand->glob || operand->text.find_first_of("*?[") == std::string::npos) continue;
        Word pattern = *operand;
        pattern.glob = true;
        effects_.targetWord(pattern, cwd_, linksOf(pattern), extent);
    }
}

void Examination::move() {
    examineMove(operands(), arguments_, cwd_, effects_);
}

void Examination::copy() {
    examineCopy(name_, operands(), arguments_, cwd_, effects_);
}

void Examination::targetOperands(Extent extent) {
    for (const Word* operand : operands().words) effects_.targetWord(*operand, cwd_, Links::itself, extent);
}

void Examination::tee() {
    targetOperands(operands().has('a', "--append") ? Extent::kept : Extent::item);
}

// A file that does not become smaller keeps what it holds.
void Examination::truncate() {
    const bool asAnother = !valueOf(arguments_, 'r', "--reference").empty();
    const std::string size = asAnother ? "" : valueOf(arguments_, 's', "--size");
    for (const Word* operand : operands().words) {
        const bool grows = !operand->glob && leavesSize(size, absolutePath(operand->text, cwd_));
        effects_.targetWord(*operand, cwd_, Links::itself, grows ? Extent::kept : Extent::item);
    }
}

void Examination::copyBlocks() {
    const auto tells = [&](std::string_view operand, std::string_view flag) {
        return std::any_of(arguments_.begin(), arguments_.end(), [&](const Word& word) {
            return word.text.starts_with(operand) && word.text.find(flag) != std::string::npos;
        });
    };
    const bool adds = tells("conv=", "notrunc") && tells("oflag=", "append");
    for (Word word : arguments_) {
        if (!word.text.starts_with("of=")) continue;
        word.text.erase(0, 3);
        const Extent extent = adds ? Extent::kept : Extent::item;
        effects_.targetWord(word, cwd_, Links::itself, extent);
        // What looks like an assignment has its tilde expanded by some shells.
        if (!word.text.starts_with("~/")) continue;
        word.text = effects_.homePath(word.text.substr(2));
        effects_.targetWord(word, cwd_, Links::itself, extent);
    }
}

// The script word becomes a target too: it names no file and does no harm.
void Examination::editInPlace() {
    if (editsInPlace(arguments_)) return targetOperands();
    if (name_ == "perl" && !printsOnly(arguments_)) effects_.suspect(cwd_);
    if (name_ == "perl") return;
    const ScriptEffects script = sedEffects(arguments_);
    if (script.unknown) effects_.suspect(cwd_);
    for (const std::string& name : script.files) {
        Word file;
        file.text = name;
        effects_.write(file, cwd_);
    }
}

bool onlyReads(const Rule& rule, Words arguments) {
    if (rule.apply == &E::editInPlace)
        return !editsInPlace(arguments) && (rule.name == "perl" ? printsOnly(arguments) : sedEffects(arguments).none());
    if (rule.apply == &E::changeModes) return !isRecursive(arguments);
    if (rule.apply == &E::make) return true;
    if (rule.apply == &E::find) return findAct(arguments) == Act::nothing;
    if (rule.apply == &E::fd) return fdAct(arguments) == Act::nothing;
    if (rule.apply == &E::runScript)
        return onlyTellsOfItself(rule.name, arguments) || hasReadingSubcommand(rule.name, arguments) ||
               onlyChecks(rule.name, arguments);
    return rule.apply == &E::tidewrack || (rule.apply == &E::git && gitOnlyReads(arguments));
}

// The folder in which items lie that stand for the {} of a word, where it names one: ../x/{}.
std::optional<std::string> Examination::folderOfItems(const Word& word) const {
    const std::size_t slash = word.text.rfind('/', word.text.find("{}"));
    if (word.unknown || !isFound(word) || slash == std::string::npos) return std::nullopt;
    return absolutePath(word.text.substr(0, slash + 1), cwd_);
}

// What xargs removes lies in the folder where it runs, or in the one that its words begin with: ~/x/{}.
void Examination::lookAtRemoved(const Rule& rule, Words command) const {
    const Words arguments = command.subspan(1);
    const Extent extent = takesFolders(command) ? Extent::removed : Extent::item;
    effects_.lookAtOwn(cwd_, Extent::item, Links::followed);
    for (const Word* operand : operandsOf(arguments, rule.letters, rule.options).words) {
        const auto folder = folderOfItems(*operand);
        if (!folder) continue;
        effects_.lookAtOwn(*folder, extent, Links::followed);
        if (operand->text.ends_with("/{}") && !effects_.isProtected(*folder, Links::followed))
            effects_.thin(*folder, cwd_, Links::followed);
    }
}

// Items lie where the words with them say: ../x/{}.
void Examination::loseItems(Words command) const {
    bool lies = false;
    for (const Word& word : command.subspan(1)) {
        auto folder = folderOfItems(word);
        if (!folder) continue;
        effects_.noteUnknownIn(std::move(*folder));
        lies = true;
    }
    effects_.opaqueWords(cwd_);
    if (lies) effects_.loseUnknownWords(cwd_);
}

// What the command works on is not known.
void Examination::xargs() {
    std::vector<Word> command = commandOfXargs(arguments_);
    // What it reads may be the command itself: xargs env.
    if (command.empty() && !arguments_.empty() && !isOption(arguments_.back())) effects_.suspect(cwd_);
    if (command.empty()) return;
    const Rule* rule = ruleIndex.find(commandName(command.front()));
    if (rule && rule->apply == &E::tidewrack) {
        if (command.size() == 1) command.emplace_back().text = "untrack"; // the worst of what it may read
        effects_.ownCommand(Words(command).subspan(1));
    }
    if (rule && rule->apply == &E::git) examineGitStore(Words(command).subspan(1), cwd_, effects_);
    if (rule && rule->apply == &E::remove) lookAtRemoved(*rule, command);
    if (rule && nestedText(command) && actOn(command) == Act::nothing) return;
    if (rule && !onlyReads(*rule, Words(command).subspan(1)))
        loseItems(command);
    else if (rule && rule->apply == &E::changeModes)
        effects_.suspect(cwd_);
    if (rule) return;
    command.resize(command.size() + 2); // operands, which are not known
    if (!isKnown(command.front(), Words(command).subspan(1))) effects_.suspect(cwd_);
}

// Every word counts, because a mode such as "-w" looks like an option; what names no file does no harm.
void Examination::changeModes() {
    const auto mode = std::find_if_not(arguments_.begin(), arguments_.end(), isOption);
    const bool stays = name_ == "chmod"sv && mode != arguments_.end() && keepsReadable(mode->text);
    const Extent extent = stays ? Extent::rights : Extent::item;
    const bool recursive = isRecursive(arguments_);
    for (const Word& word : arguments_) {
        if (recursive)
            effects_.targetWord(word, cwd_, Links::followed, Extent::kept);
        else if (!isOption(word))
            effects_.write(word, cwd_, extent);
    }
    if (!recursive) make();
}

void Examination::make() {
    for (const Word* operand : operands().words) effects_.make(*operand, cwd_);
}

} // namespace

bool isDeclaration(const Word& word) {
    return !word.quoted && isIn(declarations, word.text);
}

bool isBuiltin(std::string_view name) {
    return builtinFilter.mayHold(name) && isIn(builtins, name);
}

bool mayMatter(const Word& first) {
    if (first.expands || first.text.find('=') != std::string::npos) return true;
    const std::string_view name = commandName(first);
    if (isWrapper(name)) return true;
    return commandFilter.mayHold(name) &&
           (isIn(declarations, name) || isBuiltin(name) || isIn(agentsWithPlugins, name) || ruleIndex.find(name));
}

std::size_t wordsBeforeCommand(const std::vector<Word>& words) {
    std::size_t count = 0;
    while (count < words.size() && isReserved(words[count])) count += words[count].text == "function" ? 2U : 1U;
    return std::min(count, words.size());
}

namespace {

// Found by its name, in a folder of the system's or in another one for programs.
bool isInstalled(std::string_view program) {
    if (program.find('/') == program.npos) return true;
    return program.starts_with('/') && (belongsToSystem(program) || lastComponent(parentOf(program)) == "bin"sv);
}

// Whether its words say that it only looks, whatever else the program does.
bool onlyLooksOf(const Word& first, std::string_view name, Words arguments) {
    return onlyTellsOfItself(name, arguments, isInstalled(first.text)) || hasReadingSubcommand(name, arguments) ||
           onlyChecks(name, arguments) || first.text == "}"sv || first.text == "{"sv;
}

} // namespace

bool isKnown(const Word& first, Words arguments) {
    std::string_view name = commandName(first);
    if (name.ends_with('\r')) name.remove_suffix(1); // of a line end
    return changesNothing(name, arguments) || onlyLooksOf(first, name, arguments);
}

namespace {

// By the rules alone.
Act actOf(const Rule& rule, Words arguments, std::size_t nesting) {
    if (rule.apply == &E::changeModes) return Act::guessed;
    if (rule.apply == &E::find) return findAct(arguments, nesting);
    if (rule.apply == &E::fd) return fdAct(arguments, nesting);
    if (onlyReads(rule, arguments)) return Act::nothing;
    if (rule.apply == &E::remove || rule.apply == &E::move) return Act::removed;
    const bool writes = rule.apply == &E::editInPlace || rule.apply == &E::truncate || rule.apply == &E::tee ||
                        rule.apply == &E::copyBlocks;
    return writes ? Act::destroyed : Act::guessed;
}

Act actOfProgram(const Program& program, std::size_t nesting);

// A text in which each operand has its turn: only what is named by it alone goes as a whole.
Act actOfCommand(const Command& command, std::size_t nesting) {
    Act act = command.opaque ? Act::destroyed : Act::nothing;
    for (const Substitution& substitution : command.nested)
        act = std::max(act, actOfProgram(substitution.program, nesting));
    for (const Word& target : command.redirects)
        if (target.text != "/dev/null"sv)
            act = std::max(act, target.expands || isFound(target) ? Act::destroyed : Act::guessed);
    const auto first = command.words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(command.words));
    if (first == command.words.end() || command.isPattern || isBuiltin(first->text)) return act;
    const auto isWhole = [](const Word& word) {
        return word.text == "{}"sv ||
               (word.text.starts_with('$') && word.text.find_first_of("/%#") == std::string::npos);
    };
    const Act own = actOn({first, command.words.end()}, nesting);
    const bool whole = own != Act::removed || std::any_of(first + 1, command.words.end(), isWhole);
    return std::max(act, whole ? own : Act::destroyed);
}

Act actOfProgram(const Program& program, std::size_t nesting) {
    Act act = Act::nothing;
    for (const Command& command : program.commands) act = std::max(act, actOfCommand(command, nesting));
    return act;
}

Act actOfText(const NestedText& nested, std::size_t nesting) {
    if (nested.unknown || nesting >= Budget::nesting || nested.text.size() > Budget::nestedBytes) return Act::destroyed;
    const Parsed parsed = parse(nested.text);
    return std::max(parsed.opaque ? Act::destroyed : Act::nothing, actOfProgram(parsed.program, nesting + 1));
}

} // namespace

Act actOn(std::vector<Word> words, std::size_t nesting) {
    if (nesting >= Budget::nesting) return Act::destroyed;
    if (const Unwrapped around = unwrap(words); around.text)
        return actOfText({around.text->text, around.text->unknown, true}, nesting);
    if (words.empty()) return Act::nothing;
    if (const auto nested = nestedText(words)) return actOfText(*nested, nesting);
    const std::string_view name = commandName(words.front());
    const Words arguments = Words(words).subspan(1);
    if (words.front().expands) return Act::guessed;
    if (const Rule* rule = ruleIndex.find(name)) return actOf(*rule, arguments, nesting + 1);
    if (changesNothing(name, arguments) || isKnown(words.front(), arguments)) return Act::nothing;
    return isWriter(name) ? Act::mayWrite : Act::guessed;
}

Act actOnText(std::string_view text) {
    return actOfText({std::string(text)}, 0);
}

bool hasOperandsOfItsOwn(std::string_view name) {
    const Rule* rule = ruleIndex.find(name);
    return rule != nullptr && (rule->apply == &E::copy || rule->apply == &E::move || rule->apply == &E::remove);
}

bool isOurs(std::string_view name) {
    const Rule* rule = ruleIndex.find(name);
    return rule != nullptr && rule->apply == &E::tidewrack;
}

bool examine(const std::vector<Word>& words, const std::string& cwd, Effects& effects) {
    if (removesPlugin(words)) {
        std::vector<Word> own(2);
        own[0].text = "hooks";
        own[1].text = "uninstall";
        effects.ownCommand(own);
    }
    if (Examination(words, cwd, effects).run()) return true;
    const std::string_view name = commandName(words.front());
    const Words arguments = Words(words).subspan(1);
    if (!isWriter(name)) return isKnown(words.front(), arguments);
    return onlyLooksOf(words.front(), name, arguments) || examineWriter(words, cwd, effects);
}

} // namespace tidewrack::shell
