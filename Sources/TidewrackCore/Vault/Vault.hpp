#pragma once
// Copies of things outside tracked projects: what an agent's command was about to touch, and the user's main
// configuration files once an hour. An entry is written once and never changed; nothing here takes a lock.

#include "Platform/Copies.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"
#include "Store/Store.hpp"
#include "Vault/GitStore.hpp"
#include "Vault/VaultEntry.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct VaultRequest {
    std::vector<std::string> paths; // absolute
    std::string command;
    std::optional<std::string> agent = std::nullopt;
    std::string cwd = {};
    std::optional<std::string> session = std::nullopt;
    std::optional<std::string> turn = std::nullopt;
    Deadline deadline = std::nullopt;
    // Nobody knows whether the paths are in danger at all: a copy never takes the room that is to stay free, and none
    // is made of what an entry of the same session from the last hour holds as it is.
    bool isGuess = false;
    std::string gitState = {}; // as in the entry: of that, copies of 16 MiB at most where blocks can't be shared
};

struct VaultSaved {
    struct Path {
        std::string path;
        NotSaved reason = NotSaved::notThere;

        bool operator==(const Path&) const = default;
    };

    std::optional<VaultEntry> entry; // none is made when nothing that can be saved is at any of the paths
    std::vector<Path> unsaved;       // also parts of folders that were saved
};

// What became of one item of an entry, or would in a dry run.
struct RestoredItem {
    enum class Why : std::uint8_t {
        none,
        system,       // `error`
        otherFolder,  // the one that held it was `then` and is `now`
        newLink,      // `now`, on the way to it: nothing tells whether it leads where it was saved
        copyMissing,  // from the vault
        notMoved,     // what has its name could not be moved aside, for `error`
        holdsHistory, // what has its name does, and is not moved aside
    };
    struct Failure {
        Why why = Why::none;
        int error = 0; // an errno value
        std::string then{};
        std::string now{};
    };

    std::string original;
    std::string copy;                  // where the vault has it
    std::optional<std::string> aside;  // where what had its name is now
    Failure failure;                   // why it is not back
    bool wasThere = false;             // as it was saved: nothing was to be done
    std::vector<UncopiedItem> missing; // what inside it could not be copied

    [[nodiscard]] bool isBack() const { return failure.why == Why::none; }
};

struct VaultRestored {
    std::vector<RestoredItem> items;
    bool isDryRun = false;
    // Of git's own state, which is put beside the live one.
    struct GitState {
        std::string root;   // of the repository
        std::string folder; // a new one, which git takes for a store
    };
    std::optional<GitState> gitState = std::nullopt;
    std::vector<std::string> givenBack = {}; // what an earlier restore that was killed had moved aside

    [[nodiscard]] std::size_t count() const; // how many are back
    [[nodiscard]] bool isWhole() const;      // everything is
};

class Vault {
  public:
    static constexpr int daysKept = 30;

    explicit Vault(Store owner) : store(std::move(owner)) {}

    Store store;
    // A folder with more regular files than `mostFiles` stays unsaved. Bytes count only where copies take room: more
    // than `mostBytes` from another volume (or in a folder of the hourly copy) stay unsaved. More than `bytesAlways`
    // stay unsaved too where they would leave less than `bytesFree`, or a tenth, of the history's volume free.
    std::int64_t mostFiles = 100000;
    std::int64_t mostBytes = std::int64_t{1} << 30; // a single file with more is saved last
    std::int64_t bytesAlways = std::int64_t{64} << 20;
    std::int64_t bytesFree = std::int64_t{1} << 30;

    // Saves paths as one new entry. A path that cannot be saved, or not before the deadline, ends up in `skipped`, as
    // does what lies in the store. A folder that contains the store is saved without it. On a volume too full for the
    // entry itself none is made, and no path is saved. Throws TidewrackError io when the entry cannot be written for
    // another reason, and as Store::refuseForeign().
    VaultSaved save(const VaultRequest& request) const;

