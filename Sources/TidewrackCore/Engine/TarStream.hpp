#pragma once
// A tar archive as a stream of bytes, in the pax form: names of any length, times to the nanosecond.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tidewrack {

struct TarEntry {
    enum class Kind { file, link, folder };

    Kind kind = Kind::file;
    std::string path;        // relative
    std::string destination; // of a link
    std::uint16_t mode = 0;
    std::int64_t size = 0;  // of a file
    std::int64_t mtime = 0; // nanoseconds since the epoch
    std::uint64_t user = 0;
    std::uint64_t group = 0;
};

class TarStream {
  public:
    // Gets the archive piece by piece.
    using Write = std::function<void(std::string_view)>;
    explicit TarStream(Write write) : write_(std::move(write)) {}

    // Begins an entry. Exactly `size` bytes of a file's content must follow before the next one.
    void begin(const TarEntry& entry);
    void content(std::string_view bytes);
    // The archive's end.
    void finish();

  private:
    void pad();

    Write write_;
    std::uint64_t written_ = 0; // of the content
};

} // namespace tidewrack
