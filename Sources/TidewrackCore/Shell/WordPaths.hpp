#pragma once
// Paths as a shell understands them: joined to the working folder, and patterns matched against the disk.

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// `path` when it begins with "/", else joined to `cwd`, which must be a result of this function; "." and ".."
// are resolved textually. The result has no trailing slash, but for "/" itself.
[[nodiscard]] std::string absolutePath(std::string_view path, std::string_view cwd);

// Everything before the last "/" of an absolute path; "/" for what lies in the root.
[[nodiscard]] std::string_view parentFolder(std::string_view path);

// What stands behind the last "/", trailing slashes left out.
[[nodiscard]] std::string_view lastComponent(std::string_view path);

// Whether a folder, or a link to one, stands at the path.
[[nodiscard]] bool isFolder(const std::string& path);

// Finds what patterns match. One matcher serves one command line and never takes long: it stops after
// 10,000 matches, 256 patterns or a quarter of a second, all patterns together.
class GlobMatcher {
  public:
    // The existing paths that match an absolute pattern, sorted. None when a limit ended the search, so
    // that the list would be incomplete. Hidden names match only a pattern that begins with a dot there.
    [[nodiscard]] std::optional<std::vector<std::string>> match(const std::string& pattern);

    // The names in a folder, hidden ones too; none when a limit ended the reading. Counts as a pattern.
    [[nodiscard]] std::optional<std::vector<std::string>> namesIn(const std::string& folder);

  private:
    [[nodiscard]] bool start();
    [[nodiscard]] bool outOfTime();
    bool readNames(const std::string& folder, const char* pattern, std::vector<std::string>& names);
    bool add(std::string path, std::vector<std::string>& matches);
    bool descend(std::string path, std::string_view rest, std::vector<std::string>& matches);

    std::size_t patterns_ = 0;
    std::size_t matches_ = 0;
    std::size_t steps_ = 0;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
};

} // namespace tidewrack::shell
