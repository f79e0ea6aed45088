// Taking a snapshot: contents first, then the manifest, then the record, each complete before the next. A death at
// any point leaves only leftovers, which the numbering steps over.

#include "Engine/CloneAll.hpp"
#include "Engine/ContentKeeper.hpp"
#include "Engine/Engine.hpp"
#include "Engine/Spelling.hpp"
#include "Engine/Temporaries.hpp"
#include "Engine/Trace.hpp"
#include "Engine/UnreadFolders.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Store/Forgotten.hpp"
#include "Store/Settings.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace tidewrack {

namespace {

constexpr std::size_t cloneThreads = 4;

// The content folder of a snapshot being taken: removed again unless the snapshot was recorded.
class ContentFolder {
  public:
    explicit ContentFolder(std::string path) : path_(std::move(path)) {}
    ContentFolder(const ContentFolder&) = delete;
    ContentFolder& operator=(const ContentFolder&) = delete;
    ~ContentFolder() {
        if (folder_ && !committed_) (void)removeTree(path_);
    }
    void make() {
        // An empty one was made by the call itself, where the volume repeated it: the number is new.
        const int error = ::mkdir(path_.c_str(), 0755) == 0 ? 0 : errno;
        if (error != 0 && (error != EEXIST || !listFolder(path_).empty()))
            throw TidewrackError::io("create", path_, error);
        if (const int failure = openFolder(path_, folder_)) throw TidewrackError::io("open", path_, failure);
    }
    [[nodiscard]] int get() const { return folder_.get(); }
    void commit() {
        committed_ = true;
        if (folder_) (void)::rmdir(path_.c_str()); // succeeds only when nothing was kept
    }

  private:
    std::string path_;
    Descriptor folder_;
    bool committed_ = false;
};

std::string tooLargeBlob(const Entry& entry) {
    return "big:" + std::to_string(entry.size) + ":" + std::to_string(entry.mtime);
}

// One snapshot while it is being taken: the walk turns into entries and copies to make.
class SnapshotRun {
  public:
    struct Limits {
        std::int64_t maxFileSize = 0;
        bool noRoom = false; // for large contents
    };

    SnapshotRun(const Manifest& previous, std::int64_t seq, const Limits& limits, const Progress& progress)
        : previous_(previous), index_(previous), seq_(seq), maxFileSize_(limits.maxFileSize), noRoom_(limits.noRoom),
          progress_(progress), builder_(previous) {}

    void add(const Walker::Item& item) {
        const std::uint32_t rank = index_.find(item.path);
        Entry entry = item.entry;
        if (entry.kind != EntryKind::dir && !entry.isIgnored()) entry.blob = reusableBlob(rank, entry);
        const bool needsContent = entry.kind != EntryKind::dir && entry.blob.empty();
        const bool tooLarge = needsContent && entry.kind == EntryKind::file && entry.size > maxFileSize_;
        const bool noRoom =
            needsContent && !tooLarge && noRoom_ && entry.kind == EntryKind::file && entry.size > Settings::alwaysKept;
        const std::string blob = tooLarge ? tooLargeBlob(entry) : noRoom ? KeepFailure{why}.blob() : std::string();
        if (tooLarge || noRoom) entry.blob = blob;
        if (noRoom && (++withoutRoom_ == 1 || item.path < firstWithoutRoom_)) firstWithoutRoom_ = item.path;
        const auto handle = builder_.add(item.path, entry, rank);
        if (needsContent && !tooLarge && !noRoom) {
            jobs_.push_back({handle, std::to_string(seq_) + "/" + std::to_string(jobs_.size()), entry});
            jobs_.back().earlier = perhapsSame(rank, entry);
        }
        if (progress_ && (builder_.size() & 1023) == 0) progress_("walked", builder_.size());
    }

    // Keeps the contents; failures become "err" entries and warnings.
    void keepContents(const Project& project, ContentFolder& contents, const Deadline& deadline,
                      SnapshotResult& result) {
        tellOfRoom(result);
        if (jobs_.empty()) return;
        contents.make();
        Descriptor root;
        if (const int error = openFolder(project.root, root)) throw TidewrackError::io("read", project.root, error);
        const Keeper keeper(contents.get(), maxFileSize_);
        const BackgroundFlush flushing(contents.get(), jobs_.size(), pending_);
        std::atomic<std::size_t> done = 0;
        const auto results = cloneAll(jobs_.size(), cloneThreads, root.get(), [&](std::size_t i, CloneWorker& worker) {
            if (passed(deadline)) {
                jobs_[i].failure = {KeepFailure::Why::late};
                return 0;
            }
            if (progress_) progress_("kept", ++done);
            worker.memory.deadline = deadline;
            worker.memory.pending = &pending_;
            keeper.keep(jobs_[i], builder_.item(jobs_[i].item).path, worker);
            return 0;
        });
        for (std::size_t i = 0; i < jobs_.size(); ++i) {
            if (results[i] != 0) jobs_[i].failure = KeepFailure::system(results[i]); // no memory for it
            settle(jobs_[i], result);
        }
    }

