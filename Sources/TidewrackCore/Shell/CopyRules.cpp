#include "Shell/CopyRules.hpp"

#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

class Copying {
  public:
    Copying(std::string_view name, const Operands& operands, Words arguments, const std::string& cwd, Effects& effects)
        : name_(name), operands_(operands), arguments_(arguments), cwd_(cwd), effects_(effects) {}

    void move();
    void copy();

  private:
    [[nodiscard]] bool keeps(const std::string& destination, const Word& source) const;
    [[nodiscard]] bool replacesContents() const;
    void takeFilesOf(const Word& source);
    void targetDestinations(const Operands& all);
    void targetDestination(const std::string& destination, const Operands& all);
    void targetCopiesIn(const std::string& folder, std::span<const Word* const> sources);
    void targetCopyOf(const Word& source, const std::string& folder);
    void targetCopyFromElsewhere(const Word& source, const std::string& folder);
    void targetContents(const Word& source, const std::string& folder);
    void targetAsPath(const Word& source, const std::string& folder);
    void takeAll(const std::string& folder);
    [[nodiscard]] bool isUnseen(const std::string& path) const;

    std::string_view name_;
    const Operands& operands_;
    Words arguments_;
    const std::string& cwd_;
    Effects& effects_;
};

// Whether a copy leaves what stands at the destination: a newer file is not replaced by cp -u.
bool Copying::keeps(const std::string& destination, const Word& source) const {
    if (!operands_.has('u', "--update") || source.glob || effects_.isMade(absolutePath(source.text, cwd_)))
        return false;
    struct stat from {};
    struct stat to {};
    return stat(absolutePath(source.text, cwd_).c_str(), &from) == 0 && stat(destination.c_str(), &to) == 0 &&
           S_ISREG(from.st_mode) && S_ISREG(to.st_mode) && from.st_mtime < to.st_mtime;
}

void Copying::move() {
    const Operands& all = operands_;
    const std::size_t sources = all.words.size() - (all.folder || all.words.empty() ? 0 : 1);
    for (std::size_t index = 0; index < sources; ++index)
        effects_.targetWord(*all.words[index], cwd_, linksOf(*all.words[index]), Extent::moved);
    if (!all.has('n', "--no-clobber")) targetDestinations(all);
}

// HOST:PATH, as rsync reads it whatever the disk holds.
bool isOnOtherMachine(const Word& word) {
    const std::size_t colon = word.text.find(':');
    return !word.unknown && colon != 0 && colon < word.text.find('/');
}

void Copying::copy() {
    const Operands& all = operands_;
    const bool replaces = name_ != "cp" || !all.has('n', "--no-clobber");
    if (name_ == "rsync" && all.has('n', "--dry-run")) return;
    const auto takesSources = [](const Word& word) { return word.text == "--remove-source-files"sv; };
    if (name_ == "rsync" && std::any_of(arguments_.begin(), arguments_.end(), takesSources))
        for (std::size_t index = 0; index + 1 < all.words.size(); ++index) takeFilesOf(*all.words[index]);
    if (name_ == "rsync" && !all.words.empty() && isOnOtherMachine(*all.words.back())) return;
    if (replaces) targetDestinations(all);
    const bool linked = name_ == "ln" && all.words.size() == 2 && !all.words.front()->unknown;
    if (linked && !all.words.back()->unknown && effects_.takesLinks()) {
        const std::string at = absolutePath(all.words.back()->text, cwd_);
        effects_.link(at, absolutePath(all.words.front()->text, parentOf(at)));
    }
    const auto deletes = [](const Word& word) { return word.text.starts_with("--del"); };
    if (name_ != "rsync" || all.words.size() < 2 || std::none_of(arguments_.begin(), arguments_.end(), deletes)) return;
    if (effects_.skips(*all.words.back())) return effects_.opaque(cwd_);
    const auto folders = effects_.resolve(*all.words.back(), cwd_);
    if (folders.empty()) return;
    effects_.lookAtOwn(folders.front(), Extent::moved, Links::followed);
    if (replacesContents()) effects_.askIfProjectInside(folders.front(), Links::followed);
    effects_.thin(folders.front(), cwd_, Links::followed);
}

// Whether rsync makes the destination hold what the source does, git's store included, and not one item more.
bool Copying::replacesContents() const {
    const auto isContents = [](const Word* word) {
        return word->unknown || word->text == "."sv || word->text.ends_with('/') || word->text.ends_with("/.");
    };
    const auto sparesGit = [](const Word& word) {
        return word.text.find(".git") != std::string::npos || word.text == "-C"sv || word.text == "--cvs-exclude"sv;
    };
    return std::any_of(operands_.words.begin(), operands_.words.end() - 1, isContents) &&
           std::none_of(arguments_.begin(), arguments_.end(), sparesGit);
}

// rsync moves the files and leaves the folders where they are: no project's root goes.
void Copying::takeFilesOf(const Word& source) {
    if (!source.unknown && !effects_.skips(source))
        for (const std::string& path : effects_.resolve(source, cwd_))
            effects_.lookAtOwn(path, Extent::moved, Links::followed);
    effects_.targetWord(source, cwd_, linksOf(source), Extent::kept);
}

void Copying::targetDestinations(const Operands& all) {
    const std::span<const Word* const> words = all.words;
    if (all.folder) {
        if (all.folder->unknown) return effects_.opaque(cwd_);
        for (const std::string& folder : effects_.resolve(*all.folder, cwd_)) targetCopiesIn(folder, words);
        return;
    }
    if (words.size() < 2) return;
    if (effects_.skips(*words.back())) return effects_.opaque(cwd_);
    // All that a pattern matches: it may be a loop's, of which each value has its turn.
    for (const std::string& destination : effects_.resolve(*words.back(), cwd_)) targetDestination(destination, all);
}

