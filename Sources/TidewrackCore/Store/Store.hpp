#pragma once
// Where the history lives and how a folder maps to it. docs/store-format.md shows the tree.
//
// Reading takes no lock; whoever changes a project's files holds its ProjectLock.

#include "Store/Manifest.hpp"
#include "Store/ProjectLock.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// The process's environment, handed in so that tests choose it.
using Environment = std::map<std::string, std::string, std::less<>>;

// HOME when set and not empty, else the password database's home folder.
[[nodiscard]] std::string homeFolder(const Environment& environment);

class Store {
  public:
    static constexpr std::int64_t maxTrackedEntries = 250000;

    // TIDEWRACK_HOME when set and not empty, else "Library/Application Support/Tidewrack" in the home folder.
    // Creates nothing. Throws TidewrackError io when neither variable nor password database tell a home folder.
    static Store fromEnvironment(const Environment& environment);
    // `root`: the store's own folder; `user`: the user's home folder, for the folders too broad to track.
    Store(std::string root, std::string user) : home(std::move(root)), userHome(std::move(user)) {}

    std::string home;
    std::string userHome;

    // The one spelling of a path used for comparisons and records: absolute, without "." and "..", symbolic links
    // resolved, no trailing slash. Missing tails are kept as they are.
    [[nodiscard]] static std::string canonical(const std::string& path);
    // The same for the place that a path names: when a link stands there, it is not followed.
    [[nodiscard]] static std::string canonicalPlace(const std::string& path);
    // "<slug of the last component>-<8 hex digits of the root's SHA-256>"
    [[nodiscard]] static std::string projectID(const std::string& root);
    [[nodiscard]] bool isTooBroad(const std::string& path) const;

    // Registers a folder. Throws TidewrackError io or refused in the user's words. An already tracked folder comes
    // back unchanged.
    Project track(const std::string& path, bool force) const;
    // Removes a project's whole history, holding its lock.
    void untrack(const Project& project) const;

    // All tracked projects, by id. Throws TidewrackError corrupt when a record does not decode.
    [[nodiscard]] std::vector<Project> projects() const;
    // The nearest tracked root at or above `path`.
    [[nodiscard]] std::optional<Project> projectContaining(const std::string& path) const;
    [[nodiscard]] static std::optional<Project> projectContaining(const std::string& path,
                                                                  const std::vector<Project>& projects);

    [[nodiscard]] std::vector<std::int64_t> seqs(const Project& project) const; // ascending
    [[nodiscard]] std::optional<std::int64_t> newestSeq(const Project& project) const;
    [[nodiscard]] std::optional<SnapshotMeta> latest(const Project& project) const;
    [[nodiscard]] std::vector<SnapshotMeta> snapshots(const Project& project) const; // ascending
    // Throws TidewrackError noSnapshot or corrupt.
    [[nodiscard]] SnapshotMeta snapshot(const Project& project, std::int64_t seq) const;
    [[nodiscard]] Manifest manifest(const SnapshotMeta& meta, const Project& project) const;
    // The text of manifest `seq`, not looked into.
    [[nodiscard]] TextBuffer manifestText(const Project& project, std::int64_t seq) const;
    // The largest number of which a manifest or a content folder is left; 0 for none.
    [[nodiscard]] std::int64_t highestLeftover(const Project& project) const;
    // Whether the project lies on the volume of its history, so that changes of both come to the disk in their order.
    [[nodiscard]] bool sharesVolume(const Project& project) const;

    // Writers, for holders of the lock. The manifest comes after the contents that it names, and only then the record:
    // a manifest is on the disk with all that was done before, `contents` included, when the record is given its name.
    void writeSnapshot(const ProjectLock& lock, const Project& project, const SnapshotMeta& meta) const;
    // For a new snapshot that holds nothing the one before does not: nothing waits for the disk.
    void writeUnchangedSnapshot(const ProjectLock& lock, const Project& project, const SnapshotMeta& meta) const;
    // All records written so far are on the disk, with all that they need.
    void bringRecordsToDisk(const ProjectLock& lock, const Project& project) const;
    void writeManifest(const ProjectLock& lock, const Project& project, std::int64_t seq, const Manifest& manifest,
                       const PendingWrites& contents) const;
    // Makes sure that number `seq`, which a snapshot took that was never recorded, has a manifest, if only an empty
    // one: a manifest that no record names tells the next prune that contents may be left that nothing names.
    void markUnfinished(const ProjectLock& lock, const Project& project, std::int64_t seq) const;

    [[nodiscard]] std::string projectFolder(const Project& project) const;
    [[nodiscard]] std::string lockPath(const Project& project) const;
    [[nodiscard]] std::string metaPath(const Project& project, std::int64_t seq) const;
    [[nodiscard]] std::string manifestPath(const Project& project, std::int64_t seq) const;
    [[nodiscard]] std::string blobPath(const Project& project, std::string_view blob) const;
    [[nodiscard]] std::string blobsFolder(const Project& project) const;

    // A sentence when kept copies will cost real disk space.
    [[nodiscard]] std::optional<std::string> storageWarning(const Project& project) const;
    // Creates the store's folder (mode 0700) with its parents. Returns an errno value.
    [[nodiscard]] int makeHome() const;

  private:
    [[nodiscard]] std::string projectsFolder() const { return home + "/projects"; }
    void refuseUnsuitable(const std::string& path, bool force) const;
    void addToRegistry(const Project& project) const;
};

// A base-10 whole number from 0 to the largest 64-bit one; none for anything else.
[[nodiscard]] std::optional<std::int64_t> parseSeq(std::string_view text);

} // namespace tidewrack
