#include "Engine/Temporaries.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <map>
#include <sstream>

namespace tidewrack {

namespace {

constexpr long longestName = 255;        // of most volumes
constexpr std::size_t shortLimit = 143;  // of any volume
constexpr std::size_t longCharacter = 4; // bytes at most

std::string pathOf(const History& history) {
    return history.folder() + "/restores";
}

} // namespace

bool MarkedRestore::owns(std::string_view name) const {
    return name.starts_with(prefix);
}

std::string_view MarkedRestore::original(std::string_view name, std::string_view prefix) {
    name.remove_prefix(std::min(prefix.size(), name.size()));
    const auto end = name.find_first_not_of("0123456789");
    return end == std::string_view::npos || name[end] != '-' ? std::string_view() : name.substr(end + 1);
}

std::string_view originalOfAny(std::string_view name) {
    if (!name.starts_with(temporaryPrefix)) return {};
    name.remove_prefix(temporaryPrefix.size());
    for (const char* digits : {"0123456789", "0123456789abcdef", "0123456789"}) { // process, mark, number
        const auto end = name.find_first_not_of(digits);
        if (end == 0 || end == std::string_view::npos || name[end] != '-') return {};
        name.remove_prefix(end + 1);
    }
    return name;
}

Manifest withCleared(const Manifest& listing, const Interrupted& foreseen) {
    std::map<std::string_view, std::string_view> names; // by the paths that they have now
    for (const PathOutcome& outcome : foreseen.outcomes)
        if (outcome.action == PathOutcome::Action::toGiveBack) names.emplace(outcome.found, outcome.path);
    ManifestBuilder builder(listing);
    std::uint32_t rank = 0;
    for (const auto& item : listing.items()) {
        const std::uint32_t own = rank++;
        const auto owns = [&](const MarkedRestore& restore) { return restore.owns(lastComponent(item.path)); };
        const auto name = names.find(item.path);
        if (name != names.end())
            builder.add(name->second, item.entry);
        else if (std::none_of(foreseen.remaining.begin(), foreseen.remaining.end(), owns))
            builder.add(item.path, item.entry, own);
    }
    return builder.finish();
}

std::vector<MarkedRestore> markedRestores(const History& history) {
    std::vector<MarkedRestore> restores;
    std::string text;
    const int error = readFile(pathOf(history), text);
    if (error == ENOENT) return restores;
    // Else what they left would be taken for the user's.
    if (error != 0) throw TidewrackError::io("read", pathOf(history), error);
    std::istringstream lines(text);
    MarkedRestore restore;
    for (std::string line; std::getline(lines, line);) { // of one that a power cut took nothing is ours
        std::istringstream words(line);
        if (words >> restore.prefix >> restore.safety >> restore.target &&
            restore.prefix.starts_with(temporaryPrefix) && restore.prefix.size() > temporaryPrefix.size())
            restores.push_back(restore);
    }
    return restores;
}

std::vector<std::string> knownPrefixes(const History& history) {
    try {
        return prefixesOf(markedRestores(history));
    } catch (const TidewrackError&) {
        return {};
    }
}

std::vector<std::string> prefixesOf(const std::vector<MarkedRestore>& restores) {
    std::vector<std::string> prefixes;
    prefixes.reserve(restores.size());
    for (const MarkedRestore& restore : restores) prefixes.push_back(restore.prefix);
    return prefixes;
}

void markRestores(const ProjectLock&, const History& history, const std::vector<MarkedRestore>& restores) {
    const std::string path = pathOf(history);
    if (restores.empty()) {
        if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw TidewrackError::io("remove", path, errno);
        return;
    }
    std::string text;
    for (const MarkedRestore& restore : restores)
        text += restore.prefix + " " + std::to_string(restore.safety) + " " + std::to_string(restore.target) + "\n";
    // On the disk before the first of them is made: those whose mark a power cut took would be taken for the user's.
    writeFileAtomically(path, text);
    Descriptor folder;
    int error = openFolder(history.folder(), folder);
    if (error == 0 && !keepsOrder(folder.get())) error = flushNames(folder.get());
    if (error != 0) throw TidewrackError::io("flush", path, error);
}

Temporaries::Temporaries() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto mark = static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
    char text[17] = {};
    const auto end = std::to_chars(text, text + 16, mark, 16).ptr;
    prefix_ = std::string(temporaryPrefix) + std::to_string(::getpid()) + "-" + std::string(text, end) + "-";
}

std::string Temporaries::forCopy() {
    return prefix_ + std::to_string(counter_++);
}

std::string Temporaries::aside(int folder, std::string_view name) {
    const std::string own = forCopy() + "-";
    return own + shortened(folder, name, own.size());
}

std::vector<std::string> originalsIn(const Manifest& listing, std::string_view path, std::string_view name) {
    const std::string folder(parentOf(path));
    std::vector<std::string> paths{folder.empty() ? std::string(name) : joined(folder, name)};
    if (lastComponent(path).size() + longCharacter <= shortLimit) return paths; // there was room for all of it
    const std::string start = paths.front();
    for (const Manifest::Item& item : listing.beginningWith(start))
        if (item.path.size() > start.size() && item.path.find('/', start.size()) == std::string_view::npos)
            paths.emplace_back(item.path);
    return paths;
}

std::string shortened(int folder, std::string_view name, std::size_t used) {
    if (used + name.size() <= shortLimit) return std::string(name);
    const long told = ::fpathconf(folder, _PC_NAME_MAX);
    const auto longest = static_cast<std::size_t>(told > 0 ? std::min(told, longestName) : longestName);
    std::size_t size = 0;
    while (size < name.size()) {
        const std::size_t next = characterLength(name.substr(size));
        if (used + size + next > longest) break;
        size += next;
    }
    return std::string(name.substr(0, size));
}

} // namespace tidewrack
