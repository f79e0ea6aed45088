#include "Support/TestFolders.hpp"

#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <set>

namespace tidewrack::testing {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
    std::string pattern = "/tmp/tidewrack-test-XXXXXX";
    const char* made = ::mkdtemp(pattern.data());
    if (made == nullptr) throw std::runtime_error("no temporary folder");
    path_ = Store::canonical(made);
}

TemporaryFolder::~TemporaryFolder() {
    (void)removeTree(path_);
}

void TemporaryFolder::write(const std::string& relative, const std::string& text) const {
    makeFolder(std::string(parentOf(relative)));
    const Descriptor file(::open(at(relative).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    EXPECT_EQ(writeAll(file.get(), text), 0) << relative;
}

void TemporaryFolder::makeFolder(const std::string& relative) const {
    EXPECT_EQ(makeFolders(relative.empty() ? path_ : at(relative), 0755), 0) << relative;
}

void TemporaryFolder::link(const std::string& relative, const std::string& destination) const {
    makeFolder(std::string(parentOf(relative)));
    EXPECT_EQ(::symlink(destination.c_str(), at(relative).c_str()), 0) << relative;
}

void TemporaryFolder::remove(const std::string& relative) const {
    EXPECT_EQ(removeTree(at(relative)), 0) << relative;
}

std::string TemporaryFolder::read(const std::string& relative) const {
    std::string text;
    return readFile(at(relative), text) == 0 ? text : "<missing>";
}

bool TemporaryFolder::has(const std::string& relative) const {
    return exists(at(relative));
}

std::string TemporaryFolder::listing(const std::string& relative) const {
    if (!isFolder(at(relative))) return {};
    std::set<std::string> lines;
    for (const auto& item : fs::recursive_directory_iterator(at(relative))) {
        const std::string path = item.path().string().substr(path_.size() + 1);
        const fs::file_status status = item.symlink_status();
        std::string line = path + " " + std::to_string(static_cast<unsigned>(status.permissions()));
        if (fs::is_regular_file(status)) line += " = " + read(path);
        if (fs::is_directory(status)) line += " /";
        if (fs::is_symlink(status)) line += " -> " + fs::read_symlink(item.path()).string();
        lines.insert(line + "\n");
    }
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

bool volumesTakeAnyBytes() {
    static const bool taken = [] {
        const TemporaryFolder folder;
        return Descriptor(::open(folder.at("\xff").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)).get() >= 0;
    }();
    return taken;
}

std::string ofAnyBytes(const std::string& path) {
    if (volumesTakeAnyBytes() || isUtf8(path)) return path;
    std::string result;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            result += c;
        else // U+4E00 and on: letters that have one form only
            result += {'\xe4', static_cast<char>(0xb8 | (byte >> 6 & 1)), static_cast<char>(0x80 | (byte & 0x3f))};
    }
    return result;
}

std::string inCheckout(const std::string& relative) {
    const char* copy = std::getenv("TIDEWRACK_TEST_CHECKOUT");
    return (copy != nullptr ? copy : TIDEWRACK_CHECKOUT) + ("/" + relative);
}

std::string builtProgram(const std::string& name) {
    return inCheckout(TIDEWRACK_PROGRAMS "/" + name);
}

std::string checkoutText(const std::string& relative) {
    std::string text;
    EXPECT_EQ(readFile(inCheckout(relative), text), 0) << relative;
    return text;
}

World::World() : current(folder.at("project")) {
    const char* other = std::getenv("TIDEWRACK_TEST_PROGRAM");
    program = other != nullptr ? other : builtProgram("tidewrack");
    folder.makeFolder("home");
    folder.makeFolder("project");
    environment = {{"HOME", folder.at("home")}, {"TIDEWRACK_HOME", folder.at("store")}, {"PATH", "/usr/bin:/bin"}};
}

Outcome World::run(const std::vector<std::string>& words) const {
    Outcome outcome;
    Sink out(outcome.out);
    Sink err(outcome.err);
    Surroundings around{environment, current, "/usr/local/bin/tidewrack", out, err, -1};
    outcome.status = tidewrack::run(words, around);
    return outcome;
}

std::string World::ok(const std::vector<std::string>& words) const {
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
}

Store World::store() const {
    return Store::fromEnvironment(environment);
}

Project World::project() const {
    return store().projectContaining(current).value();
}

History World::history() const {
    return store().history(project());
}

Manifest World::manifestOf(std::int64_t seq) const {
    const History history = this->history();
    return history.manifest(history.snapshot(seq));
}

void rewriteRecord(const World& world, std::int64_t seq, const std::function<void(SnapshotMeta&)>& change) {
    const History history = world.history();
    SnapshotMeta meta = history.snapshot(seq);
    change(meta);
    history.writeSnapshot(ProjectLock(history.lockPath()), meta);
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
