#include "Engine/ParentCache.hpp"

#include "Support/Paths.hpp"

#include <cerrno>

namespace tidewrack {

std::optional<std::string> ParentCache::prepare(std::string_view path) {
    if (known_.contains(parentOf(path))) return std::nullopt;
    for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
        const std::string_view parent = path.substr(0, slash);
        if (known_.contains(parent)) continue;
        if (auto warning = examine(path, parent)) return warning;
        known_.emplace(parent);
    }
    return std::nullopt;
}

std::optional<std::string> ParentCache::examine(std::string_view path, std::string_view parent) {
    const std::string skipped = "skipped " + std::string(path) + ": ";
    const std::string folder(parent);
    Attributes attributes;
    const int error = project_.attributes(parent, attributes);
    if (error == ENOENT) {
        const int failure = project_.makeFolder(parent, 0755);
        if (failure != 0 && failure != EEXIST) return skipped + "couldn't create " + folder + ": " + errorText(failure);
        if (failure == 0) created_.insert(folder);
        return std::nullopt;
    }
    if (error != 0) return skipped + folder + ": " + errorText(error);
    switch (attributes.kind) {
    case Attributes::Kind::folder: return std::nullopt;
    case Attributes::Kind::link: {
        std::string destination;
        (void)project_.readLink(parent, destination);
        return skipped + folder + " is now a symlink to " + destination + ". Restore " + folder +
               " itself to bring the folder back.";
    }
    case Attributes::Kind::file:
    case Attributes::Kind::other: break;
    }
    return skipped + folder + " is now a file, not a folder";
}

} // namespace tidewrack