    // Saves git's own state of a repository, as a guess is saved: HEAD, refs, ref logs, index and settings; where
    // blocks can be shared, also its objects when they are at stake. None where an entry has it as it is. Throws as
    // save(). `request` needs no paths.
    enum class Objects { left, saved };
    [[nodiscard]] std::optional<VaultEntry> saveGitState(const GitStore& git, GitStore::WorkTrees workTrees,
                                                         Objects objects, VaultRequest request) const;

    // Whether the newest copy of git's own state has all objects as they are, or there are none yet.
    [[nodiscard]] bool holdsObjects(const GitStore& git) const;

    // All entries that can be read, newest first.
    [[nodiscard]] std::vector<VaultEntry> entries() const;

    // Puts an entry's items back where they came from; what stands there is kept beside it under another name, unless
    // it is the same. Nothing is moved before the copy is made. An item whose folder is another one by now, because a
    // link stands on the way to it, stays as it is. git's own state is put into a new folder beside the live one.
    // Throws TidewrackError io "No vault entry <id>", and corrupt, with nothing changed, when a copy would have to come
    // from elsewhere.
    enum class Acting { forReal, dryRun };
    VaultRestored restore(const std::string& id, Acting acting = Acting::forReal) const;

    // Clears up after restores that were killed, as restore() does first. Returns what got its name back.
    [[nodiscard]] std::vector<std::string> clearCutShort() const;

    // Whether everything that the entry holds is where it came from, as far as sizes, times and modes tell.
    [[nodiscard]] bool isBack(const VaultEntry& entry) const;

    // Saves the user's configuration files when that was last begun more than an hour ago. Before that it removes
    // entries older than `daysKept`, and what is left of such copies that were cut short. None when it is not due.
    std::optional<VaultEntry> backupDotfilesIfDue(const std::string& home, Date now,
                                                  const Deadline& deadline = std::nullopt) const;

    // Removes entries older than the given number of days. Failures are passed over.
    void prune(std::int64_t days, Date now) const;

    // The local time and 32 random bits: "20260314-093005-1F3A9C"
    [[nodiscard]] static std::string newID();

    using EarlierCopies = std::map<std::string, EarlierCopy>; // by original path

  private:
    [[nodiscard]] std::string folder() const { return store.home + "/vault"; }
    [[nodiscard]] std::string entryFolder(const std::string& id) const { return folder() + "/" + id; }
    [[nodiscard]] EarlierCopy copyOf(const VaultEntry& entry, const VaultEntry::Item& item) const;
    [[nodiscard]] std::optional<VaultEntry> find(const std::string& id) const;
    void makeFolder() const;
    [[nodiscard]] std::string makeEntryFolder() const;
    void bringNamesToDisk(const VaultEntry& entry) const;
    enum class Purpose { command, hourly };
    [[nodiscard]] VaultEntry writeEntry(Purpose purpose, const EarlierCopies& earlier,
                                        const VaultRequest& request) const;
    // `earlier`: the copies that a new one can build on.
    VaultSaved saveAs(Purpose purpose, const EarlierCopies& earlier, const VaultRequest& request) const;
    [[nodiscard]] EarlierCopies earlierDotfiles() const;
    [[nodiscard]] std::vector<std::string> notCopiedYet(const VaultRequest& request) const;
    [[nodiscard]] bool believes(Date now) const;
    [[nodiscard]] std::vector<VaultEntry> entriesFrom(std::string_view firstID) const;
    [[nodiscard]] std::vector<VaultEntry> gitStates(const std::string& root) const; // those among the newest entries
    [[nodiscard]] bool holds(const VaultEntry& entry, const std::vector<std::string>& paths) const;
    [[nodiscard]] VaultRestored restoreGitState(const VaultEntry& entry, Acting acting) const;
    struct Restoring;
    void restoreItem(const Restoring& restoring, const VaultEntry::Item& item, RestoredItem& result) const;
};

} // namespace tidewrack
