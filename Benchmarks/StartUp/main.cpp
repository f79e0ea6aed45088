// How long whole processes take, from spawning to end, for several commands in turn:
//   tidewrack_startup ROUNDS INPUT PROGRAM WORD... [-- PROGRAM WORD...]...
// Every command gets INPUT as its standard input; what it prints goes nowhere. One that fails ends the measurement.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

struct Candidate {
    std::vector<char*> words; // ended by a null pointer
    std::vector<double> times;
};

// Splits at each "--".
std::vector<Candidate> candidatesOf(char** word, char** end) {
    std::vector<Candidate> candidates;
    for (bool first = true; word < end; ++word) {
        if (std::string_view(*word) == "--") {
            first = true;
            continue;
        }
        if (first) candidates.emplace_back();
        first = false;
        candidates.back().words.push_back(*word);
    }
    for (Candidate& candidate : candidates) candidate.words.push_back(nullptr);
    return candidates;
}

// The time of one run; negative when it could not be started or failed.
double run(const Candidate& candidate, const posix_spawn_file_actions_t& actions) {
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const char* const program = candidate.words.front();
    if (::posix_spawn(&child, program, &actions, nullptr, candidate.words.data(), environ) != 0) return -1;
    int status = 0;
    ::waitpid(child, &status, 0);
    const double elapsed = Milliseconds(std::chrono::steady_clock::now() - start).count();
    return status == 0 ? elapsed : -1;
}

} // namespace

int main(int count, char** given) {
    if (count < 4) {
        std::fputs("usage: tidewrack_startup ROUNDS INPUT PROGRAM WORD... [-- PROGRAM WORD...]...\n", stderr);
        return 1;
    }
    const int rounds = std::max(std::atoi(given[1]), 1);
    std::vector<Candidate> candidates = candidatesOf(given + 3, given + count);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, given[2], O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

    // In turn, so that whatever else the machine does meets all of them.
    for (int round = 0; round < rounds; ++round) {
        for (Candidate& candidate : candidates) {
            const double elapsed = run(candidate, actions);
            if (elapsed < 0) {
                std::fprintf(stderr, "tidewrack_startup: failed: %s\n", candidate.words.front());
                return 1;
            }
            candidate.times.push_back(elapsed);
        }
    }

    std::puts("    least   median     90 %  ms");
    for (Candidate& candidate : candidates) {
        std::sort(candidate.times.begin(), candidate.times.end());
        const auto at = [&](std::size_t percent) {
            return candidate.times[(candidate.times.size() - 1) * percent / 100];
        };
        std::printf("%9.3f%9.3f%9.3f  %s\n", at(0), at(50), at(90), candidate.words.front());
    }
    return 0;
}
