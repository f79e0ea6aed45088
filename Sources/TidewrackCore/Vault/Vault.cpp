#include "Vault/Vault.hpp"

#include "Engine/RetentionPlan.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <random>

namespace tidewrack {

namespace {

constexpr std::int64_t secondsBetweenBackups = 3600;
constexpr std::int64_t mostGitBytes = std::int64_t{16} << 20; // of git's state, where blocks can't be shared
constexpr std::int64_t mostGitFiles = 20'000;
constexpr const char* backupCommand = "(hourly dotfile backup)";
constexpr const char* hourlyMark = "hourly"; // a file in the entry's folder

constexpr const char* dotfiles[] = {".ssh",
                                    ".gnupg",
                                    ".gitconfig",
                                    ".zshrc",
                                    ".zprofile",
                                    ".bashrc",
                                    ".bash_profile",
                                    ".profile",
                                    ".config",
                                    ".aws",
                                    ".npmrc",
                                    ".netrc",
                                    ".claude/settings.json",
                                    ".codex/config.toml",
                                    ".cursor/hooks.json"};

const char* kindName(Attributes::Kind kind) {
    switch (kind) {
    case Attributes::Kind::folder: return "dir";
    case Attributes::Kind::link: return "link";
    case Attributes::Kind::file:
    case Attributes::Kind::other: break;
    }
    return "file";
}

NotSaved reasonOf(int error) {
    if (isOutOfRoom(error)) return NotSaved::noRoom;
    switch (error) {
    case ENOENT:
    case ENOTDIR: return NotSaved::notThere;
    case pastDeadline: return NotSaved::noTime;
    case ENOTSUP: return NotSaved::special;
    default: return NotSaved::unreadable;
    }
}

// Why nothing at the path can be lost, if so.
std::optional<NotSaved> nothingIn(const std::string& path) {
    Attributes attributes;
    const int error = attributesAt(AT_FDCWD, path.c_str(), attributes);
    if (error == 0) return attributes.kind == Attributes::Kind::other ? std::optional(NotSaved::special) : std::nullopt;
    return reasonOf(error) == NotSaved::notThere ? std::optional(NotSaved::notThere) : std::nullopt;
}

// Saves paths into one entry's folder.
class Saver {
  public:
    Saver(const Vault& vault, const std::string& entryFolder, const VaultRequest& request, PendingWrites& pending)
        : vault_(vault), entryFolder_(entryFolder), store_(Store::canonical(vault.store.home)), request_(request),
          pending_(pending), clones_(volumeClones(entryFolder)) {}

    // A path that was not saved, and what inside a folder could not be read, goes to the entry's `skipped`.
    // `earlier`: the copies that the new one can build on.
    void save(const std::string& path, bool isHourly, const Vault::EarlierCopies& earlier, VaultEntry& entry) {
        Attributes attributes;
        if (const int error = attributesAt(AT_FDCWD, path.c_str(), attributes))
            return skip(path, reasonOf(error), entry);
        if (attributes.kind == Attributes::Kind::other) return skip(path, NotSaved::special, entry);
        if (liesIn(Store::canonicalPlace(path), store_)) return skip(path, NotSaved::inStore, entry);
        if (passed(request_.deadline)) return skip(path, NotSaved::noTime, entry);
        std::vector<UncopiedItem> uncopied;
        CopyLimits limits{store_, request_.deadline, &pending_, {}, std::nullopt, &uncopied};
        // Also on a volume that shares blocks there are files that cannot.
        if (!isHourly)
            limits.hasRoom = [this, copied = std::int64_t{0}](std::int64_t bytes) mutable {
                copied += bytes;
                return copied <= bytesAlways() || hasRoom(bytes);
            };
        if (const auto before = earlier.find(path); before != earlier.end()) limits.earlier = before->second;
        if (const auto reason = beyondLimits(path, attributes, limits, isHourly)) return skip(path, *reason, entry);
        VaultEntry::Item item{path, "items/" + std::to_string(entry.items.size()), kindName(attributes.kind),
                              Store::canonical(std::string(parentOf(path)))};
        if (const int error = copyTree(path, entryFolder_ + "/" + item.stored, limits))
            return skip(path, reasonOf(error), entry);
        entry.items.push_back(std::move(item));
        for (const UncopiedItem& inside : uncopied) skip(path + inside.path, reasonOf(inside.error), entry);
    }

