#include "Engine/Check.hpp"

#include "Engine/RetentionPlan.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Store/Forgotten.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"
#include "Vault/VaultEntry.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <set>
#include <unordered_map>

namespace tidewrack {

namespace {

using Part = Damage::Part;
using Fault = Damage::Fault;

constexpr std::int64_t hour = 3600 * nanosPerSecond;

// Why it doesn't decode, without the path, which is told beside it.
std::string reasonOf(const TidewrackError& problem, const std::string& path) {
    std::string reason = problem.what();
    for (const std::string& known : {std::string("Corrupt store data: "), path + ": "})
        if (reason.starts_with(known)) reason.erase(0, known.size());
    return reason;
}

// Reads a file to its end. Returns an errno value.
int readThrough(const std::string& path, std::int64_t& size) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) return errno;
    std::vector<char> buffer(std::size_t{1} << 20);
    while (true) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return 0;
        size += count;
    }
}

// Whether a path leads to a place below the project's root, and nowhere else.
bool staysBelow(std::string_view path) {
    while (true) {
        const auto slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (name.empty() || name == "." || name == ".." || name.find('\0') != std::string_view::npos) return false;
        if (slash == std::string_view::npos) return true;
        path.remove_prefix(slash + 1);
    }
}

struct BlobName {
    std::int64_t seq = 0;
    std::int64_t number = 0;
};

std::optional<BlobName> blobName(std::string_view blob) {
    constexpr std::int64_t most = INT32_MAX;
    const auto slash = blob.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const auto seq = parseSeq(blob.substr(0, slash));
    const auto number = parseSeq(blob.substr(slash + 1));
    if (!seq || !number || *seq > most || *number > most) return std::nullopt;
    if (std::to_string(*seq) + "/" + std::to_string(*number) != blob) return std::nullopt;
    return BlobName{*seq, *number};
}

struct Content {
    Attributes kept;
    int error = 0;
    bool hasFaults = false;
};

// The contents of one history, each looked at when a listing first names it.
class Contents {
  public:
    // `read`: places below `home` of which every byte is read whatever the depth; may be null.
    Contents(const History& history, CheckDepth depth, const std::string& home, const std::set<std::string>* read)
        : history_(history), depth_(depth), home_(home.size() + 1), read_(read) {}

    // Compares what one listing says of a content. `written`: when the listing was.
    std::vector<Damage> compare(BlobName name, const Entry& entry, std::int64_t written, bool modesAreKept) {
        const auto [found, isNew] = contents_.try_emplace((name.seq << 32) + name.number);
        Content& content = found->second;
        if (isNew) look(content, entry);
        std::vector<Damage> result;
        const auto add = [&](Fault fault, std::int64_t is = 0, std::int64_t was = 0) {
            result.push_back({Part::content, fault, history_.blobPath(entry.blob), {}, content.error, is, was});
        };
        const Attributes& kept = content.kept;
        const bool isLink = entry.kind == EntryKind::link;
        if (content.error != 0)
            add(content.error == ENOENT || content.error == ENOTDIR ? Fault::missing : Fault::unreadable);
        else if (kept.kind != (isLink ? Attributes::Kind::link : Attributes::Kind::file))
            add(Fault::otherKind);
        else if (!isLink && kept.size != entry.size)
            add(Fault::otherSize, kept.size, entry.size);
        else if (!isLink && modesAreKept && kept.mode != keptMode)
            add(Fault::otherMode, kept.mode, keptMode);
        else if ((isNew || content.hasFaults) && !timeFits(kept.mtime, entry.mtime, written))
            add(Fault::otherTime, kept.mtime, entry.mtime);
        content.hasFaults = !result.empty();
        return result;
    }

    [[nodiscard]] std::int64_t count() const { return static_cast<std::int64_t>(contents_.size()); }
    [[nodiscard]] std::int64_t bytes() const { return bytes_; }

