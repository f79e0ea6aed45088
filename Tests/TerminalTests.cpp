// What is asked, and answered, on a terminal.

#include "Support/TestFolders.hpp"

#include "Platform/Descriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;

// `undo` without a word does what it showed after a yes alone.
TEST(Terminal, undoAloneAsksFirst) {
    const World world;
    world.folder.write("project/a", "old");
    world.ok({"track"});
    world.ok({"snap", "--kind", "prompt", "--agent", "claude", "--session", "s", "--label", "Change it"});
    world.folder.write("project/a", "new");
    world.ok({"snap", "--kind", "stop", "--agent", "claude", "--session", "s"});
    // What a vault restore has left that was killed is cleared up after a yes, too.
    world.folder.write("home/aside", "the user's");
    world.folder.write("store/vault/restore.tidewrack-999999999-0",
                       world.folder.at("home") + "\n.tidewrack-12-ab-0\nf\naside\n");
    const std::string back =
        "warning: a vault restore that was cut short had moved " + world.folder.at("home/f") + " aside; it is back\n";
    const std::string plan = "turn #2–#3 of claude, \"Change it\":\n~ a\n1 file overwritten.\n";
    const struct {
        std::vector<std::string> words;
        const char* typed;
        std::string said;
        bool acts;
    } rows[] = {
        {{"undo"}, "no\n", "Would take back " + plan + "Do it? (yes/no) Nothing was changed.\n", false},
        {{"undo"}, "\n", "Would take back " + plan + "Do it? (yes/no) Nothing was changed.\n", false},
        {{"undo"}, "yes please\n", "Would take back " + plan + "Do it? (yes/no) Nothing was changed.\n", false},
        {{"undo"}, "\x04", "Would take back " + plan + "Do it? (yes/no) Nothing was changed.\n", false}, // the end
        {{"undo", "--dry-run"}, "", "Would take back " + plan + "Nothing was changed.\n", false},
        {{"undo"}, "y\n", "Would take back " + plan + "Do it? (yes/no) " + back + "Took back " + plan, true},
    };
    for (const auto& row : rows) {
        const Descriptor terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (!terminal || ::grantpt(terminal.get()) != 0 || ::unlockpt(terminal.get()) != 0) GTEST_SKIP() << "none";
        const Descriptor inner(::open(::ptsname(terminal.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
        const std::string typed = row.typed;
        ASSERT_EQ(::write(terminal.get(), typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        std::string said;
        Sink out(said, true);
        Sink err(said, true);
        Surroundings around{world.environment, world.current, "tidewrack", out, err, inner.get()};
        around.environment["TERM"] = "dumb";
        const auto snapshots = world.history().seqs();
        EXPECT_EQ(run(row.words, around), 0);
        EXPECT_EQ(said.substr(0, row.said.size()), row.said);
        EXPECT_EQ(world.history().seqs() == snapshots, !row.acts);
        EXPECT_EQ(world.folder.read("project/a"), row.acts ? "old" : "new");
        EXPECT_EQ(world.folder.has("home/f"), row.acts);
        EXPECT_EQ(run({"timeline", "-i"}, around), 1) << "a dumb one";
    }
    EXPECT_EQ(world.run({"undo"}).err, "tidewrack: missing snapshot\n") << "where nobody can be asked";
}

namespace {

// `tidewrack timeline -i` on a terminal of its own, 100 by 30.
class PickerOnTerminal : public ::testing::Test {
  protected:
    void start() {
#ifndef TIDEWRACK_PICKER
        GTEST_SKIP() << "the picker is not built";
#endif
        terminal = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (!terminal || ::grantpt(terminal.get()) != 0 || ::unlockpt(terminal.get()) != 0) GTEST_SKIP() << "none";
        resize(100, 30);
        const std::string inner = ::ptsname(terminal.get());
        std::vector<std::string> texts{world.program, "timeline", "-i"};
        std::vector<std::string> entries{"TERM=xterm-256color"};
        for (const auto& [name, value] : world.environment) entries.push_back(name + "=" + value);
        std::vector<char*> words;
        std::vector<char*> environment;
        for (std::string& text : texts) words.push_back(text.data());
        for (std::string& entry : entries) environment.push_back(entry.data());
        words.push_back(nullptr);
        environment.push_back(nullptr);
        process = ::fork();
        if (process != 0) return;
        ::setsid();
        const int side = ::open(inner.c_str(), O_RDWR);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(side, fd);
        if (::chdir(world.current.c_str()) == 0) ::execve(words[0], words.data(), environment.data());
        ::_exit(127);
    }
    ~PickerOnTerminal() override {
        if (process <= 0) return;
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }

    void resize(unsigned short columns, unsigned short lines) const {
        const winsize size{lines, columns, 0, 0};
        ASSERT_EQ(::ioctl(terminal.get(), TIOCSWINSZ, &size), 0);
    }

    // Types the keys, and reads on until all of it was drawn since. Escapes are left out of what was read.
    ::testing::AssertionResult draws(const std::string& keys, const std::vector<std::string>& wanted) {
        if (::write(terminal.get(), keys.data(), keys.size()) < 0) return ::testing::AssertionFailure() << "it is gone";
        std::string read;
        for (int waited = 0; waited < 200; ++waited) {
            pollfd wait{terminal.get(), POLLIN, 0};
            if (::poll(&wait, 1, 100) <= 0) continue;
            char bytes[4096];
            const ssize_t count = ::read(terminal.get(), bytes, sizeof bytes);
            if (count <= 0) break;
            read.append(bytes, static_cast<std::size_t>(count));
            const std::string text = std::regex_replace(read, std::regex("\x1b\\[[0-9;?]*[a-zA-Z]"), "");
            if (std::all_of(wanted.begin(), wanted.end(),
                            [&](const std::string& each) { return text.find(each) != std::string::npos; }))
                return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << wanted.front() << " is not in: " << read;
    }

    World world;
    Descriptor terminal;
    pid_t process = -1;
};

} // namespace

// Down to a hunk and back to the turn, each taken back after a look alone.
TEST_F(PickerOnTerminal, readsAndTakesBack) {
    std::string before = "first\n";
    for (int line = 0; line < 30; ++line) before += "same\n";
    world.folder.write("project/a", before + "last\n");
    world.folder.write("project/\x1b[31mred", "kept\n");
    world.ok({"track"});
    world.ok({"snap", "--kind", "prompt", "--agent", "claude", "--session", "s", "--label", "Change both ends"});
    world.folder.write("project/a", "1st" + before.substr(5) + "final\n");
    world.folder.write("project/\x1b[31mred", "changed\n");
    world.ok({"snap", "--kind", "stop", "--agent", "claude", "--session", "s"});
    const auto ends = [&] {
        return world.folder.read("project/a").substr(0, 3) + world.folder.read("project/a").substr(154);
    };
    start();
    if (IsSkipped()) return;
    EXPECT_TRUE(draws("", {"Change both ends", "claude", "A snapshot by hand", "\\x1b[31mred", "tidewrack show 2"}));
    EXPECT_TRUE(draws("\rj", {"undo this file", "Hunk 1, line 1", "-first", "+1st", "Hunk 2"}));
    EXPECT_TRUE(draws("\rGu", {"Undo hunk 2 of a", "tidewrack undo --turn 2 --hunk 2:", " -- a", "y do it"}));
    EXPECT_TRUE(draws("n", {"undo this hunk"}));
    EXPECT_EQ(ends(), "1stfinal\n");
    EXPECT_TRUE(draws("uy", {"Done. To take this back: r"}));
    EXPECT_EQ(ends(), "1stlast\n");
    EXPECT_TRUE(draws("\x1b", {"undo this file"}));
    EXPECT_TRUE(draws("ku", {"Undo \\x1b[31mred", "overwrite"}));
    EXPECT_TRUE(draws("y", {"Done."}));
    EXPECT_EQ(world.folder.read("project/\x1b[31mred"), "kept\n");
    EXPECT_TRUE(draws("\x1b", {"undo this turn"}));
    resize(60, 10); // one side at a time
    EXPECT_TRUE(draws("", {"Change both ends", "q end", "u undo turn"}));
    EXPECT_TRUE(draws("\r", {"\\x1b[31mred", "u undo file"}));
    resize(100, 30);
    EXPECT_TRUE(draws("\x1b", {"undo this turn", "tidewrack show 2"}));
    EXPECT_TRUE(draws("/both\r", {"1 row with \"both\""}));
    EXPECT_TRUE(draws("u", {"Undo: Change both ends"}));
    world.folder.write("project/a", "mine\n"); // what was looked at no longer holds
    EXPECT_TRUE(draws("y", {"More was changed meanwhile; nothing was done."}));
    EXPECT_EQ(world.folder.read("project/a"), "mine\n");
    EXPECT_TRUE(draws("\x1b", {"4 rows", "Change both ends", "tidewrack show 2"}));
    ASSERT_EQ(::write(terminal.get(), "q", 1), 1);
    int status = 0;
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    process = -1;
    EXPECT_EQ(status, 0);
}
