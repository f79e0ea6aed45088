#include "Platform/BulkEntries.hpp"

#include <array>
#include <cstring>
#include <ctime>

namespace tidewrack {

namespace {

// Takes one value after the other; past the end, none.
class Fields {
  public:
    explicit Fields(std::span<const std::byte> bytes) : bytes_(bytes) {}

    template <typename Value>
    [[nodiscard]] bool take(Value& value) {
        if (bytes_.size() - at_ < sizeof value) return false;
        std::memcpy(&value, bytes_.data() + at_, sizeof value); // nothing is aligned to more than four bytes
        at_ += sizeof value;
        return true;
    }

    // The same where the attribute is among those that came.
    template <typename Value>
    [[nodiscard]] bool takeIf(std::uint32_t came, std::uint32_t attribute, Value& value) {
        return (came & attribute) == 0 || take(value);
    }

    // A name lies elsewhere in the entry; its place is counted from where that is told.
    [[nodiscard]] bool takeName(std::string_view& name) {
        const std::size_t from = at_;
        std::int32_t offset = 0;
        std::uint32_t length = 0; // with the NUL
        if (!take(offset) || !take(length) || offset < 0 || length < 2) return false;
        const std::size_t begin = from + static_cast<std::size_t>(offset);
        if (begin > bytes_.size() || bytes_.size() - begin < length) return false;
        const char* text = reinterpret_cast<const char*>(bytes_.data()) + begin;
        name = {text, length - 1};
        return text[length - 1] == '\0' && name.find('\0') == name.npos && name.find('/') == name.npos;
    }

  private:
    std::span<const std::byte> bytes_;
    std::size_t at_ = 0;
};

struct Time {
    std::int64_t seconds = 0;
    std::int64_t nanos = 0;
};

std::int64_t nanosecondsOf(const Time& time) {
    timespec value{};
    value.tv_sec = static_cast<time_t>(time.seconds);
    value.tv_nsec = static_cast<long>(time.nanos);
    return tidewrack::nanosecondsOf(value);
}

bool readEntry(std::span<const std::byte> bytes, BulkEntry& entry) {
    Fields fields(bytes);
    std::uint32_t length = 0;
    std::array<std::uint32_t, 5> came{}; // common, volume, folder, file, fork
    if (!fields.take(length) || !fields.take(came)) return false;
    const std::uint32_t common = came[0];
    const std::uint32_t file = came[3];
    if ((common & ~bulk::common) != 0 || (file & ~bulk::file) != 0 || came[1] != 0 || came[2] != 0 || came[4] != 0)
        return false;
    std::uint32_t error = 0;
    std::int32_t device = 0;
    std::uint32_t type = 0;
    Time modified;
    Time changed;
    std::uint32_t mode = 0;
    std::uint32_t flags = 0;
    std::uint64_t inode = 0;
    std::uint32_t links = 0;
    std::int64_t size = 0;
    if (!fields.takeIf(common, bulk::error, error) || (common & bulk::name) == 0 || !fields.takeName(entry.name) ||
        !fields.takeIf(common, bulk::device, device) || !fields.takeIf(common, bulk::type, type) ||
        !fields.takeIf(common, bulk::modified, modified) || !fields.takeIf(common, bulk::changed, changed) ||
        !fields.takeIf(common, bulk::mode, mode) || !fields.takeIf(common, bulk::flags, flags) ||
        !fields.takeIf(common, bulk::inode, inode) || !fields.takeIf(file, bulk::fileLinks, links) ||
        !fields.takeIf(file, bulk::fileSize, size))
        return false;
    constexpr std::uint32_t needed = bulk::common & ~(bulk::error | bulk::returned);
    const bool isWhole = error == 0 && (common & needed) == needed && file == bulk::file;
    if (!isWhole || type != bulk::regular || links != 1 || size < 0) return true;
    if ((flags & (bulk::compressed | bulk::dataless)) != 0) return true;
    Attributes& attributes = entry.attributes.emplace();
    attributes.kind = Attributes::Kind::file;
    attributes.mode = static_cast<std::uint16_t>(mode & 07777);
    attributes.size = size;
    attributes.mtime = nanosecondsOf(modified);
    attributes.ctime = nanosecondsOf(changed);
    attributes.ino = inode;
    attributes.device = static_cast<std::uint64_t>(device);
    attributes.links = links;
    return true;
}

} // namespace

bool readBulkEntries(std::span<const std::byte> buffer, int count, std::vector<BulkEntry>& entries) {
    entries.clear();
    for (int i = 0; i < count; ++i) {
        std::uint32_t length = 0;
        if (buffer.size() < sizeof length) return false;
        std::memcpy(&length, buffer.data(), sizeof length);
        if (length < sizeof length || length > buffer.size()) return false;
        if (!readEntry(buffer.first(length), entries.emplace_back())) return false;
        buffer = buffer.subspan(length);
    }
    return true;
}

} // namespace tidewrack