    // Whether files were found to be the same though they are others, which the listing has to tell.
    [[nodiscard]] bool hasRecognised() const { return recognised_; }
    [[nodiscard]] std::size_t jobCount() const { return jobs_.size(); }
    [[nodiscard]] std::size_t itemCount() const { return builder_.size(); }
    [[nodiscard]] const PendingWrites& pending() const { return pending_; }
    [[nodiscard]] Manifest finish() { return builder_.finish(); }

  private:
    static constexpr auto why = KeepFailure::Why::noRoom;

    // The content of an untouched file is already kept. What could not be kept is tried again, as is what lies within
    // the size limit now.
    [[nodiscard]] std::string_view reusableBlob(std::uint32_t rank, const Entry& entry) const {
        if (rank == PathIndex::none) return {};
        const Entry& before = previous_.items()[rank].entry;
        if (!before.sameAttributes(entry) || before.blob.starts_with("err")) return {};
        if (before.isIgnored()) return {};
        if (before.blob.starts_with("big:") && entry.size <= maxFileSize_) return {};
        return before.blob;
    }

    void tellOfRoom(SnapshotResult& result) const {
        if (withoutRoom_ == 0) return;
        Warning warning{Warning::Kind::noRoom, firstWithoutRoom_, {why}};
        warning.source = withoutRoom_;
        result.unsaved = withoutRoom_;
        result.firstUnsaved = warning;
        result.warnings.push_back(std::move(warning));
    }

    // What was kept of a file that was copied or moved here since from another volume, times and all.
    [[nodiscard]] std::string_view perhapsSame(std::uint32_t rank, const Entry& entry) const {
        if (rank == PathIndex::none || entry.kind != EntryKind::file) return {};
        const Entry& before = previous_.items()[rank].entry;
        const bool isLike = before.kind == entry.kind && before.isKept() && before.size == entry.size &&
                            before.mtime == entry.mtime && before.ino != entry.ino;
        return isLike ? before.blob : std::string_view();
    }

    static void count(const std::string& path, const KeepFailure& failure, SnapshotResult& result) {
        result.warnings.push_back({Warning::Kind::notSaved, path, failure});
        if (failure.why == KeepFailure::Why::late) {
            ++result.late;
        } else if (failure.error != ENOENT && failure.error != ENOTDIR) {
            if (++result.unsaved == 1) result.firstUnsaved = result.warnings.back();
        }
    }

    void settle(KeepJob& job, SnapshotResult& result) {
        std::string blob = job.isEarlier ? job.earlier : job.blob;
        recognised_ = recognised_ || job.isEarlier;
        if (job.failure) {
            blob = job.failure.blob();
            count(std::string(builder_.item(job.item).path), job.failure, result);
        } else if (job.tooLarge) {
            blob = tooLargeBlob(job.entry);
        } else if (job.growing) {
            result.warnings.push_back({Warning::Kind::savedInPart, std::string(builder_.item(job.item).path)});
        }
        job.entry.blob = blob;
        builder_.setEntry(job.item, job.entry);
    }

