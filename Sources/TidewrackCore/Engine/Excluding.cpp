#include "Engine/Excluding.hpp"

#include "Support/Paths.hpp"
#include "Walk/LeaveOutRules.hpp"
#include "Walk/Walker.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::string_view special = "\\*?[ ";

bool isExcludedByName(const Project& project, std::string_view name) {
    const auto& ifIgnored = project.excludesIfIgnored ? *project.excludesIfIgnored : defaultExcludesIfIgnored();
    const auto has = [&](const std::vector<std::string>& names) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    return has(project.excludes) || has(ifIgnored);
}

} // namespace

std::string patternOf(std::string_view path) {
    std::string pattern = "/";
    for (const char letter : path) {
        if (special.find(letter) != std::string_view::npos) pattern += '\\';
        pattern += letter;
    }
    return pattern;
}

std::vector<std::string> excluding(const Project& project, const std::string& pattern) {
    std::vector<std::string> patterns = project.patterns;
    const auto known = std::find(patterns.begin(), patterns.end(), pattern);
    const auto keeps = [](const std::string& each) { return each.starts_with('!'); };
    if (known != patterns.end() && std::none_of(known, patterns.end(), keeps)) return patterns;
    std::erase_if(patterns, [&](const std::string& each) { return each == pattern || each == "!" + pattern; });
    patterns.push_back(pattern);
    return patterns;
}

std::vector<std::string> including(const Project& project, const std::string& path) {
    Project changed = project;
    std::vector<std::string>& patterns = changed.patterns;
    std::erase(patterns, patternOf(path));
    for (std::size_t end = path.find('/'); true; end = path.find('/', end + 1)) {
        const bool isWhole = end == std::string::npos;
        const std::string at = path.substr(0, end);
        const LeaveOutRules rules = LeaveOutRules::of(changed);
        // What is at the path may be a folder, or become one.
        const auto says = [&](LeaveOutRules::Verdict verdict) {
            return rules.of(at, true) == verdict || (isWhole && rules.of(at, false) == verdict);
        };
        const bool isOut = says(LeaveOutRules::Verdict::leftOut) ||
                           (!says(LeaveOutRules::Verdict::kept) && isExcludedByName(project, lastComponent(at)));
        if (isOut) {
            patterns.push_back("!" + patternOf(at));
            if (!isWhole) patterns.push_back(patternOf(at) + "/*");
        }
        if (isWhole) return patterns;
    }
}

NewlyLeftOut newlyLeftOut(const Project& project, const Manifest& listing) {
    const LeaveOutRules rules = LeaveOutRules::of(project);
    NewlyLeftOut result;
    std::string folder; // with a slash: the latest that is left out
    for (const auto& [path, entry] : listing.items()) {
        if (entry.isIgnored()) continue;
        const bool isFolder = entry.kind == EntryKind::dir;
        const bool isInIt = !folder.empty() && path.starts_with(folder);
        if (!isInIt && rules.of(path, isFolder) != LeaveOutRules::Verdict::leftOut) continue;
        if (!isFolder) ++result.files;
        if (isInIt) continue;
        result.paths.push_back(std::string(path) + (isFolder ? "/" : ""));
        if (isFolder) folder = result.paths.back();
    }
    return result;
}

void setPatterns(const Store& store, const Project& project, const std::vector<std::string>& patterns) {
    const History history = store.history(project);
    const ProjectLock lock(history.lockPath());
    history.changeProject(lock, [&](Project& record) { record.patterns = patterns; });
}

std::set<std::string, std::less<>> keptSince(const Project& project, const Manifest& listing) {
    std::set<std::string, std::less<>> paths;
    for (const std::string& pattern : project.patterns) {
        if (!pattern.starts_with("!/")) continue;
        std::string path;
        for (std::size_t at = 2; at < pattern.size(); ++at) {
            if (pattern[at] == '\\') ++at;
            if (at < pattern.size()) path += pattern[at];
        }
        if (isExcludedByName(project, lastComponent(path)) && !listing.lists(path)) paths.insert(std::move(path));
    }
    return paths;
}

} // namespace tidewrack
