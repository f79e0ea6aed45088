#include "Walk/GitIgnore.hpp"

#include "Platform/Platform.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace tidewrack {

namespace {

// A pipe whose ends no child inherits unless it is told to.
bool makePipe(Descriptor& readEnd, Descriptor& writeEnd) {
    int ends[2];
    if (::pipe(ends) != 0) return false;
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
    return ::fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0;
}

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Given to every answer even past the deadline: walking a large ignored folder would take longer.
constexpr milliseconds shortestWait{500};

} // namespace

bool GitIgnore::insideRepo(const std::string& path) {
    std::string folder = path;
    while (!folder.empty()) {
        if (::access((folder + "/.git").c_str(), F_OK) == 0) return true;
        if (folder == "/") return false;
        const auto slash = folder.rfind('/');
        if (slash == std::string::npos) return false;
        folder.resize(slash == 0 ? 1 : slash);
    }
    return false;
}

std::unique_ptr<GitIgnore> GitIgnore::open(const std::string& root, const Deadline& deadline) {
    if (!insideRepo(root) || gitProgram().empty()) return nullptr;
    return std::make_unique<GitIgnore>(root, deadline);
}

GitIgnore::~GitIgnore() {
    input_.reset(); // git ends at the end of its input
    output_.reset();
    if (!launched_) return;
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
}

void GitIgnore::launch() {
    dead_ = true;
    Descriptor childInput;
    Descriptor childOutput;
    if (!makePipe(childInput, input_) || !makePipe(output_, childOutput)) return;
    const std::string program = gitProgram();
    std::array<const char*, 9> arguments = {
        program.c_str(), "-C", root_.c_str(), "check-ignore", "--stdin", "-z", "--verbose", "--non-matching", nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childInput.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOutput.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error = ::posix_spawn(&process_, program.c_str(), &actions, nullptr,
                                    const_cast<char* const*>(arguments.data()), environ); // NOLINT: spawn's signature
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return;
    disableSigpipe(input_.get());
    launched_ = true;
    dead_ = false;
}

// git ends when it is asked about a path inside a submodule, and would then answer nothing more. A submodule has a
// ".git" file, as a linked work tree has, whose file leads to a folder directly in "worktrees".
bool GitIgnore::isInSubmodule(std::string_view asked) const {
    for (std::string_view folder = parentOf(asked); !folder.empty(); folder = parentOf(folder)) {
        const std::string path = root_ + "/" + std::string(folder) + "/.git";
        Attributes attributes;
        std::string link;
        if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0 || attributes.kind != Attributes::Kind::file)
            continue;
        return readFile(path, link) != 0 || lastComponent(parentOf(link)) != "worktrees";
    }
    return false;
}

bool GitIgnore::isIgnored(std::string_view path) {
    if (!launched_ && !dead_) launch();
    if (dead_ || path.find('\0') != std::string_view::npos || isInSubmodule(path)) return false;
    // A colon at the beginning would be taken for one of git's own signs.
    std::string question = (path.starts_with(':') ? "./" : "") + std::string(path);
    question += '\0';
    if (writeAll(input_.get(), question) != 0) {
        dead_ = true;
        return false;
    }
    const Deadline until =
        deadline_ ? Deadline(std::max(*deadline_, steady_clock::now() + shortestWait)) : std::nullopt;
    std::array<std::string, 4> fields; // source, line number, pattern, path
    for (std::string& field : fields) {
        auto text = readField(until);
        if (!text) {
            dead_ = true;
            return false;
        }
        field = std::move(*text);
    }
    return !fields[0].empty() && !fields[2].starts_with('!');
}

// False when there is none until then. Git then hangs, and is ended so that nobody has to wait for it.
bool GitIgnore::waitForAnswer(const Deadline& until) {
    if (!until) return true;
    while (true) {
        const auto left = std::chrono::ceil<milliseconds>(*until - steady_clock::now()).count();
        pollfd answer{output_.get(), POLLIN, 0};
        const int ready = ::poll(&answer, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX)));
        if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
        if (!passed(until)) continue;
        ::kill(process_, SIGKILL);
        return false;
    }
}

std::optional<std::string> GitIgnore::readField(const Deadline& until) {
    while (true) {
        const auto end = buffer_.find('\0');
        if (end != std::string::npos) {
            std::string field = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return field;
        }
        if (!waitForAnswer(until)) return std::nullopt;
        std::array<char, 4096> bytes;
        const ssize_t count = ::read(output_.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return std::nullopt;
        buffer_.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

} // namespace tidewrack
