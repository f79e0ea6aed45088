#include "Linux/MountedVolume.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include "Reports/VaultReports.hpp"
#include "Support/Files.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

// A project on a volume of its own, with the store on the same volume at first.
class VolumeFixture {
  public:
    explicit VolumeFixture(const VolumeKind& kind) : volume(kind, world.folder.at("volume")) {
        if (!volume.missing().empty()) return;
        world.folder.makeFolder("volume/project");
        world.current = project();
        keepHistoryAt("volume/store");
    }

    World world;
    MountedVolume volume;

    [[nodiscard]] std::string project() const { return world.folder.at("volume/project"); }
    [[nodiscard]] std::string file(const std::string& name) const { return project() + "/" + name; }
    void keepHistoryAt(const std::string& relative) {
        world.folder.makeFolder(relative);
        world.folder.write(relative + "/settings.json", R"({"floor":0})"); // these volumes are small
        world.environment["TIDEWRACK_HOME"] = world.folder.at(relative);
    }
    void write(const std::string& name, const std::string& content) const {
        world.folder.write("volume/project/" + name, content);
    }
    // Where the first snapshot keeps a file's content.
    [[nodiscard]] std::string kept(const std::string& name) const {
        return Engine(world.store()).contentPath(world.project(), 1, name).value_or("");
    }
    void emptyProject() const {
        for (const std::string& name : listFolder(project())) EXPECT_EQ(removeTree(file(name)), 0) << name;
    }
};

class VolumeTest : public ::testing::TestWithParam<VolumeKind> {
  protected:
    void SetUp() override {
        on = std::make_unique<VolumeFixture>(GetParam());
        if (!on->volume.missing().empty()) GTEST_SKIP() << on->volume.missing();
    }

    std::unique_ptr<VolumeFixture> on;
};

void expectShared(const std::string& one, const std::string& other) {
    const auto extents = extentsOf(one);
    EXPECT_FALSE(extents.empty()) << one;
    EXPECT_EQ(extents, extentsOf(other)) << one << " and " << other;
    for (const Extent& extent : extents) EXPECT_TRUE(extent.shared) << one;
}

