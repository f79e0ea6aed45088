#pragma once
// The real program in a process of its own, for what only a process shows.

#include "Support/TestFolders.hpp"

#include "Platform/Descriptor.hpp"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tidewrack::testing {

// Its environment and current folder are the world's.
class Program {
  public:
    enum class Output { collected, closedPipe, full }; // full: a device that takes nothing

    // Without `input` the caller writes it, and ends it.
    Program(const World& world, const std::vector<std::string>& words, Output output = Output::collected,
            const std::optional<std::string>& input = "");
    ~Program(); // ends it when it still runs

    void write(const std::string& text) const;
    void endInput() { input_ = Descriptor(); }
    [[nodiscard]] bool isRunning();
    void signal(int number);
    // Waits for its end. The status is 128 + the signal when one ended it.
    Outcome wait();

  private:
    int openInput(const std::optional<std::string>& input);
    void reap(int options);

    TemporaryFolder texts_;
    Descriptor input_;
    pid_t process_ = -1;
    bool ended_ = false;
    int status_ = 0;
};

} // namespace tidewrack::testing
