// A bare listing of a tree, and the list file that holds it: the same lines, order and compression as
// a manifest, so that the limit pays for what the format asks for and for nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace limits {

struct Item {
    std::string_view path; // relative to the root; its bytes belong to the Listing
    char kind = 'f';       // 'f', 'l' or 'd'
    uint16_t mode = 0;
    int64_t size = 0;
    int64_t mtime = 0; // nanoseconds
    int64_t ctime = 0;
    uint64_t ino = 0;
    int blobSnapshot = -1; // kept at <blobSnapshot>/<blobNumber>; -1: nothing kept
    int blobNumber = 0;

    bool sameAttributes(const Item& other) const {
        return kind == other.kind && mode == other.mode &&
               (kind == 'd' ||
                (size == other.size && mtime == other.mtime && ctime == other.ctime && ino == other.ino));
    }
};

/// Items and the memory of their paths. Moved, never copied.
struct Listing {
    std::vector<Item> items;
    std::deque<std::string> memory;

    Listing() = default;
    Listing(Listing&&) = default;
    Listing& operator=(Listing&&) = default;
};

/// Finds items of a listing by path. The listing must stay as it is meanwhile.
class Index {
  public:
    static constexpr uint32_t none = UINT32_MAX;

    explicit Index(const std::vector<Item>& items);
    /// The item's position, or `none`.
    uint32_t find(std::string_view path) const;

  private:
    const std::vector<Item>& items_;
    std::vector<uint32_t> slots_;
    size_t mask_;
};

/// Walks the tree with two threads: everything below the root, in no particular order. Throws std::system_error.
Listing walk(const std::string& root);

/// Sorts by path.
void sortByPath(std::vector<Item>& items);

/// Reads or writes a list file; the items are in order of path. Both throw std::runtime_error.
Listing readList(const std::string& file);
void writeList(const std::string& file, const std::vector<Item>& items);

} // namespace limits