  private:
    static void skip(const std::string& path, NotSaved reason, VaultEntry& entry) {
        entry.skipped.push_back(path);
        entry.reasons.push_back(reason);
    }

    [[nodiscard]] std::optional<NotSaved> beyondLimits(const std::string& path, const Attributes& attributes,
                                                       const CopyLimits& limits, bool isHourly) {
        const bool isFolder = attributes.kind == Attributes::Kind::folder;
        const bool isGitState = !request_.gitState.empty();
        TreeSize size{1, attributes.size};
        const std::int64_t mostFiles = isGitState ? std::min(mostGitFiles, vault_.mostFiles) : vault_.mostFiles;
        if (isFolder && measureTree(path, limits, mostFiles, size) != 0) return NotSaved::noTime;
        if (size.files > mostFiles) return NotSaved::tooManyFiles;
        const bool isOwnVolume = sameVolume(path, entryFolder_);
        if (clones_ && isOwnVolume) return std::nullopt;
        if (isGitState && gitBytes_ + size.bytes > mostGitBytes) return NotSaved::tooLarge;
        gitBytes_ += size.bytes;
        if (isHourly)
            return isFolder && size.bytes > vault_.mostBytes ? std::optional(NotSaved::tooLarge) : std::nullopt;
        if (!isOwnVolume && size.bytes > vault_.mostBytes) return NotSaved::tooLarge;
        return size.bytes <= bytesAlways() || hasRoom(size.bytes) ? std::nullopt : std::optional(NotSaved::noRoom);
    }

    [[nodiscard]] std::int64_t bytesAlways() const { return request_.isGuess ? 0 : vault_.bytesAlways; }

    [[nodiscard]] bool hasRoom(std::int64_t bytes) const {
        const VolumeRoom room = volumeRoom(entryFolder_);
        return room.free - bytes >= std::max(vault_.bytesFree, room.all / 10);
    }

