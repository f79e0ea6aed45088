#include "Linux/MountedVolume.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/Libraries.hpp"
#include "Platform/Process.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <numeric>
#include <random>
#include <set>
#include <sstream>

namespace tidewrack::testing {

namespace fs = std::filesystem;

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

std::string hex(std::string_view bytes) {
    std::ostringstream text;
    for (const char c : bytes) text << std::hex << std::setw(2) << std::setfill('0') << (c & 0xff);
    return text.str();
}

std::string attributesText(const std::string& path) {
    char names[65536];
    const ssize_t length = ::llistxattr(path.c_str(), names, sizeof names);
    std::set<std::string> texts;
    for (const char* name = names; name - names < length; name += std::strlen(name) + 1)
        texts.insert(" " + std::string(name) + "=" + hex(attribute(path, name)));
    return std::accumulate(texts.begin(), texts.end(), std::string());
}

std::string contentText(const std::string& path, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) return " -> " + fs::read_symlink(path).string();
    if (!S_ISREG(status.st_mode)) return {};
    std::string content;
    if (const int error = readFile(path, content)) return " " + errorText(error);
    const auto digest = sha256(content);
    return " " + std::to_string(content.size()) + " " +
           hex({reinterpret_cast<const char*>(digest.data()), digest.size()});
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

std::string factsOf(const std::string& root) {
    std::set<std::string> lines;
    for (const auto& item : fs::recursive_directory_iterator(root)) {
        const std::string path = item.path().string();
        struct stat status {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        std::ostringstream line;
        line << path.substr(root.size() + 1) << " " << std::oct << status.st_mode << std::dec << " " << status.st_uid
             << ":" << status.st_gid << " " << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec;
        lines.insert(line.str() + attributesText(path) + contentText(path, status) + "\n");
    }
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

std::string contentFrom(std::uint64_t seed, std::size_t size) {
    std::mt19937_64 random(seed);
    std::string bytes;
    bytes.reserve(size + 8);
    while (bytes.size() < size) {
        const std::uint64_t word = random();
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    bytes.resize(size);
    return bytes;
}

std::int64_t allocated(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<std::int64_t>(status.st_blocks) * 512 : -1;
}

bool holdsUserAttributes(const std::string& folder) {
    const std::string path = folder + "/.probe";
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ::unlink(path.c_str());
    return file && ::fsetxattr(file.get(), "user.probe", "x", 1, 0) == 0;
}

void setAttribute(const std::string& path, const char* name, const std::string& value) {
    EXPECT_EQ(::lsetxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << name << std::strerror(errno);
}

std::string attribute(const std::string& path, const char* name) {
    char value[65536];
    const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? "<none>" : std::string(value, static_cast<std::size_t>(size));
}

std::string accessList(unsigned owner, unsigned mask) {
    struct {
        posix_acl_xattr_header header;
        posix_acl_xattr_entry entries[5];
    } list = {{POSIX_ACL_XATTR_VERSION},
              {{ACL_USER_OBJ, static_cast<std::uint16_t>(owner), static_cast<std::uint32_t>(ACL_UNDEFINED_ID)},
               {ACL_USER, ACL_READ, 1234},
               {ACL_GROUP_OBJ, ACL_READ, static_cast<std::uint32_t>(ACL_UNDEFINED_ID)},
               {ACL_MASK, static_cast<std::uint16_t>(mask), static_cast<std::uint32_t>(ACL_UNDEFINED_ID)},
               {ACL_OTHER, 0, static_cast<std::uint32_t>(ACL_UNDEFINED_ID)}}};
    return {reinterpret_cast<const char*>(&list), sizeof list};
}

} // namespace tidewrack::testing
