#pragma once
// The listing of one snapshot: one entry per path, kept sorted by path in a few large buffers, because a project may
// hold hundreds of thousands of paths. docs/store-format.md describes the file.

#include "Platform/Attributes.hpp"
#include "Store/KeepFailure.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tidewrack {

enum class EntryKind : std::uint8_t { file, link, dir };

// What a snapshot saw at one path. `blob` says where the content is kept:
//   "<seq>/<n>"           kept by snapshot seq as its n-th content
//   "big:<size>:<mtime>"  over the size limit, not kept
//   "err<number>"         could not be kept; the error's number (older stores: a bare "err"), or a KeepFailure's word
//   "ign"                 a folder left out because git ignores it, or a file, link or folder that the user leaves out
//   ""                    a folder
// `blob` is a view: its bytes belong to the manifest that holds the entry, or to the caller that made the entry.
struct Entry {
    EntryKind kind = EntryKind::file;
    std::uint16_t mode = 0;
    std::int64_t size = 0;
    std::int64_t mtime = 0; // nanoseconds since the epoch
    std::int64_t ctime = 0;
    std::uint64_t ino = 0;
    std::string_view blob;

    bool operator==(const Entry&) const = default;

    // Same kind, mode, size, times and inode number: nothing has changed the item in between.
    [[nodiscard]] bool sameAttributes(const Entry& other) const {
        return kind == other.kind && mode == other.mode && size == other.size && mtime == other.mtime &&
               ctime == other.ctime && ino == other.ino;
    }
    [[nodiscard]] bool isKept() const { return kind != EntryKind::dir && !notKept(); } // the content of a file or link
    [[nodiscard]] bool notKept() const {
        return blob.starts_with("big:") || blob.starts_with("err") || isIgnoredFile();
    }
    // What is left out on purpose is listed without size and times, which change with its content.
    [[nodiscard]] bool isIgnored() const { return blob == "ign"; }
    [[nodiscard]] bool isIgnoredFile() const { return kind != EntryKind::dir && isIgnored(); } // or link
    [[nodiscard]] bool isIgnoredFolder() const { return kind == EntryKind::dir && isIgnored(); }
    void markIgnored() {
        size = mtime = ctime = 0;
        blob = "ign";
    }
    // Why a content was not kept, in words; none when it was.
    [[nodiscard]] std::optional<std::string> notKeptReason() const;
};

// `attributes` as a manifest entry without a blob; anything but links and folders counts as a file.
[[nodiscard]] Entry entryOf(const Attributes& attributes);

// Holds the bytes of texts. They are never moved, so the views stay valid as long as the arena lives.
class TextArena {
  public:
    std::string_view add(std::string_view text);
    // Takes over a whole buffer of which the first `size` bytes are used.
    std::string_view adopt(std::unique_ptr<char[]> text, std::size_t size);

  private:
    static constexpr std::size_t blockSize = std::size_t{256} * 1024;
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* free_ = nullptr;
    std::size_t room_ = 0;
};

// Bytes in a buffer that may be larger than what is used: large listings are not copied only to fit.
struct TextBuffer {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;

    explicit TextBuffer(std::string_view text);
    TextBuffer(std::unique_ptr<char[]> buffer, std::size_t used) : bytes(std::move(buffer)), size(used) {}
    [[nodiscard]] std::string_view text() const { return {bytes.get(), size}; }
};

class Manifest {
  public:
    struct Item {
        std::string_view path; // relative to the project's root, "/"-separated
        Entry entry;

        bool operator==(const Item&) const = default;
    };

    Manifest() = default;

    // Sorted by path in byte order, each path once. A listing equal to the one it was built upon shares its items, so
    // that equal addresses mean equal listings.
    [[nodiscard]] const std::vector<Item>& items() const { return *items_; }
    [[nodiscard]] bool empty() const { return items_->empty(); }
    [[nodiscard]] std::size_t size() const { return items_->size(); }
    // The entry at `path`, by binary search; nullptr when there is none.
    [[nodiscard]] const Entry* find(std::string_view path) const;
    // The items whose paths begin like this, which lie side by side; found by binary search.
    [[nodiscard]] std::span<const Item> beginningWith(std::string_view beginning) const;
    // Whether anything is listed at the path or below it.
    [[nodiscard]] bool lists(std::string_view path) const { return find(path) != nullptr || listsBelow(path); }
    // Whether anything is listed whose path begins with `folder` + "/".
    [[nodiscard]] bool listsBelow(std::string_view folder) const;
    // Whether the folder is listed as one that is left out; the nearest such one around the path, or nothing.
    [[nodiscard]] bool listsIgnored(std::string_view folder) const;
    [[nodiscard]] std::string_view ignoredAround(std::string_view path) const;
    // What is known of the path; null also for a file or link that is left out, as if it were not listed.
    [[nodiscard]] const Entry* findKnown(std::string_view path) const;
    // Whether what is at the path is left out: by itself, as a file or link, or with a folder around it.
    [[nodiscard]] bool leavesOut(std::string_view path) const;
    [[nodiscard]] std::int64_t fileCount() const; // files and links

