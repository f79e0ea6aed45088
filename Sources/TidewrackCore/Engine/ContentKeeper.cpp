#include "Engine/ContentKeeper.hpp"

#include "Engine/SameContent.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace tidewrack {

namespace {

constexpr int copyTries = 4;
constexpr std::int64_t coarseTick = 2'000'000'000; // of volumes that keep whole seconds, or every second one

// Until a file whose latest change bears this time can't be changed again without a new one. A time in the future is
// another clock's, and nothing to wait for.
void waitUntilSettled(std::int64_t ctime) {
    if (ctime > earliestStamp() + coarseTick) return;
    const std::int64_t settled = ctime % nanosPerSecond == 0 ? ctime + coarseTick : ctime + 1;
    while (earliestStamp() < settled) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool cut(Place copy, std::int64_t size) {
    if (::fchmodat(copy.folder, copy.name, 0600, 0) != 0) return false;
    const Descriptor file(::openat(copy.folder, copy.name, O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    return file && ::ftruncate(file.get(), size) == 0 && ::fchmod(file.get(), 0444) == 0;
}

// A log that grows all the time is better kept as far as it went than not at all. Its attributes are of before the
// copy, so the next snapshot finds it changed.
bool cutToItsEntry(const KeepJob& job, Place copy) {
    Attributes made;
    return job.growing && attributesAt(copy.folder, copy.name, made) == 0 &&
           (made.size == job.entry.size || (made.size > job.entry.size && cut(copy, job.entry.size)));
}

KeepFailure keepLink(KeepJob& job, Place source, Place target, bool& consistent) {
    Attributes before;
    if (const int error = attributesAt(source.folder, source.name, before)) return KeepFailure::system(error);
    if (before.kind != Attributes::Kind::link) return {KeepFailure::Why::changing};
    job.entry = entryOf(before);
    waitUntilSettled(before.ctime);
    if (const int error = copyLink(source, target)) return KeepFailure::system(error);
    Attributes after;
    if (const int error = attributesAt(source.folder, source.name, after)) return KeepFailure::system(error);
    consistent = entryOf(after).sameAttributes(job.entry);
    return {};
}

} // namespace

void Keeper::keep(KeepJob& job, std::string_view path, CloneWorker& worker) const {
    job.failure = tryToKeep(job, path, worker);
    if (job.failure.error == pastDeadline) job.failure = {KeepFailure::Why::late};
}

KeepFailure Keeper::tryToKeep(KeepJob& job, std::string_view path, CloneWorker& worker) const {
    Place source;
    if (const int error = worker.project.place(path, source)) return KeepFailure::system(error);
    const std::string name(lastComponent(job.blob));
    const Place target{folder_, name.c_str()};
    for (int attempt = 1;; ++attempt) {
        bool consistent = false;
        const KeepFailure failure = job.entry.kind == EntryKind::link
                                        ? keepLink(job, source, target, consistent)
                                        : keepFile(job, source, target, worker, consistent);
        if (failure || consistent || job.tooLarge) return failure;
        if (attempt == copyTries && cutToItsEntry(job, target)) return {};
        if (::unlinkat(folder_, name.c_str(), 0) != 0) return KeepFailure::system(errno);
        if (attempt == copyTries) return {KeepFailure::Why::changing};
    }
}

KeepFailure Keeper::keepFile(KeepJob& job, Place source, Place target, CloneWorker& worker, bool& consistent) const {
    const Descriptor file(::openat(source.folder, source.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) return KeepFailure::system(errno);
    const Attributes before = attributesOf(status);
    if (before.kind != Attributes::Kind::file) return {KeepFailure::Why::changing};
    job.entry = entryOf(before);
    job.tooLarge = before.size > maxFileSize_;
    if (job.tooLarge) return {};
    waitUntilSettled(before.ctime);
    const std::string earlier = "../" + job.earlier; // all contents' folders lie beside each other
    job.isEarlier = !job.earlier.empty() && sameContent(source, {folder_, earlier.c_str()});
    if (job.isEarlier) {
        Attributes after;
        if (const int error = attributesOfOpen(file.get(), after)) return KeepFailure::system(error);
        consistent = job.isEarlier = entryOf(after).sameAttributes(job.entry);
        if (consistent) return {};
    }
    if (const int error = copyOpenFile(file.get(), status, target, {0444}, worker.memory))
        return KeepFailure::system(error);
    Attributes after;
    if (const int error = attributesOfOpen(file.get(), after)) return KeepFailure::system(error);
    consistent = entryOf(after).sameAttributes(job.entry);
    job.growing = after.size > before.size;
    return {};
}

} // namespace tidewrack
