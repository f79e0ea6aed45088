#pragma once
// Tilde and variable expansion of one word.

#include "Shell/Budget.hpp"
#include "Shell/Decision.hpp"
#include "Shell/Program.hpp"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// $0, $1, ... of a shell or function; none for one that only running would show.
using Parameters = std::vector<std::optional<std::string>>;

// The variables as they stand at one place of a command line: what the line assigned so far, over the
// environment that it was given (which must outlive this). All look-ups together hand out at most 256 KiB and
// 1,000 names can be assigned, so that a line of doubling assignments stays cheap; past that a name has no
// value and the line counts as not followed.
class Variables {
  public:
    explicit Variables(const Environment& inherited) : inherited_(inherited) {}

    // False when there are too many names; the assignment is not recorded then.
    bool assign(std::string_view name, std::string value);

    // Valid until the next assignment.
    [[nodiscard]] std::optional<std::string_view> value(std::string_view name);

    // The value that was assigned; null where none was.
    [[nodiscard]] const std::string* assigned(std::string_view name) const {
        const auto found = assigned_.find(name);
        return found == assigned_.end() ? nullptr : &found->second;
    }
    [[nodiscard]] bool hasAssigned() const { return !assigned_.empty(); }

    // Whether one has a name that begins like that.
    [[nodiscard]] bool holdsAnyLike(std::string_view begin) const;

    // The name has a value that only running would show, until one is assigned.
    void noteUnknown(std::string_view name);
    // The same for all names that have none.
    void noteOthersUnknown() { othersUnknown_ = true; }
    [[nodiscard]] bool isUnknown(std::string_view name) const { return !unknown_.empty() && unknown_.contains(name); }
    [[nodiscard]] bool mayHaveValue(std::string_view name) const { return othersUnknown_ || isUnknown(name); }

    // A test says that the name's value is not empty, as long as commands depend on it.
    void noteFilled(std::string_view name) { filled_ = name; }
    [[nodiscard]] bool isFilled(std::string_view name) const { return !name.empty() && name == filled_; }

    // True once something was expanded whose value cannot be known, until it is cleared.
    [[nodiscard]] bool unfollowed() const { return unfollowed_; }
    void setUnfollowed(bool unfollowed) { unfollowed_ = unfollowed; }

    // Gives $0, $1, ... these values, none where nothing is known of them, and returns what they were.
    std::optional<Parameters> exchangeParameters(std::optional<Parameters> parameters);
    [[nodiscard]] const std::optional<Parameters>& parameters() const { return parameters_; }

    // Counts text that is put into words; false when it is too much.
    [[nodiscard]] bool handOut(std::size_t size);

    // That patterns in ${X%pattern} and its kin may still take.
    [[nodiscard]] std::size_t& steps() { return steps_; }

    // What is assigned in a subshell ends with it. They stand in each other.
    void beginSubshell() { subshells_.push_back({replaced_.size(), othersUnknown_}); }
    void endSubshell();

  private:
    struct Replaced {
        std::string name;
        std::optional<std::string> value; // before; none: it was not assigned
    };

    struct Subshell {
        std::size_t replaced; // how many were when it began
        bool othersUnknown;   // then
    };

    [[nodiscard]] const std::string* find(std::string_view name);

    [[nodiscard]] std::optional<std::string_view> parameter(std::string_view number) const;

    const Environment& inherited_;
    Environment assigned_;
    std::optional<Parameters> parameters_;
    std::vector<Replaced> replaced_; // by assignments in subshells
    std::vector<Subshell> subshells_;
    std::set<std::string, std::less<>> unknown_;
    bool othersUnknown_ = false;
    std::string filled_;
    std::string lastName_; // the last name looked up, and what was found
    const std::string* lastValue_ = nullptr;
    std::size_t handedOut_ = 0;
    std::size_t steps_ = Budget::patternSteps;
    bool unfollowed_ = false;
};

// The length of the variable name that `text` begins with; 0 when it begins with none.
[[nodiscard]] std::size_t nameLength(std::string_view text);

// `word` with a leading tilde and every variable replaced, once, without splitting and without globbing. "HOME" is
// always `home`. An unset variable leaves nothing, as does ${X%.c} where X is empty or unset. What is not worked out,
// such as ${!X}, leaves nothing and sets `variables.unfollowed()`. ${X:-fallback} does the same where braces stand in
// the fallback; else its tilde and variables are replaced too.
[[nodiscard]] Word expand(Word word, std::string_view home, Variables& variables);

// The same, in place.
void expandInPlace(Word& word, std::string_view home, Variables& variables);

} // namespace tidewrack::shell