    static constexpr std::string_view endMarker = "bvx$"; // what the file ends with
    // The file's bytes: the compressed text. Throws TidewrackError io when the compression fails.
    [[nodiscard]] std::string encoded() const;
    // Throws TidewrackError corrupt "manifest kind", "manifest number" or "manifest line end", or of the compression.
    [[nodiscard]] static Manifest decode(std::string_view bytes);

    // The same without the compression.
    [[nodiscard]] std::string encodedText() const;
    [[nodiscard]] static Manifest decodeText(TextBuffer text);
    [[nodiscard]] static TextBuffer decompressed(std::string_view bytes);
    // Hands out every line's blob, folders' empty ones included, in less than half of decode's time. Throws
    // TidewrackError corrupt "manifest kind", "manifest line end" or "manifest blob".
    static void forEachBlob(std::string_view text, const std::function<void(std::string_view)>& visit);

    // A path as a line holds it, with escapes for backslash, tab and line feed; and the path again.
    [[nodiscard]] static std::string escape(std::string_view path);
    [[nodiscard]] static std::string unescape(std::string_view text);

  private:
    friend class ManifestBuilder;
    using Items = std::shared_ptr<const std::vector<Item>>;
    using Arenas = std::vector<std::shared_ptr<const TextArena>>;
    Manifest(Items items, Arenas arenas) : items_(std::move(items)), arenas_(std::move(arenas)) {}

    Items items_ = std::make_shared<const std::vector<Item>>(); // shared by copies
    Arenas arenas_;                                             // hold the views' bytes
};

// Collects entries in any order; copies paths and blobs.
class ManifestBuilder {
  public:
    static constexpr std::uint32_t noRank = UINT32_MAX;

    ManifestBuilder() = default;
    // For a listing that has most of its items from `base`: those items need no sorting and share its texts. `base`
    // must outlive the builder, but not what it builds.
    explicit ManifestBuilder(const Manifest& base);

    // An added item, for a caller that learns more about it later.
    struct Handle {
        std::uint32_t place;
        bool ranked;
    };
    // `rank`: the path's place among the base's items, noRank when it is not there. Each rank once.
    Handle add(std::string_view path, const Entry& entry, std::uint32_t rank = noRank);
    // Whether the base's item of this rank has been added.
    [[nodiscard]] bool holds(std::uint32_t rank) const { return fates_[rank] != absent; }
    void setEntry(Handle handle, const Entry& entry);
    [[nodiscard]] const Manifest::Item& item(Handle handle) const;
    [[nodiscard]] std::size_t size() const { return count_; }
    // Sorted; of two entries with one path the later one stays. The builder is used up.
    [[nodiscard]] Manifest finish();

  private:
    friend class Manifest;
    // What became of an item of the base: one of these two, or its place in changed_.
    static constexpr std::uint32_t absent = UINT32_MAX;
    static constexpr std::uint32_t unchanged = UINT32_MAX - 1;

    void sortOthers();
    [[nodiscard]] std::vector<Manifest::Item> ranked() const;

    const Manifest* base_ = nullptr;
    std::shared_ptr<TextArena> arena_ = std::make_shared<TextArena>();
    std::vector<std::uint32_t> fates_; // of the base's items, by rank
    std::vector<Manifest::Item> changed_;
    std::vector<Manifest::Item> others_;
    std::size_t count_ = 0;
};

// Finds a walked item in a manifest, folder by folder, since a walk returns all items of one folder together.
class PathIndex {
  public:
    // `manifest` must outlive this.
    explicit PathIndex(const Manifest& manifest);
    static constexpr std::uint32_t none = UINT32_MAX;
    // The place in manifest.items(), or `none`. Fast where the path before it had the same parent.
    [[nodiscard]] std::uint32_t find(std::string_view path);

  private:
    struct Folder {
        std::uint32_t first = 0; // in ranks_
        std::uint32_t size = 0;
    };
    struct Child {
        std::uint64_t beginning; // of the name
        std::string_view name;
        std::uint32_t rank;
    };
    void enter(std::string_view folder);

    const std::vector<Manifest::Item>& items_;
    std::unordered_map<std::string_view, Folder> folders_; // by path; the root's is empty
    std::vector<std::uint32_t> ranks_;                     // what lies in one folder side by side, sorted by name
    std::string entered_;                                  // the folder asked for last
    std::vector<Child> children_;                          // in it, sorted by name
};

} // namespace tidewrack
