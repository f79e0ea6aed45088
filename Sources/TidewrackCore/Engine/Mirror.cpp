#include "Engine/Mirror.hpp"

#include "Engine/MirrorProject.hpp"
#include "Engine/MirrorVault.hpp"
#include "Store/MirrorNotes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace tidewrack {

namespace {

[[noreturn]] void refuse(const std::string& folder, const std::string& why) {
    throw TidewrackError::refused(folder + " " + why);
}

// Where a mirror can lie at all.
void refusePlace(const Store& store, const std::string& folder) {
    const std::string own = Store::canonical(store.home);
    if (isAtOrBelow(folder, own) || liesIn(folder, own))
        refuse(folder, "lies in Tidewrack's own history (" + own + "). Choose another folder for the mirror.");
    if (isAtOrBelow(own, folder) || (exists(folder) && liesIn(own, folder)))
        refuse(folder, "contains Tidewrack's own history (" + own + "). Choose another folder for the mirror.");
    for (const Project& project : store.registry().projects)
        if (isAtOrBelow(folder, project.root))
            refuse(folder, "lies in a tracked folder (" + project.root +
                               "), whose snapshots would keep the mirror as well. Choose another folder for it.");
}

// What systems put at the top of a volume.
bool isVolumesOwn(const std::string& name) {
    static constexpr std::string_view names[] = {"lost+found", ".DS_Store", ".Trashes", ".fseventsd",
                                                 ".Spotlight-V100"};
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

bool isEmptyOrMissing(const std::string& folder) {
    if (exists(folder) && !isFolder(folder)) return false;
    const auto names = listFolder(folder);
    return std::all_of(names.begin(), names.end(), [](const std::string& name) {
        return isVolumesOwn(name) || name.starts_with(temporaryPrefix) || name == "mirror.lock";
    });
}

class Mirroring {
  public:
    Mirroring(const Store& store, const std::string& folder, bool dryRun, const MirrorProgress& progress)
        : store_(store), mirror_(folder, store.userHome), dryRun_(dryRun), files_(store.home, folder, dryRun) {
        files_.progress = progress;
        result_.folder = folder;
    }

    MirrorResult run() {
        refusePlace(store_, mirror_.home);
        const bool isNew = isEmptyOrMissing(mirror_.home);
        if (!isNew && !exists(mirrorNotePath(mirror_.home)))
            refuse(mirror_.home, "is not empty and no mirror of Tidewrack's. Choose an empty folder.");
        mirror_.refuseForeign();
        std::optional<ProjectLock> lock;
        if (!dryRun_) {
            if (const int error = mirror_.makeHome()) throw TidewrackError::io("create", mirror_.home, error);
            lock.emplace(joined(mirror_.home, "mirror.lock"));
        }
        if (!isNew) note_ = readMirrorNote(mirror_.home);
        const std::string id = readKnownMirrors(store_.home).id;
        if (!isNew && note_.of != id)
            refuse(mirror_.home, "is the mirror of another history. Choose an empty folder for this one's.");
        refuseOwn();
        enter();
        bringAll();
        finish();
        return std::move(result_);
    }

  private:
    void enter() {
        if (dryRun_) return;
        note_.of = enterMirror(store_.home, mirror_.home);
        writeMirrorNote(mirror_.home, note_); // first: from then on the folder is known for a mirror
        for (const char* part : {"projects", "vault"})
            if (const int error = makeFolders(joined(mirror_.home, part), 0700))
                throw TidewrackError::io("create", joined(mirror_.home, part), error);
        for (const char* part : {"", "/projects", "/vault"})
            for (const std::string& name : listFolder(mirror_.home + part))
                if (isLeftover(name)) (void)removeTree(mirror_.home + part + "/" + name);
    }

    // What was snapshotted or saved while the mirror stood in for the store is nowhere else.
    void refuseOwn() {
        for (const std::string& id : projectsIn(mirror_.home)) {
            const auto own = project(id).ownSnapshots();
            if (!own.empty())
                refuse(mirror_.home, "has snapshots of its own, such as #" + std::to_string(own.front()) +
                                         " in projects/" + id +
                                         ", which the mirroring would remove. Choose an empty folder.");
        }
        const auto own = MirrorVault(store_.home, mirror_.home, note_, files_).ownEntries();
        if (!own.empty())
            refuse(mirror_.home, "has entries of the vault of its own, such as " + own.front() +
                                     ", which the mirroring would remove. Choose an empty folder.");
    }

    void bringAll() {
        const auto ids = projectsIn(store_.home);
        for (const std::string& id : ids) bringProject(id);
        for (const std::string& id : projectsIn(mirror_.home))
            if (!exists(joined(store_.home, "projects/" + id))) removeProject(id);
        MirrorVault vault(store_.home, mirror_.home, note_, files_);
        if (!dryRun_ && vault.announce()) writeMirrorNote(mirror_.home, note_);
        vault.bring();
        result_.addedEntries = vault.added;
        result_.removedEntries = vault.removed;
        bringRest();
        if (std::string fault = files_.takeFault(); !fault.empty()) result_.failures.push_back(std::move(fault));
    }

    void bringProject(const std::string& id) {
        MirrorProject one = project(id);
        try {
            one.bring();
        } catch (const TidewrackError& error) { // the others can be mirrored all the same
            if (error.isForWantOfRoom()) throw;
            if (!exists(joined(store_.home, "projects/" + id))) return; // untracked meanwhile; the next run removes it
            result_.failures.emplace_back(error.what());
        }
        ++result_.projects;
        result_.snapshots += one.snapshots;
        result_.addedSnapshots += one.added;
        result_.removedSnapshots += one.removed;
    }

    void removeProject(const std::string& id) {
        MirrorProject one = project(id);
        one.removeAll();
        result_.removedSnapshots += one.removed;
        note_.projects.erase(id);
    }

    // What is set, what is logged, and whatever else lies in the store.
    void bringRest() {
        const auto skips = [](const std::string& name) {
            return name == "projects" || name == "vault" || name == "refused" || name.ends_with("lock") ||
                   name == "mirror.json" || name == "mirrors.json";
        };
        files_.bringFolder(store_.home, mirror_.home, MirrorFiles::Way::copied, MirrorFiles::Other::replaced, skips);
        for (const char* name : {"settings.json", "hooks.log"})
            if (!exists(joined(store_.home, name))) files_.remove(joined(mirror_.home, name));
        removeMissing(files_, joined(store_.home, "damaged"), joined(mirror_.home, "damaged"));
    }

    void finish() {
        if (!dryRun_) {
            files_.flush();
            writeMirrorNote(mirror_.home, note_);
        }
        result_.counts = files_.counts;
        result_.warnings = std::move(files_.warnings);
    }

    MirrorProject project(const std::string& id) { return {store_.home, mirror_.home, id, {note_, files_, dryRun_}}; }

    const Store& store_;
    Store mirror_;
    bool dryRun_;
    MirrorNote note_;
    MirrorFiles files_;
    MirrorResult result_;
};

} // namespace

MirrorResult mirrorStore(const Store& store, const std::string& folder, bool dryRun, const MirrorProgress& progress) {
    store.refuseForeign();
    if (!isFolder(store.home)) throw TidewrackError::refused("There is no history yet that could be mirrored.");
    return Mirroring(store, Store::canonical(folder), dryRun, progress).run();
}

} // namespace tidewrack
