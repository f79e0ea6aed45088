#pragma once
// The folders that no agent's command may delete or overwrite: the system's own, the home folder, those it lies in, and
// its well-known ones.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace tidewrack::shell {

class ProtectedFolders {
  public:
    // A project that holds the home folder is not protected by that: its commands are snapshotted, and asked about.
    // `projectRoots` must outlive this.
    ProtectedFolders(std::string_view home, std::span<const std::string> projectRoots);

    // Whether the text of an absolute path without trailing slash is that of a protected folder.
    [[nodiscard]] bool holdsText(std::string_view path) const;

    // Whether it is protected only because the home folder lies in it.
    [[nodiscard]] bool onlyHoldsHome(std::string_view path) const;

    // The home folder and its well-known ones.
    [[nodiscard]] std::vector<std::string> inHome() const;

    // Whether a protected folder is at `path` whatever its spelling: on a volume that ignores case, or reached through
    // a link. A link at the path itself counts as what it leads to only with `followLink`. Reads the disk; looks at 512
    // paths at most.
    [[nodiscard]] bool holdsFolder(const std::string& path, bool followLink);

  private:
    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(const Identity&) const = default;
    };

    void readIdentities();

    bool hasHome_;
    std::string home_; // empty for a home that is the root
    std::span<const std::string> projectRoots_;
    std::vector<Identity> identities_;
    bool identitiesRead_ = false;
    int pathsLookedAt_ = 0;
};

} // namespace tidewrack::shell
