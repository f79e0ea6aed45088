#pragma once
// Patterns matched against the disk, as a shell does.

#include <fnmatch.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Whether a pattern has so many stars that matching it may take exponential time.
[[nodiscard]] bool isHard(std::string_view pattern);

// Finds what patterns match. One matcher serves one command line and never takes long: it stops after
// 10,000 matches, 256 patterns or a quarter of a second, all patterns together.
class GlobMatcher {
  public:
    // The existing paths that match an absolute pattern, sorted. None when a limit ended the search, so
    // that the list would be incomplete. Hidden names match only a pattern that begins with a dot there.
    [[nodiscard]] std::optional<std::vector<std::string>> match(const std::string& pattern);

    // From now on patterns match hidden names too, or without regard to case.
    void matchHidden() { flags_ &= ~FNM_PERIOD; }
    void ignoreCase() { flags_ |= FNM_CASEFOLD; }

    // The names in a folder, hidden ones too; none when a limit ended the reading. Counts as a pattern.
    [[nodiscard]] std::optional<std::vector<std::string>> namesIn(const std::string& folder);

  private:
    [[nodiscard]] bool start();
    [[nodiscard]] bool outOfTime();
    bool readNames(const std::string& folder, const char* pattern, std::vector<std::string>& names);
    bool add(std::string path, std::vector<std::string>& matches);
    bool descend(std::string path, std::string_view rest, std::vector<std::string>& matches);

    int flags_ = FNM_PERIOD | FNM_NOESCAPE;
    std::size_t patterns_ = 0;
    std::size_t matches_ = 0;
    std::size_t steps_ = 0;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
};

} // namespace tidewrack::shell
