#pragma once
// Long output on a terminal goes through a program that shows it page by page.

#include "Platform/Descriptor.hpp"
#include "Store/Store.hpp"

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// The command that pages: $PAGER, else `less` where it is installed. None when there is nothing to page with or PAGER
// is empty or "cat".
[[nodiscard]] std::optional<std::string> pagerOf(const Environment& environment);

class Pager {
  public:
    // Started at the first text, so that a long comparison can still be ended from the keyboard. `fd`: where text goes
    // when the pager cannot be started.
    Pager(std::string command, int fd) : command_(std::move(command)), fd_(fd) {}
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;
    ~Pager() { finish(); }

    // Returns an errno value: EPIPE once the pager has ended.
    [[nodiscard]] int write(std::string_view text);
    // Waits until the pager has ended.
    void finish();

  private:
    void start();

    std::string command_;
    int fd_;
    bool started_ = false;
    pid_t process_ = -1;
    Descriptor input_;
};

} // namespace tidewrack
