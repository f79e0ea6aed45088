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

// What is run: nothing of this process's environment comes along of itself.
struct ChildCommand {
    std::string program; // an absolute path
    std::vector<std::string> arguments;
    std::vector<std::string> environment; // "NAME=value"
};

// Owns the child: it is ended and reaped no later than with this object. Where the system allows it, it also ends when
// this process dies in whatever way, and may neither start processes (of an ordinary user) nor write files.
class ChildProcess {
  public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { end(); }

    // Once, on a thread that outlives the child. Its input and output are pipes to this object, its errors go nowhere.
    // Returns an errno value; a program that cannot be run may instead show as one that ends at once.
    [[nodiscard]] int start(const ChildCommand& command);
    // To be called only when the child has read what it was sent before, so that the pipe has room. Returns an errno
    // value.
    [[nodiscard]] int send(std::string_view bytes) const;
    // Appends what the child has written. 0, ETIMEDOUT when nothing came until then, or EPIPE at the end of its output.
    [[nodiscard]] int receive(std::string& buffer, const Deadline& until) const;
    void end();

  private:
    pid_t process_ = -1;
    Descriptor input_;
    Descriptor output_;
};

// The part of start() that differs. All of it is ready before the child begins, which on some systems shares this
// process's memory until it runs the program.
struct Spawning {
    const char* program;
    char* const* arguments; // the program's name first, null last
    char* const* environment;
    int input;
    int output;
};
[[nodiscard]] int spawn(const Spawning& spawning, pid_t& process);

} // namespace tidewrack
