#include "Engine/ParentCache.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Process.hpp"
#include "Support/Paths.hpp"

#include <cerrno>

namespace tidewrack {

Obstacle ParentCache::prepare(std::string_view path) {
    if (known_.contains(parentOf(path))) return {};
    for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
        const std::string_view parent = path.substr(0, slash);
        if (known_.contains(parent)) continue;
        if (auto obstacle = examine(parent)) return obstacle;
        known_.emplace(parent);
    }
    return {};
}

Obstacle ParentCache::examine(std::string_view parent) {
    using Reason = Obstacle::Reason;
    const std::string folder(parent);
    Attributes attributes;
    const int error = project_.attributes(parent, attributes);
    if (error == ENOENT) {
        const int failure = project_.makeFolder(parent, 0755);
        if (failure != 0 && failure != EEXIST) return {Reason::parentNotMade, failure, folder};
        if (failure == 0) created_.insert(folder);
        return {};
    }
    if (error != 0) return {Reason::parentUnreachable, error, folder};
    switch (attributes.kind) {
    case Attributes::Kind::folder: return {};
    case Attributes::Kind::link: {
        std::string destination;
        (void)project_.readLink(parent, destination);
        return {Reason::parentIsLink, 0, folder, destination};
    }
    case Attributes::Kind::file:
    case Attributes::Kind::other: break;
    }
    return {Reason::parentIsFile, 0, folder};
}

} // namespace tidewrack