  private:
    static constexpr std::uint16_t keptMode = 0444;

    void look(Content& content, const Entry& entry) {
        const std::string path = history_.blobPath(entry.blob);
        content.error = attributesAt(AT_FDCWD, path.c_str(), content.kept);
        if (content.error != 0 || content.kept.kind != Attributes::Kind::file) return;
        bytes_ += content.kept.size;
        if (depth_ == CheckDepth::attributes && (read_ == nullptr || !read_->contains(path.substr(home_)))) return;
        std::int64_t size = 0;
        content.error = readThrough(path, size);
        content.kept.size = size;
    }

    // A content bears the time that its file had. What was cut to its entry, or merged, bears that of its making,
    // before its listing was written, and one that is listed again after a restore may have lost its fraction of a
    // second.
    static bool timeFits(std::int64_t kept, std::int64_t listed, std::int64_t written) {
        const bool coarse = kept % nanosPerSecond == 0 || listed % nanosPerSecond == 0;
        if (kept == listed || (coarse && std::abs(kept - listed) < 2 * nanosPerSecond)) return true;
        return (kept <= written && kept > written - hour) || (kept <= listed && kept > listed - hour);
    }

    const History& history_;
    CheckDepth depth_;
    std::size_t home_; // how much of a path names the store
    const std::set<std::string>* read_;
    std::unordered_map<std::int64_t, Content> contents_;
    std::int64_t bytes_ = 0;
};

class ProjectCheck {
  public:
    ProjectCheck(const Store& store, const std::string& id, CheckDepth depth, const Progress& progress,
                 const CheckUnderLock* held)
        : store_(store), history_(store.home + "/projects/" + id, {}),
          contents_(history_, depth, store.home, held == nullptr ? nullptr : &held->read), progress_(progress),
          held_(held) {
        result_.id = id;
    }

    CheckedProject run() {
        checkRecords();
        checkProjectRecord();
        for (const auto& [number, metas] : byListing_) checkListing(number, metas);
        result_.listings = static_cast<std::int64_t>(byListing_.size());
        result_.contents = contents_.count(); // of snapshots alone
        result_.bytes = contents_.bytes();
        checkUnnamedListings();
        finish();
        return std::move(result_);
    }

  private:
    using Metas = std::vector<SnapshotMeta>;

    Damage& add(Damage damage) {
        result_.damages.push_back(std::move(damage));
        return result_.damages.back();
    }

    void checkProjectRecord() {
        const std::string path = history_.recordPath();
        std::string text;
        const int error = readFile(path, text);
        const std::vector<std::int64_t> all = history_.seqs();
        if (error == ENOENT && all.empty()) return; // half made, or half removed: nothing depends on it
        if (error != 0) {
            add({Part::project, error == ENOENT ? Fault::missing : Fault::unreadable, path, {}, error}).snapshots = all;
            return;
        }
        try {
            const Project project = decodeProject(text, path);
            result_.root = project.root;
            if (project.id != result_.id || Store::projectID(project.root) != result_.id)
                add({Part::project, Fault::misplaced, path, project.root}).snapshots = all;
        } catch (const TidewrackError& problem) {
            add({Part::project, Fault::malformed, path, reasonOf(problem, path)}).snapshots = all;
        }
    }

