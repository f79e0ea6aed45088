#include "Engine/Repair.hpp"

#include "Engine/RetentionPlan.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Vault/VaultEntry.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <unordered_set>

namespace tidewrack {

namespace {

using Part = Damage::Part;
using Fault = Damage::Fault;
using How = Mending::How;

constexpr int mostRounds = 4; // mending a record may show what it hid

void require(int error, const char* action, const std::string& path) {
    if (error != 0) throw TidewrackError::io(action, path, error);
}

// What can't be read for a moment, or for want of rights, may be whole.
void requireLasting(const Damage& damage) {
    if (damage.fault == Fault::unreadable && damage.error != EISDIR && damage.error != ELOOP && damage.error != EIO)
        throw TidewrackError::io("read", damage.place, damage.error);
}

// The folder for what is moved aside: each thing keeps its path below the store's.
class Aside {
  public:
    Aside(const Store& store, RepairResult& result) : home_(store.home), result_(result) {}

    void move(const std::string& place) {
        const std::string from = joined(home_, place);
        if (const int error = moveFile(from, newPlace(place))) throw TidewrackError::io("move", from, error);
        result_.mendings.push_back({How::movedAside, place});
    }

    // Leaves it where it is as well, for what is then replaced.
    void copy(const std::string& place) { require(copyTree(joined(home_, place), newPlace(place), {}), "copy", place); }

  private:
    std::string newPlace(const std::string& place) {
        if (result_.aside.empty()) {
            const std::string stem = home_ + "/damaged/" + isoText(now());
            std::string folder = stem;
            for (int n = 2; exists(folder); ++n) folder = stem + "-" + std::to_string(n);
            require(makeFolders(folder, 0700), "create", folder);
            result_.aside = folder;
        }
        std::string path = joined(result_.aside, place);
        require(makeFolders(std::string(parentOf(path)), 0700), "create", path);
        const std::string stem = path;
        for (int n = 2; exists(path); ++n) path = stem + "-" + std::to_string(n);
        return path;
    }

    const std::string& home_;
    RepairResult& result_;
};

class Repair {
  public:
    Repair(const Engine& engine, const CheckedProject& found, const std::vector<std::string>& roots)
        : engine_(engine), store_(engine.store), id_(found.id), roots_(roots),
          history_(store_.home + "/projects/" + id_, {}), lock_(history_.lockPath()), aside_(store_, result_) {
        for (const Damage& damage : found.damages)
            if (damage.part == Part::content) held_.read.insert(damage.place);
    }

    RepairResult run() {
        bool known = false; // what a check would find
        for (int round = 0; round < mostRounds && !known; ++round) {
            result_.after = check();
            root_ = result_.after.root;
            result_.failures.clear();
            lost_.clear();
            const std::size_t before = result_.mendings.size();
            for (const Damage& damage : result_.after.damages) attempt([&] { mend(damage); });
            known = result_.mendings.size() == before;
        }
        if (!lost_.empty()) attempt([this] { moveLost(); });
        if (!known || !lost_.empty()) result_.after = check();
        return std::move(result_);
    }

  private:
    [[nodiscard]] CheckedProject check() const {
        return checkProject(store_, id_, CheckDepth::attributes, engine_.progress, &held_);
    }

    // One thing that can't be mended does not keep the others.
    template <typename Action>
    void attempt(Action action) {
        try {
            action();
        } catch (const TidewrackError& error) {
            result_.failures.emplace_back(error.what());
        }
    }

    void mend(const Damage& damage) {
        switch (damage.part) {
        case Part::project: return mendProject(damage);
        case Part::record: return mendRecord(damage);
        case Part::listing: return mendListing(damage);
        case Part::content: return mendContent(damage);
        case Part::vaultRecord:
        case Part::vaultItem: return;
        }
    }

    void done(How how, const std::string& place) { result_.mendings.push_back({how, place}); }

    // The id holds a part of the root's checksum, so that of a folder it can be told whether it is the one.
    void mendProject(const Damage& damage) {
        requireLasting(damage);
        const auto root = std::find_if(roots_.begin(), roots_.end(),
                                       [&](const std::string& each) { return Store::projectID(each) == id_; });
        if (root == roots_.end())
            throw TidewrackError::refused("Run this in the folder that the history " + id_ + " is of, to mend " +
                                          damage.place + ".");
        Project project;
        project.created = now();
        project.excludes = defaultExcludes();
        project.excludesIfIgnored = defaultExcludesIfIgnored();
        std::sort(project.excludes.begin(), project.excludes.end());
        std::sort(project.excludesIfIgnored->begin(), project.excludesIfIgnored->end());
        std::string text;
        if (damage.fault == Fault::misplaced && readFile(history_.recordPath(), text) == 0)
            project = decodeProject(text, history_.recordPath());
        project.id = id_;
        project.root = *root;
        replaceRecord(damage.place, compactJson(toJson(project)));
        done(How::rebuilt, damage.place);
    }

