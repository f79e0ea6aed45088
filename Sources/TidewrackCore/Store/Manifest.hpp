#pragma once
// The listing of one snapshot: one entry per path, kept sorted by path in a few large buffers, because a project may
// hold hundreds of thousands of paths. docs/store-format.md describes the file.

#include "Platform/Platform.hpp"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

enum class EntryKind : std::uint8_t { file, link, dir };

// What a snapshot saw at one path. `blob` says where the content is kept:
//   "<seq>/<n>"           kept by snapshot seq as its n-th content
//   "big:<size>:<mtime>"  over the size limit, not kept
//   "err<number>"         could not be kept; the error's number (older stores: a bare "err")
//   "ign"                 a folder left out because git ignores it
//   ""                    a folder
// `blob` is a view: its bytes belong to the manifest that holds the entry, or to whoever made the entry.
struct Entry {
    EntryKind kind = EntryKind::file;
    std::uint16_t mode = 0;
    std::int64_t size = 0;
    std::int64_t mtime = 0; // nanoseconds since the epoch
    std::int64_t ctime = 0;
    std::uint64_t ino = 0;
    std::string_view blob;

    bool operator==(const Entry&) const = default;

    // Same kind, mode, size, times and inode number: the thing has not been touched in between.
    [[nodiscard]] bool sameAttributes(const Entry& other) const {
        return kind == other.kind && mode == other.mode && size == other.size && mtime == other.mtime &&
               ctime == other.ctime && ino == other.ino;
    }
    // The content of a file or link was kept.
    [[nodiscard]] bool isKept() const { return kind != EntryKind::dir && !notKept(); }
    [[nodiscard]] bool notKept() const { return blob.starts_with("big:") || blob.starts_with("err"); }
    // Why a content was not kept, in words; none when it was.
    [[nodiscard]] std::optional<std::string> notKeptReason() const;
};

// `attributes` as a manifest entry without a blob; anything but links and folders counts as a file.
[[nodiscard]] Entry entryOf(const Attributes& attributes);

// Text that outlives the views handed out: appended to, never moved.
class TextArena {
  public:
    std::string_view add(std::string_view text);
    // Takes over a whole buffer; views into it stay valid.
    std::string_view adopt(std::string text);

  private:
    static constexpr std::size_t blockSize = std::size_t{256} * 1024;
    std::deque<std::string> blocks_;
    std::string* open_ = nullptr;
};

class Manifest {
  public:
    struct Item {
        std::string_view path; // relative to the project's root, "/"-separated
        Entry entry;

        bool operator==(const Item&) const = default;
    };

    // Sorted by path in byte order, each path once.
    [[nodiscard]] const std::vector<Item>& items() const { return items_; }
    [[nodiscard]] bool empty() const { return items_.empty(); }
    [[nodiscard]] std::size_t size() const { return items_.size(); }
    // The entry at `path`, by binary search; nullptr when there is none.
    [[nodiscard]] const Entry* find(std::string_view path) const;
    // The entries whose path begins with `folder` + "/", as a range of items().
    struct Range {
        const Item* first;
        const Item* last;
        [[nodiscard]] const Item* begin() const { return first; }
        [[nodiscard]] const Item* end() const { return last; }
    };
    [[nodiscard]] Range below(std::string_view folder) const;
    [[nodiscard]] std::int64_t fileCount() const; // files and links

    // The file's bytes: text, compressed. Throws TidewrackError io when the compression library is missing.
    [[nodiscard]] std::string encoded() const;
    // Throws TidewrackError corrupt "manifest kind", "manifest number", "manifest line end", or that it cannot be
    // decompressed.
    [[nodiscard]] static Manifest decode(std::string_view bytes);

    // The same without the compression.
    [[nodiscard]] std::string encodedText() const;
    [[nodiscard]] static Manifest decodeText(std::string text);

    [[nodiscard]] static std::string escape(std::string_view path);
    [[nodiscard]] static std::string unescape(std::string_view text);

  private:
    friend class ManifestBuilder;
    std::shared_ptr<TextArena> arena_ = std::make_shared<TextArena>(); // shared by copies, never changed after building
    std::vector<Item> items_;
};

// Collects entries in any order; copies paths and blobs.
class ManifestBuilder {
  public:
    void reserve(std::size_t count) { manifest_.items_.reserve(count); }
    void add(std::string_view path, const Entry& entry);
    // The latest added item, for a caller that learns more about it later.
    void setBlob(std::size_t index, std::string_view blob) {
        manifest_.items_[index].entry.blob = manifest_.arena_->add(blob);
    }
    void setEntry(std::size_t index, const Entry& entry);
    [[nodiscard]] const Manifest::Item& item(std::size_t index) const { return manifest_.items_[index]; }
    [[nodiscard]] std::size_t size() const { return manifest_.items_.size(); }
    // Sorted; of two entries with one path the later one stays. The builder is empty afterwards.
    [[nodiscard]] Manifest finish();
    // The same for items of which most are already in order: `ranks[i]` is the place of item i among the paths of
    // an earlier sorted listing, or noRank for a path that the listing lacks.
    static constexpr std::uint32_t noRank = UINT32_MAX;
    [[nodiscard]] Manifest finish(const std::vector<std::uint32_t>& ranks, std::size_t rankCount);

  private:
    friend class Manifest;
    Manifest manifest_;
};

// A hash index over a manifest's paths: one look-up per walked item.
class PathIndex {
  public:
    explicit PathIndex(const Manifest& manifest);
    static constexpr std::uint32_t none = UINT32_MAX;
    // The place in manifest.items(), or `none`.
    [[nodiscard]] std::uint32_t find(std::string_view path) const;

  private:
    const Manifest& manifest_;
    std::vector<std::uint32_t> slots_; // open addressing, a power of two; none: free
    std::size_t mask_ = 0;
};

} // namespace tidewrack
