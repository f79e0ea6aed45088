#pragma once
// What a store and its mirrors note of each other: mirror.json in a mirror, mirrors.json in the store.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Of one project what a mirror got, or was about to get.
struct MirroredProject {
    std::string created;     // of the project's record, as text; another one is that of another history
    std::int64_t newest = 0; // no snapshot above it came from the store

    bool operator==(const MirroredProject&) const = default;
};

struct MirrorNote {
    std::string of; // the store's id
    std::map<std::string, MirroredProject> projects;
    std::vector<std::string> vault; // the entries that came from the store, ascending

    bool operator==(const MirrorNote&) const = default;
};

struct KnownMirrors {
    std::string id; // of the store
    std::vector<std::string> folders;
};

[[nodiscard]] std::string mirrorNotePath(std::string_view folder);
[[nodiscard]] std::string knownMirrorsPath(std::string_view storeHome);

// Throw TidewrackError io or corrupt. A store without the file has no id yet.
[[nodiscard]] MirrorNote readMirrorNote(std::string_view folder);
[[nodiscard]] KnownMirrors readKnownMirrors(std::string_view storeHome);
void writeMirrorNote(std::string_view folder, const MirrorNote& note);

// Adds a folder to the store's mirrors, and gives the store an id if it has none. Folders that are no mirrors any more
// are dropped. Returns the id. Throws as above.
std::string enterMirror(std::string_view storeHome, const std::string& folder);
// The folders of the store's mirrors, as far as they are known; none where that can't be read.
[[nodiscard]] std::vector<std::string> mirrorsOrNone(std::string_view storeHome);

} // namespace tidewrack
