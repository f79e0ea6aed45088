#include "Store/Store.hpp"

#include "Platform/Copies.hpp"
#include "Platform/Libraries.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <span>

namespace tidewrack {

std::string homeFolder(const Environment& environment) {
    const auto found = environment.find("HOME");
    return found != environment.end() && !found->second.empty() ? found->second : homeFolderOfUser();
}

Store Store::fromEnvironment(const Environment& environment) {
    const std::string user = homeFolder(environment);
    const auto chosen = environment.find("TIDEWRACK_HOME");
    if (chosen != environment.end() && !chosen->second.empty()) {
        const std::string here = currentFolder();
        if (here.empty() && !chosen->second.starts_with('/'))
            throw TidewrackError::io("Can't tell the current folder; it may have been deleted.");
        return {absolutePath(chosen->second, here), user};
    }
    if (user.empty()) throw TidewrackError::io("Can't tell the home folder: set HOME or TIDEWRACK_HOME.");
    return {joined(user, "Library/Application Support/Tidewrack"), user};
}

std::string Store::canonical(const std::string& path) {
    std::string text = absolutePath(path, path.starts_with('/') ? std::string() : currentFolder());
    if (std::string whole = realPath(text); !whole.empty()) return whole;
    // Of a path that does not exist (yet), resolve what does.
    std::string tail;
    std::string head = text;
    while (head.size() > 1) {
        tail = "/" + std::string(lastComponent(head)) + tail;
        head = std::string(parentOf(head));
        if (const std::string known = realPath(head); !known.empty()) return standardized(known + tail);
    }
    return text;
}

std::string Store::canonicalPlace(const std::string& path) {
    std::string text = absolutePath(path, path.starts_with('/') ? std::string() : currentFolder());
    return isLink(text) ? joined(canonical(std::string(parentOf(text))), lastComponent(text)) : canonical(text);
}

std::string Store::projectID(const std::string& root) {
    constexpr std::size_t mostCharacters = 32;
    constexpr std::size_t mostBytes = 200; // a folder name has room for 255
    const std::string name = lowercased(lastComponent(root));
    std::string slug;
    std::string_view rest = name;
    for (std::size_t i = 0; i < mostCharacters && !rest.empty(); ++i) {
        const std::string_view character = rest.substr(0, characterLength(rest));
        rest.remove_prefix(character.size());
        if (slug.size() + character.size() > mostBytes) break;
        if (isLetterOrNumber(character))
            slug += character;
        else
            slug += '-';
    }
    const auto digest = sha256(root);
    const std::string hash = hexText(std::span(digest).first(4));
    return slug.empty() ? hash : slug + "-" + hash;
}

namespace {

// None where there is no record: the folder is half made, or half removed. Throws TidewrackError corrupt and io.
std::optional<Project> readProject(const std::string& path) {
    std::string text;
    const int error = readFile(path, text);
    if (error == ENOENT || error == ENOTDIR) return std::nullopt;
    if (error != 0) throw TidewrackError::io("read", path, error);
    Project project = decodeProject(text, path);
    project.id = lastComponent(parentOf(path)); // a move that was cut short left the old one in the record
    return project;
}

// Written over, a record that can't be read for a moment would lose what the user has set.
void refuseOther(const Project& project, const std::string& path) {
    std::string why = "it is that of another folder";
    try {
        const auto known = readProject(path);
        if (!known || known->root == project.root) return;
    } catch (const TidewrackError& error) {
        why = error.what();
    }
    throw TidewrackError::refused("There is a history for " + project.root + " already, but " + why + ".");
}

} // namespace

namespace {

// An untrack may take the folder away before the lock in it is reached.
ProjectLock lockMade(const History& history, const Deadline& until) {
    while (true) {
        if (const int error = makeFolders(history.folder(), 0755))
            throw TidewrackError::io("create", history.folder(), error);
        try {
            return ProjectLock(history.lockPath(), until);
        } catch (const TidewrackError&) {
            if (isFolder(history.folder()) || passed(until)) throw;
        }
    }
}

// The record goes first, so that what a sudden death leaves is no project, and the snapshots go before the contents
// that they name.
void removeHistory(const History& history) {
    for (const std::string& part : {history.recordPath(), history.snapshotsFolder(), history.manifestsFolder(),
                                    history.blobsFolder(), history.folder()})
        if (const int error = removeTree(part); error != 0 && error != ENOENT)
            throw TidewrackError::io("remove", part, error);
}

} // namespace

void Store::add(const Project& project, const Deadline& lockedUntil) const {
    const History history = this->history(project);
    if (const int error = makeHome()) throw TidewrackError::io("create", home, error);
    // The store's folder may have been there before, open to others; what is kept in it is not.
    if (const int error = makeFolders(projectsFolder(), 0700))
        throw TidewrackError::io("create", projectsFolder(), error);
    if (!lockedUntil) removeUntracked();
    const ProjectLock lock = lockMade(history, lockedUntil);
    refuseOther(project, history.recordPath());
    for (const std::string& part : {history.snapshotsFolder(), history.manifestsFolder(), history.blobsFolder()})
        if (const int error = makeFolders(part, 0755)) throw TidewrackError::io("create", part, error);
    writeFileAtomically(history.recordPath(), compactJson(toJson(project)));
}

void Store::untrack(const Project& project) const {
    const History history = this->history(project);
    const ProjectLock lock(history.lockPath());
    removeUntracked();
    // Under another name nobody finds it, and the folder may be tracked anew while it is removed.
    const History moved(joined(projectsFolder(), temporaryName()), project.root);
    if (const int error = moveFile(history.folder(), moved.folder()))
        throw TidewrackError::io("remove", history.folder(), error);
    removeHistory(moved);
}

void Store::move(const Project& project, const std::string& root) const {
    const History from = history(project);
    const ProjectLock lock(from.lockPath()); // which goes along
    Project moved = project;
    moved.id = projectID(root);
    moved.root = root;
    const History to = history(moved);
    if (from.folder() != to.folder()) {
        if (exists(to.folder())) throw TidewrackError::refused("There is a history for " + root + " already.");
        if (const int error = moveFile(from.folder(), to.folder()))
            throw TidewrackError::io("rename", from.folder(), error);
    }
    to.changeProject(lock, [&](Project& record) {
        record.id = moved.id;
        record.root = moved.root;
    });
}

void Store::removeUntracked() const {
    for (const std::string& name : listFolder(projectsFolder())) {
        try {
            if (isLeftover(name)) removeHistory({joined(projectsFolder(), name), {}});
        } catch (const TidewrackError&) { // the next one tries again
        }
    }
}

bool Store::hasRemains(const Project& project) const {
    const History history = this->history(project);
    return isFolder(history.folder()) && !exists(history.recordPath());
}

std::vector<Project> Store::projects() const {
    refuseForeign();
    std::vector<Project> result;
    for (const std::string& path : recordPaths()) {
        try {
            if (auto project = readProject(path)) result.push_back(std::move(*project));
        } catch (const TidewrackError& error) {
            if (error.kind() != TidewrackError::Kind::io) throw;
        }
    }
    return result;
}

Registry Store::registry() const {
    refuseForeign();
    return registryAsItIs();
}

Registry Store::registryAsItIs() const {
    Registry result;
    try {
        for (const std::string& path : recordPaths()) {
            try {
                if (auto project = readProject(path)) result.projects.push_back(std::move(*project));
            } catch (const TidewrackError& error) {
                result.unreadable.push_back({path, error.what()});
            }
        }
    } catch (const TidewrackError& error) {
        result.unreadable.push_back({projectsFolder(), error.what()});
    }
    return result;
}

std::vector<std::string> Store::recordPaths() const {
    auto names = listFolder(projectsFolder());
    std::erase_if(names, [](const std::string& name) { return name.starts_with(temporaryPrefix); }); // untracked ones
    std::sort(names.begin(), names.end());
    for (std::string& name : names) name = History(projectsFolder() + "/" + name, {}).recordPath();
    return names;
}

std::optional<Project> Store::projectContaining(const std::string& path) const {
    return projectContaining(path, projects());
}

std::optional<Project> Store::projectContaining(const std::string& path, const std::vector<Project>& projects) {
    const std::string p = canonical(path);
    const Project* nearest = nullptr;
    for (const Project& project : projects)
        if (isAtOrBelow(p, project.root) &&
            (nearest == nullptr || characterCount(project.root) > characterCount(nearest->root)))
            nearest = &project;
    return nearest == nullptr ? std::nullopt : std::optional(*nearest);
}

std::vector<std::string> Store::storageWarnings(const Project& project) const {
    (void)makeHome();
    const std::string type = volumeType(project.root);
    if (type.empty()) return {};
    if (!volumeClones(project.root)) {
        std::vector<std::string> result = {project.root + " is on a " + type +
                                           " volume, not APFS: history will use full copies and real disk space."};
        if (const auto advice = adviceOnClones()) result.push_back(*advice);
        return result;
    }
    if (history(project).sharesVolume()) return {};
    return {project.root +
            " is on a different volume than Tidewrack's history: kept files will be full copies, not free clones."};
}

void Store::refuseForeign() const {
    struct stat status {};
    if (::stat(home.c_str(), &status) != 0) return; // not made yet
    const bool isTrusted = status.st_uid == ::geteuid() || status.st_uid == 0 || ::geteuid() == 0;
    if (!isTrusted)
        throw TidewrackError::refused("Tidewrack's history " + home +
                                      " belongs to another user. Choose another folder with TIDEWRACK_HOME.");
    if ((status.st_mode & S_IWOTH) != 0)
        throw TidewrackError::refused("Everybody can write to Tidewrack's history " + home + ". Run: chmod o-w '" +
                                      home + "', or choose another folder with TIDEWRACK_HOME.");
}

int Store::makeHome() const {
    if (isFolder(home)) return 0;
    // Parents get the usual mode; the store itself is for its owner alone.
    if (const int error = makeFolders(std::string(parentOf(home)), 0755)) return error;
    return makeFolders(home, 0700);
}

} // namespace tidewrack
