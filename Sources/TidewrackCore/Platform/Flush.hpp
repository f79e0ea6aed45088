#pragma once
// What must be on the disk before something else is, so that a history is whole after a power cut.
//
// The volumes that histories lie on write changes of folders, names and sizes to the disk in the order in which they
// were made (by a journal or by whole transactions), but the contents of files at any time. So contents are written out
// before the name that leads to them is given, and one flush orders all that was done before it.
//
// Other programs flush as well. A journal writes our earlier names with their change. A volume of type btrfs has a
// short cut for a flushed file: after a power cut another program's change may be there and our earlier names not. On
// such a volume, on one whose order is unknown, and against changes on other volumes, names are flushed before the
// agent or the user continues.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace tidewrack {

// The largest number of copies of one operation that are brought to the disk one by one.
constexpr std::size_t mostWrittenOutOneByOne = 1000;

// What the copies of one operation have left to be brought to the disk. Shared by the threads that make them.
struct PendingWrites {
    std::atomic<std::size_t> copies = 0;  // contents that were copied byte for byte, not cloned
    std::atomic<bool> everything = false; // some of them wait for a flush of the whole volume
    std::atomic<int> error = 0;           // of a BackgroundFlush: the system reports it only once
};

// Brings the content of the file just written through `fd` to the disk before any later change of a name on its volume.
// The file is flushed where the volume cannot order that. Returns an errno value.
[[nodiscard]] int writeOut(int fd);

// Begins the same without waiting, in a fraction of the time. Enough where no kept content is lost if the name reaches
// the disk a few milliseconds before the file's bytes.
void beginWriteOut(int fd);

// writeOut for the first copies of an operation: each takes a tenth of a millisecond, however much the volume has
// waiting to be written. One flush of the whole volume is faster for more copies, and some volumes need it for any:
// those copies are left to flush().
void writeOutCopy(int fd, PendingWrites& pending);

// Brings to the disk the content of the open file `fd`, everything that was done on its volume before the file's latest
// change, and `pending`; with `pending.everything`, all that was done on the volume. Returns an errno value; a volume
// that knows no flushing is success.
[[nodiscard]] int flush(int fd, const PendingWrites& pending);

// Orders the same before later changes of names: they reach the disk after it, which need not be there yet on return.
[[nodiscard]] int order(int fd, const PendingWrites& pending);

// Orders the names given in the open folder before names that are given later. Returns an errno value as flush.
[[nodiscard]] int orderNames(int folder);

// Whether a change that any program flushes on the volume of `fd` reaches the disk only with all names given before it.
[[nodiscard]] bool keepsOrder(int fd);

// Brings to the disk the names given in the open folder and those that orderNames was asked for. Returns an errno value
// as flush.
[[nodiscard]] int flushNames(int folder);

// Brings to the disk all that was done on the volume of the open file or folder `fd`. Returns an errno value as flush.
[[nodiscard]] int flushVolume(int fd);

// Flushes the volume of the open file or folder `fd` from another thread, again and again, while this object lives and
// copies wait for a flush. The disk then works while copies are made, and the system writes many small files together
// in half the time that it takes to write each by itself. Does nothing for up to mostWrittenOutOneByOne copies. flush()
// reports what failed.
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
