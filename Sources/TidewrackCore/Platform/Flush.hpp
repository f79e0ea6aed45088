#pragma once
// What must be on the disk before something else is, so that a power cut leaves a history that holds together.
//
// The volumes that histories lie on bring changes of folders, names and sizes to the disk in the order in which they
// were made (by a journal or by whole transactions), but the contents of files whenever they like. So contents are
// written out before the name that leads to them is given, and one flush orders all that was done before it.
//
// Other programs flush as well. With a journal that takes our earlier names along. A volume of type btrfs has a short
// cut for a flushed file, which its next transaction catches up with: somebody's change would be there after a power
// cut, and our names from before it not. There, where order is unknown, and against changes on other volumes names are
// flushed before anybody goes on.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace tidewrack {

// Up to so many copies of an operation are brought to the disk one by one.
constexpr std::size_t mostWrittenOutOneByOne = 1000;

// What the copies of one operation have left to be brought to the disk. Shared by the threads that make them.
struct PendingWrites {
    std::atomic<std::size_t> copies = 0;  // contents that were copied byte for byte, not cloned
    std::atomic<bool> everything = false; // some of them wait for a flush of the whole volume
    std::atomic<int> error = 0;           // of a BackgroundFlush: the system tells it only once
};

// The content of the file just written through `fd` is on the disk before any later change of a name on its volume.
// Where the volume can't do that by itself the file is flushed. Returns an errno value.
[[nodiscard]] int writeOut(int fd);

// The same without waiting: enough where a name that comes to the disk a few thousandths of a second before its content
// would cost no content, and a fraction of the time.
void beginWriteOut(int fd);

// writeOut for the first copies of an operation, each of which takes a tenth of a millisecond whatever else the volume
// has waiting to be written. From some number on flushing the whole volume once is faster: those are left to flush().
void writeOutCopy(int fd, PendingWrites& pending);

// Everything that was done on the volume of the open file `fd` before its own latest change, its content and `pending`
// are on the disk; with `pending.everything` all that was done there at all. Returns an errno value; a volume that
// knows no flushing is success.
[[nodiscard]] int flush(int fd, const PendingWrites& pending);

// The same as far as later changes of names need it: they come to the disk after all that, but it need not be there
// yet.
[[nodiscard]] int order(int fd, const PendingWrites& pending);

// The names given in the open folder come to the disk before names that are given later. Returns an errno value as
// flush.
[[nodiscard]] int orderNames(int folder);

// Whether a change that some program made and flushed on the volume of `fd` is on the disk only with the names that
// were given before it.
[[nodiscard]] bool keepsOrder(int fd);

// The names given in the open folder are on the disk, and so are those that orderNames was asked for. Returns an errno
// value as flush.
[[nodiscard]] int flushNames(int folder);

// All that was done at all on the volume of the open file or folder `fd` is on the disk. Returns an errno value as
// flush.
[[nodiscard]] int flushVolume(int fd);

// For an operation with many copies: while it lives, another thread flushes the volume of the open file or folder `fd`
// again and again, once something waits for that. So the disk works while copies are made, and the system, which writes
// many small files at a time, takes half the time that it takes to write each by itself. flush() tells what failed.
class BackgroundFlush {
  public:
    BackgroundFlush(int fd, std::size_t copies, PendingWrites& pending);
    BackgroundFlush(const BackgroundFlush&) = delete;
    BackgroundFlush& operator=(const BackgroundFlush&) = delete;
    ~BackgroundFlush();

  private:
    void work(int fd, PendingWrites& pending);

    std::mutex mutex_;
    std::condition_variable wakeUp_;
    bool over_ = false;
    std::thread thread_;
};

} // namespace tidewrack
