#pragma once
// The command line's words, and the program as one function of them.

#include "Store/Store.hpp"

#include <cstdint>
#include <map>
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

// The words after the program's name. An option that takes a value takes the next word, whatever it looks like; other
// words that begin with "--" are flags; the rest, "-x" included, is positional.
struct Args {
    explicit Args(const std::vector<std::string>& words);

    std::map<std::string, std::string, std::less<>> values;
    std::set<std::string, std::less<>> flags;
    std::vector<std::string> positional;

    [[nodiscard]] bool has(std::string_view flag) const { return flags.contains(flag); }
    [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
    [[nodiscard]] std::optional<std::string> word(std::size_t index) const;
    // The positional word at `index` as a snapshot number; "#12" and "12" are the same. Throws CliError.
    [[nodiscard]] std::int64_t number(std::size_t index, const char* name) const;
};

// Where a command's text goes: into a string, or straight to a file descriptor.
class Sink {
  public:
    explicit Sink(std::string& into) : text_(&into) {}
    Sink(int fd, bool terminal) : fd_(fd), terminal_(terminal) {}

    // After a failed write nothing more is written; `error` then tells why.
    void write(std::string_view text);
    void line(std::string_view text); // with a line feed
    void flush();
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] bool isTerminal() const { return terminal_; }

  private:
    std::string* text_ = nullptr;
    int fd_ = -1;
    bool terminal_ = false;
    int error_ = 0;
    std::string waiting_;
};

// Everything a run may know of the world around it.
struct Surroundings {
    Environment environment;
    std::string currentFolder;
    std::string calledAs; // the program's name as it was called
    Sink& out;
    Sink& err;
    int input = 0; // the descriptor that events are read from
};

// Runs one command and returns the exit status. Never throws.
int run(const std::vector<std::string>& words, Surroundings& around);

} // namespace tidewrack