// The same folder under a second name.
class SecondName {
  public:
    SecondName(const std::string& folder, std::string name) : name_(std::move(name)) {
        EXPECT_EQ(makeFolders(name_, 0755), 0);
        EXPECT_EQ(::mount(folder.c_str(), name_.c_str(), nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
    }
    SecondName(const SecondName&) = delete;
    SecondName& operator=(const SecondName&) = delete;
    ~SecondName() { EXPECT_EQ(::umount2(name_.c_str(), UMOUNT_NOFOLLOW), 0) << std::strerror(errno); }

  private:
    std::string name_;
};

// Whether the volume tells where a file's content lies, so that copies can be told from clones.
bool tellsExtents(const VolumeKind& kind) {
    return kind.type != std::string("tmpfs") && kind.type != std::string("overlay");
}

void setTime(const std::string& path, std::int64_t seconds, long nanoseconds) {
    const timespec times[2] = {{0, UTIME_NOW}, {seconds, nanoseconds}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// Files with everything that a copy could lose.
void writeOddFiles(const VolumeFixture& on, bool withAttributes) {
    on.write("setuid", "#!\n");
    EXPECT_EQ(::chown(on.file("setuid").c_str(), 1234, 4321), 0);
    EXPECT_EQ(::chmod(on.file("setuid").c_str(), 06755), 0);
    on.write(std::string(255, 'n'), "long name");
    on.write("unreadable", "secret");
    EXPECT_EQ(::chmod(on.file("unreadable").c_str(), 0), 0);
    on.write("empty", "");
    setTime(on.file("empty"), -2'000'000'000, 1); // 1906
    on.write("before 1970", "old");
    setTime(on.file("before 1970"), -1, 999'999'999);
    on.write("after 2038", "new");
    setTime(on.file("after 2038"), 7'258'118'400, 123'456'789); // 2200
    on.world.folder.link("volume/project/dangling", std::string(900, 'x'));
    setTime(on.file("dangling"), 1'000'000'000, 5);
    EXPECT_EQ(::lchown(on.file("dangling").c_str(), 1234, 4321), 0);
    on.write("holes", contentFrom(1, 70'000));
    EXPECT_EQ(::truncate(on.file("holes").c_str(), 20 * mebibyte), 0);
    const Descriptor holes(::open(on.file("holes").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(::pwrite(holes.get(), "middle", 6, 10 * mebibyte), 6);
    on.write("folder/inside", contentFrom(2, 300'000));
    if (withAttributes) {
        on.write("noted", "noted");
        setAttribute(on.file("noted"), "user.note", std::string("by\0tes\xff", 7));
        setAttribute(on.file("noted"), "user.empty", "");
        setAttribute(on.file("noted"), "user.long", contentFrom(3, 300));
        setAttribute(on.file("noted"), "system.posix_acl_access", accessList(6, 4));
        EXPECT_EQ(::chown(on.file("unreadable").c_str(), 1234, 4321), 0);
        // The capability to bind to low ports, which a change of the owner would take away.
        setAttribute(on.file("unreadable"), "security.capability",
                     std::string("\0\0\0\x02\0\x04\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20));
    }
    setTime(on.file("folder"), 1'234'567'890, 42);
}

} // namespace

TEST_P(VolumeTest, historySharesBlocksOrSaysThatItCannot) {
    const VolumeKind kind = GetParam();
    const char* const names[] = {"one.bin", "two.bin", "deep/three.bin"};
    std::int64_t size = 0;
    for (const char* name : names) on->write(name, contentFrom(static_cast<std::uint64_t>(++size), 6 * mebibyte));
    size *= 6 * static_cast<std::int64_t>(mebibyte);
    std::int64_t used = on->volume.used();
    const auto expectGrowth = [&](const char* work) {
        const std::int64_t grown = on->volume.used() - used;
        if (kind.clones)
            EXPECT_LT(grown, size / 10) << work;
        else
            EXPECT_GE(grown, size - size / 10) << work; // what `used` must be able to see
        used += grown;
    };

    const Outcome tracked = on->world.run({"track"});
    EXPECT_EQ(tracked.status, 0);
    EXPECT_EQ(
        tracked.err,
        kind.clones
            ? std::string()
            : "warning: " + on->project() + " is on a " + kind.type +
                  " volume, not APFS: history will use full copies and real disk space.\nwarning: On volumes of type "
                  "btrfs, and of type xfs made with reflink=1, files share blocks: history takes little room there.\n");
    expectGrowth("snapshot");
    const Vault vault(on->world.store());
    const VaultEntry entry = vault.save({.paths = {on->project()}}).entry.value();
    ASSERT_EQ(entry.items.size(), 1U);
    const std::string saved = vault.store.home + "/vault/" + entry.id + "/items/0/";
    expectGrowth("vault");
    for (const char* name : names) {
        if (kind.clones) {
            expectShared(on->kept(name), on->file(name));
            expectShared(saved + name, on->file(name));
        } else if (tellsExtents(kind)) {
            EXPECT_FALSE(extentsOf(on->kept(name)) == extentsOf(on->file(name))) << name;
        }
    }
    const auto usage = nlohmann::json::parse(on->world.ok({"usage", "--json"}))["projects"][0];
    EXPECT_GE(usage["bytes"].get<std::int64_t>(), size);
    EXPECT_EQ(usage["sharedBytes"].get<std::int64_t>(), kind.clones ? size : 0);
    // Moved and not removed, because some volumes give back the room of removed files only after a while.
    for (const char* name : {"one.bin", "two.bin", "deep"})
        EXPECT_EQ(::rename(on->file(name).c_str(), on->world.folder.at(std::string("volume/") + name).c_str()), 0);
    on->world.ok({"restore", "1"});
    expectGrowth("restore");
    if (kind.clones)
        for (const char* name : names) expectShared(on->file(name), on->kept(name));
    setTime(on->file("one.bin"), 1'000'000'000, 5); // else all is there as it was saved
    (void)vault.restore(entry.id);                  // moves the project aside
    expectGrowth("restore from the vault");
    if (kind.clones)
        for (const char* name : names) expectShared(on->file(name), saved + name);
}

TEST_P(VolumeTest, everythingAboutAFileComesBack) {
    const auto& f = on->world.folder;
    const bool withAttributes = holdsUserAttributes(on->project()) && holdsUserAttributes(f.path());
    writeOddFiles(*on, withAttributes);
    if (GetParam().type == std::string("ext4")) // larger than one call copies
        on->write("large", contentFrom(4, 70 * mebibyte + 12'345));
    const std::string facts = factsOf(on->project());
    for (const char* history : {"volume/store", "store"}) {
        SCOPED_TRACE(history);
        on->keepHistoryAt(history);
        const Outcome tracked = on->world.run({"track"});
        EXPECT_EQ(tracked.status, 0) << tracked.err;
        EXPECT_LT(allocated(on->kept("holes")), static_cast<std::int64_t>(mebibyte));
        if (GetParam().clones && history == std::string("store")) {
            EXPECT_EQ(tracked.err, "warning: " + on->project() +
                                       " is on a different volume than Tidewrack's history: kept files will be full "
                                       "copies, not free clones.\n");
        }
        on->emptyProject();
        on->world.ok({"restore", "1"});
        EXPECT_EQ(factsOf(on->project()), facts);
        EXPECT_LT(allocated(on->file("holes")), static_cast<std::int64_t>(mebibyte));
        EXPECT_NE(on->world.ok({"snap"}).find("no changes since"), std::string::npos);
        on->world.ok({"check"});
    }
    if (withAttributes) setAttribute(on->file("folder"), "user.note", "a folder's");
    const std::string factsOfCopy = factsOf(on->project());
    for (const char* copy : {"volume/copy", "copy"}) {
        EXPECT_EQ(copyTree(on->project(), f.at(copy), {}), 0);
        EXPECT_EQ(factsOf(f.at(copy)), factsOfCopy) << copy;
        EXPECT_LT(allocated(f.at(copy) + "/holes"), static_cast<std::int64_t>(mebibyte));
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, VolumeTest,
                         ::testing::Values(btrfsVolume, xfsVolume, plainXfsVolume, ext4Volume, tmpfsVolume,
                                           overlayVolume),
                         [](const auto& kind) { return kind.param.name; });

// One file that cannot be cloned, because it lies on a volume mounted inside the project or was made without
// copy-on-write, says nothing about the others.
TEST(VolumeTests, filesThatCannotShareDoNotKeepOthersFromSharing) {
    VolumeFixture on(btrfsVolume);
    if (!on.volume.missing().empty()) GTEST_SKIP() << on.volume.missing();
    on.write("before/small", contentFrom(1, 100'000));
    const MountedVolume inside(tmpfsVolume, on.file("mounted"));
    ASSERT_EQ(inside.missing(), "");
    on.write("mounted/large", contentFrom(2, mebibyte));
    on.write("in-place/small", "");
    {
        const Descriptor inPlace(::open(on.file("in-place/small").c_str(), O_WRONLY | O_CLOEXEC));
        int flags = FS_NOCOW_FL;
        ASSERT_EQ(::ioctl(inPlace.get(), FS_IOC_SETFLAGS, &flags), 0);
        ASSERT_EQ(writeAll(inPlace.get(), contentFrom(3, 100'000)), 0);
    }
    on.write("after/small", contentFrom(4, 100'000));
    on.write("after/large", contentFrom(5, mebibyte));
    on.world.ok({"track"});
    for (const char* name : {"mounted/large", "in-place/small"}) {
        std::string source;
        std::string content;
        EXPECT_EQ(readFile(on.file(name), source), 0);
        EXPECT_EQ(readFile(on.kept(name), content), 0);
        EXPECT_TRUE(source == content) << name;
    }
    for (const char* name : {"before/small", "after/small", "after/large"}) expectShared(on.kept(name), on.file(name));
}

// A btrfs subvolume has a device number of its own, yet shares blocks with the rest of its volume.
TEST(VolumeTests, aMergedTextKeepsTheAttributesOfItsFile) {
    const World world;
    const auto& f = world.folder;
    if (!holdsUserAttributes(f.path())) GTEST_SKIP() << "no attributes here";
    world.ok({"track"});
    for (const char* lines : {"1\n2\n3\n", "one\n2\n3\n"}) {
        f.write("project/lines", lines);
        world.ok({"snap"});
    }
    f.write("project/lines", "one\n2\nthree\n");
    const std::string list = accessList(6, 4);
    setAttribute(f.at("project/lines"), "user.note", "kept");
    setAttribute(f.at("project/lines"), "system.posix_acl_access", list);
    const std::string report = unprivileged(f, [&] {
        world.ok({"undo", "2..3"});
        return attribute(f.at("project/lines"), "user.note");
    });
    EXPECT_EQ(report + f.read("project/lines"), "kept1\n2\nthree\n");
    EXPECT_EQ(attribute(f.at("project/lines"), "system.posix_acl_access"), list);
}

TEST(VolumeTests, subvolumesShareBlocks) {
    VolumeFixture on(btrfsVolume);
    if (!on.volume.missing().empty()) GTEST_SKIP() << on.volume.missing();
    const Descriptor top(::open(on.world.folder.at("volume").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    btrfs_ioctl_vol_args subvolume{};
    std::strcpy(subvolume.name, "store");
    on.world.folder.remove("volume/store");
    ASSERT_EQ(::ioctl(top.get(), BTRFS_IOC_SUBVOL_CREATE, &subvolume), 0) << std::strerror(errno);
    on.write("file", contentFrom(1, mebibyte));
    on.world.ok({"track"});
    expectShared(on.kept("file"), on.file("file"));
}

// On a volume that ignores case every folder has such names.
TEST(VolumeTests, theVaultKnowsTheStoreUnderAnyName) {
    VolumeFixture on(tmpfsVolume);
    if (!on.volume.missing().empty()) GTEST_SKIP() << on.volume.missing();
    const auto& f = on.world.folder;
    on.write("file", "text");
    on.world.ok({"track"});
    const Vault vault(on.world.store());
    const SecondName store(f.at("volume/store"), f.at("STORE"));
    const SecondName whole(f.at("volume"), f.at("VOLUME"));
    const std::vector<std::string> paths = {f.at("STORE"), f.at("STORE/projects"), f.at("VOLUME/store/vault")};
    EXPECT_EQ(vault.save({.paths = paths}).entry.value().skipped, paths);

    const VaultEntry around = vault.save({.paths = {f.at("VOLUME")}}).entry.value();
    const std::string saved = vault.store.home + "/vault/" + around.id + "/items/0";
    EXPECT_TRUE(exists(saved + "/project/file"));
    EXPECT_FALSE(exists(saved + "/store"));
    EXPECT_EQ(
        messagesOf(vault.restore(around.id)),
        std::vector<std::string>{"couldn't move " + f.at("VOLUME") + " aside: it contains Tidewrack's own history"});
}

TEST(VolumeTests, aSecondChangeWithinOneSecondIsSeen) {
    VolumeFixture on(coarseVolume);
    if (!on.volume.missing().empty()) GTEST_SKIP() << on.volume.missing();
    using std::chrono::system_clock;
    const auto second = std::chrono::ceil<std::chrono::seconds>(system_clock::now());
    std::this_thread::sleep_until(second + std::chrono::milliseconds(50));
    on.write("file", "first");
    on.world.ok({"track"});
    on.write("file", "other");
    EXPECT_EQ(on.world.ok({"snap"}).find("#2  +0 ~1 -0 since"), 0U);
}