    // At no instant is the record missing: who removes what no record names would take its contents.
    void replaceRecord(const std::string& place, const std::string& text) {
        const std::string path = joined(store_.home, place);
        Attributes there;
        if (attributesAt(AT_FDCWD, path.c_str(), there) == 0) {
            if (there.kind == Attributes::Kind::file)
                aside_.copy(place);
            else
                aside_.move(place);
        }
        writeFileAtomically(path, text);
    }

    void mendRecord(const Damage& damage) {
        requireLasting(damage);
        std::optional<SnapshotMeta> meta;
        try {
            if (!damage.snapshots.empty()) meta = recovered(damage.snapshots.front());
        } catch (const TidewrackError& error) {
            if (error.kind() != TidewrackError::Kind::corrupt) throw;
        }
        if (!meta) return lost_.push_back(damage);
        replaceRecord(damage.place, compactJson(toJson(*meta)));
        done(How::recovered, damage.place);
    }

    // What the listing tells of its snapshot; throws corrupt where it doesn't. One without a listing of its own was
    // like the one before it. What a prune would take at once is pinned: it may have been before.
    [[nodiscard]] SnapshotMeta recovered(std::int64_t seq) const {
        SnapshotMeta meta;
        meta.seq = seq;
        meta.manifestOf = exists(history_.manifestPath(seq)) ? seq : listingBefore(seq);
        Attributes file;
        const std::string path = history_.manifestPath(meta.manifestOf);
        require(attributesAt(AT_FDCWD, path.c_str(), file), "read", path);
        meta.created = Date(std::chrono::seconds(file.mtime / nanosPerSecond));
        meta.kind = "recovered";
        const Manifest listing = history_.manifest(meta);
        meta.files = listing.fileCount();
        std::vector<UnreadRecord> unread;
        std::vector<SnapshotMeta> all = history_.snapshots(unread);
        const auto next = std::upper_bound(all.begin(), all.end(), seq,
                                           [](std::int64_t number, const auto& each) { return number < each.seq; });
        try {
            const Manifest before = next == all.begin() ? Manifest() : history_.manifest(*std::prev(next));
            const Changes changes = Changes::between(before, listing);
            const auto counts = changes.fileCounts();
            meta.added = counts.added;
            meta.modified = counts.modified;
            meta.deleted = counts.deleted;
            meta.folders = static_cast<std::int64_t>(changes.folders.size());
        } catch (const TidewrackError&) { // the one before is damaged too
        }
        all.insert(next, meta);
        const auto removed = planRetention(all, now()).remove;
        meta.pinned = meta.manifestOf != seq || std::find(removed.begin(), removed.end(), seq) != removed.end();
        return meta;
    }

    // The nearest whole listing below the number. An empty one only takes the number of a snapshot that came to no end.
    [[nodiscard]] std::int64_t listingBefore(std::int64_t seq) const {
        std::vector<std::int64_t> numbers = listings();
        std::sort(numbers.rbegin(), numbers.rend());
        for (const std::int64_t number : numbers) {
            if (number >= seq) continue;
            try {
                SnapshotMeta like;
                like.manifestOf = number;
                if (!history_.manifest(like).empty()) return number;
            } catch (const TidewrackError&) { // an older one may be whole
            }
        }
        throw TidewrackError::corrupt("missing manifest for #" + std::to_string(seq));
    }

    [[nodiscard]] std::vector<std::int64_t> listings() const {
        constexpr std::string_view ending = ".mf";
        std::vector<std::int64_t> numbers;
        for (const std::string& name : listFolder(history_.manifestsFolder()))
            if (const auto number = parseSeq(std::string_view(name).substr(0, name.find(ending)));
                number && name.ends_with(ending))
                numbers.push_back(*number);
        return numbers;
    }

    // One that can be read stays, with what is wrong in it.
    void mendListing(const Damage& damage) {
        requireLasting(damage);
        if (damage.fault == Fault::missing || damage.fault == Fault::malformed || damage.fault == Fault::unreadable)
            lost_.push_back(damage);
    }

    void mendContent(const Damage& damage) {
        requireLasting(damage);
        const std::string path = joined(store_.home, damage.place);
        if (damage.fault == Fault::otherMode) {
            if (::chmod(path.c_str(), 0444) != 0) throw TidewrackError::io("write", path, errno);
            done(How::reset, damage.place);
            return;
        }
        for (const std::string& each : damage.paths)
            if (rebuild(damage, each)) return done(How::rebuilt, damage.place);
        // Of one that was changed somebody may still want what it is now.
        if (damage.fault != Fault::missing && damage.fault != Fault::otherTime) aside_.move(damage.place);
    }