    const Manifest& previous_;
    PathIndex index_;
    std::int64_t seq_;
    std::int64_t maxFileSize_;
    bool noRoom_;
    bool recognised_ = false;
    std::int64_t withoutRoom_ = 0;
    std::string firstWithoutRoom_;
    const Progress& progress_;
    ManifestBuilder builder_;
    std::vector<KeepJob> jobs_;
    PendingWrites pending_;
};

SnapshotRun::Limits limitsOf(const Project& project, const Store& store) {
    return {project.maxFileSize.value_or(Project::defaultMaxFileSize), isAlmostFull(store.home)};
}

// The newest snapshot with its manifest, when both can be read.
struct Previous {
    std::optional<SnapshotMeta> meta;
    Manifest manifest;
};

// The walker is told how many files to expect, so that it can begin meanwhile.
Previous loadPrevious(const History& history, std::optional<std::int64_t> newest, Walker& walker,
                      std::vector<Warning>& warnings) {
    if (!newest) return {};
    try {
        const SnapshotMeta meta = history.snapshot(*newest);
        walker.expect(meta.files);
        return {meta, history.manifest(meta)};
    } catch (const std::exception& error) {
        Warning& warning = warnings.emplace_back();
        warning.kind = Warning::Kind::previousUnreadable;
        warning.source = *newest;
        warning.detail = error.what();
        return {};
    }
}

// Whether a power cut could still take the record, should a flush of its name have failed or not been reached.
bool isFresh(const SnapshotMeta& meta) {
    constexpr auto settled = std::chrono::seconds(60); // twice what volumes take to bring changes to the disk
    const auto age = now() - meta.created - std::chrono::milliseconds(meta.durationMs);
    return age < settled;
}

void noteNotKept(const LeaveOutRules& rules, const Previous& previous, TakenSnapshot& taken) {
    taken.result.notKept = notKeptIn(taken.manifest);
    auto warning = leftOutSince(previous.manifest, taken.manifest, rules);
    if (!warning) return;
    warning->source = previous.meta->seq;
    taken.result.warnings.push_back(std::move(*warning));
}

void copyRequest(const SnapshotRequest& request, SnapshotMeta& meta) {
    meta.kind = request.kind;
    meta.label = request.label;
    meta.agent = request.agent;
    meta.session = request.session;
    meta.turn = request.turn;
    meta.reversal = request.reversal;
    meta.background = request.background;
    meta.end = request.end;
}

void copyCounts(const TakenSnapshot& taken, SnapshotMeta& meta) {
    const auto counts = taken.result.changes.fileCounts();
    meta.files = taken.manifest.fileCount();
    meta.added = counts.added;
    meta.modified = counts.modified;
    meta.deleted = counts.deleted;
    meta.folders = static_cast<std::int64_t>(taken.result.changes.folders.size());
    const auto isUnseen = [](const Warning& warning) { return warning.kind == Warning::Kind::unread; };
    const auto& warnings = taken.result.warnings;
    meta.notKept = taken.result.notKept.count() + std::count_if(warnings.begin(), warnings.end(), isUnseen);
}

// A snapshot in which nothing changed need not wait for the disk. One before a restore does: what the restore flushes
// must not outlive its record.
void writeRecord(const History& history, const ProjectLock& lock, const SnapshotMeta& meta, bool waits) {
    if (waits)
        history.writeSnapshot(lock, meta);
    else
        history.writeUnchangedSnapshot(lock, meta);
}

} // namespace

std::int64_t Engine::nextSeq(const History& history, std::optional<std::int64_t> newest) const {
    const std::int64_t highest =
        std::max({newest.value_or(0), history.highestLeftover(), readForgotten(history.folder()).highest()});
    if (highest == INT64_MAX) throw TidewrackError::corrupt("no number is left for a new snapshot");
    return highest + 1;
}

TakenSnapshot Engine::snapshotLocked(const ProjectLock& lock, const Project& project, const SnapshotRequest& request,
                                     Unchanged unchanged) const {
    const auto start = std::chrono::steady_clock::now();
    Trace trace;
    TakenSnapshot taken;
    SnapshotMeta& meta = taken.result.meta;
    meta.created = now();
    const History history = store.history(project);
    const auto newest = history.newestSeq();
    const auto nested = nestedRoots(project, request.registry != nullptr ? *request.registry : store.projects());
    auto walker = projectWalker(project, nested, {knownPrefixes(history)},
                                request.gitPatience != nullptr ? request.gitPatience : &gitPatience);
    const Previous previous = loadPrevious(history, newest, *walker, taken.result.warnings);
    NewestListing earlier(history, previous.meta ? previous.meta->seq : 0, previous.manifest);
    trace.mark([] { return "load previous manifest"; });

    meta.seq = nextSeq(history, newest);
    if (meta.seq > newest.value_or(0) + 1) history.markUnfinished(lock, meta.seq - 1);
    SnapshotRun run(previous.manifest, meta.seq, limitsOf(project, store), progress);
    walker->walk(
        [&](const Walker::Item& item) {
            run.add(item);
            return true;
        },
        [&](std::string_view folder) { return earlier.get().listsIgnored(folder); });
    const Unseen unseen(*walker);
    const LeaveOutRules rules = walker->rules();
    taken.omitted = walker->omitted();
    walker.reset(); // git and the second thread go with it
    trace.mark([&] { return "walk " + std::to_string(run.itemCount()) + " entries"; });

    ContentFolder contents(history.blobPath(std::to_string(meta.seq)));
    run.keepContents(project, contents, request.deadline, taken.result);
    trace.mark([&] { return "keep " + std::to_string(run.jobCount()) + " contents"; });

    taken.manifest = run.finish();
    for (Warning& warning : addUnseen(unseen, earlier, {true, previous.meta ? previous.meta->seq : 0}, taken.manifest))
        taken.result.warnings.push_back(std::move(warning));
    noteNotKept(rules, previous, taken);
    const Changes& changes = taken.result.changes = Changes::between(previous.manifest, taken.manifest);
    // What a turn did to a folder alone is on record as well, so that it can be taken back.
    const bool share =
        previous.meta && !run.hasRecognised() && changes.isEmpty() && listTheSame(previous.manifest, taken.manifest);
    // The previous snapshot has all that an unchanged one has. One that was unchanged itself has done this already.
    if (share && previous.meta->manifestOf == previous.meta->seq && isFresh(*previous.meta))
        history.bringNamesToDisk(lock);
    if (share && request.onlyChanges) {
        meta = *previous.meta;
        return taken;
    }
    meta.manifestOf = share ? previous.meta->manifestOf : meta.seq;
    if (!share) history.writeManifest(lock, meta.seq, taken.manifest, run.pending());
    trace.mark([] { return "diff + write manifest"; });

    copyRequest(request, meta);
    copyCounts(taken, meta);
    meta.durationMs = millisecondsSince(start);
    const bool waits = !share || unchanged == Unchanged::waits;
    writeRecord(history, lock, meta, waits);
    contents.commit();
    if (waits) history.bringNamesToDisk(lock);
    return taken;
}