    const Vault& vault_;
    std::string entryFolder_;
    std::string store_;
    const VaultRequest& request_;
    PendingWrites& pending_;
    bool clones_;
    std::int64_t gitBytes_ = 0;
};

// "20260314-093005"
std::string localTime(Date date) {
    const auto time = static_cast<std::time_t>(secondsOf(date));
    std::tm local{};
    ::localtime_r(&time, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

// The paths with the large files at the end: copying one may take all the time there is.
std::vector<std::string> largeFilesLast(std::vector<std::string> paths, std::int64_t mostBytes) {
    std::stable_partition(paths.begin(), paths.end(), [&](const std::string& path) {
        Attributes attributes;
        const bool found = attributesAt(AT_FDCWD, path.c_str(), attributes) == 0;
        return !found || attributes.kind != Attributes::Kind::file || attributes.size <= mostBytes;
    });
    return paths;
}

} // namespace

std::string Vault::newID() {
    char text[16];
    std::snprintf(text, sizeof text, "-%X", std::random_device{}());
    return localTime(now()) + text;
}

void Vault::makeFolder() const {
    store.refuseForeign();
    if (const int error = store.makeHome()) throw TidewrackError::io("create", store.home, error);
    // It holds copies of private keys, whatever the mode of the store around it.
    if (const int error = makeFolders(folder(), 0700)) throw TidewrackError::io("create", folder(), error);
}

std::string Vault::makeEntryFolder() const {
    makeFolder();
    while (true) {
        std::string id = newID();
        const std::string path = entryFolder(id);
        int error = ::mkdir(path.c_str(), 0700) == 0 ? 0 : errno;
        if (error == EEXIST) continue;
        if (error == 0) error = makeFolders(path + "/items", 0700);
        if (error == 0) return id;
        (void)::rmdir(path.c_str());
        throw TidewrackError::io("create", path, error);
    }
}

VaultSaved Vault::saveAs(Purpose purpose, const EarlierCopies& earlier, const VaultRequest& request) const {
    VaultSaved result;
    for (const std::string& path : request.paths)
        if (const auto reason = nothingIn(path)) result.unsaved.push_back({path, *reason});
    if (result.unsaved.size() == request.paths.size()) return result;
    result.unsaved.clear();
    try {
        result.entry = writeEntry(purpose, earlier, request);
    } catch (const TidewrackError& error) {
        if (!error.isForWantOfRoom()) throw;
        for (const std::string& path : request.paths)
            result.unsaved.push_back({path, nothingIn(path).value_or(NotSaved::noRoom)});
        return result;
    }
    for (std::size_t i = 0; i < result.entry->skipped.size(); ++i)
        result.unsaved.push_back({result.entry->skipped[i], result.entry->reasons[i]});
    return result;
}

VaultEntry Vault::writeEntry(Purpose purpose, const EarlierCopies& earlier, const VaultRequest& request) const {
    const bool isHourly = purpose == Purpose::hourly;
    VaultEntry entry;
    const auto time = std::chrono::system_clock::now();
    entry.created = std::chrono::floor<std::chrono::seconds>(time);
    entry.nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(time - entry.created).count();
    entry.command = request.command;
    entry.agent = request.agent;
    entry.session = request.session;
    entry.turn = request.turn;
    entry.cwd = request.cwd;
    entry.gitState = request.gitState;
    entry.id = makeEntryFolder();
    if (isHourly) writeFileSoon(entryFolder(entry.id) + "/" + hourlyMark, "");
    PendingWrites pending;
    Saver saver(*this, entryFolder(entry.id), request, pending);
    for (const std::string& path : largeFilesLast(request.paths, mostBytes)) saver.save(path, isHourly, earlier, entry);
    try {
        writeFileAfter(pending, entryFolder(entry.id) + "/entry.json", compactJson(toJson(entry)));
    } catch (const TidewrackError&) {
        (void)removeTree(entryFolder(entry.id)); // nobody would find these copies
        throw;
    }
    if (entry.gitState.empty()) bringNamesToDisk(entry); // that is a guess, made before many commands
    return entry;
}

// After a power cut no later change of what was saved is there without the entry.
void Vault::bringNamesToDisk(const VaultEntry& entry) const {
    const std::string path = entryFolder(entry.id);
    const auto isHere = [&](const VaultEntry::Item& item) { return sameVolume(item.original, path); };
    Descriptor open;
    int error = openFolder(path, open);
    if (error == 0 && !(keepsOrder(open.get()) && std::all_of(entry.items.begin(), entry.items.end(), isHere)))
        error = flushNames(open.get());
    if (error != 0) throw TidewrackError::io("flush", path, error);
}

VaultSaved Vault::save(const VaultRequest& request) const {
    if (!request.isGuess) return saveAs(Purpose::command, {}, request);
    VaultRequest rest = request;
    rest.paths = notCopiedYet(request);
    return rest.paths.empty() ? VaultSaved() : saveAs(Purpose::command, {}, rest);
}

std::vector<std::string> Vault::notCopiedYet(const VaultRequest& request) const {
    const Date present = now();
    EarlierCopies copies;
    // By the local time in its name, with room for a clock that was put back for the winter.
    for (const VaultEntry& entry : entriesFrom(localTime(present - std::chrono::hours(2)))) {
        if (entry.agent != request.agent || entry.session != request.session) continue;
        if (present - entry.created > std::chrono::hours(1)) continue;
        for (const VaultEntry::Item& item : entry.items) {
            const auto isInside = [&](const std::string& skipped) { return isAtOrBelow(skipped, item.original); };
            if (std::none_of(entry.skipped.begin(), entry.skipped.end(), isInside))
                copies.emplace(item.original, copyOf(entry, item));
        }
    }
    std::vector<std::string> paths;
    for (const std::string& path : request.paths)
        if (const auto copy = copies.find(path); copy == copies.end() || !isAsCopied(path, copy->second))
            paths.push_back(path);
    return paths;
}

std::optional<VaultEntry> Vault::find(const std::string& id) const {
    if (id.empty() || id == "." || id == ".." || id.find_first_of(std::string_view("/\0", 2)) != id.npos)
        return std::nullopt;
    const std::string path = entryFolder(id) + "/entry.json";
    std::string text;
    if (readFile(path, text) != 0) return std::nullopt;
    try {
        VaultEntry entry = decodeVaultEntry(text, path);
        entry.id = id;
        return entry;
    } catch (const TidewrackError&) {
        return std::nullopt;
    }
}

std::vector<VaultEntry> Vault::entries() const {
    return entriesFrom("");
}

std::vector<VaultEntry> Vault::entriesFrom(std::string_view firstID) const {
    store.refuseForeign();
    std::vector<VaultEntry> result;
    for (const std::string& name : listFolder(folder())) {
        if (name < firstID) continue;
        if (auto entry = find(name)) result.push_back(std::move(*entry));
    }
    std::sort(result.begin(), result.end(), [](const VaultEntry& a, const VaultEntry& b) { return b.isOlderThan(a); });
    return result;
}

EarlierCopy Vault::copyOf(const VaultEntry& entry, const VaultEntry::Item& item) const {
    return {entryFolder(entry.id) + "/" + item.stored, secondsOf(entry.created) * nanosPerSecond};
}

Vault::EarlierCopies Vault::earlierDotfiles() const {
    EarlierCopies result;
    for (const VaultEntry& entry : entries()) { // newest first, and the first copy of a path stays
        if (entry.command != backupCommand || entry.agent) continue;
        for (const VaultEntry::Item& item : entry.items) result.emplace(item.original, copyOf(entry, item));
    }
    return result;
}

std::optional<VaultEntry> Vault::backupDotfilesIfDue(const std::string& home, Date now,
                                                     const Deadline& deadline) const {
    const std::string marker = folder() + "/.dotfiles-last";
    Attributes last;
    if (attributesAt(AT_FDCWD, marker.c_str(), last) == 0) {
        const std::int64_t age = secondsOf(now) - last.mtime / nanosPerSecond;
        if (age >= 0 && age <= secondsBetweenBackups) return std::nullopt; // one in the future is from a wrong clock
    }
    makeFolder();
    // First of all, so that a backup that fails is not tried again with every turn.
    writeFileAtomically(marker, "");
    if (const int error = setModificationTime(AT_FDCWD, marker.c_str(), secondsOf(now) * nanosPerSecond))
        throw TidewrackError::io("write", marker, error);
    if (believes(now)) prune(daysKept, now); // first: the copy may be cut short, each time anew
    std::vector<std::string> paths;
    for (const char* name : dotfiles) paths.push_back(joined(home, name));
    const EarlierCopies earlier = earlierDotfiles();
    VaultSaved saved =
        saveAs(Purpose::hourly, earlier, {.paths = paths, .command = backupCommand, .cwd = home, .deadline = deadline});
    return std::move(saved.entry);
}

// A wrong clock would make every entry look old. Entries in the future come from a clock that has been set right since.
bool Vault::believes(Date now) const {
    std::vector<Date> made;
    for (const VaultEntry& entry : entries())
        if (entry.created <= now) made.push_back(entry.created);
    std::sort(made.begin(), made.end());
    return clockIsConfirmed(made, now);
}

void Vault::prune(std::int64_t days, Date now) const {
    removeLeftovers(folder());
    const auto isOld = [&](std::int64_t created) { return secondsOf(now) - created > days * 86400; };
    for (const std::string& name : listFolder(folder())) {
        const std::string path = entryFolder(name);
        Attributes attributes;
        if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0 || attributes.kind != Attributes::Kind::folder)
            continue;
        // A process that died while saving left copies without a record; those of an hourly copy nobody will miss.
        Attributes record;
        const bool unrecorded = attributesAt(AT_FDCWD, (path + "/entry.json").c_str(), record) == ENOENT;
        const std::int64_t made = attributes.mtime / nanosPerSecond;
        const bool cutShort = exists(path + "/" + hourlyMark) && secondsOf(now) - made > secondsBetweenBackups;
        const auto entry = find(name);
        if (!(entry ? isOld(secondsOf(entry->created)) : unrecorded && (isOld(made) || cutShort))) continue;
        (void)::unlink((path + "/entry.json").c_str()); // first: an entry that is listed has its copies
        (void)removeTree(path);
    }
}

} // namespace tidewrack
