#include "Commands/UnknownPaths.hpp"

#include "Invocation.hpp"
#include "Likeness.hpp"
#include "Reports/PathWords.hpp"
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
        return written.size() >= shortest && isMistyped(written, name) ? std::optional(2) : std::nullopt;
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

} // namespace tidewrack::commands
