#include "Agents/GuardRules.hpp"

#include "Shell/Wrappers.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tidewrack {

namespace {

using nlohmann::json;
using shell::Verdict;
using Words = std::span<const shell::Word>;

constexpr const char* fileName = "guard.json";
constexpr off_t largest = 1 << 20; // anybody may have written a project's

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t at = text.find_first_not_of(' '); at != text.npos; at = text.find_first_not_of(' ', at)) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

std::string joinedWords(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// Options that programs spell in two ways.
struct Spelling {
    std::string_view program;
    std::string_view name;
    std::string_view letters;
};
constexpr Spelling spellings[] = {
    {"git", "--force", "f"}, {"git", "--delete", "dD"}, {"rm", "--force", "f"}, {"rm", "--recursive", "rR"}};

// Whether the word is the option of a rule, in either spelling, alone or among other letters: -f, -uf, --force.
bool isOption(std::string_view program, const std::string& word, std::string_view wanted) {
    if (word == wanted) return true;
    const bool isLetter = wanted.size() == 2 && wanted[1] != '-';
    std::string_view letters;
    for (const Spelling& each : spellings) {
        if (each.program != program) continue;
        if (isLetter && each.letters.find(wanted[1]) != each.letters.npos) letters = each.letters;
        if (isLetter && each.letters.find(wanted[1]) != each.letters.npos && word == each.name) return true;
        if (wanted == each.name) letters = each.letters;
    }
    const bool isCluster = word.size() > 1 && word.size() < 6 && word[0] == '-' && word[1] != '-';
    return isCluster && word.find_first_of(letters, 1) != word.npos;
}

// Options, and words behind them that may be their values, may stand between the words of a rule: git -C x push. An
// option of the rule may stand anywhere.
bool isMeant(Words words, const std::vector<std::string>& rule) {
    if (words.empty() || shell::commandName(words.front()) != rule.front()) return false;
    std::size_t at = 1;
    for (std::size_t index = 1; index < rule.size(); ++index) {
        const std::string& wanted = rule[index];
        const auto isIt = [&](const shell::Word& word) { return word.text == wanted; };
        if (wanted.starts_with('-')) {
            const auto says = [&](const shell::Word& word) { return isOption(rule.front(), word.text, wanted); };
            if (std::none_of(words.begin() + 1, words.end(), says)) return false;
            continue;
        }
        for (bool mayBeValue = false; at < words.size() && !isIt(words[at]); ++at) {
            const bool begins = words[at].text.starts_with('-');
            if (!begins && !mayBeValue) return false;
            mayBeValue = begins && words[at].text.find('=') == std::string::npos;
        }
        if (at == words.size()) return false;
        ++at;
    }
    return true;
}

bool hasOurKeys(const json& rules) {
    return rules.contains("protect") || rules.contains("ask");
}

} // namespace

GuardRules::GuardRules(const Store& store, std::string home) : home_(std::move(home)) {
    const std::string path = joined(store.home, fileName);
    const auto rules = readFile(path, Owner::user);
    const std::size_t before = faults_.size();
    if (rules) takeStrengthening(*rules, path, home_);
    if (faults_.size() > before) doubtful_ = path;
    if (!rules) return;
    readers_ = textsIn(*rules, "readers", path);
    for (const std::string& spelled : textsIn(*rules, "noCopies", path)) uncopied_.push_back(placed(spelled, home_));
}

void GuardRules::add(const Project& project) {
    if (!read_.insert(project.id).second) return;
    const std::string path = joined(project.root, fileName);
    const auto rules = readFile(path, Owner::project);
    if (!rules) return;
    takeStrengthening(*rules, path, project.root);
    protected_.push_back({Store::canonical(path), Verdict::Kind::ask}); // else an agent could do without it
}

std::optional<json> GuardRules::readFile(const std::string& path, Owner owner) {
    struct stat status {};
    std::string text;
    int error = ::stat(path.c_str(), &status) == 0 ? 0 : errno;
    if (error == ENOENT || error == ENOTDIR) return std::nullopt;
    const bool isFile = error == 0 && S_ISREG(status.st_mode) && status.st_size <= largest;
    if (isFile) error = tidewrack::readFile(path, text);
    auto rules = isFile && error == 0 ? parseJson(text) : std::nullopt;
    if (rules && rules->is_object() && rules->value("version", json()) == 1) return rules;
    // A project may have a file of that name for another program.
    if (owner == Owner::project && rules && !(rules->is_object() && hasOurKeys(*rules))) return std::nullopt;
    faults_.push_back(path + " is passed over: it is no JSON object with \"version\": 1");
    if (owner == Owner::user) doubtful_ = path;
    return std::nullopt;
}

