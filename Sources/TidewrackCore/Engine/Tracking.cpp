#include "Engine/Tracking.hpp"

#include "Platform/Attributes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <iterator>

namespace tidewrack {

bool isTooBroad(const Store& store, const std::string& path) {
    static constexpr std::string_view system[] = {
        "/",     "/Users", "/System", "/Library", "/Applications", "/opt", "/private", "/Volumes", "/usr", "/home",
        "/root", "/tmp",   "/var",    "/var/tmp", "/etc",          "/mnt", "/media",   "/srv",     "/run", "/dev"};
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

constexpr std::chrono::seconds refusedFor = std::chrono::hours(24);
constexpr std::chrono::seconds refusedUncounted = std::chrono::minutes(10); // a disk may only have been slow

// A file of which the time of change says until when the folder is refused; another folder in its place is not.
std::string refusalPath(const Store& store, const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return store.home + "/refused/" + Store::projectID(path) + "-" + std::to_string(status.st_dev) + "-" +
           std::to_string(status.st_ino);
}

void noteRefusal(const Store& store, const std::string& path, std::chrono::seconds lasting) {
    const std::string place = refusalPath(store, path);
    const std::int64_t until = secondsOf(now() + lasting) * nanosPerSecond;
    if (place.empty() || store.makeHome() != 0 || makeFolders(std::string(parentOf(place)), 0700) != 0) return;
    try {
        writeFileSoon(place, "");
        (void)setModificationTime(AT_FDCWD, place.c_str(), until);
    } catch (const TidewrackError&) { // the next one counts again
    }
}

void refuseMany(const Store& store, const std::string& path, const TrackPatience& patience) {
    const auto& names = defaultExcludes();
    const auto count = Walker::count(path, NameSet(names.begin(), names.end()), maxTrackedEntries, patience.count);
    if (count && *count <= maxTrackedEntries) return;
    if (patience.count) noteRefusal(store, path, count ? refusedFor : refusedUncounted);
    if (!count) throw TidewrackError::refused(path + " has more files than could be counted in time.");
    throw TidewrackError::refused(path + " has more than " + std::to_string(maxTrackedEntries) +
                                  " files. Use --force to track it anyway.");
}

} // namespace

void refuseUnsuitable(const Store& store, const std::string& path) {
    const std::string own = Store::canonical(store.home);
    // The root folder is an exception: it is too broad, and tracked by force its walks leave the history out.
    if (isAtOrBelow(path, own) || (path != "/" && isAtOrBelow(own, path)))
        throw TidewrackError::refused(path + " contains Tidewrack's own history (" + own +
                                      "). Track a project folder instead.");
    if (!isUtf8(path))
        throw TidewrackError::refused(repairedUtf8(path) +
                                      " has a name that is not valid UTF-8. Rename the folder to track it.");
}

bool wasRefusedLately(const Store& store, const std::string& path) {
    const std::string place = refusalPath(store, path);
    Attributes noted;
    if (place.empty() || attributesAt(AT_FDCWD, place.c_str(), noted) != 0) return false;
    const auto left = noted.mtime / nanosPerSecond - secondsOf(now());
    return left > 0 && left <= refusedFor.count(); // of a clock that was wrong nothing is believed
}

Project track(const Store& store, const std::string& path, bool force, const TrackPatience& patience) {
    const std::string p = Store::canonical(path);
    if (!isFolder(p)) throw TidewrackError::io(p + " is not a folder.");
    // Another project's damaged record is no reason to keep no history of this one.
    Registry registry = store.registry();
    for (Project& known : registry.projects)
        if (known.root == p) return std::move(known);
    refuseUnsuitable(store, p);
    if (!force && isTooBroad(store, p))
        throw TidewrackError::refused(p + " is too broad to track. Track a project folder instead.");
    if (!force) refuseMany(store, p, patience);
    Project project;
    project.id = Store::projectID(p);
    project.root = p;
    project.created = now();
    project.excludes = defaultExcludes();
    project.excludesIfIgnored = defaultExcludesIfIgnored();
    std::sort(project.excludes.begin(), project.excludes.end());
    std::sort(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end());
    store.add(project, patience.lock);
    return project;
}

} // namespace tidewrack
