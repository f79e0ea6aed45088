#pragma once
// Which paths of a project its owner wants left out of the history, or kept all the same: lines with the meaning that
// they have in a .gitignore file. git itself is not asked: it can't be asked about such a file without the project's
// own .gitignore files, and what is kept must not depend on whether it is installed.

#include "Store/Records.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tidewrack {

class LeaveOutRules {
  public:
    enum class Verdict : std::uint8_t { none, leftOut, kept };

    static constexpr const char* fileName = ".tidewrackignore";
    // Anybody may have written the file, and every path is compared with every rule that has wildcards.
    static constexpr std::size_t largestFile = std::size_t{1} << 18; // bytes
    static constexpr std::size_t mostRules = 1000;

    // Those of the project's file, then those of its record, which outweigh them. A file that can't be read, or is
    // larger than it may be, has none.
    [[nodiscard]] static LeaveOutRules of(const Project& project);

    // Adds a rule for each line; a later one outweighs those before it. More than there may be of one text are passed
    // over.
    void add(std::string_view lines);
    // Forgets all that leave something out, for who has to look everywhere.
    void keepAll();
    [[nodiscard]] bool empty() const { return rules_.empty(); }

    // What the rules say of the path itself, relative to the root. What is in a folder that is left out is so as well,
    // whatever they say of it. git's own folder and the file of the rules are in nobody's hands.
    [[nodiscard]] Verdict of(std::string_view path, bool isFolder) const;
    // Whether the path, or a folder around it, is left out.
    [[nodiscard]] bool leavesOut(std::string_view path, bool isFolder) const;

  private:
    struct Rule {
        std::string pattern;      // without the signs around it
        bool keeps = false;       // behind a "!"
        bool foldersOnly = false; // "/" at its end
        bool isWhole = false;     // compared with the whole path, not with the name alone
        bool isLiteral = false;   // no wildcards
    };

    [[nodiscard]] static bool matches(const Rule& rule, std::string_view path, std::string_view name, bool isFolder);

    std::vector<Rule> rules_;
};

// Whether a path, or one component of it, is what the pattern stands for: "*" and "?" for anything but "/", "[a-z]" for
// one letter, "**" between slashes for any number of folders. Takes time in the order of both lengths' product.
[[nodiscard]] bool matchesPattern(std::string_view pattern, std::string_view path);

} // namespace tidewrack