    void checkRecords() {
        for (const std::string& name : listFolder(history_.snapshotsFolder())) {
            constexpr std::string_view ending = ".json";
            if (!name.ends_with(ending)) continue;
            const std::string path = history_.snapshotsFolder() + "/" + name;
            const auto seq = parseSeq(std::string_view(name).substr(0, name.size() - ending.size()));
            std::string text;
            const int error = readFile(path, text);
            if (error == ENOENT) continue; // removed just now
            const std::vector<std::int64_t> costs = seq ? std::vector{*seq} : std::vector<std::int64_t>();
            const std::size_t before = result_.damages.size();
            if (error != 0) {
                add({Part::record, Fault::unreadable, path, {}, error}).snapshots = costs;
            } else {
                try {
                    const SnapshotMeta meta = decodeSnapshotMeta(text, path);
                    if (seq != meta.seq)
                        add({Part::record, Fault::misplaced, path, "#" + std::to_string(meta.seq)}).snapshots = costs;
                    else
                        byListing_[meta.manifestOf].push_back(meta);
                } catch (const TidewrackError& problem) {
                    add({Part::record, Fault::malformed, path, reasonOf(problem, path)}).snapshots = costs;
                }
            }
            if (seq && result_.damages.size() > before) newestDamaged_ = std::max(newestDamaged_, *seq);
        }
        for (auto& [number, metas] : byListing_) {
            std::sort(metas.begin(), metas.end(), [](const auto& a, const auto& b) { return a.seq < b.seq; });
            for (const SnapshotMeta& meta : metas) readable_.push_back(meta);
        }
        std::sort(readable_.begin(), readable_.end(), [](const auto& a, const auto& b) { return a.seq < b.seq; });
        result_.snapshots = static_cast<std::int64_t>(readable_.size());
    }

    // The listing, where it can be read.
    std::optional<Manifest> readListing(std::int64_t number, Damage& damage) {
        damage = {Part::listing, Fault::missing, history_.manifestPath(number)};
        if (progress_) progress_("listings checked", ++done_);
        std::string bytes;
        damage.error = readFile(damage.place, bytes);
        if (damage.error != 0) {
            if (damage.error != ENOENT) damage.fault = Fault::unreadable;
            return std::nullopt;
        }
        try {
            return Manifest::decode(bytes);
        } catch (const TidewrackError& problem) {
            damage.fault = Fault::malformed;
            damage.detail = reasonOf(problem, damage.place);
            return std::nullopt;
        }
    }

    void checkListing(std::int64_t number, const Metas& metas) {
        Damage damage;
        const auto listing = readListing(number, damage);
        std::vector<std::int64_t> seqs;
        for (const SnapshotMeta& meta : metas) seqs.push_back(meta.seq);
        if (!listing) {
            add(std::move(damage)).snapshots = std::move(seqs);
            return;
        }
        for (const SnapshotMeta& meta : metas)
            if (meta.files != listing->fileCount())
                add({Part::listing, Fault::otherCount, damage.place, {}, 0, listing->fileCount(), meta.files})
                    .snapshots = {meta.seq};
        checkItems(number, *listing, [&](Damage found, std::string_view path) {
            const auto [known, isNew] = known_.try_emplace({found.place, found.fault}, result_.damages.size());
            Damage& noted = isNew ? add(std::move(found)) : result_.damages[known->second];
            noted.snapshots.insert(noted.snapshots.end(), seqs.begin(), seqs.end());
            if (std::find(noted.paths.begin(), noted.paths.end(), path) == noted.paths.end())
                noted.paths.emplace_back(path);
        });
    }

    // Hands out what is wrong with the items of a listing.
    template <typename Take>
    void checkItems(std::int64_t number, const Manifest& listing, Take take) {
        Attributes file;
        const std::string place = history_.manifestPath(number);
        const bool known = attributesAt(AT_FDCWD, place.c_str(), file) == 0;
        // Listings can't be run: where they seem so the volume keeps no modes.
        const bool modesAreKept = known && (file.mode & 0111) == 0;
        for (const auto& [path, entry] : listing.items()) {
            if (!staysBelow(path)) take({Part::listing, Fault::badName, place, std::string(path)}, path);
            if (!entry.isKept()) continue;
            const auto name = blobName(entry.blob);
            if (!name || name->seq > number) {
                take({Part::listing, Fault::badName, place, std::string(entry.blob)}, path);
                continue;
            }
            for (Damage& damage : contents_.compare(*name, entry, known ? file.mtime : INT64_MAX, modesAreKept))
                take(std::move(damage), path);
        }
    }

