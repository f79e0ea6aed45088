#include "Engine/UnreadFolders.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Process.hpp"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <set>

namespace tidewrack {

namespace {

bool mayNotBeRead(const Walker::Unread& place) {
    return place.error == EACCES;
}

std::string inFolder(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

class Keeping {
  public:
    Keeping(const Manifest& previous, ManifestBuilder& builder) : items_(previous.items()), builder_(builder) {}

    // What was directly in the folder and did not come out this time, with everything below it. What did come out was
    // read on its own account.
    void keepMissingIn(const std::string& folder) {
        std::set<std::string_view> missing;
        const std::string below = folder + "/";
        forEachFrom(below, [&](std::uint32_t rank, std::string_view path) {
            const std::string_view name = path.substr(below.size());
            if (name.find('/') == std::string_view::npos && !builder_.holds(rank)) missing.insert(name);
        });
        forEachFrom(below, [&](std::uint32_t rank, std::string_view path) {
            const std::string_view rest = path.substr(below.size());
            if (missing.contains(rest.substr(0, rest.find('/')))) keep(rank);
        });
    }

    void keepAtAndBelow(const std::string& place) {
        forEachFrom(place, [&](std::uint32_t rank, std::string_view path) {
            if (path.size() == place.size() || path[place.size()] == '/') keep(rank);
        });
    }

  private:
    // The items whose paths begin like this lie side by side.
    void forEachFrom(std::string_view beginning, const std::function<void(std::uint32_t, std::string_view)>& visit) {
        auto item =
            std::lower_bound(items_.begin(), items_.end(), beginning,
                             [](const Manifest::Item& each, std::string_view path) { return each.path < path; });
        for (; item != items_.end() && item->path.starts_with(beginning); ++item)
            visit(static_cast<std::uint32_t>(item - items_.begin()), item->path);
    }

    void keep(std::uint32_t rank) {
        if (!builder_.holds(rank)) builder_.add(items_[rank].path, items_[rank].entry, rank);
    }

    const std::vector<Manifest::Item>& items_;
    ManifestBuilder& builder_;
};

std::string warningOf(const Walker::Unread& place) {
    const std::string folder = place.folder.empty() ? "the project folder" : place.folder;
    const std::size_t count = place.entries.size();
    const std::string what = count == 0   ? folder
                             : count == 1 ? inFolder(place.folder, place.entries.front())
                                          : std::to_string(count) + " entries of " + folder;
    return "couldn't read " + what + ": " + errorText(place.error) +
           (mayNotBeRead(place) ? "; not saved" : "; recorded as in the previous snapshot");
}

} // namespace

void keepUnread(const std::vector<Walker::Unread>& unread, const Manifest& previous, ManifestBuilder& builder) {
    Keeping keeping(previous, builder);
    for (const Walker::Unread& place : unread) {
        if (mayNotBeRead(place)) continue;
        if (place.entries.empty()) keeping.keepMissingIn(place.folder);
        for (const std::string& name : place.entries) keeping.keepAtAndBelow(inFolder(place.folder, name));
    }
}

std::vector<std::string> warningsOf(const Walker& walker) {
    std::vector<std::string> result;
    if (walker.gitWasLate())
        result.emplace_back(
            "git didn't say in time which folders it ignores; those of the previous snapshot still are");
    for (const Walker::Unread& place : walker.unread()) result.push_back(warningOf(place));
    return result;
}

} // namespace tidewrack
