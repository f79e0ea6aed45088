#include "CommandLine.hpp"
#include "Platform/Process.hpp"
#include "ProcessStart.hpp"

#include <unistd.h>

int main(int count, char** words) {
    using namespace tidewrack;
    prepareProcess();
    Sink out(STDOUT_FILENO, ::isatty(STDOUT_FILENO) == 1);
    Sink err(STDERR_FILENO, ::isatty(STDERR_FILENO) == 1);
    Surroundings around{environmentOfProcess(), currentFolder(), count > 0 ? words[0] : "", out, err, STDIN_FILENO};
    const int status = run(std::vector<std::string>(words + (count > 0 ? 1 : 0), words + count), around);
    // Everything is written; tearing large listings down entry by entry would only take time. Not std::_Exit, which the
    // thread sanitizer does not see: its findings would leave the status as it is.
    ::_exit(status);
}
