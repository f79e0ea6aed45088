// How long a whole process takes, from its spawning to its end, for several programs in turn:
//   tidewrack_startup ROUNDS INPUT PROGRAM... -- WORD...
// Every program gets the same words and INPUT as its standard input; what it prints goes nowhere.

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
    char* program;
    std::vector<double> times;
};

// The time of one run, negative when the program cannot be started.
double run(char* program, const std::vector<char*>& words, const posix_spawn_file_actions_t& actions) {
    std::vector<char*> arguments = {program};
    arguments.insert(arguments.end(), words.begin(), words.end());
    arguments.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (::posix_spawn(&child, program, &actions, nullptr, arguments.data(), environ) != 0) return -1;
    int status = 0;
    ::waitpid(child, &status, 0);
    return Milliseconds(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int count, char** given) {
    if (count < 4) {
        std::fputs("usage: tidewrack_startup ROUNDS INPUT PROGRAM... -- WORD...\n", stderr);
        return 1;
    }
    const int rounds = std::atoi(given[1]);
    std::vector<Candidate> candidates;
    int next = 3;
    while (next < count && std::string_view(given[next]) != "--") candidates.push_back({given[next++], {}});
    const std::vector<char*> words(given + std::min(next + 1, count), given + count);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, given[2], O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

    // In turn, so that whatever else the machine does meets all of them.
    for (int round = 0; round < rounds; ++round)
        for (Candidate& candidate : candidates) candidate.times.push_back(run(candidate.program, words, actions));

    std::puts("    least   median     90 %  ms");
    for (Candidate& candidate : candidates) {
        std::sort(candidate.times.begin(), candidate.times.end());
        const auto at = [&](std::size_t percent) {
            return candidate.times.empty() ? 0.0 : candidate.times[(candidate.times.size() - 1) * percent / 100];
        };
        std::printf("%9.3f%9.3f%9.3f  %s\n", at(0), at(50), at(90), candidate.program);
    }
    return 0;
}
