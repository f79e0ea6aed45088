#include "Copy.hpp"

#include <atomic>
#include <climits>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace limits {
namespace {

constexpr size_t batch = 64;
constexpr size_t bufferSize = 256 << 10;

void check(bool good, const std::string& path) {
    if (!good) throw std::system_error(errno, std::generic_category(), path);
}

timespec timeOf(int64_t nanoseconds) {
    return {static_cast<time_t>(nanoseconds / 1'000'000'000), static_cast<long>(nanoseconds % 1'000'000'000)};
}

class Copier {
  public:
    explicit Copier(std::atomic<bool>& clones) : clones_(clones), buffer_(bufferSize) {}

    void copy(const CopyJob& job) {
        const std::string& target = job.temporary.empty() ? job.destination : job.temporary;
        if (job.kind == 'l') {
            copyLink(job.source, target, timeOf(job.mtime));
        } else {
            copyFile(job, target);
        }
        if (!job.temporary.empty()) check(rename(target.c_str(), job.destination.c_str()) == 0, job.destination);
        if (job.written != nullptr) describe(job.destination, *job.written);
    }

  private:
    void copyLink(const std::string& source, const std::string& target, timespec time) {
        const ssize_t length = readlink(source.c_str(), buffer_.data(), PATH_MAX);
        check(length >= 0, source);
        const std::string text(buffer_.data(), static_cast<size_t>(length));
        check(symlink(text.c_str(), target.c_str()) == 0, target);
        const timespec times[] = {time, time};
        check(utimensat(AT_FDCWD, target.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, target);
    }

    void copyFile(const CopyJob& job, const std::string& target) {
        const int from = open(job.source.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        check(from >= 0, job.source);
        const int to = open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, job.mode);
        check(to >= 0, target);
        if (!clones_ || ioctl(to, FICLONE, from) != 0) {
            if (errno == EOPNOTSUPP || errno == EXDEV) clones_ = false;
            copyBytes(from, to, target);
        }
        if ((job.mode & 0777 & ~0755) != 0) check(fchmod(to, job.mode) == 0, target); // the usual umask drops these
        const timespec times[] = {timeOf(job.mtime), timeOf(job.mtime)};
        check(futimens(to, times) == 0, target);
        close(from);
        close(to);
    }

    void copyBytes(int from, int to, const std::string& target) {
        for (;;) {
            const ssize_t got = read(from, buffer_.data(), buffer_.size());
            check(got >= 0 && write(to, buffer_.data(), static_cast<size_t>(got)) == got, target);
            if (static_cast<size_t>(got) < buffer_.size()) return;
        }
    }

    void describe(const std::string& path, Item& item) {
        struct stat status {};
        check(lstat(path.c_str(), &status) == 0, path);
        item.mode = static_cast<uint16_t>(status.st_mode & 07777);
        item.size = status.st_size;
        item.mtime = int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
        item.ctime = int64_t{status.st_ctim.tv_sec} * 1'000'000'000 + status.st_ctim.tv_nsec;
        item.ino = status.st_ino;
    }

    std::atomic<bool>& clones_;
    std::vector<char> buffer_;
};

} // namespace

void copyAll(const std::vector<CopyJob>& jobs) {
    std::atomic<size_t> next = 0;
    std::atomic<bool> clones = true;
    const auto work = [&] {
        Copier copier(clones);
        for (size_t start = next.fetch_add(batch); start < jobs.size(); start = next.fetch_add(batch)) {
            for (size_t number = start; number < jobs.size() && number < start + batch; ++number)
                copier.copy(jobs[number]);
        }
    };
    if (jobs.size() <= batch) return work();
    std::thread second(work);
    work();
    second.join();
}

} // namespace limits
