#include "Engine/Export.hpp"

#include "Engine/CloneAll.hpp"
#include "Engine/KeptContent.hpp"
#include "Engine/ParentCache.hpp"
#include "Engine/RestorePlan.hpp"
#include "Engine/TarStream.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace tidewrack {

namespace {

using Action = PathOutcome::Action;
using Reason = Obstacle::Reason;

constexpr std::size_t cloneThreads = 4;

// The part of a listing that is asked for, in the order of the paths: a folder before what is in it.
struct Selection {
    Manifest manifest;
    std::vector<const Manifest::Item*> items;
};

Selection select(const History& history, std::int64_t seq, const std::vector<std::string>& paths,
                 ExportResult& result) {
    Selection selection{history.manifest(history.snapshot(seq)), {}};
    for (const std::string& path : paths)
        if (!path.empty() && !selection.manifest.lists(path))
            throw TidewrackError::refused(path + " isn't in snapshot #" + std::to_string(seq) + ".");
    for (const Manifest::Item& item : selection.manifest.items()) {
        const bool asked = paths.empty() || std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
                               return path.empty() || isAtOrBelow(item.path, path) || isAtOrBelow(path, item.path);
                           });
        if (!asked) continue;
        const bool byName = std::find(paths.begin(), paths.end(), item.path) != paths.end();
        if (item.entry.isIgnored() && !byName)
            result.leftOut.emplace_back(item.path);
        else if (item.entry.isIgnoredFolder())
            result.missing.push_back(
                {std::string(item.path), Action::notRestored, EntryKind::dir, {Reason::ignoredByGit}});
        else if (item.entry.notKept())
            result.missing.push_back({std::string(item.path),
                                      Action::notRestored,
                                      item.entry.kind,
                                      {Reason::notKeptThen, 0, {}, std::string(item.entry.blob)}});
        else
            selection.items.push_back(&item);
    }
    return selection;
}

void leave(ExportResult& result, const Manifest::Item& item, Obstacle obstacle) {
    result.missing.push_back({std::string(item.path), Action::notRestored, item.entry.kind, std::move(obstacle)});
}

Descriptor openContents(const History& history) {
    Descriptor blobs(::open(history.blobsFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!blobs) throw TidewrackError::io("read", history.blobsFolder(), errno);
    return blobs;
}

// Ready to be written into.
Descriptor openTarget(const Engine& engine, const Project& project, const std::string& folder) {
    const std::string place = Store::canonical(folder);
    if (const auto around = engine.store.projectContaining(place))
        throw TidewrackError::refused(folder + " is inside of the tracked project " + around->root +
                                      ". Choose a folder elsewhere.");
    if (isAtOrBelow(place, Store::canonical(engine.store.home)))
        throw TidewrackError::refused(folder + " is inside of Tidewrack's own history. Choose a folder elsewhere.");
    if (exists(place) && !isFolder(place)) throw TidewrackError::refused(folder + " is not a folder.");
    if (!listFolder(place).empty())
        throw TidewrackError::refused(folder + " is not empty. Choose a new or an empty folder.");
    // As open to others as the project is.
    Attributes root;
    const bool known = attributesAt(AT_FDCWD, project.root.c_str(), root) == 0;
    if (!exists(place))
        if (const int error = makeFolders(place, known ? root.mode | ownerAll : ownerAll))
            throw TidewrackError::io("create", folder, error);
    Descriptor target;
    if (const int error = openFolder(place, target)) throw TidewrackError::io("read", folder, error);
    return target;
}

// Modes and times, deepest first, once nothing is written into them any more.
void finishFolders(const Selection& selection, FolderBelow& files, ExportResult& result) {
    files.forget();
    for (auto each = selection.items.rbegin(); each != selection.items.rend(); ++each) {
        const Manifest::Item& item = **each;
        Attributes made;
        if (item.entry.kind != EntryKind::dir || files.attributes(item.path, made) != 0) continue;
        int error = files.setTime(item.path, item.entry.mtime);
        if (made.mode != item.entry.mode && error == 0) error = files.setMode(item.path, item.entry.mode);
        if (error != 0) leave(result, item, Obstacle::system(error));
    }
}

} // namespace

