// What the machine can do at best: bare programs with two threads that do the necessary system calls
// and nothing else, for scripts/bench to set beside tidewrack.
//   tidewrack_limit walk ROOT
//   tidewrack_limit snap ROOT STORE               prints the new snapshot's number
//   tidewrack_limit restore ROOT STORE SNAPSHOT   prints the number of the record after it
// It checks next to nothing: it is no tool to trust files to.
#include "Copy.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace limits {
namespace {

std::string listFile(const std::string& store, int number) {
    return store + "/" + std::to_string(number) + ".list";
}

std::string blobFile(const std::string& store, const Item& item) {
    return store + "/" + std::to_string(item.blobSnapshot) + "/" + std::to_string(item.blobNumber);
}

int newestList(const std::string& store) {
    int number = 0;
    while (access(listFile(store, number + 1).c_str(), F_OK) == 0) ++number;
    return number;
}

struct Snapshot {
    int number = 0;
    Listing listing; // in order of path
};

/// The walked items in order of path, with the contents that the previous list already has. The previous
/// list is in order, so only what is new is sorted.
Listing inOrder(Listing walked, const Listing& previous, size_t& unchanged) {
    const Index index(previous.items);
    std::vector<const Item*> known(previous.items.size());
    std::vector<Item> added;
    for (Item& item : walked.items) {
        const uint32_t number = index.find(item.path);
        if (number == Index::none) {
            added.push_back(item);
            continue;
        }
        const Item& before = previous.items[number];
        if (item.sameAttributes(before)) {
            item.blobSnapshot = before.blobSnapshot;
            item.blobNumber = before.blobNumber;
            ++unchanged;
        }
        known[number] = &item;
    }
    sortByPath(added);
    Listing ordered;
    ordered.memory = std::move(walked.memory);
    ordered.items.reserve(walked.items.size());
    auto next = added.begin();
    for (const Item* item : known) {
        if (item == nullptr) continue;
        while (next != added.end() && next->path < item->path) ordered.items.push_back(*next++);
        ordered.items.push_back(*item);
    }
    ordered.items.insert(ordered.items.end(), next, added.end());
    return ordered;
}

Snapshot snap(const std::string& root, const std::string& store) {
    const int newest = newestList(store);
    Listing previous;
    if (newest > 0) previous = readList(listFile(store, newest));
    size_t unchanged = 0;
    Listing now = inOrder(walk(root), previous, unchanged);
    if (newest > 0 && unchanged == now.items.size() && unchanged == previous.items.size())
        return {newest, std::move(now)};

    const int number = newest + 1;
    const std::string folder = store + "/" + std::to_string(number);
    mkdir(folder.c_str(), 0755);
    std::vector<CopyJob> jobs;
    for (Item& item : now.items) {
        if (item.kind == 'd' || item.blobSnapshot >= 0) continue;
        item.blobSnapshot = number;
        item.blobNumber = static_cast<int>(jobs.size());
        jobs.push_back(
            {root + "/" + std::string(item.path), blobFile(store, item), "", item.kind, 0444, item.mtime, nullptr});
    }
    copyAll(jobs);
    writeList(listFile(store, number), now.items);
    return {number, std::move(now)};
}

void removeWhatIsNew(const std::string& root, const Listing& now, const Listing& target) {
    const Index index(target.items);
    // A folder's contents come after it in order of path, so backwards they go first.
    for (auto item = now.items.rbegin(); item != now.items.rend(); ++item) {
        const uint32_t number = index.find(item->path);
        if (number != Index::none && target.items[number].kind == item->kind) continue;
        const std::string path = root + "/" + std::string(item->path);
        if (item->kind == 'd') {
            rmdir(path.c_str());
        } else {
            unlink(path.c_str());
        }
    }
}

int restore(const std::string& root, const std::string& store, int to) {
    const Snapshot safety = snap(root, store);
    Listing target = readList(listFile(store, to));
    removeWhatIsNew(root, safety.listing, target);

    const Index index(safety.listing.items);
    std::vector<CopyJob> jobs;
    for (Item& item : target.items) {
        const uint32_t number = index.find(item.path);
        const Item* const there = number == Index::none ? nullptr : &safety.listing.items[number];
        if (there != nullptr && there->kind != item.kind) continue; // cannot be put back in one step; not benchmarked
        if (there != nullptr && there->blobSnapshot == item.blobSnapshot && there->blobNumber == item.blobNumber) {
            item = {item.path,    there->kind, there->mode,         there->size,      there->mtime,
                    there->ctime, there->ino,  there->blobSnapshot, there->blobNumber};
            continue;
        }
        const std::string path = root + "/" + std::string(item.path);
        if (item.kind == 'd') {
            mkdir(path.c_str(), item.mode);
            continue;
        }
        const std::string temporary = there == nullptr ? "" : path + ".limit-new";
        jobs.push_back({blobFile(store, item), path, temporary, item.kind, item.mode, item.mtime, &item});
    }
    copyAll(jobs);
    writeList(listFile(store, safety.number + 1), target.items);
    return safety.number + 1;
}

int run(int count, char** words) {
    const std::string command = count > 2 ? words[1] : "";
    if (command == "walk") {
        std::printf("%zu\n", walk(words[2]).items.size());
    } else if (command == "snap" && count > 3) {
        std::printf("%d\n", snap(words[2], words[3]).number);
    } else if (command == "restore" && count > 4) {
        std::printf("%d\n", restore(words[2], words[3], std::stoi(words[4])));
    } else {
        std::fputs("usage: tidewrack_limit walk ROOT | snap ROOT STORE | restore ROOT STORE SNAPSHOT\n", stderr);
        return 2;
    }
    std::fflush(stdout);
    return 0;
}

} // namespace
} // namespace limits

int main(int count, char** words) {
    int status = 1;
    try {
        status = limits::run(count, words);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tidewrack_limit: %s\n", error.what());
    }
    // Leaving without freeing a quarter of a million items is a part of the limit.
    _exit(status);
}