    // From the project's own file, where that is what the newest damaged snapshot lists.
    bool rebuild(const Damage& damage, const std::string& path) {
        if (root_.empty() || damage.snapshots.empty()) return false;
        const Manifest listing = history_.manifest(history_.snapshot(damage.snapshots.back()));
        const Entry* entry = listing.find(path);
        Descriptor root;
        Descriptor folder;
        if (entry == nullptr || openFolder(root_, root) != 0 ||
            openFolderBelow(root.get(), parentOf(path), folder) != 0)
            return false;
        const std::string name(lastComponent(path));
        const Place source{folder.get(), name.c_str()};
        const std::string target = history_.blobPath(entry->blob);
        const std::string temporary = joined(parentOf(target), temporaryName());
        if (!isUnchanged(source, *entry)) return false;
        require(makeFolders(std::string(parentOf(target)), 0755), "create", target);
        removeLeftovers(std::string(parentOf(target))); // of a repair that came to no end
        int error = copyContent(source, *entry, temporary);
        if (error == 0 && !isUnchanged(source, *entry)) error = keptChanging;
        if (error != 0) {
            (void)::unlink(temporary.c_str());
            throw TidewrackError::io("rebuild", target, error);
        }
        if (exists(target)) aside_.move(damage.place);
        error = moveFile(temporary, target);
        if (error != 0) throw TidewrackError::io("write", target, error);
        return true;
    }

    static bool isUnchanged(Place place, const Entry& entry) {
        Attributes now;
        return attributesAt(place.folder, place.name, now) == 0 && entryOf(now).sameAttributes(entry);
    }

    static int copyContent(Place source, const Entry& entry, const std::string& to) {
        const Place target{AT_FDCWD, to.c_str()};
        if (entry.kind == EntryKind::link) return copyLink(source, target);
        const Descriptor file(::openat(source.folder, source.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status {};
        if (!file || ::fstat(file.get(), &status) != 0) return errno;
        CopyMemory memory;
        if (const int error = copyOpenFile(file.get(), status, target, {0444, entry.mtime}, memory)) return error;
        const Descriptor copy(::open(to.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        return copy ? writeOut(copy.get()) : errno;
    }

    // Without its listing a record leads nowhere, and neither does a damaged record. Contents go first that nothing
    // else names: no prune removes any as long as the damage is there.
    void moveLost() {
        const std::string folder = "projects/" + id_;
        const auto named = namedContents();
        for (const std::string& seq : listFolder(history_.blobsFolder()))
            for (const std::string& name : listFolder(history_.blobPath(seq)))
                if (!named.contains(joined(seq, name))) aside_.move(folder + "/blobs/" + joined(seq, name));
        for (const Damage& damage : lost_)
            if (damage.part == Part::listing && damage.fault != Fault::missing) aside_.move(damage.place);
        for (const Damage& damage : lost_) {
            if (damage.part == Part::record) aside_.move(damage.place);
            if (damage.part == Part::listing)
                for (const std::int64_t seq : damage.snapshots)
                    aside_.move(folder + "/snapshots/" + std::to_string(seq) + ".json");
        }
    }

    // By all listings that can be decoded, whether or not a record leads to them.
    [[nodiscard]] std::unordered_set<std::string> namedContents() const {
        std::unordered_set<std::string> named;
        for (const std::int64_t number : listings()) {
            try {
                const TextBuffer text = history_.manifestText(number);
                Manifest::forEachBlob({text.bytes.get(), text.size},
                                      [&](std::string_view blob) { named.insert(std::string(blob)); });
            } catch (const TidewrackError& error) {
                const bool isFolderThere = isFolder(history_.manifestPath(number));
                if (error.kind() != TidewrackError::Kind::corrupt && !isFolderThere) throw;
            }
        }
        return named;
    }

    const Engine& engine_;
    const Store& store_;
    std::string id_;
    const std::vector<std::string>& roots_;
    History history_;
    ProjectLock lock_;
    CheckUnderLock held_{lock_, {}};
    RepairResult result_;
    Aside aside_;
    std::string root_;
    std::vector<Damage> lost_; // records and listings that nothing can bring back
};

} // namespace

RepairResult repairProject(const Engine& engine, const CheckedProject& found, const std::vector<std::string>& roots) {
    return Repair(engine, found, roots).run();
}

RepairResult repairVault(const Store& store, const CheckedVault& checked) {
    RepairResult result;
    Aside aside(store, result);
    std::map<std::string, std::vector<const Damage*>> damaged; // by the entry's folder
    for (const Damage& damage : checked.damages)
        if (damage.part == Part::vaultRecord) damaged[std::string(parentOf(damage.place))].push_back(&damage);
    for (const auto& [folder, damages] : damaged) {
        try {
            for (const Damage* damage : damages) requireLasting(*damage);
            const bool isOtherID = std::all_of(damages.begin(), damages.end(),
                                               [](const Damage* damage) { return damage->fault == Fault::misplaced; });
            if (!isOtherID) {
                aside.move(folder);
                continue;
            }
            const std::string& place = damages.front()->place;
            const std::string path = joined(store.home, place);
            std::string text;
            require(readFile(path, text), "read", path);
            VaultEntry entry = decodeVaultEntry(text, path);
            entry.id = lastComponent(folder);
            aside.copy(place);
            writeFileAtomically(path, compactJson(toJson(entry)));
            result.mendings.push_back({How::rebuilt, place});
        } catch (const TidewrackError& error) {
            result.failures.emplace_back(error.what());
        }
    }
    return result;
}

} // namespace tidewrack
