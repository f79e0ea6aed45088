#include "Listing.hpp"

#include <condition_variable>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace limits {
namespace {

constexpr size_t chunkSize = 1 << 20;
constexpr size_t bufferSize = 256 << 10;

int64_t nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Folders still to be read, shared by the threads.
class Work {
  public:
    explicit Work(std::string_view first) : folders_{first}, pending_(1) {}

    /// The next folder, or false when all are done.
    bool take(std::string_view& folder) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !folders_.empty() || pending_ == 0; });
        if (folders_.empty()) return false;
        folder = folders_.back();
        folders_.pop_back();
        return true;
    }

    /// A folder is done; these were found in it.
    void finish(const std::vector<std::string_view>& found) {
        std::lock_guard lock(mutex_);
        folders_.insert(folders_.end(), found.begin(), found.end());
        pending_ += found.size();
        --pending_;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string_view> folders_;
    size_t pending_;
};

class Reader {
  public:
    Reader(int root, Work& work) : root_(root), work_(work), buffer_(bufferSize) {}

    void run() {
        std::string_view folder;
        while (work_.take(folder)) {
            found_.clear();
            read(folder);
            work_.finish(found_);
        }
    }

    Listing listing;

  private:
    void read(std::string_view folder) {
        const std::string path(folder.empty() ? "." : folder);
        const int fd = openat(root_, path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return;
        for (;;) {
            const long got = syscall(SYS_getdents64, fd, buffer_.data(), buffer_.size());
            if (got <= 0) break;
            for (long at = 0; at < got;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer_.data() + at);
                at += entry->d_reclen;
                add(fd, folder, entry->d_name);
            }
        }
        close(fd);
    }

    void add(int fd, std::string_view folder, const char* name) {
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return;
        struct stat status {};
        if (fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
        char kind = 0;
        if (S_ISREG(status.st_mode)) kind = 'f';
        if (S_ISLNK(status.st_mode)) kind = 'l';
        if (S_ISDIR(status.st_mode)) kind = 'd';
        if (kind == 0) return;
        const std::string_view path = join(folder, name);
        listing.items.push_back({path, kind, static_cast<uint16_t>(status.st_mode & 07777), status.st_size,
                                 nanoseconds(status.st_mtim), nanoseconds(status.st_ctim), status.st_ino});
        if (kind == 'd') found_.push_back(path);
    }

    std::string_view join(std::string_view folder, std::string_view name) {
        const size_t length = folder.size() + 1 + name.size();
        if (listing.memory.empty() || listing.memory.back().size() + length > chunkSize)
            listing.memory.emplace_back().reserve(chunkSize + length);
        std::string& memory = listing.memory.back();
        const size_t start = memory.size();
        if (!folder.empty()) memory.append(folder).push_back('/');
        memory.append(name);
        return std::string_view(memory).substr(start);
    }

    int root_;
    Work& work_;
    std::vector<char> buffer_;
    std::vector<std::string_view> found_;
};

} // namespace

Listing walk(const std::string& root) {
    const int fd = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), root);
    Work work("");
    Reader first(fd, work);
    Reader second(fd, work);
    std::thread thread([&] { second.run(); });
    first.run();
    thread.join();
    close(fd);

    Listing all = std::move(first.listing);
    all.items.insert(all.items.end(), second.listing.items.begin(), second.listing.items.end());
    for (std::string& memory : second.listing.memory) all.memory.push_back(std::move(memory));
    return all;
}

} // namespace limits
