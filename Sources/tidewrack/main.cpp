#include "CommandLine.hpp"

#include "Platform/Platform.hpp"

#include <cstdlib>
#include <cstring>

extern char** environ;

int main(int count, char** words) {
    using namespace tidewrack;
    Environment environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (const char* equals = std::strchr(*entry, '='))
            environment.emplace(std::string(*entry, static_cast<std::size_t>(equals - *entry)), equals + 1);
    Sink out(STDOUT_FILENO, ::isatty(STDOUT_FILENO) == 1);
    Sink err(STDERR_FILENO, ::isatty(STDERR_FILENO) == 1);
    Surroundings around{std::move(environment), currentFolder(), count > 0 ? words[0] : "", out, err, STDIN_FILENO};
    const int status = run(std::vector<std::string>(words + (count > 0 ? 1 : 0), words + count), around);
    // Everything is written; tearing large listings down entry by entry would only take time.
    std::_Exit(status);
}