ExportResult exportToFolder(const Engine& engine, const Project& project, std::int64_t seq,
                            const std::vector<std::string>& paths, const std::string& folder) {
    ExportResult result;
    const History history = engine.store.history(project);
    const Selection selection = select(history, seq, paths, result);
    const Descriptor blobs = openContents(history);
    const Descriptor target = openTarget(engine, project, folder);
    FolderBelow files(target.get());
    ParentCache parents(files);
    std::vector<const Manifest::Item*> writes;
    for (const Manifest::Item* item : selection.items) {
        if (Obstacle obstacle = parents.prepare(item->path)) {
            leave(result, *item, std::move(obstacle));
            continue;
        }
        if (item->entry.kind != EntryKind::dir) {
            writes.push_back(item);
            continue;
        }
        const int error = files.makeFolder(item->path, static_cast<std::uint16_t>(item->entry.mode | ownerAll));
        if (error != 0) leave(result, *item, Obstacle::system(error));
    }
    std::vector<Obstacle> obstacles(writes.size());
    std::atomic<std::size_t> done = 0;
    const auto errors = cloneAll(writes.size(), cloneThreads, target.get(), [&](std::size_t i, CloneWorker& worker) {
        Place place;
        if (engine.progress) engine.progress("exported", ++done);
        if (const int error = worker.project.place(writes[i]->path, place)) return error;
        obstacles[i] = putKept(blobs.get(), writes[i]->entry, place, worker.memory);
        return 0;
    });
    for (std::size_t i = 0; i < writes.size(); ++i) {
        if (errors[i] != 0) obstacles[i] = Obstacle::system(errors[i]);
        if (obstacles[i])
            leave(result, *writes[i], std::move(obstacles[i]));
        else
            ++result.files;
    }
    finishFolders(selection, files, result);
    return result;
}

namespace {

class TarExport {
  public:
    TarExport(int blobs, const std::function<bool(std::string_view)>& write)
        : blobs_(blobs), tar_([this, &write](std::string_view bytes) { going_ = going_ && write(bytes); }) {}

    // Why the item is not in the archive.
    Obstacle add(const Manifest::Item& item) {
        entry_ = {};
        entry_.path = item.path;
        entry_.mode = item.entry.mode;
        entry_.mtime = item.entry.mtime;
        entry_.user = ::geteuid();
        entry_.group = ::getegid();
        switch (item.entry.kind) {
        case EntryKind::dir:
            entry_.kind = TarEntry::Kind::folder;
            tar_.begin(entry_);
            return {};
        case EntryKind::link: return addLink(std::string(item.entry.blob));
        case EntryKind::file: return addFile(std::string(item.entry.blob), item.entry.size);
        }
        return {};
    }
    void finish() { tar_.finish(); }
    [[nodiscard]] bool goesOn() const { return going_; }

  private:
    void takeOwner(const struct stat& status) {
        entry_.user = status.st_uid;
        entry_.group = status.st_gid;
    }

    Obstacle addLink(const std::string& blob) {
        struct stat status {};
        std::string destination(65536, '\0');
        const ssize_t length = ::readlinkat(blobs_, blob.c_str(), destination.data(), destination.size());
        if (length < 0 || ::fstatat(blobs_, blob.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return Obstacle::system(errno);
        destination.resize(static_cast<std::size_t>(length));
        takeOwner(status);
        entry_.kind = TarEntry::Kind::link;
        entry_.mode = 0777;
        entry_.destination = std::move(destination);
        tar_.begin(entry_);
        return {};
    }

    Obstacle addFile(const std::string& blob, std::int64_t size) {
        const Descriptor content(::openat(blobs_, blob.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        if (!content || ::fstat(content.get(), &status) != 0) return Obstacle::system(errno);
        if (status.st_size != size) return {Reason::damaged};
        takeOwner(status);
        entry_.size = size;
        tar_.begin(entry_);
        while (size > 0 && going_) {
            const auto most = std::min<std::uint64_t>(buffer_.size(), static_cast<std::uint64_t>(size));
            const ssize_t count = ::read(content.get(), buffer_.data(), most);
            if (count < 0 && errno == EINTR) continue;
            // The header is written: what follows has to have that size.
            if (count <= 0) throw TidewrackError::io("read", entry_.path, count < 0 ? errno : EIO);
            tar_.content({buffer_.data(), static_cast<std::size_t>(count)});
            size -= count;
        }
        return {};
    }

    int blobs_;
    bool going_ = true;
    TarEntry entry_;
    TarStream tar_;
    std::string buffer_ = std::string(std::size_t{256} * 1024, '\0');
};

} // namespace

ExportResult exportAsTar(const Engine& engine, const Project& project, std::int64_t seq,
                         const std::vector<std::string>& paths, const std::function<bool(std::string_view)>& write) {
    ExportResult result;
    const History history = engine.store.history(project);
    const Selection selection = select(history, seq, paths, result);
    const Descriptor blobs = openContents(history);
    TarExport tar(blobs.get(), write);
    for (const Manifest::Item* item : selection.items) {
        if (!tar.goesOn()) return result;
        if (Obstacle obstacle = tar.add(*item))
            leave(result, *item, std::move(obstacle));
        else if (item->entry.kind != EntryKind::dir)
            ++result.files;
    }
    tar.finish();
    return result;
}

} // namespace tidewrack
