#include "Store/Store.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Walk/Walker.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <future>
#include <iterator>
#include <span>

namespace tidewrack {

std::optional<std::int64_t> parseSeq(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

namespace {

// The number in the name of a snapshot's record; none for other files.
std::optional<std::int64_t> recordNumber(std::string_view name) {
    constexpr std::string_view ending = ".json";
    return name.ends_with(ending) ? parseSeq(name.substr(0, name.size() - ending.size())) : std::nullopt;
}

} // namespace

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
    const std::string hash = hexText(std::string_view(reinterpret_cast<const char*>(digest.data()), 4));
    return slug.empty() ? hash : slug + "-" + hash;
}

bool Store::isTooBroad(const std::string& path) const {
    static constexpr std::string_view system[] = {"/",        "/Users",   "/System", "/Library", "/Applications",
                                                  "/private", "/Volumes", "/opt",    "/usr"};
    const std::string p = canonical(path);
    if (std::find(std::begin(system), std::end(system), p) != std::end(system)) return true;
    if (userHome.empty()) return false;
    const std::string user = canonical(userHome);
    if (p == user) return true;
    static constexpr std::string_view inHome[] = {"Desktop", "Documents", "Downloads", "Library"};
    return std::any_of(std::begin(inHome), std::end(inHome),
                       [&](std::string_view name) { return p == joined(user, name); });
}

Project Store::track(const std::string& path, bool force) const {
    const std::string p = canonical(path);
    if (!isFolder(p)) throw TidewrackError::io(p + " is not a folder.");
    for (Project& known : projects())
        if (known.root == p) return std::move(known);
    refuseUnsuitable(p, force);
    Project project;
    project.id = projectID(p);
    project.root = p;
    project.created = now();
    project.excludes = defaultExcludes();
    project.excludesIfIgnored = defaultExcludesIfIgnored();
    std::sort(project.excludes.begin(), project.excludes.end());
    std::sort(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end());
    addToRegistry(project);
    return project;
}

void Store::refuseUnsuitable(const std::string& path, bool force) const {
    const std::string own = canonical(home);
    // The root of all holds everything: it is too broad, and by force its walks pass over the history.
    if (isAtOrBelow(path, own) || (path != "/" && isAtOrBelow(own, path)))
        throw TidewrackError::refused(path + " contains Tidewrack's own history (" + own +
                                      "). Track a project folder instead.");
    if (!isUtf8(path))
        throw TidewrackError::refused(repairedUtf8(path) +
                                      " has a name that is not valid UTF-8. Rename the folder to track it.");
    if (force) return;
    if (isTooBroad(path))
        throw TidewrackError::refused(path + " is too broad to track. Track a project folder instead.");
    const auto& names = defaultExcludes();
    if (Walker::count(path, NameSet(names.begin(), names.end()), maxTrackedEntries) > maxTrackedEntries)
        throw TidewrackError::refused(path + " has more than " + std::to_string(maxTrackedEntries) +
                                      " files. Use --force to track it anyway.");
}

void Store::addToRegistry(const Project& project) const {
    const std::string folder = projectFolder(project);
    if (const int error = makeHome()) throw TidewrackError::io("create", home, error);
    // The store's folder may have been there before, open to others; what is kept in it is not.
    if (const int error = makeFolders(projectsFolder(), 0700))
        throw TidewrackError::io("create", projectsFolder(), error);
    if (const int error = makeFolders(folder, 0755)) throw TidewrackError::io("create", folder, error);
    const ProjectLock lock(lockPath(project)); // which an untrack may hold that still has things to remove
    for (const char* name : {"/snapshots", "/manifests", "/blobs"})
        if (const int error = makeFolders(folder + name, 0755))
            throw TidewrackError::io("create", folder + name, error);
    writeFileAtomically(folder + "/project.json", compactJson(toJson(project)));
}

void Store::untrack(const Project& project) const {
    const std::string folder = projectFolder(project);
    const ProjectLock lock(lockPath(project));
    // The record goes first: a project half removed by a sudden death is then no project any more. Should it be
    // tracked again, no snapshot may be left that names contents which are gone.
    const std::string record = folder + "/project.json";
    if (::unlink(record.c_str()) != 0 && errno != ENOENT) throw TidewrackError::io("remove", record, errno);
    for (const char* part : {"/snapshots", "/manifests", "/blobs", ""})
        if (const int error = removeTree(folder + part)) throw TidewrackError::io("remove", folder + part, error);
}

std::vector<Project> Store::projects() const {
    std::vector<Project> result;
    auto names = listFolder(projectsFolder());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = projectsFolder() + "/" + name + "/project.json";
        std::string text;
        if (readFile(path, text) != 0) continue;
        result.push_back(decodeProject(text, path));
    }
    return result;
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

std::vector<std::int64_t> Store::seqs(const Project& project) const {
    std::vector<std::int64_t> result;
    forEachName(projectFolder(project) + "/snapshots", [&](std::string_view name) {
        if (const auto seq = recordNumber(name)) result.push_back(*seq);
    });
    std::sort(result.begin(), result.end());
    return result;
}

std::optional<std::int64_t> Store::newestSeq(const Project& project) const {
    std::optional<std::int64_t> newest;
    forEachName(projectFolder(project) + "/snapshots",
                [&](std::string_view name) { newest = std::max(newest, recordNumber(name)); }); // none is the least
    return newest;
}

std::optional<SnapshotMeta> Store::latest(const Project& project) const {
    const auto newest = newestSeq(project);
    return newest ? std::optional(snapshot(project, *newest)) : std::nullopt;
}

namespace {

// The records among these files of the folder.
std::vector<SnapshotMeta> readRecords(const std::string& folder, std::span<const std::string> names) {
    std::vector<SnapshotMeta> result;
    for (const std::string& name : names) {
        std::string text;
        const std::string path = folder + "/" + name;
        if (!name.ends_with(".json") || readFile(path, text) != 0) continue;
        result.push_back(decodeSnapshotMeta(text, path));
    }
    return result;
}

} // namespace

std::vector<SnapshotMeta> Store::snapshots(const Project& project) const {
    constexpr std::size_t namesForTwo = 256; // reading and decoding so many takes longer than starting a thread
    const std::string folder = projectFolder(project) + "/snapshots";
    const auto names = listFolder(folder);
    const std::span all(names);
    const std::size_t half = all.size() < namesForTwo ? 0 : all.size() / 2;
    // Should no thread be had, its half is read at get().
    auto others = std::async(half == 0 ? std::launch::deferred : std::launch::async | std::launch::deferred,
                             [&] { return readRecords(folder, all.subspan(0, half)); });
    std::vector<SnapshotMeta> result = readRecords(folder, all.subspan(half));
    std::vector<SnapshotMeta> rest = others.get();
    std::move(rest.begin(), rest.end(), std::back_inserter(result));
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) { return a.seq < b.seq; });
    return result;
}