std::vector<std::string> GuardRules::textsIn(const json& rules, const char* key, const std::string& path) {
    std::vector<std::string> list;
    const json value = rules.value(key, json::array());
    for (const json& each : value.is_array() ? value : json::array({json()}))
        if (each.is_string() && each.get_ref<const std::string&>().find_first_not_of(' ') != std::string::npos)
            list.push_back(each.get<std::string>());
        else
            faults_.push_back("\"" + std::string(key) + "\" in " + path + " is to be a list of texts");
    return list;
}

void GuardRules::takeStrengthening(const json& rules, const std::string& path, const std::string& folder) {
    const json list = rules.value("protect", json::array());
    for (const json& each : list.is_array() ? list : json::array({json()})) {
        const json spelled = each.is_object() ? each.value("path", json()) : json();
        const json answer = each.is_object() ? each.value("answer", json("ask")) : json();
        if (spelled.is_string() && !spelled.get_ref<const std::string&>().empty() &&
            (answer == "ask" || answer == "deny"))
            protected_.push_back({placed(spelled.get<std::string>(), folder),
                                  answer == "deny" ? Verdict::Kind::deny : Verdict::Kind::ask});
        else
            faults_.push_back("\"protect\" in " + path +
                              " is to be a list of objects with \"path\" and \"answer\", \"ask\" or \"deny\"");
    }
    for (const std::string& command : textsIn(rules, "ask", path)) asked_.push_back(wordsOf(command));
}

std::string GuardRules::placed(const std::string& spelled, const std::string& folder) const {
    const bool isAtHome = spelled == "~" || spelled.starts_with("~/");
    return Store::canonical(isAtHome ? absolutePath(spelled.size() > 2 ? spelled.substr(2) : "", home_)
                                     : absolutePath(spelled, folder));
}

bool GuardRules::isReader(std::string_view program) const {
    return std::find(readers_.begin(), readers_.end(), program) != readers_.end();
}

void GuardRules::note(Words words) {
    for (const auto& rule : asked_)
        if (!noted_ && isMeant(words, rule)) noted_ = joinedWords(rule);
}

void GuardRules::strengthen(shell::Decision& decision, const std::vector<Project>& projects) {
    for (const std::string& target : decision.targets)
        if (const auto holder = Store::projectContaining(target, projects)) add(*holder);
    if (!protected_.empty()) protectAll(decision);
    if (noted_) decision.verdict.raiseTo({Verdict::Kind::ask, "guard.json asks about `" + *noted_ + "`. Allow?"});
    if (!doubtful_.empty() && !decision.targets.empty())
        decision.verdict.raiseTo({Verdict::Kind::ask, "This deletes or overwrites " + decision.targets.front() +
                                                          ", and " + doubtful_ +
                                                          ", which may protect it, has a fault: see `tidewrack "
                                                          "status`. Allow?"});
}

// What lies in a folder that is removed or moved goes with it.
void GuardRules::protectAll(shell::Decision& decision) const {
    for (const std::string& target : decision.targets)
        protect(target, std::binary_search(decision.removed.begin(), decision.removed.end(), target), decision.verdict);
    for (const std::string& path : decision.moved) protect(path, true, decision.verdict);
    for (const std::string& path : decision.written) protect(path, false, decision.verdict);
    for (const shell::GitTakes& takes : decision.gitTakes)
        if (takes.certain && !takes.wholeTree) protect(takes.folder, false, decision.verdict);
}

void GuardRules::protect(const std::string& target, bool goesWhole, Verdict& verdict) const {
    for (const std::string& place : {target, Store::canonical(target)})
        for (const Protected& each : protected_) {
            if (!isAtOrBelow(place, each.path) && !(goesWhole && isAtOrBelow(each.path, place))) continue;
            const std::string reason =
                "This deletes or overwrites " + target + ", and guard.json protects " + each.path;
            verdict.raiseTo({each.answer, reason + (each.answer == Verdict::Kind::deny ? "." : ". Allow?")});
        }
}

void GuardRules::leaveOutUncopied(shell::Decision& decision, const std::vector<Project>& projects) const {
    if (uncopied_.empty()) return;
    // A project at stake has its snapshot all the same.
    const auto meetsProject = [&](std::string_view path) {
        return std::any_of(projects.begin(), projects.end(), [&](const Project& project) {
            return isAtOrBelow(path, project.root) || isAtOrBelow(project.root, path);
        });
    };
    const auto isUncopied = [&](const std::string& path) {
        const std::string place = Store::canonical(path);
        return !meetsProject(path) && !meetsProject(place) &&
               std::any_of(uncopied_.begin(), uncopied_.end(),
                           [&](const std::string& folder) { return isAtOrBelow(place, folder); });
    };
    for (auto* paths : {&decision.targets, &decision.mentioned}) std::erase_if(*paths, isUncopied);
}

} // namespace tidewrack
