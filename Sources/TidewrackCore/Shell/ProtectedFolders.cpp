#include "Shell/ProtectedFolders.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
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

constexpr std::size_t longestSystemFolder = 13;
static_assert(std::all_of(systemFolders.begin(), systemFolders.end(),
                          [](std::string_view folder) { return folder.size() <= longestSystemFolder; }));

bool isSystemFolder(std::string_view path) {
    return path.size() <= longestSystemFolder && isIn(systemFolders, path);
}

} // namespace

ProtectedFolders::ProtectedFolders(std::string_view home, std::span<const std::string> projectRoots)
    : hasHome_(!home.empty()), home_(absolutePath(home, "/")), projectRoots_(projectRoots) {
    if (home_ == "/"sv) home_.clear();
}

bool ProtectedFolders::holdsText(std::string_view path) const {
    if (isSystemFolder(path) || onlyHoldsHome(path)) return true;
    return hasHome_ && path.starts_with(home_) && isIn(homeFolders, path.substr(home_.size()));
}

bool ProtectedFolders::onlyHoldsHome(std::string_view path) const {
    if (path.size() < 2 || path.size() >= home_.size() || !isAtOrBelow(home_, path) || isSystemFolder(path))
        return false;
    return std::none_of(projectRoots_.begin(), projectRoots_.end(),
                        [&](const std::string& root) { return isAtOrBelow(path, root); });
}

std::vector<std::string> ProtectedFolders::inHome() const {
    std::vector<std::string> folders;
    if (!hasHome_) return folders;
    for (const std::string_view folder : homeFolders) folders.push_back(home_ + std::string(folder));
    return folders;
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
    for (std::string_view above = parentOf(home_); above.size() > 1; above = parentOf(above))
        if (onlyHoldsHome(above)) add(stat(std::string(above).c_str(), &status));
    // What a link such as ~/.config leads to may be anything, for instance a project of dotfiles.
    for (const std::string_view folder : homeFolders) add(lstat((home_ + std::string(folder)).c_str(), &status));
}

} // namespace tidewrack::shell
