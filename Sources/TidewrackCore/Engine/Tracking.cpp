#include "Engine/Tracking.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Walk/Walker.hpp"

#include <algorithm>
#include <iterator>

namespace tidewrack {

bool isTooBroad(const Store& store, const std::string& path) {
    static constexpr std::string_view system[] = {"/",        "/Users",   "/System", "/Library", "/Applications",
                                                  "/private", "/Volumes", "/opt",    "/usr"};
    const std::string p = Store::canonical(path);
    if (std::find(std::begin(system), std::end(system), p) != std::end(system)) return true;
    if (store.userHome.empty()) return false;
    const std::string user = Store::canonical(store.userHome);
    if (p == user) return true;
    static constexpr std::string_view inHome[] = {"Desktop", "Documents", "Downloads", "Library"};
    return std::any_of(std::begin(inHome), std::end(inHome),
                       [&](std::string_view name) { return p == joined(user, name); });
}

namespace {

void refuseUnsuitable(const Store& store, const std::string& path, bool force) {
    const std::string own = Store::canonical(store.home);
    // The root folder is an exception: it is too broad, and tracked by force its walks leave the history out.
    if (isAtOrBelow(path, own) || (path != "/" && isAtOrBelow(own, path)))
        throw TidewrackError::refused(path + " contains Tidewrack's own history (" + own +
                                      "). Track a project folder instead.");
    if (!isUtf8(path))
        throw TidewrackError::refused(repairedUtf8(path) +
                                      " has a name that is not valid UTF-8. Rename the folder to track it.");
    if (force) return;
    if (isTooBroad(store, path))
        throw TidewrackError::refused(path + " is too broad to track. Track a project folder instead.");
    const auto& names = defaultExcludes();
    if (Walker::count(path, NameSet(names.begin(), names.end()), maxTrackedEntries) > maxTrackedEntries)
        throw TidewrackError::refused(path + " has more than " + std::to_string(maxTrackedEntries) +
                                      " files. Use --force to track it anyway.");
}

} // namespace

Project track(const Store& store, const std::string& path, bool force) {
    const std::string p = Store::canonical(path);
    if (!isFolder(p)) throw TidewrackError::io(p + " is not a folder.");
    // Another project's damaged record is no reason to keep no history of this one.
    Registry registry = store.registry();
    for (Project& known : registry.projects)
        if (known.root == p) return std::move(known);
    refuseUnsuitable(store, p, force);
    Project project;
    project.id = Store::projectID(p);
    project.root = p;
    project.created = now();
    project.excludes = defaultExcludes();
    project.excludesIfIgnored = defaultExcludesIfIgnored();
    std::sort(project.excludes.begin(), project.excludes.end());
    std::sort(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end());
    store.add(project);
    return project;
}

} // namespace tidewrack