SnapshotMeta Store::snapshot(const Project& project, std::int64_t seq) const {
    const std::string path = metaPath(project, seq);
    std::string text;
    const int error = readFile(path, text);
    if (error == ENOENT) throw TidewrackError::noSnapshot(seq);
    if (error != 0) throw TidewrackError::io("read", path, error);
    return decodeSnapshotMeta(text, path);
}

Manifest Store::manifest(const SnapshotMeta& meta, const Project& project) const {
    return Manifest::decodeText(manifestText(project, meta.manifestOf));
}

TextBuffer Store::manifestText(const Project& project, std::int64_t seq) const {
    const std::string path = manifestPath(project, seq);
    std::string bytes;
    const int error = readFile(path, bytes);
    if (error == ENOENT) throw TidewrackError::corrupt("missing manifest for #" + std::to_string(seq));
    if (error != 0) throw TidewrackError::io("read", path, error);
    return Manifest::decompressed(bytes);
}

std::int64_t Store::highestLeftover(const Project& project) const {
    std::int64_t highest = 0;
    for (const char* folder : {"/manifests", "/blobs"}) {
        forEachName(projectFolder(project) + folder, [&](std::string_view name) {
            if (name.ends_with(".mf")) name.remove_suffix(3);
            highest = std::max(highest, parseSeq(name).value_or(0));
        });
    }
    return highest;
}

void Store::writeSnapshot(const ProjectLock&, const Project& project, const SnapshotMeta& meta) const {
    writeFileAtomically(metaPath(project, meta.seq), compactJson(toJson(meta)));
}

void Store::writeUnchangedSnapshot(const ProjectLock&, const Project& project, const SnapshotMeta& meta) const {
    writeFileSoon(metaPath(project, meta.seq), compactJson(toJson(meta)));
}

void Store::bringRecordsToDisk(const ProjectLock&, const Project& project) const {
    const std::string folder = projectFolder(project) + "/snapshots";
    Descriptor open;
    int error = openFolder(folder, open);
    // The whole volume: nobody has waited yet for the content of an unchanged snapshot's record.
    if (error == 0) error = flushVolume(open.get());
    if (error != 0) throw TidewrackError::io("flush", folder, error);
}

void Store::writeManifest(const ProjectLock&, const Project& project, std::int64_t seq, const Manifest& manifest,
                          const PendingWrites& contents) const {
    writeFileAfter(contents, manifestPath(project, seq), manifest.encoded());
}

void Store::markUnfinished(const ProjectLock&, const Project& project, std::int64_t seq) const {
    // Where this fails the leftovers wait for a prune that looks at everything; no snapshot is refused for it.
    const Descriptor file(
        ::open(manifestPath(project, seq).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
}

std::string Store::projectFolder(const Project& project) const {
    return projectsFolder() + "/" + project.id;
}
std::string Store::lockPath(const Project& project) const {
    return projectFolder(project) + "/lock";
}
std::string Store::blobsFolder(const Project& project) const {
    return projectFolder(project) + "/blobs";
}

std::string Store::metaPath(const Project& project, std::int64_t seq) const {
    return projectFolder(project) + "/snapshots/" + std::to_string(seq) + ".json";
}

std::string Store::manifestPath(const Project& project, std::int64_t seq) const {
    return projectFolder(project) + "/manifests/" + std::to_string(seq) + ".mf";
}

std::string Store::blobPath(const Project& project, std::string_view blob) const {
    return blobsFolder(project) + "/" + std::string(blob);
}

bool Store::sharesVolume(const Project& project) const {
    Attributes ofRoot;
    Attributes ofStore;
    return attributesAt(AT_FDCWD, project.root.c_str(), ofRoot) != 0 ||
           attributesAt(AT_FDCWD, home.c_str(), ofStore) != 0 || ofRoot.device == ofStore.device;
}

std::optional<std::string> Store::storageWarning(const Project& project) const {
    (void)makeHome();
    const std::string type = volumeType(project.root);
    if (type.empty()) return std::nullopt;
    if (!volumeClones(project.root))
        return project.root + " is on a " + type +
               " volume, not APFS: history will use full copies and real disk space.";
    if (sharesVolume(project)) return std::nullopt;
    return project.root +
           " is on a different volume than Tidewrack's history: kept files will be full copies, not free clones.";
}

int Store::makeHome() const {
    if (isFolder(home)) return 0;
    // Parents get the usual mode; the store itself is its reader's alone.
    if (const int error = makeFolders(std::string(parentOf(home)), 0755)) return error;
    return makeFolders(home, 0700);
}

} // namespace tidewrack
