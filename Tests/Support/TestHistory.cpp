#include "Support/TestHistory.hpp"

#include "Platform/Platform.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>

namespace tidewrack::testing {

void rewriteRecord(const World& world, std::int64_t seq, const std::function<void(SnapshotMeta&)>& change) {
    const Store store = world.store();
    const Project project = world.project();
    SnapshotMeta meta = store.snapshot(project, seq);
    change(meta);
    store.writeSnapshot(ProjectLock(store.lockPath(project)), project, meta);
}

std::string inOwnProcess(const std::function<std::string()>& action) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    std::string text;
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            text = action();
        } catch (const std::exception& error) {
            text = error.what();
        }
        (void)writeAll(ends[1], text);
        ::_exit(0);
    }
    ::close(ends[1]);
    char bytes[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<std::size_t>(count));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return text;
}

std::string unprivileged(const TemporaryFolder& folder, const std::function<std::string()>& action,
                         const std::string& part) {
    constexpr uid_t nobody = 65534;
    const bool privileged = ::geteuid() == 0;
    const std::string handOver = "chown -hR " + std::to_string(nobody) + " " + folder.at(part);
    EXPECT_TRUE(!privileged || std::system(handOver.c_str()) == 0);
    return inOwnProcess([&] {
        const bool changed = !privileged || (::setgid(nobody) == 0 && ::setuid(nobody) == 0);
        return changed ? action() : "can't become another user";
    });
}

bool git(const std::string& folder, const std::string& words) {
    const std::string command =
        "GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null git -C '" + folder + "' " + words + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

} // namespace tidewrack::testing
