#pragma once
// This process, its user, its signals and its memory.

#include "Platform/Descriptor.hpp"

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Writes all bytes; EPIPE is returned, never raised as a signal, and the signal's disposition stays as it was.
[[nodiscard]] int writeAll(int fd, std::string_view bytes);

// Programs that are started get neither end. They lie above the three standard descriptors. Returns an errno value.
[[nodiscard]] int makePipe(Descriptor& readEnd, Descriptor& writeEnd);

// Keeps a write into this pipe from raising SIGPIPE where the system has a switch for it; writeAll covers the rest.
void disableSigpipe(int fd);

// Holds SIGTERM and SIGHUP back until it is released or destroyed; one that came meanwhile takes effect then.
class [[nodiscard]] TerminationDelayed {
  public:
    TerminationDelayed();
    TerminationDelayed(const TerminationDelayed&) = delete;
    TerminationDelayed& operator=(const TerminationDelayed&) = delete;
    ~TerminationDelayed() { release(); }

    void release();

  private:
    sigset_t before_{};
    bool released_ = false;
};

// Ignores SIGTERM (an order to end) and SIGHUP (the terminal went away) while it lives. Child processes started
// meanwhile inherit that.
class [[nodiscard]] TerminationIgnored {
  public:
    TerminationIgnored();
    TerminationIgnored(const TerminationIgnored&) = delete;
    TerminationIgnored& operator=(const TerminationIgnored&) = delete;
    ~TerminationIgnored();

  private:
    struct sigaction onTerminate_ {};
    struct sigaction onHangUp_ {};
};

// Runs a program, looked up in PATH, with this process's streams and environment in `folder`, and waits for its end.
// What ends programs, from the keyboard or from another process, ends it alone. Returns its exit status: 128 + the
// signal that ended it; 127 where there is no such program and 126 where it may not be run, with the errno value in
// `notRun`, which is 0 where it ran.
[[nodiscard]] int runInForeground(const std::vector<std::string>& words, const std::string& folder, int& notRun);

// The system's git program; empty when there is none, or only a stand-in that would offer to install it.
[[nodiscard]] std::string gitProgram();

// The system's program that shows a file in the user's browser.
[[nodiscard]] const char* openingProgram();

[[nodiscard]] std::string homeFolderOfUser(); // from the list of users; empty when unknown
[[nodiscard]] std::string currentFolder();    // empty when unknown
[[nodiscard]] std::string executablePath();   // the running program; empty when unknown
[[nodiscard]] bool processIsAlive(std::int64_t pid);
[[nodiscard]] std::string errorText(int error); // the system's text for an errno value, or ours for an OwnError

// Tells the system that memory just reserved is about to be filled from its beginning. The system may then provide it
// in large pieces, each of which saves hundreds of page faults. Does nothing where the memory is small.
void willFill(void* memory, std::size_t size);

} // namespace tidewrack
