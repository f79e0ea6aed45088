#include "Shell/FoundFiles.hpp"

#include "Shell/WordPaths.hpp"
#include "Support/Paths.hpp"

#include <fnmatch.h>

#include <algorithm>

namespace tidewrack::shell {

bool FoundFiles::pass(std::string_view path, std::size_t below) const {
    if (onlyEmpty || below > depth) return false;
    const std::string whole(path);
    const std::string name(lastComponent(path));
    const auto matches = [](const std::vector<std::string>& patterns, const std::string& text, int flags) {
        return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
            return isHard(pattern) || fnmatch(pattern.c_str(), text.c_str(), flags) == 0;
        });
    };
    if (!endings.empty() && !matches(endings, name, FNM_CASEFOLD)) return false;
    if (names.empty() && paths.empty() && anyCaseNames.empty() && anyCasePaths.empty()) return true;
    return matches(names, name, 0) || matches(paths, whole, 0) || matches(anyCaseNames, name, FNM_CASEFOLD) ||
           matches(anyCasePaths, whole, FNM_CASEFOLD);
}

bool FoundFiles::takesAll() const {
    return !onlyEmpty && !sparesGit && names.empty() && paths.empty() && anyCaseNames.empty() && anyCasePaths.empty() &&
           endings.empty();
}

// find matches whole paths as they are written on the line.
bool FoundFiles::mayTake(std::string_view path) const {
    if (!paths.empty() || !anyCasePaths.empty()) return true;
    const std::string_view below = path.substr(std::min(folder.size(), path.size()));
    return pass(path, static_cast<std::size_t>(std::count(below.begin(), below.end(), '/')));
}

} // namespace tidewrack::shell
