// How long the guard takes for long lines. No wall clock: other processes must not make a difference.

#include "Fuzz/Fuzz.hpp"

#include "Shell/Guard.hpp"

#include <ctime>

using namespace tidewrack;

namespace {

double processorSeconds() {
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace

// Part, NUL, repeated part, NUL, part; without any NUL all of it is repeated. Whatever grows with the square of the
// length takes many times as long as is allowed here.
FUZZ_TARGET(shell_time) {
    const bool parts = input.find('\0') != input.npos;
    std::string command(parts ? fuzz::takeUpTo('\0', input) : "");
    const std::string_view repeated = fuzz::takeUpTo('\0', input);
    if (repeated.empty()) return;
    while (command.size() < 128 * 1024) command += repeated;
    command += input;
    const double begin = processorSeconds();
    (void)shell::analyze(command, {"/nowhere/project", "/nowhere/home", {{"X", "value"}}, {"/nowhere/project"}});
    fuzz::require(processorSeconds() - begin < 2, "128 KiB take no time to speak of");
}
