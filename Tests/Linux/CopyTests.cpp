#include "Linux/MountedVolume.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr const char* notPossibleHere = "not possible here";

int copyFile(const std::string& from, const std::string& to, std::uint16_t mode) {
    const Descriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (::fstat(source.get(), &status) != 0) return errno;
    CopyMemory memory;
    return copyOpenFile(source.get(), status, {AT_FDCWD, to.c_str()}, {mode}, memory);
}

// From here on openat2 is a system call that the kernel does not know.
bool forgetOpenat2() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{4, program};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class CopyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!volume.missing().empty()) GTEST_SKIP() << volume.missing();
        folder.write("volume/source", "content");
    }

    TemporaryFolder folder;
    MountedVolume volume{ext4Volume, folder.at("volume")};
    const std::string source = folder.at("volume/source");
    const std::string target = folder.at("volume/target");
};

} // namespace

// The list allows its owner only to read: what comes after it could no longer be written.
TEST_F(CopyTest, anAccessListDoesNotKeepOtherAttributesOut) {
    const std::string list = accessList(4, 4);
    setAttribute(source, "system.posix_acl_access", list);
    for (const char* name : {"user.a", "user.z", "user.zz"}) setAttribute(source, name, "value");
    EXPECT_EQ(unprivileged(folder, [&] { return std::to_string(copyFile(source, target, 0440)); }), "0");
    for (const char* name : {"user.a", "user.z", "user.zz"}) EXPECT_EQ(attribute(target, name), "value") << name;
    EXPECT_EQ(attribute(target, "system.posix_acl_access"), list);
}

TEST_F(CopyTest, aFoldersDefaultListIsNotPutOnCopies) {
    const std::string list = accessList(6, 6);
    const std::string within = folder.at("volume/shared");
    folder.makeFolder("volume/shared");
    setAttribute(within, "system.posix_acl_default", list);
    EXPECT_EQ(copyFile(source, within + "/file", 0640), 0);
    EXPECT_EQ(attribute(within + "/file", "system.posix_acl_access"), "<none>");
    folder.makeFolder("volume/plain");
    EXPECT_EQ(copyTree(folder.at("volume/plain"), within + "/plain", {}), 0);
    EXPECT_EQ(attribute(within + "/plain", "system.posix_acl_access"), "<none>");
    EXPECT_EQ(attribute(within + "/plain", "system.posix_acl_default"), "<none>");
}

// In a user namespace with one user, root cannot give files to others. A copy that stays root's must not run as root.
TEST_F(CopyTest, lendsNobodysRightsWhereTheOwnerCannotBeKept) {
    ASSERT_EQ(::chown(source.c_str(), 1234, 1234), 0);
    ASSERT_EQ(::chmod(source.c_str(), 06755), 0);
    const std::string result = inOwnProcess([&]() -> std::string {
        if (::unshare(CLONE_NEWUSER) != 0) return notPossibleHere;
        const Descriptor map(::open("/proc/self/uid_map", O_WRONLY | O_CLOEXEC));
        if (!map || writeAll(map.get(), "0 0 1") != 0) return notPossibleHere;
        return std::to_string(copyFile(source, target, 06755));
    });
    if (result == notPossibleHere) GTEST_SKIP() << "user namespaces are not allowed here";
    EXPECT_EQ(result, "0");
    Attributes made;
    ASSERT_EQ(attributesAt(AT_FDCWD, target.c_str(), made), 0);
    EXPECT_EQ(made.mode, 0755);
}

TEST_F(CopyTest, leavesNothingBehindWhereItCannotWrite) {
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    const auto copy = [&] { return std::to_string(copyFile(source, target, 0644)); };
    EXPECT_EQ(unprivileged(folder, copy, "volume/source"), std::to_string(EACCES));
    EXPECT_FALSE(folder.has("volume/target"));
    folder.write("volume/large", contentFrom(1, 1024 * 1024));
    folder.write("volume/tree/a", "fits");
    folder.write("volume/tree/b/large", contentFrom(1, 1024 * 1024));
    folder.makeFolder("volume/tiny");
    const MountedVolume tiny(VolumeKind{"tiny", "tmpfs", false}, folder.at("volume/tiny"));
    ASSERT_EQ(tiny.missing(), "");
    folder.write("volume/tiny/filling", contentFrom(2, static_cast<std::size_t>(320 * 1024 * 1024 - 512 * 1024)));
    EXPECT_EQ(copyFile(folder.at("volume/large"), folder.at("volume/tiny/copy"), 0644), ENOSPC);
    EXPECT_EQ(copyTree(folder.at("volume/tree"), folder.at("volume/tiny/tree"), {}), ENOSPC);
    EXPECT_EQ(folder.listing("volume/tiny").find("copy"), std::string::npos);
    EXPECT_FALSE(folder.has("volume/tiny/tree"));
    CopyLimits limits;
    limits.leavesParts = true;
    EXPECT_EQ(copyTree(folder.at("volume/tree"), folder.at("volume/tiny/tree"), limits), ENOSPC);
    EXPECT_EQ(copyTree(folder.at("volume/tree"), folder.at("volume/tiny/tree"), {}), EEXIST);
    EXPECT_TRUE(folder.has("volume/tiny/tree"));
}

TEST(FolderTests, openingBelowNeverFollowsLinksOnAnyKernel) {
    const TemporaryFolder folder;
    folder.write("root/a/b/c/file", "");
    folder.write("outside/c/file", "");
    folder.link("root/a/link", "../../outside");
    Descriptor root;
    ASSERT_EQ(openFolder(folder.at("root"), root), 0);
    const auto tryAll = [&] {
        Descriptor opened;
        if (openFolderBelow(root.get(), "a/b/c", opened) != 0) return 1;
        Attributes there;
        if (attributesAt(opened.get(), "file", there) != 0) return 2;
        if (openFolderBelow(root.get(), "", opened) != 0) return 3;
        if (openFolderBelow(root.get(), "a/link", opened) == 0) return 4;
        if (openFolderBelow(root.get(), "a/link/c", opened) == 0) return 5;
        return openFolderBelow(root.get(), "a/none", opened) == ENOENT ? 0 : 6;
    };
    EXPECT_EQ(tryAll(), 0);
    const std::string result =
        inOwnProcess([&] { return forgetOpenat2() ? std::to_string(tryAll()) : notPossibleHere; });
    if (result == notPossibleHere) GTEST_SKIP() << "system call filters are not allowed here";
    EXPECT_EQ(result, "0");
}

TEST(FolderTests, timesThatCannotBeCountedBecomeTheNearest) {
    struct stat status {};
    status.st_mtim = {16'725'225'600, 0}; // the year 2500
    status.st_ctim = {-16'725'225'600, 0};
    EXPECT_EQ(attributesOf(status).mtime, INT64_MAX);
    EXPECT_EQ(attributesOf(status).ctime, INT64_MIN);
    status.st_mtim = {-1, 999'999'999};
    EXPECT_EQ(attributesOf(status).mtime, -1);
}
