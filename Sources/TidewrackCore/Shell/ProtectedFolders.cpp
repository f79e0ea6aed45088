#include "Shell/ProtectedFolders.hpp"

#include "Shell/Budget.hpp"
#include "Support/Paths.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::array systemFolders = {
    "/"sv,        "/Users"sv, "/System"sv,      "/Library"sv,     "/Applications"sv, "/private"sv,
    "/var"sv,     "/etc"sv,   "/usr"sv,         "/bin"sv,         "/sbin"sv,         "/opt"sv,
    "/Volumes"sv, "/tmp"sv,   "/private/tmp"sv, "/private/var"sv,
};

constexpr std::array homeFolders = {
    ""sv,       "/Desktop"sv, "/Documents"sv, "/Downloads"sv, "/Library"sv, "/Pictures"sv,     "/Movies"sv,
    "/Music"sv, "/.ssh"sv,    "/.gnupg"sv,    "/.config"sv,   "/.aws"sv,    "/Applications"sv,
};

template <std::size_t size>
bool contains(const std::array<std::string_view, size>& folders, std::string_view path) {
    return std::find(folders.begin(), folders.end(), path) != folders.end();
}

} // namespace

ProtectedFolders::ProtectedFolders(std::string_view home, const std::vector<std::string>& projectRoots)
    : hasHome_(!home.empty()), home_(absolutePath(home, "/")) {
    if (home_ == "/") home_.clear();
    const auto isTracked = [&](std::string_view folder) {
        return std::any_of(projectRoots.begin(), projectRoots.end(),
                           [&](const std::string& root) { return isAtOrBelow(folder, root); });
    };
    for (std::string_view above = parentOf(home_); above.size() > 1; above = parentOf(above))
        if (!isTracked(above)) aboveHome_.emplace_back(above);
}

bool ProtectedFolders::holdsText(std::string_view path) const {
    if (contains(systemFolders, path) || onlyHoldsHome(path)) return true;
    return hasHome_ && path.starts_with(home_) && contains(homeFolders, path.substr(home_.size()));
}

bool ProtectedFolders::onlyHoldsHome(std::string_view path) const {
    return !contains(systemFolders, path) && std::find(aboveHome_.begin(), aboveHome_.end(), path) != aboveHome_.end();
}

bool ProtectedFolders::holdsFolder(const std::string& path, bool followLink) {
    if (++pathsLookedAt_ > Budget::foldersCompared || path.find('\0') != std::string::npos) return false;
    struct stat status {};
    const int failed = followLink ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
    if (failed || !S_ISDIR(status.st_mode)) return false;
    if (!identitiesRead_) readIdentities();
    return std::find(identities_.begin(), identities_.end(), Identity{status.st_dev, status.st_ino}) !=
           identities_.end();
}

void ProtectedFolders::readIdentities() {
    identitiesRead_ = true;
    struct stat status {};
    const auto add = [&](int failed) {
        if (!failed && S_ISDIR(status.st_mode)) identities_.push_back({status.st_dev, status.st_ino});
    };
    for (const std::string_view folder : systemFolders) add(stat(std::string(folder).c_str(), &status));
    if (!hasHome_) return;
    if (!home_.empty()) add(stat(home_.c_str(), &status));
    for (const std::string& folder : aboveHome_) add(stat(folder.c_str(), &status));
    // What a link such as ~/.config leads to may be anything, for instance a project of dotfiles.
    for (const std::string_view folder : homeFolders) add(lstat((home_ + std::string(folder)).c_str(), &status));
}

} // namespace tidewrack::shell
