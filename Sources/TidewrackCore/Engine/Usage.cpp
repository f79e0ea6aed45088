#include "Engine/Usage.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/FileSpace.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

namespace tidewrack {

void Space::add(const Space& other) {
    taken += other.taken;
    shared += other.shared;
    sharedIsKnown = sharedIsKnown && other.sharedIsKnown;
}

namespace {

// What is gone meanwhile takes nothing.
Space spaceOf(const std::string& path, bool clones) {
    FileSpace space;
    if (fileSpace(path, space) != 0) return {};
    if (!clones) space.shared = 0; // where the volume can't share nothing is shared, whether it tells or not
    return {space.taken, space.shared.value_or(0), space.shared.has_value()};
}

using Seen = std::set<std::uint64_t>; // inode numbers of what has several names

// Everything in a folder, each file once.
Space spaceBelow(const std::string& path, bool clones, Seen& seen) {
    Attributes attributes;
    if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0) return {};
    if (attributes.kind == Attributes::Kind::file && attributes.links > 1 && !seen.insert(attributes.ino).second)
        return {};
    Space sum = spaceOf(path, clones);
    if (attributes.kind != Attributes::Kind::folder) return sum;
    (void)visitNames(path, [&](const char* name) {
        sum.add(spaceBelow(joined(path, name), clones, seen));
        return true;
    });
    return sum;
}

Space spaceBelow(const std::string& path, bool clones) {
    Seen seen;
    return spaceBelow(path, clones, seen);
}

// The same without asking what is shared, which takes opening each file.
std::int64_t takenBelow(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return 0;
    std::int64_t sum = takenSpace(status);
    if (!S_ISDIR(status.st_mode)) return sum;
    (void)visitNames(path, [&](const char* name) {
        sum += takenBelow(joined(path, name));
        return true;
    });
    return sum;
}

void keepLargest(std::vector<LargeContent>& largest) {
    const auto isLarger = [](const LargeContent& a, const LargeContent& b) {
        return a.size != b.size ? a.size > b.size : a.blob < b.blob;
    };
    std::sort(largest.begin(), largest.end(), isLarger);
    if (largest.size() > mostLargeContents) largest.resize(mostLargeContents);
}

void measureContents(const History& history, bool clones, ProjectUsage& usage) {
    for (const std::string& folder : listFolder(history.blobsFolder())) {
        const std::string path = history.blobPath(folder);
        if (!isFolder(path)) continue;
        for (const std::string& name : listFolder(path)) {
            const std::string blob = folder + "/" + name;
            Attributes attributes;
            if (attributesAt(AT_FDCWD, history.blobPath(blob).c_str(), attributes) != 0) continue;
            const Space space = spaceOf(history.blobPath(blob), clones);
            ++usage.contents;
            usage.contentSpace.add(space);
            usage.largest.push_back({blob, {}, attributes.size, parseSeq(folder).value_or(0), space});
            if (usage.largest.size() >= 64 * mostLargeContents) keepLargest(usage.largest);
        }
        usage.contentSpace.taken += spaceOf(path, clones).taken;
    }
    keepLargest(usage.largest);
}

// A content's path stands in the listing of the snapshot that kept it, or, where that is gone, in a later one.
void findPaths(const History& history, const std::vector<SnapshotMeta>& snapshots, std::vector<LargeContent>& largest) {
    std::int64_t latest = -1;
    for (const SnapshotMeta& meta : snapshots) {
        const auto isWanted = [&](const LargeContent& each) {
            return each.path.empty() && each.seq <= meta.manifestOf;
        };
        if (meta.manifestOf == latest || std::none_of(largest.begin(), largest.end(), isWanted)) continue;
        latest = meta.manifestOf;
        try {
            const Manifest listing = history.manifest(meta);
            for (const auto& [path, entry] : listing.items())
                for (LargeContent& each : largest)
                    if (each.path.empty() && each.blob == entry.blob) each.path = path;
        } catch (const TidewrackError&) { // another listing may tell
        }
    }
}

Freeable freeableIn(const Engine& engine, const Project& project, Date now, bool clones) {
    const PruneResult pruned = engine.prune(project, now, true);
    const History history = engine.store.history(project);
    Freeable result{static_cast<std::int64_t>(pruned.removedSnapshots.size()), pruned.removedBlobs};
    for (const std::string& blob : pruned.contents) result.bytes += spaceOf(history.blobPath(blob), clones).own();
    for (const std::int64_t seq : pruned.removedSnapshots) result.bytes += spaceOf(history.metaPath(seq), clones).own();
    for (const std::int64_t seq : pruned.manifests) result.bytes += spaceOf(history.manifestPath(seq), clones).own();
    return result;
}

} // namespace

ProjectUsage projectUsage(const Engine& engine, const Project& project, Date now) {
    const History history = engine.store.history(project);
    const bool clones = volumeClones(engine.store.home);
    ProjectUsage usage;
    usage.id = project.id;
    usage.root = project.root;
    usage.snapshots = static_cast<std::int64_t>(history.seqs().size());
    measureContents(history, clones, usage);
    usage.listingBytes = spaceBelow(history.manifestsFolder(), clones).taken;
    usage.recordBytes = spaceBelow(history.snapshotsFolder(), clones).taken;
    for (const std::string& name : listFolder(history.folder()))
        if (!isFolder(history.folder() + "/" + name))
            usage.recordBytes += spaceOf(history.folder() + "/" + name, clones).taken;
    std::vector<UnreadRecord> unread;
    findPaths(history, history.snapshots(unread), usage.largest);
    try {
        usage.freeable = freeableIn(engine, project, now, clones);
    } catch (const TidewrackError& error) {
        usage.whyNot = error.what();
    }
    return usage;
}

std::int64_t storedBytes(const History& history) {
    return takenBelow(history.folder());
}

VaultUsage vaultUsage(const Store& store) {
    const std::string folder = store.home + "/vault";
    VaultUsage usage;
    for (const std::string& name : listFolder(folder))
        if (exists(folder + "/" + name + "/entry.json")) ++usage.entries;
    usage.space = spaceBelow(folder, volumeClones(store.home));
    return usage;
}

} // namespace tidewrack
