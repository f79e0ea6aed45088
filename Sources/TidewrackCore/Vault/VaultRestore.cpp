// Puts an entry's items back where they came from.

#include "Vault/Vault.hpp"

#include "Engine/FolderBelow.hpp"
#include "Engine/SafeReplace.hpp"
#include "Engine/Temporaries.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Vault/RestoreMark.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>

namespace tidewrack {

namespace {

using Why = RestoredItem::Why;

// Opens the folder that holds an item's copy, without leaving the folder of its entry.
int openCopies(const Descriptor& entry, const VaultEntry::Item& item, Descriptor& out) {
    const std::string_view name = lastComponent(item.stored);
    if (name.empty() || name == "." || name == "..") return EINVAL;
    return openFolderBelow(entry.get(), parentOf(item.stored), out);
}

// The folder that the item lay in, as it was resolved when it was saved. What is missing of it is made, and belongs to
// the owner of the folder around it also when root restores.
int openParent(const std::string& folder, Descriptor& out) {
    Descriptor root;
    if (const int error = openFolder("/", root)) return error;
    FolderBelow files(root.get());
    for (std::size_t end = 1; end < folder.size();) {
        end = std::min(folder.find('/', end + 1), folder.size());
        const std::string part = folder.substr(0, end);
        if (exists(part)) continue;
        const int error = files.makeFolder(std::string_view(part).substr(1), 0755);
        if (error != 0 && error != EEXIST) return error;
    }
    return openFolderBelow(root.get(), std::string_view(folder).substr(1), out);
}

// As far as sizes, times and modes tell.
bool isSame(const std::string& path, const std::string& copy) {
    constexpr auto whenever = std::numeric_limits<std::int64_t>::max();
    return isAsCopied(path, {copy, whenever}) && isAsCopied(copy, {path, whenever});
}

bool isThere(Place place) {
    Attributes attributes;
    return attributesAt(place.folder, place.name, attributes) == 0;
}

} // namespace

// One restore of an entry.
struct Vault::Restoring {
    const std::string& entry; // its folder
    const Descriptor& copies; // the same, open
    Date saved;
    Date began;
    Acting acting;
};

VaultRestored Vault::restore(const std::string& id, Acting acting) const {
    store.refuseForeign();
    const auto entry = find(id);
    if (!entry) throw TidewrackError::io("No vault entry " + id);
    const std::string path = entryFolder(id);
    Descriptor copies;
    if (const int error = openFolder(path, copies)) throw TidewrackError::io("open", path, error);
    for (const VaultEntry::Item& item : entry->items) {
        Descriptor folder;
        const int error = openCopies(copies, item, folder);
        if (error == EINVAL || error == ELOOP || error == ENOTDIR)
            throw TidewrackError::corrupt(path + "/entry.json: " + item.stored + " leads out of the entry");
    }
    if (!entry->gitState.empty()) return restoreGitState(*entry, acting);
    VaultRestored result;
    result.isDryRun = acting == Acting::dryRun;
    if (!result.isDryRun) result.givenBack = clearCutShort();
    const Restoring restoring{path, copies, entry->created, now(), acting};
    std::vector<std::string> folders; // put back so far
    for (const VaultEntry::Item& item : entry->items) {
        RestoredItem& done = result.items.emplace_back();
        done.original = item.original;
        done.copy = path + "/" + item.stored;
        const std::string place = Store::canonicalPlace(item.original);
        const auto holds = [&](const std::string& folder) { return isAtOrBelow(place, folder); };
        // A folder was saved with all that is in it. Renaming that once more would only leave a stray file.
        const bool isBack = std::any_of(folders.begin(), folders.end(), holds) && (result.isDryRun || exists(place));
        if (!isBack) restoreItem(restoring, item, done);
        if (!isBack && done.isBack() && item.kind == "dir") folders.push_back(place);
    }
    return result;
}

namespace {

// A link on the way to `path` that was made after `then`: a record that does not say where its folder was cannot tell
// whether this leads there.
std::optional<std::string> linkMadeSince(std::string path, Date then) {
    for (; path.size() > 1; path = std::string(parentOf(path))) {
        Attributes attributes;
        if (attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 && attributes.kind == Attributes::Kind::link &&
            attributes.ctime / nanosPerSecond > secondsOf(then))
            return path;
    }
    return std::nullopt;
}

// Why an item is not put back into the folder that its path leads to now.
RestoredItem::Failure otherFolder(const VaultEntry::Item& item, const std::string& now, Date saved) {
    if (!item.parent.empty() && now != item.parent) return {Why::otherFolder, 0, item.parent, now};
    const auto link = item.parent.empty() ? linkMadeSince(std::string(parentOf(item.original)), saved) : std::nullopt;
    return link ? RestoredItem::Failure{Why::newLink, 0, {}, *link} : RestoredItem::Failure();
}

// Gives an item a free name beside its own, with the time when a restore began; `note` comes first, and the dry run has
// none. Returns an errno value.
using Note = std::function<void(const std::string& aside)>;
int moveAside(Place item, Date began, const Note& note, std::string& aside) {
    for (std::int64_t number = secondsOf(began);; ++number) {
        aside = numberedName(item.folder, item.name, number);
        const Place to{item.folder, aside.c_str()};
        bool bothNames = false; // then nothing is put back, because its own name is not free
        if (isThere(to)) continue;
        if (!note) return 0;
        note(aside);
        const int error = giveName(item, to, bothNames);
        if (error != EEXIST) return error;
    }
}

// Whether nothing can be put into the folder, or, where it is to be made, into the nearest one that is there.
int closedAt(std::string folder) {
    while (folder.size() > 1 && !exists(folder)) folder = parentOf(folder);
    return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

// Puts the finished copy `made` in its place, and what is there aside. `aside` is empty where nothing was there. Where
// that fails everything has the name that it had, as far as the volume allows it.
RestoredItem::Failure putInPlace(Place made, Place target, Date began, const Note& note, std::string& aside) {
    constexpr int most = 100; // other programs may go on making it
    bool bothNames = false;
    int error = EEXIST;
    for (int tries = 0; error == EEXIST && tries < most; ++tries) {
        std::string moved;
        const int failure = isThere(target) ? moveAside(target, began, note, moved) : 0;
        if (failure != 0 && failure != ENOENT) return {Why::notMoved, failure};
        if (failure == 0 && !moved.empty()) aside = moved;
        error = giveName(made, target, bothNames);
    }
    if (error == 0) return {};
    if (!aside.empty() && giveName({target.folder, aside.c_str()}, target, bothNames) == 0) aside.clear();
    return {Why::system, error};
}

} // namespace

void Vault::restoreItem(const Restoring& restoring, const VaultEntry::Item& item, RestoredItem& result) const {
    const std::string& original = item.original;
    const std::string name(lastComponent(original));
    const auto fail = [&](Why why, int error) { result.failure = {why, error}; };
    const std::string parent = Store::canonical(std::string(parentOf(original)));
    result.failure = otherFolder(item, parent, restoring.saved);
    if (!result.isBack()) return;
    Descriptor storedFolder;
    const std::string storedName(lastComponent(item.stored));
    const bool isOpen = openCopies(restoring.copies, item, storedFolder) == 0;
    const Place stored{storedFolder.get(), storedName.c_str()};
    if (!isOpen || !isThere(stored)) return fail(Why::copyMissing, 0); // nothing would replace what is moved aside
    const bool isDryRun = restoring.acting == Acting::dryRun;
    // From here on by the open folder: whatever becomes of the way to it, nothing leads elsewhere.
    Descriptor folder;
    if (isDryRun && !exists(parent)) { // it would be made
        if (const int error = closedAt(parent)) fail(Why::system, error);
        return;
    }
    if (const int error = isDryRun ? openFolder(parent, folder) : openParent(parent, folder))
        return fail(Why::system, error);
    const Place target{folder.get(), name.c_str()};
    if (isThere(target)) {
        result.wasThere = isSame(original, result.copy);
        if (result.wasThere) return;
        if (liesIn(Store::canonical(store.home), original)) return fail(Why::holdsHistory, 0);
    }
    std::string aside;
    if (isDryRun) {
        const int error = isThere(target) ? moveAside(target, restoring.began, {}, aside) : 0;
        if (error != 0) return fail(Why::notMoved, error);
        if (const int closed = closedAt(parent)) return fail(Why::system, closed);
    } else {
        // Nothing is moved before the copy is whole: the disk may be full.
        RestoreMark mark(this->folder());
        const std::string temporary = Temporaries().forCopy();
        const Place made{folder.get(), temporary.c_str()};
        const Note note = [&](const std::string& moved) { mark.write(parent, temporary, name, moved); };
        note({});
        CopyLimits limits;
        limits.unsaved = &result.missing;
        if (const int error = copyTree(stored, made, limits)) {
            if (isThere(made)) mark.leave();
            return fail(Why::system, error);
        }
        result.failure = putInPlace(made, target, restoring.began, note, aside);
        if (result.isBack())
            (void)flushVolume(folder.get()); // there after a power cut as well, where the volume can do that
        else
            (void)removeTree(made);
        if (isThere(made)) mark.leave();
    }
    if (!aside.empty()) result.aside = joined(std::string(parentOf(original)), aside);
}

std::vector<std::string> Vault::clearCutShort() const {
    return tidewrack::clearCutShort(folder());
}

bool Vault::isBack(const VaultEntry& entry) const {
    return std::all_of(entry.items.begin(), entry.items.end(), [&](const VaultEntry::Item& item) {
        return isSame(item.original, entryFolder(entry.id) + "/" + item.stored);
    });
}

std::size_t VaultRestored::count() const {
    return static_cast<std::size_t>(
        std::count_if(items.begin(), items.end(), [](const RestoredItem& item) { return item.isBack(); }));
}

bool VaultRestored::isWhole() const {
    return !items.empty() && std::all_of(items.begin(), items.end(), [](const RestoredItem& item) {
        return item.isBack() && item.missing.empty();
    });
}

} // namespace tidewrack
