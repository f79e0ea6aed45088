#pragma once
// Copies of things outside tracked projects: what an agent's command was about to touch, and the user's main
// configuration files once an hour. An entry is written once and never changed; nothing here takes a lock.

#include "Platform/Copies.hpp"
#include "Platform/Deadline.hpp"
#include "Store/Store.hpp"
#include "Vault/VaultEntry.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

class Vault {
  public:
    static constexpr int daysKept = 30;

    explicit Vault(Store owner) : store(std::move(owner)) {}

    Store store;
    // A folder with more than this stays unsaved; the bytes count only where copies cost real space.
    std::int64_t mostFiles = 100000;     // regular ones
    std::int64_t mostBytes = 1073741824; // of regular files' content: 1 GiB. A single file with more is saved last

    // Saves absolute paths as one new entry. A path that cannot be saved, or not before the deadline, ends up in
    // `skipped`; so does what lies in the store, and a folder that contains the store is saved without it. Throws
    // TidewrackError io when the entry itself cannot be written.
    VaultEntry save(const std::vector<std::string>& paths, const std::string& command,
                    const std::optional<std::string>& agent, const std::string& cwd,
                    const Deadline& deadline = std::nullopt) const;

    // All entries that can be read, newest first.
    [[nodiscard]] std::vector<VaultEntry> entries() const;

    // Puts an entry's items back where they came from; what stands there is kept beside it under another name.
    // Returns what was done and what failed, one sentence each. Throws TidewrackError io "No vault entry <id>".
    std::vector<std::string> restore(const std::string& id) const;

    // Saves the user's configuration files when that was last begun more than an hour ago, and then removes entries
    // older than `daysKept`. None when it is not due.
    std::optional<VaultEntry> backupDotfilesIfDue(const std::string& home, Date now,
                                                  const Deadline& deadline = std::nullopt) const;

    // Removes entries older than the given number of days. Failures are passed over.
    void prune(std::int64_t days, Date now) const;

    // The local time and 32 random bits: "20260314-093005-1F3A9C"
    [[nodiscard]] static std::string newID();

  private:
    using EarlierCopies = std::map<std::string, EarlierCopy>; // by original path

    [[nodiscard]] std::string folder() const { return store.home + "/vault"; }
    [[nodiscard]] std::string entryFolder(const std::string& id) const { return folder() + "/" + id; }
    [[nodiscard]] std::optional<VaultEntry> find(const std::string& id) const;
    void makeFolder() const;
    [[nodiscard]] std::string makeEntryFolder() const;
    VaultEntry saveBeside(const EarlierCopies& earlier, const std::vector<std::string>& paths, VaultEntry entry,
                          const Deadline& deadline) const;
    [[nodiscard]] EarlierCopies earlierDotfiles() const;
    bool restoreItem(const VaultEntry& entry, const VaultEntry::Item& item, Date began,
                     std::vector<std::string>& messages) const;
};

} // namespace tidewrack
