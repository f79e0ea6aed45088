#include "Agents/AnswerInTime.hpp"

#include "Agents/SaveBefore.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <string>
#include <thread>

namespace tidewrack {

namespace {

// The exit status, which texts there are, the first of them up to a zero byte, and the second. The first is JSON, which
// holds no such byte.
std::string encoded(const HookOutput& output) {
    std::string message;
    message += static_cast<char>(output.exitCode);
    message += static_cast<char>((output.standardOutput ? 1 : 0) + (output.standardError ? 2 : 0));
    message.append(output.standardOutput.value_or("")).append(1, '\0').append(output.standardError.value_or(""));
    return message + '\n'; // what is cut off does not end so
}

std::optional<HookOutput> decoded(const std::string& message) {
    const auto zero = message.find('\0', 2);
    if (message.size() < 4 || zero == message.npos || !message.ends_with('\n')) return std::nullopt;
    HookOutput output;
    output.exitCode = static_cast<unsigned char>(message[0]);
    if ((message[1] & 1) != 0) output.standardOutput = message.substr(2, zero - 2);
    if ((message[1] & 2) != 0) output.standardError = message.substr(zero + 1, message.size() - zero - 2);
    return output;
}

// Whoever waits for the end of our output must not wait for this process.
void leaveStandardStreams() {
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (nowhere < 0 || ::dup2(nowhere, fd) < 0) ::close(fd);
}

// All that is written up to the end of the pipe. False when that does not come by the deadline.
bool readToEnd(int pipe, const Deadline& deadline, std::string& bytes) {
    using std::chrono::milliseconds;
    while (true) {
        const auto left = deadline
                              ? std::chrono::ceil<milliseconds>(*deadline - std::chrono::steady_clock::now()).count()
                              : std::int64_t{INT_MAX};
        pollfd written{pipe, POLLIN, 0};
        const int ready = ::poll(&written, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX)));
        if (ready == 0) return false;
        if (ready < 0 && errno == EINTR) continue;
        std::array<char, 4096> piece;
        const ssize_t count = ready < 0 ? 0 : ::read(pipe, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return true;
        bytes.append(piece.data(), static_cast<std::size_t>(count));
    }
}

// Where nobody adopts orphans, as in many containers, it would stay in the list of processes for ever. One that hangs
// inside the system is left to itself.
void reap(pid_t child) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (::waitpid(child, nullptr, WNOHANG) == 0 && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::microseconds(50));
}

} // namespace

HookOutput answerInTime(const Deadline& deadline, const std::function<HookOutput()>& work,
                        const std::function<HookOutput(const char* why)>& late) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return work();
    Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    for (const int end : ends) (void)::fcntl(end, F_SETFD, FD_CLOEXEC); // programs that the work starts
    const pid_t child = ::fork();
    if (child < 0) return work();
    if (child == 0) {
        reading.reset();
        leaveStandardStreams();
        (void)writeAll(writing.get(), encoded(work()));
        ::_exit(0);
    }
    writing.reset();
    std::string message;
    const bool ended = readToEnd(reading.get(), deadline, message);
    if (ended) reap(child);
    if (auto output = decoded(message)) return *output;
    return late(ended ? "saving it failed" : noTimeLeft);
}

} // namespace tidewrack
