// What is asked, and answered, on a terminal.

#include "Support/TestFolders.hpp"

#include "Platform/Descriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

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
    }
    EXPECT_EQ(world.run({"undo"}).err, "tidewrack: missing snapshot\n") << "where nobody can be asked";
}
