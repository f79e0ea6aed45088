// The form is POSIX's "pax interchange format": ustar headers of 512 bytes, each before its content, and before it,
// where something does not fit into it, an entry of type "x" with records "<length> <key>=<value>\n".

#include "Engine/TarStream.hpp"

#include "Platform/Attributes.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tidewrack {

namespace {

constexpr std::size_t blockSize = 512;

struct Field {
    std::size_t at;
    std::size_t size;
};
constexpr Field nameField{0, 100}, modeField{100, 8}, userField{108, 8}, groupField{116, 8}, sizeField{124, 12},
    timeField{136, 12}, sumField{148, 8}, linkField{157, 100};
constexpr std::size_t typeAt = 156;
constexpr std::size_t magicAt = 257;

using Header = std::array<char, blockSize>;

void putText(Header& header, Field field, std::string_view text) {
    std::copy_n(text.begin(), std::min(text.size(), field.size),
                header.begin() + static_cast<std::ptrdiff_t>(field.at));
}

// Octal digits and a zero byte.
constexpr std::uint64_t largest(Field field) {
    return (std::uint64_t{1} << (3 * (field.size - 1))) - 1;
}

void putNumber(Header& header, Field field, std::uint64_t number) {
    char digits[32];
    (void)std::snprintf(digits, sizeof digits, "%0*llo", static_cast<int>(field.size - 1),
                        static_cast<unsigned long long>(std::min(number, largest(field))));
    putText(header, field, digits);
}

// The length counts its own digits.
std::string record(std::string_view key, std::string_view value) {
    const std::size_t rest = key.size() + value.size() + 3; // a space, "=" and the line feed
    std::size_t length = rest + 1;
    while (rest + std::to_string(length).size() != length) ++length;
    return std::to_string(length).append(" ").append(key).append("=").append(value).append("\n");
}

std::string secondsText(std::int64_t nanoseconds) {
    constexpr auto perSecond = static_cast<std::uint64_t>(nanosPerSecond);
    const bool negative = nanoseconds < 0;
    const auto count = static_cast<std::uint64_t>(nanoseconds);
    const std::uint64_t size = negative ? std::uint64_t{0} - count : count;
    char text[40];
    (void)std::snprintf(text, sizeof text, "%s%llu.%09llu", negative ? "-" : "",
                        static_cast<unsigned long long>(size / perSecond),
                        static_cast<unsigned long long>(size % perSecond));
    return text;
}

char typeOf(TarEntry::Kind kind) {
    switch (kind) {
    case TarEntry::Kind::file: return '0';
    case TarEntry::Kind::link: return '2';
    case TarEntry::Kind::folder: return '5';
    }
    return '0';
}

std::string recordsFor(const TarEntry& entry, const std::string& name) {
    std::string records;
    const auto number = [&](const char* key, std::uint64_t value, Field field) {
        if (value > largest(field)) records += record(key, std::to_string(value));
    };
    if (name.size() > nameField.size) records += record("path", name);
    if (entry.destination.size() > linkField.size) records += record("linkpath", entry.destination);
    if (entry.mtime % nanosPerSecond != 0 || entry.mtime < 0) records += record("mtime", secondsText(entry.mtime));
    number("size", static_cast<std::uint64_t>(entry.size), sizeField);
    number("uid", entry.user, userField);
    number("gid", entry.group, groupField);
    return records;
}

Header headerOf(const TarEntry& entry, std::string_view name, char type) {
    Header header{};
    putText(header, nameField, name);
    putNumber(header, modeField, entry.mode);
    putNumber(header, userField, entry.user);
    putNumber(header, groupField, entry.group);
    putNumber(header, sizeField, static_cast<std::uint64_t>(entry.size));
    putNumber(header, timeField, static_cast<std::uint64_t>(std::max<std::int64_t>(entry.mtime, 0) / nanosPerSecond));
    putText(header, linkField, entry.destination);
    header[typeAt] = type;
    putText(header, {magicAt, 8}, std::string_view("ustar\00000", 8));
    putText(header, sumField, "        "); // counted as blanks
    unsigned sum = 0;
    for (const char c : header) sum += static_cast<unsigned char>(c);
    putText(header, sumField, std::string_view("\0\0\0\0\0\0\0 ", 8));
    putNumber(header, {sumField.at, sumField.size - 1}, sum);
    return header;
}

} // namespace

void TarStream::begin(const TarEntry& entry) {
    pad();
    const std::string name = entry.path + (entry.kind == TarEntry::Kind::folder ? "/" : "");
    if (const std::string records = recordsFor(entry, name); !records.empty()) {
        TarEntry more;
        more.mode = 0644;
        more.size = static_cast<std::int64_t>(records.size());
        const Header header = headerOf(more, "PaxHeaders/" + name.substr(0, nameField.size - 11), 'x');
        write_({header.data(), header.size()});
        content(records);
        pad();
    }
    const Header header = headerOf(entry, name, typeOf(entry.kind));
    write_({header.data(), header.size()});
}

void TarStream::content(std::string_view bytes) {
    write_(bytes);
    written_ += bytes.size();
}

void TarStream::finish() {
    pad();
    write_(std::string(2 * blockSize, '\0'));
}

void TarStream::pad() {
    if (written_ % blockSize != 0) write_(std::string(blockSize - written_ % blockSize, '\0'));
    written_ = 0;
}

} // namespace tidewrack
