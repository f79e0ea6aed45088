#include "Agents/Replaceable.hpp"

#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <algorithm>
#include <array>

namespace tidewrack {

namespace {

using namespace std::string_view_literals;

// Also the system's own pseudo files, which a command writes into to change a setting.
constexpr std::array temporaryFolders = {"/tmp"sv,         "/var/tmp"sv,
                                         "/private/tmp"sv, "/private/var/tmp"sv,
                                         "/var/folders"sv, "/private/var/folders"sv,
                                         "/var/cache"sv,   "/var/lib/apt/lists"sv,
                                         "/run/lock"sv,    "/dev"sv,
                                         "/proc"sv,        "/sys"sv};

constexpr std::array cacheNames = {".cache"sv, "Caches"sv, "_cacache"sv};

bool isReplaceableName(std::string_view name) {
    const auto& excluded = defaultExcludes();
    return name != ".git" && (std::find(excluded.begin(), excluded.end(), name) != excluded.end() ||
                              std::find(cacheNames.begin(), cacheNames.end(), name) != cacheNames.end());
}

bool isTemporary(const std::string& path, const Environment& environment) {
    const auto chosen = environment.find("TMPDIR");
    if (chosen != environment.end() && chosen->second.size() > 1 && chosen->second.starts_with('/') &&
        isAtOrBelow(path, absolutePath(chosen->second, "/")))
        return true;
    return std::any_of(temporaryFolders.begin(), temporaryFolders.end(),
                       [&](std::string_view folder) { return isAtOrBelow(path, folder); });
}

} // namespace

bool isReplaceable(const std::string& path, const Environment& environment, const std::string& lasting) {
    if (!isAtOrBelow(path, lasting) && isTemporary(path, environment)) return true;
    for (std::string_view rest = path; rest.size() > 1; rest = parentOf(rest))
        if (isReplaceableName(lastComponent(rest))) return true;
    return false;
}

} // namespace tidewrack
