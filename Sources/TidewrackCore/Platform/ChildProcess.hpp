#pragma once
// A program that runs beside this one and is asked through pipes. ChildProcess.cpp holds what the systems share,
// ChildProcessLinux.cpp and ChildProcessMacos.cpp how it is started.

#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// What is run. The child gets `environment` alone, nothing of this process's environment.
struct ChildCommand {
    std::string program; // an absolute path
    std::vector<std::string> arguments;
    std::vector<std::string> environment; // "NAME=value"
};

// Owns the child, which ends no later than this object. Where the system allows it, the child also ends when this
// process dies in any way; it may write no files, and an ordinary user's child may start no processes.
class ChildProcess {
  public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { end(); }

    // To be called once, on a thread that outlives the child. The child's input and output are pipes to this object;
    // its errors are dropped. Returns an errno value; a program that cannot be run may instead look like one that ends
    // at once.
    [[nodiscard]] int start(const ChildCommand& command);
    // To be called only when the child has read what it was sent before, so that the pipe has room. Returns an errno
    // value.
    [[nodiscard]] int send(std::string_view bytes) const;
    // Appends what the child has written to `buffer`. Returns 0, ETIMEDOUT when nothing came by then, or EPIPE at the
    // end.
    [[nodiscard]] int receive(std::string& buffer, const Deadline& until) const;
    // Waits for the child's own end and returns whether its exit status is 0; false when it does not end by then.
    [[nodiscard]] bool succeeds(const Deadline& until);
    // Kills the child and reaps it, unless it hangs inside the system.
    void end();

  private:
    pid_t process_ = -1;
    Descriptor input_;
    Descriptor output_;
};

// What spawn() needs. It is complete before the child begins, since on some systems the child shares this process's
// memory until it runs the program.
struct Spawning {
    const char* program;
    char* const* arguments; // the program's name first, null last
    char* const* environment;
    int input;
    int output;
};
// Starts the child. Returns an errno value.
[[nodiscard]] int spawn(const Spawning& spawning, pid_t& process);

} // namespace tidewrack
