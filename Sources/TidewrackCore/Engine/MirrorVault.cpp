#include "Engine/MirrorVault.hpp"

#include "Platform/Attributes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace tidewrack {

namespace {

constexpr const char* record = "entry.json";

// Entries without a record are being made, or were cut short.
std::vector<std::string> entriesIn(const std::string& vault) {
    auto names = listFolder(vault);
    std::erase_if(names, [&](const std::string& name) { return !exists(joined(joined(vault, name), record)); });
    std::sort(names.begin(), names.end());
    return names;
}

bool has(const std::vector<std::string>& sorted, const std::string& name) {
    return std::binary_search(sorted.begin(), sorted.end(), name);
}

} // namespace

MirrorVault::MirrorVault(const std::string& home, const std::string& folder, MirrorNote& note, MirrorFiles& files)
    : from_(joined(home, "vault")), to_(joined(folder, "vault")), note_(note), files_(files),
      entries_(entriesIn(from_)) {}

std::vector<std::string> MirrorVault::ownEntries() const {
    auto names = entriesIn(to_);
    std::erase_if(names, [&](const std::string& name) { return has(entries_, name) || has(note_.vault, name); });
    return names;
}

bool MirrorVault::announce() {
    auto noted = entries_;
    std::copy_if(note_.vault.begin(), note_.vault.end(), std::back_inserter(noted),
                 [&](const std::string& name) { return exists(joined(to_, name)) && !has(entries_, name); });
    std::sort(noted.begin(), noted.end());
    return std::exchange(note_.vault, noted) != noted;
}

void MirrorVault::bring() {
    const auto there = entriesIn(to_);
    std::vector<std::string> brought;
    FilesOfManyNames names;
    for (const std::string& id : entries_) {
        if (has(there, id)) continue;
        if (brought.empty()) names = knownNames();
        if (bringCopies(id, names)) brought.push_back(id);
    }
    if (!brought.empty()) files_.flush();
    for (const std::string& id : brought) {
        const std::string path = joined(joined(from_, id), record);
        Attributes attributes;
        std::string text;
        int error = attributesAt(AT_FDCWD, path.c_str(), attributes);
        if (error == 0) error = readFile(path, text);
        if (error == 0) {
            files_.write(joined(joined(to_, id), record), text, attributes.mtime);
            ++added;
        } else { // it has been removed meanwhile
            files_.remove(joined(to_, id));
        }
    }
    files_.flush();
    for (const std::string& id : note_.vault) { // and no other: what has no record yet may be in the making
        if (has(entries_, id) || !exists(joined(to_, id))) continue;
        files_.remove(joined(joined(to_, id), record)); // first: an entry that is listed has its copies
        files_.remove(joined(to_, id));
        ++removed;
    }
    const std::string marker = ".dotfiles-last";
    files_.bring(joined(from_, marker), joined(to_, marker), MirrorFiles::Way::copied, MirrorFiles::Other::replaced);
}

bool MirrorVault::bringCopies(const std::string& id, FilesOfManyNames& names) {
    const std::string from = joined(from_, id);
    const std::string to = joined(to_, id);
    if (exists(to)) files_.remove(to); // cut short by a sudden death
    files_.makeFolder(to, 0700);
    for (const std::string& name : listFolder(from))
        if (name != record && !name.starts_with(temporaryPrefix) &&
            !files_.copyWhole(joined(from, name), joined(to, name), names))
            return false;
    return true;
}

// The hourly copies share what has not changed with the one before, and so do their copies: the newest entry that the
// mirror has of them tells where.
FilesOfManyNames MirrorVault::knownNames() const {
    FilesOfManyNames names;
    for (auto id = entries_.rbegin(); id != entries_.rend(); ++id) {
        if (!exists(joined(joined(to_, *id), "hourly")) || !exists(joined(joined(to_, *id), record))) continue;
        addNames(joined(from_, *id), joined(to_, *id), names);
        break;
    }
    return names;
}

void MirrorVault::addNames(const std::string& from, const std::string& to, FilesOfManyNames& names) const {
    (void)visitNames(from, [&](const char* name) {
        const std::string path = joined(from, name);
        Attributes attributes;
        if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0) return true;
        if (attributes.kind == Attributes::Kind::folder) addNames(path, joined(to, name), names);
        if (attributes.kind == Attributes::Kind::file && attributes.links > 1 && exists(joined(to, name)))
            names[{attributes.device, attributes.ino}] = joined(to, name);
        return true;
    });
}

} // namespace tidewrack
