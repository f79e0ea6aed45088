#pragma once
// The command line's words, taken apart.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// A usage error in the user's words.
struct CliError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The words after the program's name. An option that takes a value takes the next word, whatever it looks like, or the
// text behind its "=". Other words that begin with "--" are flags. The rest, "-x" included, is positional, as is
// everything behind "--".
struct Args {
    explicit Args(const std::vector<std::string>& words);

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    std::map<std::string, std::string, std::less<>> values;
    std::set<std::string, std::less<>> flags;
    std::vector<std::string> positional;
    std::size_t plainFrom = none; // the positional words from here on were behind "--"

    [[nodiscard]] bool has(std::string_view flag) const { return flags.contains(flag); }
    // None where the option or the word was not given.
    [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
    [[nodiscard]] std::optional<std::string> word(std::size_t index) const;
    // The positional word at `index` as a snapshot number; "#12" and "12" are the same. Throws CliError.
    [[nodiscard]] std::int64_t number(std::size_t index, const char* name) const;
    // Takes words off the front.
    void drop(std::size_t count);
    // Takes out the positional word at `index`.
    void remove(std::size_t index);
    // The word `short option` + digits, as in "-n5", becomes that option's value; the last one counts.
    void takeJoinedNumber(std::string_view option);
};

// Of the page. Throws CliError.
[[nodiscard]] int portNumber(const std::string& text);

// A word as a snapshot number; "#12" and "12" are the same.
[[nodiscard]] std::optional<std::int64_t> snapshotNumber(std::string_view word);

} // namespace tidewrack