SnapshotResult Engine::snapshot(const Project& project, const SnapshotRequest& request) const {
    return snapshotListed(project, request).result;
}

TakenSnapshot Engine::snapshotListed(const Project& project, const SnapshotRequest& request) const {
    constexpr std::int64_t hour = 3600;
    constexpr std::int64_t minute = 60;
    const ProjectLock lock(store.history(project).lockPath(), request.deadline);
    SnapshotResult before;
    if (isAlmostFull(store.home) && !passed(request.deadline))
        pruneIfDue(lock, project, minute, before); // makes room first
    TakenSnapshot taken = snapshotLocked(lock, project, request);
    if (!passed(request.deadline)) pruneIfDue(lock, project, hour, taken.result);
    taken.result.warnings.insert(taken.result.warnings.end(), before.warnings.begin(), before.warnings.end());
    return taken;
}

std::set<std::string, std::less<>> Engine::nestedRoots(const Project& project,
                                                       const std::vector<Project>& registry) const {
    std::set<std::string, std::less<>> result;
    if (project.root == "/") result.insert(Store::canonical(store.home).substr(1)); // the history itself
    const std::string prefix = joined(project.root, "");
    for (const Project& other : registry)
        if (other.root != project.root && other.root.starts_with(prefix))
            result.insert(other.root.substr(prefix.size()));
    return result;
}

std::optional<std::string> Engine::contentPath(const Project& project, std::int64_t seq,
                                               const std::string& path) const {
    const std::string wanted = relative(project, path);
    const History history = store.history(project);
    const Manifest manifest = history.manifest(history.snapshot(seq));
    const Entry* entry = manifest.find(wanted);
    if (entry == nullptr && volumeIgnoresCase(project.root))
        entry = manifest.find(asListed({wanted}, {&manifest}).front());
    if (entry == nullptr || entry->kind != EntryKind::file) return std::nullopt;
    const std::string place = history.blobPath(entry->blob);
    Attributes kept;
    if (attributesAt(AT_FDCWD, place.c_str(), kept) == 0 && kept.size != entry->size)
        throw TidewrackError::corrupt("what was kept of " + wanted + " is damaged");
    return place;
}

void Engine::checkRoot(const Project& project) {
    Attributes attributes;
    if (attributesAt(AT_FDCWD, project.root.c_str(), attributes) != 0)
        throw TidewrackError::refused(project.root + " no longer exists.");
    if (attributes.kind != Attributes::Kind::folder)
        throw TidewrackError::refused(
            project.root + " is no longer a folder (it's a symlink or file now). Refusing to restore into it.");
}

std::string Engine::clean(std::string_view path) {
    while (path.starts_with("./")) path.remove_prefix(2);
    while (path.ends_with('/')) path.remove_suffix(1);
    return path == "." ? std::string() : std::string(path);
}

std::string Engine::relative(const Project& project, const std::string& path) {
    if (!path.starts_with('/')) return clean(path);
    const std::string whole = standardized(path);
    std::size_t end = 0;
    while (true) {
        const std::string prefix = end == 0 ? "/" : whole.substr(0, end);
        if (Store::canonical(prefix) == project.root) return whole.substr(std::min(end + 1, whole.size()));
        if (end >= whole.size()) break;
        const auto next = whole.find('/', end + 1);
        end = next == std::string::npos ? whole.size() : next;
    }
    throw TidewrackError::refused(path + " is outside " + project.root + ".");
}

} // namespace tidewrack
