#include "Pager.hpp"

#include "Platform/Process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace tidewrack {

namespace {

bool isInPath(const Environment& environment, const std::string& name) {
    const auto found = environment.find("PATH");
    std::string_view folders = found == environment.end() ? std::string_view() : found->second;
    while (!folders.empty()) {
        const std::string_view folder = folders.substr(0, folders.find(':'));
        if (folder.starts_with('/') && ::access((std::string(folder) + "/" + name).c_str(), X_OK) == 0) return true;
        folders.remove_prefix(std::min(folder.size() + 1, folders.size()));
    }
    return false;
}

} // namespace

std::optional<std::string> pagerOf(const Environment& environment) {
    if (const auto chosen = environment.find("PAGER"); chosen != environment.end()) {
        const bool pages = !chosen->second.empty() && chosen->second != "cat";
        return pages ? std::optional(chosen->second) : std::nullopt;
    }
    return isInPath(environment, "less") ? std::optional<std::string>("less") : std::nullopt;
}

int Pager::write(std::string_view text) {
    if (!started_) start();
    return writeAll(process_ > 0 ? input_.get() : fd_, text);
}

void Pager::start() {
    started_ = true;
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) return;
    Descriptor output(ends[0]);
    Descriptor input(ends[1]);
    (void)::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    (void)::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output.get(), STDIN_FILENO);
    // less: end at once when all fits, show colours, leave the text on the screen.
    const std::string script = "LESS=${LESS-FRX} exec " + command_;
    const char* words[] = {"sh", "-c", script.c_str(), nullptr};
    if (::posix_spawn(&process_, "/bin/sh", &actions, nullptr, const_cast<char* const*>(words), environ) != 0)
        process_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    if (process_ > 0) input_ = std::move(input);
}

void Pager::finish() {
    input_ = Descriptor();
    if (process_ <= 0) return;
    // What is typed now is meant for the pager.
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &ignore, &before);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
    ::sigaction(SIGINT, &before, nullptr);
    process_ = -1;
}

} // namespace tidewrack
