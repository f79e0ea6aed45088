#pragma once
// The one way of output: where text goes, and what it may hold there.

#include "Pager.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// How text that others chose (names, labels, commands) is shown. A terminal obeys control characters, so there they are
// written out (`\x1b`); a pipe gets them as they are.
struct Look {
    bool terminal = false;
    bool colour = false;

    [[nodiscard]] std::string shown(std::string_view text) const;
};

// Where a command's text goes: into a string, or straight to a file descriptor.
class Sink {
  public:
    explicit Sink(std::string& into, bool terminal = false) : text_(&into), terminal_(terminal) {}
    Sink(int fd, bool terminal) : fd_(fd), terminal_(terminal) {}

    // After a failed write nothing more is written; `error` then tells why.
    void write(std::string_view text);
    void line(std::string_view text); // with a line feed
    void flush();
    // From here on everything goes through this program; ignored for a string.
    void pageThrough(const std::string& command) {
        if (fd_ >= 0) pager_.emplace(command, fd_);
    }
    // Flushes, and waits for the reader of the pages.
    void finish();
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] bool isTerminal() const { return terminal_; }
    [[nodiscard]] std::string shown(std::string_view text) const { return Look{terminal_}.shown(text); }

  private:
    std::string* text_ = nullptr;
    int fd_ = -1;
    bool terminal_ = false;
    int error_ = 0;
    std::string waiting_;
    std::optional<Pager> pager_;
};

} // namespace tidewrack
