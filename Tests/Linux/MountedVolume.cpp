#include "Linux/MountedVolume.hpp"

#include "Platform/Platform.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tidewrack::testing {

namespace {

constexpr off_t imageSize = 320 * 1024 * 1024; // the smallest that mkfs.xfs takes is 300 MB

// Mounts made from here on are this process's own: the system takes them away when it ends, however it ends.
bool ownMounts() {
    static const bool own =
        ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return own;
}

// Runs a program of the system quietly; returns its exit status, 127 when there is none of that name.
int runTool(const std::string& command) {
    const std::string quiet = "export PATH=/usr/sbin:/usr/bin:/sbin:/bin; " + command + " >/dev/null 2>&1 </dev/null";
    const int status = std::system(quiet.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string makeOptions(const VolumeKind& kind) {
    if (kind.type == std::string("xfs")) return kind.clones ? " -q -m reflink=1 " : " -q -m reflink=0 ";
    return kind.wholeSeconds ? " -q -I 128 " : " -q "; // inodes without room for more
}

} // namespace

MountedVolume::MountedVolume(const VolumeKind& kind, std::string path) : path_(std::move(path)) {
    EXPECT_EQ(makeFolders(path_, 0755), 0) << path_;
    const std::string type = kind.type;
    if (::geteuid() != 0)
        missing_ = "mounting a volume needs root";
    else if (!ownMounts())
        missing_ = std::string("mounting is not allowed here: ") + std::strerror(errno);
    else if (type == "overlay")
        mountOverlay();
    else if (type != "tmpfs")
        mountImage(kind);
    else if (::mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=320m") != 0)
        missing_ = std::string("tmpfs cannot be mounted here: ") + std::strerror(errno);
}

MountedVolume::~MountedVolume() {
    if (!missing_.empty()) return;
    if (::umount2(path_.c_str(), UMOUNT_NOFOLLOW) != 0) {
        ADD_FAILURE() << path_ << " is still in use: " << std::strerror(errno);
        (void)::umount2(path_.c_str(), UMOUNT_NOFOLLOW | MNT_DETACH);
    }
    if (exists(path_ + ".layers")) (void)::umount2((path_ + ".layers").c_str(), UMOUNT_NOFOLLOW | MNT_DETACH);
}

void MountedVolume::mountImage(const VolumeKind& kind) {
    const std::string image = path_ + ".image";
    const Descriptor file(::open(image.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    EXPECT_EQ(::ftruncate(file.get(), imageSize), 0);
    const std::string tool = std::string("mkfs.") + kind.type;
    const int made = runTool(tool + makeOptions(kind) + image);
    if (made == 127)
        missing_ = tool + " is not installed";
    else if (made != 0)
        missing_ = tool + " failed with " + std::to_string(made);
    else if (runTool(std::string("mount -o loop -t ") + kind.type + " " + image + " " + path_) != 0)
        missing_ = std::string("an image of ") + kind.type + " cannot be mounted here";
    ::unlink(image.c_str()); // the mount keeps it as long as it is needed
}

// Its layers lie on a tmpfs, since an overlay cannot lie on another overlay, as the test's folder may.
void MountedVolume::mountOverlay() {
    const std::string layers = path_ + ".layers";
    EXPECT_EQ(makeFolders(layers, 0755), 0);
    if (::mount("tmpfs", layers.c_str(), "tmpfs", 0, "size=320m") == 0) {
        for (const char* layer : {"/lower", "/upper", "/work"}) EXPECT_EQ(makeFolders(layers + layer, 0755), 0);
        const std::string options =
            "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work";
        if (::mount("overlay", path_.c_str(), "overlay", 0, options.c_str()) == 0) return;
    }
    missing_ = std::string("an overlay cannot be mounted here: ") + std::strerror(errno);
    (void)::umount2(layers.c_str(), MNT_DETACH);
}

std::int64_t MountedVolume::used() const {
    const Descriptor folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::syncfs(folder.get()), 0);
    struct statvfs volume {};
    EXPECT_EQ(::fstatvfs(folder.get(), &volume), 0);
    return static_cast<std::int64_t>((volume.f_blocks - volume.f_bfree) * volume.f_frsize);
}

std::vector<Extent> extentsOf(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    constexpr std::size_t most = 1000;
    std::vector<char> space(sizeof(fiemap) + most * sizeof(fiemap_extent), 0);
    auto* map = reinterpret_cast<fiemap*>(space.data());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = most;
    EXPECT_EQ(::ioctl(file.get(), FS_IOC_FIEMAP, map), 0) << path << ": " << std::strerror(errno);
    std::vector<Extent> extents;
    for (std::size_t i = 0; i < map->fm_mapped_extents; ++i) {
        const fiemap_extent& found = map->fm_extents[i];
        extents.push_back(
            {found.fe_logical, found.fe_physical, found.fe_length, (found.fe_flags & FIEMAP_EXTENT_SHARED) != 0});
    }
    return extents;
}

} // namespace tidewrack::testing