    // A listing that no record names is left by a snapshot that came to no end, or by a prune; or it has lost its
    // record. Only of the last all contents are there, and no prune would remove it.
    void checkUnnamedListings() {
        constexpr std::string_view ending = ".mf";
        std::vector<std::int64_t> unnamed;
        forEachName(history_.manifestsFolder(), [&](std::string_view name) {
            if (!name.ends_with(ending)) return;
            const auto number = parseSeq(name.substr(0, name.size() - ending.size()));
            if (number && !byListing_.contains(*number) && !exists(history_.metaPath(*number)))
                unnamed.push_back(*number);
        });
        for (const std::int64_t number : unnamed)
            if (isWhole(number) && !isBeingWorkedOn(number) && !isDueToGo(number))
                add({Part::record, Fault::unrecorded, history_.metaPath(number)}).snapshots = {number};
    }

    bool isWhole(std::int64_t number) {
        Damage damage;
        const auto listing = readListing(number, damage);
        bool whole = listing.has_value();
        if (whole) checkItems(number, *listing, [&](const Damage&, std::string_view) { whole = false; });
        return whole;
    }

    // Whoever made or removes the listing holds the lock.
    bool isBeingWorkedOn(std::int64_t number) {
        if (held_ != nullptr) return false;
        try {
            const ProjectLock lock(history_.lockPath(), std::chrono::steady_clock::now() + std::chrono::seconds(2));
        } catch (const TidewrackError&) {
            return true;
        }
        return exists(history_.metaPath(number)) || !exists(history_.manifestPath(number));
    }

    bool isDueToGo(std::int64_t number) {
        if (readForgotten(history_.folder()).mayHaveHeld(number)) return true; // what was forgotten doesn't come back
        if (number < newestDamaged_) return false; // that snapshot may be one with this listing, and pinned
        Attributes file;
        if (attributesAt(AT_FDCWD, history_.manifestPath(number).c_str(), file) != 0) return true;
        SnapshotMeta lost;
        lost.seq = lost.manifestOf = number;
        lost.created = Date(std::chrono::seconds(file.mtime / nanosPerSecond));
        Metas all = readable_;
        all.insert(
            std::upper_bound(all.begin(), all.end(), lost, [](const auto& a, const auto& b) { return a.seq < b.seq; }),
            lost);
        const auto removed = planRetention(all, now()).remove;
        return std::find(removed.begin(), removed.end(), number) != removed.end();
    }

    // What only snapshots needed that were removed meanwhile is no damage.
    void finish() {
        std::set<std::int64_t> gone;
        for (const SnapshotMeta& meta : readable_)
            if (!exists(history_.metaPath(meta.seq))) gone.insert(meta.seq);
        std::erase_if(result_.damages, [&](Damage& damage) {
            const bool hadSome = !damage.snapshots.empty();
            std::erase_if(damage.snapshots, [&](std::int64_t seq) { return gone.contains(seq); });
            sortAndDedupe(damage.snapshots);
            damage.place.erase(0, store_.home.size() + 1);
            return hadSome && damage.snapshots.empty();
        });
        std::stable_sort(result_.damages.begin(), result_.damages.end(),
                         [](const Damage& a, const Damage& b) { return a.place < b.place; });
    }

    const Store& store_;
    History history_;
    Contents contents_;
    const Progress& progress_;
    const CheckUnderLock* held_;
    CheckedProject result_;
    std::map<std::int64_t, Metas> byListing_; // records that can be read, by the number of their listing
    Metas readable_;                          // ascending
    std::int64_t newestDamaged_ = 0;          // the newest record that can't be read
    std::map<std::pair<std::string, Fault>, std::size_t> known_; // among result_.damages, by place
    std::size_t done_ = 0;
};

class VaultCheck {
  public:
    VaultCheck(const Store& store, CheckDepth depth)
        : folder_(store.home + "/vault"), home_(store.home.size() + 1), depth_(depth) {}

