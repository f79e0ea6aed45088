#include "Commands/UnknownPaths.hpp"

#include "Engine/PathSearch.hpp"
#include "Invocation.hpp"
#include "Likeness.hpp"
#include "Platform/Volumes.hpp"
#include "Reports/PathWords.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <optional>

namespace tidewrack::commands {

namespace {

// The path that may have been meant: the same one from the project's root, else the nearest name, uppermost first.
std::optional<std::string> likely(const Manifest& manifest, std::string_view word) {
    while (word.ends_with('/')) word.remove_suffix(1);
    if (word.empty()) return std::nullopt;
    if (!word.starts_with('/') && manifest.find(word) != nullptr) return std::string(word);
    const std::string_view written = lastComponent(word);
    const std::string folded = caseFolded(written);
    // How far another name is from the one that was written.
    const auto distance = [&](std::string_view name) -> std::optional<int> {
        constexpr std::size_t shortest = 4; // of shorter names most look alike
        if (name == written) return 0;
        if (name.size() == written.size() && caseFolded(name) == folded) return 1;
        const auto letters = written.size() >= shortest ? mistypedLetters(written, name) : std::nullopt;
        return letters ? std::optional(*letters + 1) : std::nullopt;
    };
    const auto depth = [](std::string_view path) { return std::count(path.begin(), path.end(), '/'); };
    std::optional<std::string> best;
    int nearest = 0;
    for (const Manifest::Item& item : manifest.items()) {
        const auto far = distance(lastComponent(item.path));
        if (!far || (best && (*far > nearest || (*far == nearest && depth(item.path) >= depth(*best))))) continue;
        best = std::string(item.path);
        nearest = *far;
    }
    return best;
}

} // namespace

std::string adviceOn(const Invocation& call, const Project& project, const Manifest& manifest,
                     const std::string& word) {
    if (word.find_first_of("*?[") != std::string::npos) return "; patterns mean nothing here";
    const auto meant = likely(manifest, word);
    if (!meant) return "";
    const std::string path = joined(project.root, *meant);
    const std::string folder = Store::canonical(call.around.currentFolder);
    const bool within = !call.around.currentFolder.empty() && isAtOrBelow(folder, project.root);
    return "; did you mean " + shellWord(within ? seenFrom(path, folder) : path) + "?";
}

namespace {

// As a pattern that fits this path alone.
std::string literally(const std::string& path) {
    if (path.find_first_of("*?[") == path.npos) return path; // no pattern
    std::string pattern;
    for (const char letter : path) {
        if (std::string_view("*?[\\").find(letter) != std::string_view::npos) pattern += '\\';
        pattern += letter;
    }
    return pattern;
}

bool isInHistory(Invocation& call, const Project& project, const std::vector<SnapshotMeta>& records,
                 const std::string& path) {
    const FoundPaths found = findPaths(call.engine(), project, records, NamePattern(literally(path)));
    // A listing that can't be read may have it.
    return !found.warnings.empty() || std::any_of(found.paths.begin(), found.paths.end(), [&](const FoundPath& each) {
        return isAtOrBelow(each.path, path) ||
               (volumeIgnoresCase(project.root) && isAtOrBelow(caseFolded(each.path), caseFolded(path)));
    });
}

} // namespace

void refuseNeverThere(Invocation& call, const Project& project, const std::vector<SnapshotMeta>& records,
                      const std::vector<std::string>& paths, std::size_t first) {
    for (std::size_t index = 0; index < paths.size(); ++index) {
        const std::string& path = paths[index];
        if (path.empty() || exists(joined(project.root, path)) || isInHistory(call, project, records, path)) continue;
        const std::string& word = call.args.positional[first + index];
        const Manifest newest = records.empty() ? Manifest() : call.store().history(project).manifest(records.back());
        throw CliError(word + " is neither in any snapshot nor in the folder" + adviceOn(call, project, newest, word));
    }
}

} // namespace tidewrack::commands
