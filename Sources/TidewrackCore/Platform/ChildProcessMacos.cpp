// macOS: posix_spawn. The system does not end a child with its parent; the child's input ends then.

#include "Platform/ChildProcess.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace tidewrack {

int spawn(const Spawning& spawning, pid_t& process) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, spawning.input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, spawning.output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error =
        ::posix_spawn(&process, spawning.program, &actions, nullptr, spawning.arguments, spawning.environment);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace tidewrack