void Copying::targetDestination(const std::string& destination, const Operands& all) {
    const std::span<const Word* const> words = all.words;
    if (destination == "/" || !isFolder(destination)) {
        if (words.size() > 2 || !keeps(destination, *words.front())) effects_.target(destination, cwd_);
        return;
    }
    if (name_ == "rsync" || !all.has('T', "--no-target-directory"))
        return targetCopiesIn(destination, words.first(words.size() - 1));
    if (name_ != "cp") return effects_.target(destination, cwd_);
    Word source = *words.front(); // whose contents go into the folder
    source.text += '/';
    targetContents(source, destination);
}

void Copying::targetCopiesIn(const std::string& folder, std::span<const Word* const> sources) {
    for (const Word* source : sources) {
        if (effects_.full()) return effects_.opaque(cwd_);
        targetCopyOf(*source, folder);
    }
}

void Copying::targetCopyOf(const Word& source, const std::string& folder) {
    if (source.unknown) {
        effects_.loseUnknownWords(folder);
        return effects_.opaque(folder);
    }
    if (name_ == "rsync" && isOnOtherMachine(source)) return targetCopyFromElsewhere(source, folder);
    const bool keepsPath = name_ == "rsync" ? operands_.has('R', "--relative") : operands_.has(0, "--parents");
    if (keepsPath) return targetAsPath(source, folder);
    const std::string from = absolutePath(source.text, cwd_);
    const std::string parent(parentOf(from));
    if (source.glob && parent.find_first_of("*?[") == parent.npos && effects_.takesLook() && isUnseen(parent))
        takeAll(folder);
    if (source.glob)
        for (const std::string& name : effects_.namesMadeIn(parent))
            if (fnmatch(std::string(lastComponent(from)).c_str(), name.c_str(), FNM_NOESCAPE) == 0)
                effects_.target(absolutePath(name, folder), cwd_);
    for (const std::string& path : effects_.resolve(source, cwd_)) {
        std::string copy = absolutePath(lastComponent(path), folder);
        if (!keeps(copy, source)) effects_.target(std::move(copy), cwd_);
    }
    if (name_ == "cp" || name_ == "rsync" || name_ == "ditto") targetContents(source, folder);
}

// Of another machine the last part of the name tells what is written, unless that is a pattern or the contents are
// meant.
void Copying::targetCopyFromElsewhere(const Word& source, const std::string& folder) {
    const std::string_view path = std::string_view(source.text).substr(source.text.find(':') + 1);
    const std::string_view name = path.substr(path.find_last_of("/:") + 1);
    const bool isPart = name.empty() || name == "."sv || source.glob || name.find_first_of("*?[") != name.npos;
    if (isPart || operands_.has('R', "--relative")) return takeAll(folder);
    effects_.target(absolutePath(name, folder), cwd_);
}

// cp --parents, rsync -R: all of the source's path is made in the folder, or what stands behind `/./`.
void Copying::targetAsPath(const Word& source, const std::string& folder) {
    const std::string_view text = source.text;
    const std::size_t dot = text.find("/./");
    std::string above = text.starts_with('/') ? "/" : cwd_;
    if (dot != text.npos) above = absolutePath(text.substr(0, dot + 1), cwd_);
    for (const std::string& path : effects_.resolve(source, cwd_)) {
        const bool isBelow = isAtOrBelow(path, above) && path.size() > above.size();
        const std::string_view behind = std::string_view(path).substr(isBelow ? above.size() : 0);
        effects_.target(absolutePath(behind.substr(behind.starts_with('/') ? 1 : 0), folder), cwd_);
    }
}

// Whether something is to be copied that is not there yet, but for what the line is known to make.
bool Copying::isUnseen(const std::string& path) const {
    return !exists(path) && (effects_.isGuess() || effects_.namesMadeIn(path).empty());
}

// Whatever is in the folder may be written over.
void Copying::takeAll(const std::string& folder) {
    effects_.opaque(folder);
    if (exists(joined(folder, ".git"))) effects_.useGitStore({folder, {}, false, false});
}

// The contents of a source written as `src/.`, `src/` or (for ditto) `src` may be copied into the folder, where they
// overwrite what has the same name, instead of the source as one item.
void Copying::targetContents(const Word& source, const std::string& folder) {
    const std::string& text = source.text;
    if (name_ != "ditto" && text != "." && !text.ends_with('/') && !text.ends_with("/.")) return;
    for (const std::string& path : effects_.resolve(source, cwd_)) {
        if (effects_.takesLook() && isUnseen(path)) takeAll(folder);
        for (const std::string& name : effects_.namesMadeIn(path)) effects_.target(absolutePath(name, folder), cwd_);
        const auto names = effects_.namesIn(path);
        if (!names) return effects_.target(folder, cwd_);
        for (const std::string& name : *names) effects_.target(absolutePath(name, folder), cwd_);
    }
}

} // namespace

void examineMove(const Operands& operands, Words arguments, const std::string& cwd, Effects& effects) {
    Copying("mv", operands, arguments, cwd, effects).move();
}

void examineCopy(std::string_view name, const Operands& operands, Words arguments, const std::string& cwd,
                 Effects& effects) {
    Copying(name, operands, arguments, cwd, effects).copy();
}

} // namespace tidewrack::shell