    CheckedVault run() {
        std::vector<std::string> names = listFolder(folder_);
        std::sort(names.begin(), names.end());
        for (const std::string& name : names)
            if (isFolder(folder_ + "/" + name)) checkEntry(name);
        for (Damage& damage : result_.damages) damage.place.erase(0, home_);
        return std::move(result_);
    }

  private:
    void add(Part part, Fault fault, const std::string& place, const std::string& detail, int error = 0,
             std::vector<std::string> paths = {}) {
        Damage damage{part, fault, place, detail, error};
        damage.paths = std::move(paths);
        result_.damages.push_back(std::move(damage));
    }

    void checkEntry(const std::string& id) {
        const std::string path = folder_ + "/" + id + "/entry.json";
        std::string text;
        const int error = readFile(path, text);
        if (error == ENOENT) return; // still being saved, or a process died while it did
        ++result_.entries;
        if (error != 0) return add(Part::vaultRecord, Fault::unreadable, path, {}, error);
        try {
            const VaultEntry entry = decodeVaultEntry(text, path);
            if (entry.id != id) add(Part::vaultRecord, Fault::misplaced, path, entry.id);
            for (const VaultEntry::Item& item : entry.items) checkItem(id, item);
        } catch (const TidewrackError& problem) {
            add(Part::vaultRecord, Fault::malformed, path, reasonOf(problem, path));
        }
    }

    void checkItem(const std::string& id, const VaultEntry::Item& item) {
        ++result_.items;
        const std::string place = folder_ + "/" + id + "/" + item.stored;
        if (!staysBelow(item.stored))
            return add(Part::vaultRecord, Fault::badName, folder_ + "/" + id + "/entry.json", item.stored, 0,
                       {item.original});
        Attributes kept;
        int error = attributesAt(AT_FDCWD, place.c_str(), kept);
        if (error != 0)
            return add(Part::vaultItem, error == ENOENT ? Fault::missing : Fault::unreadable, place, {}, error,
                       {item.original});
        const auto kind = item.kind == "dir"    ? Attributes::Kind::folder
                          : item.kind == "link" ? Attributes::Kind::link
                                                : Attributes::Kind::file;
        if (kept.kind != kind) return add(Part::vaultItem, Fault::otherKind, place, {}, 0, {item.original});
        if (depth_ == CheckDepth::bytes) readTree(place, kept.kind, item.original);
    }

    void readTree(const std::string& place, Attributes::Kind kind, const std::string& original) {
        std::int64_t size = 0;
        int error = 0;
        if (kind == Attributes::Kind::file) error = readThrough(place, size);
        if (kind == Attributes::Kind::folder)
            error = visitNames(place, [&](const char* name) {
                Attributes below;
                const std::string path = joined(place, name);
                if (attributesAt(AT_FDCWD, path.c_str(), below) == 0)
                    readTree(path, below.kind, joined(original, name));
                return true;
            });
        if (error != 0) add(Part::vaultItem, Fault::unreadable, place, {}, error, {original});
    }

    std::string folder_;
    std::size_t home_; // how much of a place names the store
    CheckDepth depth_;
    CheckedVault result_;
};

} // namespace

std::vector<std::string> projectFolders(const Store& store) {
    store.refuseForeign();
    std::vector<std::string> names = listFolder(store.home + "/projects");
    std::erase_if(names, [&](const std::string& name) {
        return name.starts_with(temporaryPrefix) || !isFolder(store.home + "/projects/" + name);
    });
    std::sort(names.begin(), names.end());
    return names;
}

CheckedProject checkProject(const Store& store, const std::string& id, CheckDepth depth, const Progress& progress,
                            const CheckUnderLock* held) {
    return ProjectCheck(store, id, depth, progress, held).run();
}

CheckedVault checkVault(const Store& store, CheckDepth depth) {
    return VaultCheck(store, depth).run();
}

} // namespace tidewrack
