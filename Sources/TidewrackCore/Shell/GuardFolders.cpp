#include "Shell/GuardRun.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tidewrack::shell {

using namespace std::string_view_literals;

namespace {

// +1, -0
bool isPlaceOnStack(const Word& word) {
    const std::string& text = word.text;
    return text.size() > 1 && (text[0] == '+' || text[0] == '-') && text[1] >= '0' && text[1] <= '9';
}

} // namespace

// Whether this cd runs, or the one before it failed, only running shows.
void Guard::noteDoubt(const std::vector<Word>& words, bool instead, std::size_t depth) {
    if (doubts_.size() >= Budget::doubtfulFolders) return opaque();
    doubts_.push_back({depth, position_.folder()});
    if (!instead) return;
    doubts_.push_back({depth, position_.previous()});
    if (words.size() > 1 && !words.back().unknown)
        doubts_.push_back({depth, absolutePath(words.back().text, position_.previous())});
}

void Guard::moveDoubts(std::string_view relative) {
    for (Doubt& doubt : doubts_)
        if (doubt.folder.size() < Budget::folderLength) doubt.folder = absolutePath(relative, doubt.folder);
}

// A command that changes something may run in one of those folders.
void Guard::takeDoubts(const Command& command, const std::vector<Word>& words) {
    if (settledDoubts_ == 0 || (command.redirects.empty() && words.empty())) return;
    const Act act = words.empty() ? Act::nothing : actOn(words);
    const bool changes = act > Act::guessed || (!words.empty() && hasOperandsOfItsOwn(commandName(words.front())));
    const auto isFile = [](const Word& word) { return !word.text.starts_with('/'); };
    if (!changes && std::none_of(command.redirects.begin(), command.redirects.end(), isFile)) return;
    for (std::size_t index = 0; index < settledDoubts_; ++index)
        if (isDoubtful(doubts_[index])) effects_.opaque(doubts_[index].folder);
}

// A cd fails where there is no such folder, and then matters where there is one to stay in.
bool Guard::isDoubtful(const Doubt& doubt) {
    const std::string& needed = doubt.failsWithout;
    return needed.empty() || !effects_.takesLook() ||
           (!isFolder(needed) && !effects_.isMade(needed) && isFolder(doubt.folder));
}

void Guard::noteFailure(const std::string& folder, std::size_t depth) {
    Doubt doubt{depth, position_.folder(), folder};
    if (doubts_.size() < Budget::doubtfulFolders)
        doubts_.push_back(std::move(doubt));
    else if (position_.mayChange() && isDoubtful(doubt))
        opaque();
}

void Guard::changeFolder(const std::vector<Word>& words, std::size_t depth, bool hadArgument) {
    if (!position_.mayChange()) return opaque();
    const auto isOption = [](const Word& word) { return word.text.size() > 1 && word.text.starts_with('-'); };
    if (words.size() > 2 && words[0].text == "pushd" && words[1].text == "-n") { // only for popd
        noteDoubt({}, false, depth);                                             // of which some shells know nothing
        return position_.push(absolutePath(words[2].text, position_.folder()));
    }
    const auto argument = std::find_if_not(words.begin() + 1, words.end(), isOption);
    const std::string_view name = words.front().text;
    if (words.size() > 1 && (name == "cd"sv ? words[1].unknown : isPlaceOnStack(words[1]))) takeStack();
    if (name == "popd"sv) {
        if (position_.pop(depth)) values_.noteFolder(true);
        return;
    }
    if (argument != words.end()) {
        if (name == "pushd"sv) position_.push();
        return goTo(words, argument, depth);
    }
    // Without an argument cd goes home; an argument that became empty leads to a folder that is not known.
    if (hadArgument) return opaque();
    if (name == "cd"sv) return enter(absolutePath(context_.home, "/"), depth);
    if (position_.swap(depth)) values_.noteFolder(true);
}

// Which of the folders that were pushed is meant is not followed: pushd +1, cd ~2.
void Guard::takeStack() {
    opaque();
    for (const std::string& folder : position_.pushed()) effects_.opaque(folder);
}

// Where a shell finds a relative folder by CDPATH.
std::optional<std::string> Guard::inSearchPath(const Word& argument) {
    for (const Word& word : given_)
        if (word.text.starts_with("CDPATH=")) values_.give(word); // also for later: more than one reading saves more
    const std::string path = values_.valueOf("CDPATH");
    if (path.empty() || argument.text.empty() || argument.text[0] == '/' || argument.text[0] == '.' || argument.glob)
        return std::nullopt;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        std::string folder =
            absolutePath(argument.text, absolutePath(path.substr(begin, end - begin), position_.folder()));
        if (position_.mayChange() && isFolder(folder)) return folder;
        begin = end + 1;
    }
    return std::nullopt;
}

void Guard::goTo(const std::vector<Word>& words, std::vector<Word>::const_iterator argument, std::size_t depth) {
    if (argument->text == "-") return enter(position_.previous(), depth);
    if (const auto found = inSearchPath(*argument)) {
        // Some shells look in the folder itself first.
        const std::string here = absolutePath(argument->text, position_.folder());
        if (here != *found && isFolder(here)) effects_.opaque(here);
        return enter(*found, depth);
    }
    if (argument->unknown) opaque();
    std::vector<std::string> others = foldersOfOtherRuns(words, argument);
    auto folders = effects_.resolve(*argument, position_.folder());
    if (folders.size() > 1)
        others.insert(others.end(), std::make_move_iterator(folders.begin() + 1),
                      std::make_move_iterator(folders.end()));
    if (folders.empty()) return;
    if (others.empty())
        noteFailure(folders.front(), depth);
    else if (isFolder(position_.folder()))
        noteDoubt({}, false, depth); // a later run may fail to leave
    std::erase(others, folders.front());
    for (; others.size() > Budget::foldersOfRuns; others.pop_back()) effects_.opaque(others.back());
    enter(std::move(folders.front()), depth, std::move(others));
}

// Where a loop's further runs change to: by other values of the word, or from where they are.
std::vector<std::string> Guard::foldersOfOtherRuns(const std::vector<Word>& words,
                                                   std::vector<Word>::const_iterator argument) {
    std::vector<std::string> folders;
    for (const std::string& other : position_.others())
        if (!argument->glob && !argument->unknown) folders.push_back(absolutePath(argument->text, other));
    for (auto other = argument; ++other != words.end();) {
        if (!position_.mayChange()) break;
        for (std::string& folder : effects_.resolve(*other, position_.folder())) folders.push_back(std::move(folder));
    }
    return folders;
}

void Guard::enter(std::string folder, std::size_t depth, std::vector<std::string> others) {
    if (!position_.enter(std::move(folder), depth, std::move(others))) return opaque();
    values_.noteFolder(true);
}

} // namespace tidewrack::shell
