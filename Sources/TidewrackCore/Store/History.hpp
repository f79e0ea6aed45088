#pragma once
// One tracked project's history on the disk: its records, listings and kept contents. docs/store-format.md shows the
// tree.
//
// Reading takes no lock; writing takes the project's ProjectLock.

#include "Platform/Flush.hpp"
#include "Store/Manifest.hpp"
#include "Store/ProjectLock.hpp"
#include "Store/Records.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// A snapshot's record that is there and can't be read.
struct UnreadRecord {
    std::int64_t seq = 0;
    std::string reason;

    bool operator==(const UnreadRecord&) const = default;
};

class History {
  public:
    // `folder` is the history's folder, `root` the project's.
    History(std::string folder, std::string root) : folder_(std::move(folder)), root_(std::move(root)) {}

    [[nodiscard]] std::vector<std::int64_t> seqs() const; // ascending
    [[nodiscard]] std::optional<std::int64_t> newestSeq() const;
    [[nodiscard]] std::optional<SnapshotMeta> latest() const;
    // Ascending. Throws TidewrackError corrupt when a record does not decode.
    [[nodiscard]] std::vector<SnapshotMeta> snapshots() const;
    // The same for whoever can do without those that can't be read: `unread` receives them, ascending. Not for who
    // removes what no record names.
    [[nodiscard]] std::vector<SnapshotMeta> snapshots(std::vector<UnreadRecord>& unread) const;
    // Throws TidewrackError noSnapshot or corrupt.
    [[nodiscard]] SnapshotMeta snapshot(std::int64_t seq) const;
    [[nodiscard]] Manifest manifest(const SnapshotMeta& meta) const;
    // The decompressed text of manifest `seq`, not parsed. Throws TidewrackError corrupt when it is missing or damaged.
    [[nodiscard]] TextBuffer manifestText(std::int64_t seq) const;
    // Why manifest `seq` can't be read, as far as its size and end tell without decompressing it; empty: nothing.
    [[nodiscard]] std::string manifestFault(std::int64_t seq) const;
    // The largest number that has a manifest or a content folder; 0 for none.
    [[nodiscard]] std::int64_t highestLeftover() const;
    // Whether the project lies on its history's volume, so that changes of both reach the disk in their order.
    [[nodiscard]] bool sharesVolume() const;

    // A snapshot is written in this order: contents, manifest, record. A manifest reaches the disk after everything
    // done before it, `contents` included, and before its record's name.
    void writeSnapshot(const ProjectLock& lock, const SnapshotMeta& meta) const;
    // For a new snapshot with the same content as the one before: nothing waits for the disk.
    void writeUnchangedSnapshot(const ProjectLock& lock, const SnapshotMeta& meta) const;
    // From now on no change in the project survives a power cut without all that was recorded before it, unchanged
    // snapshots excepted.
    void bringNamesToDisk(const ProjectLock& lock) const;
    // Brings all records written so far to the disk, with all that they need.
    void bringRecordsToDisk(const ProjectLock& lock) const;
    void writeManifest(const ProjectLock& lock, std::int64_t seq, const Manifest& manifest,
                       const PendingWrites& contents) const;
    // Changes the project's record, and nothing in it that this program does not know. Throws TidewrackError io or
    // corrupt.
    void changeProject(const ProjectLock& lock, const std::function<void(Project&)>& change) const;
    // Gives number `seq`, which a snapshot took that was never recorded, an empty manifest if it has none. A manifest
    // without a record tells the next prune that contents may be left that nothing names.
    void markUnfinished(const ProjectLock& lock, std::int64_t seq) const;

    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] std::string recordPath() const { return folder_ + "/project.json"; }
    [[nodiscard]] std::string lockPath() const { return folder_ + "/lock"; }
    [[nodiscard]] std::string snapshotsFolder() const { return folder_ + "/snapshots"; }
    [[nodiscard]] std::string manifestsFolder() const { return folder_ + "/manifests"; }
    [[nodiscard]] std::string blobsFolder() const { return folder_ + "/blobs"; }
    [[nodiscard]] std::string metaPath(std::int64_t seq) const;
    [[nodiscard]] std::string manifestPath(std::int64_t seq) const;
    [[nodiscard]] std::string blobPath(std::string_view blob) const;

  private:
    [[nodiscard]] std::string placeOf(std::int64_t seq) const; // of a listing, for an error
    [[nodiscard]] std::vector<SnapshotMeta> readAll(std::vector<UnreadRecord>* unread) const;

    std::string folder_;
    std::string root_;
};

// A base-10 whole number from 0 to the largest 64-bit one; none for anything else.
[[nodiscard]] std::optional<std::int64_t> parseSeq(std::string_view text);

} // namespace tidewrack
