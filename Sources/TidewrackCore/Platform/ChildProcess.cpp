#include "Platform/ChildProcess.hpp"

#include "Platform/Process.hpp"

#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <thread>

namespace tidewrack {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds longestReaping{200};

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str())); // NOLINT: for execve
    result.push_back(nullptr);
    return result;
}

} // namespace

int ChildProcess::start(const ChildCommand& command) {
    Descriptor childInput;
    Descriptor childOutput;
    if (const int error = makePipe(childInput, input_)) return error;
    if (const int error = makePipe(output_, childOutput)) return error;
    disableSigpipe(input_.get());
    auto arguments = pointersTo(command.arguments);
    arguments.insert(arguments.begin(), const_cast<char*>(command.program.c_str())); // NOLINT: as above
    const auto environment = pointersTo(command.environment);
    return spawn({command.program.c_str(), arguments.data(), environment.data(), childInput.get(), childOutput.get()},
                 process_);
}

int ChildProcess::send(std::string_view bytes) const {
    return writeAll(input_.get(), bytes);
}

int ChildProcess::receive(std::string& buffer, const Deadline& until) const {
    while (true) {
        const auto left = until ? std::chrono::ceil<milliseconds>(*until - steady_clock::now()).count() : -1;
        pollfd answer{output_.get(), POLLIN, 0};
        const int ready = ::poll(&answer, 1, static_cast<int>(std::clamp<std::int64_t>(left, until ? 0 : -1, INT_MAX)));
        if (ready == 0 && passed(until)) return ETIMEDOUT;
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        std::array<char, 4096> bytes;
        const ssize_t count = ::read(output_.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return EPIPE;
        buffer.append(bytes.data(), static_cast<std::size_t>(count));
        return 0;
    }
}

bool ChildProcess::succeeds(const Deadline& until) {
    input_.reset();
    int status = 0;
    pid_t ended = 0;
    while (process_ >= 0 && (ended = ::waitpid(process_, &status, WNOHANG)) == 0 && !passed(until))
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    if (ended <= 0) return false;
    process_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A process that hangs inside the system (on a lost network volume) ends only when the system lets it. It is then left
// unreaped, so that this process need not wait for it.
void ChildProcess::end() {
    input_.reset();
    output_.reset();
    if (process_ < 0) return;
    ::kill(process_, SIGKILL);
    const auto until = steady_clock::now() + longestReaping;
    while (::waitpid(process_, nullptr, WNOHANG) == 0 && steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    process_ = -1;
}

} // namespace tidewrack
