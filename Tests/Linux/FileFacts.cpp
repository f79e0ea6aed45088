#include "Linux/FileFacts.hpp"

#include "Platform/Platform.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iomanip>
#include <random>
#include <sstream>
#include <vector>

namespace tidewrack::testing {

namespace {

std::string hex(std::string_view bytes) {
    std::ostringstream text;
    for (const char c : bytes) text << std::hex << std::setw(2) << std::setfill('0') << (c & 0xff);
    return text.str();
}

std::string attributesText(const std::string& path) {
    char names[65536];
    const ssize_t length = ::llistxattr(path.c_str(), names, sizeof names);
    std::vector<std::string> lines;
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(lines.back().find('=')) + 1) {
        const std::string name = names + at;
        lines.push_back(name + "=" + hex(attribute(path, name.c_str())));
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += " " + line;
    return text;
}

std::string contentText(const std::string& path, const struct stat& status) {
    std::string content;
    if (S_ISLNK(status.st_mode)) {
        content.resize(4096);
        content.resize(
            static_cast<std::size_t>(std::max<ssize_t>(::readlink(path.c_str(), content.data(), content.size()), 0)));
        return " -> " + content;
    }
    if (!S_ISREG(status.st_mode)) return {};
    if (const int error = readFile(path, content)) return " " + errorText(error);
    const auto digest = sha256(content);
    return " " + std::to_string(content.size()) + " " +
           hex({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

void addFacts(const std::string& path, const std::string& shown, std::vector<std::string>& lines) {
    for (const std::string& name : listFolder(path)) {
        const std::string child = path + "/" + name;
        struct stat status {};
        if (::lstat(child.c_str(), &status) != 0) continue;
        std::ostringstream line;
        line << shown << name << " " << std::oct << status.st_mode << std::dec << " " << status.st_uid << ":"
             << status.st_gid << " " << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec;
        lines.push_back(line.str() + attributesText(child) + contentText(child, status));
        if (S_ISDIR(status.st_mode)) addFacts(child, shown + name + "/", lines);
    }
}

} // namespace

std::string factsOf(const std::string& root) {
    std::vector<std::string> lines;
    addFacts(root, "", lines);
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
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
