#pragma once
// The real program in a process of its own, for what only a process shows.

#include "Support/TestFolders.hpp"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tidewrack::testing {

// Its environment and current folder are the world's. What it reads and writes are files.
class Program {
  public:
    enum class Output { collected, closedPipe, full }; // full: a device that takes nothing

    Program(const World& world, const std::vector<std::string>& words, Output output = Output::collected,
            const std::string& input = "");
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program(); // ends it when it still runs

    [[nodiscard]] bool isRunning();
    void kill();
    // Waits for its end. The status is 128 + the signal when one ended it.
    Outcome wait();

  private:
    void reap(int options);

    TemporaryFolder texts_;
    pid_t process_ = -1;
    bool ended_ = false;
    int status_ = 0;
};

} // namespace tidewrack::testing
