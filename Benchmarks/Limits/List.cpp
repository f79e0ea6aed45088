#include "Listing.hpp"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <functional>
#include <lzfse.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace limits {
namespace {

std::string readFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0) throw std::runtime_error("can't read " + path);
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    const ssize_t got = read(fd, bytes.data(), bytes.size());
    close(fd);
    if (got != status.st_size) throw std::runtime_error("can't read " + path);
    return bytes;
}

template <class Number>
void parse(const char*& at, const char* end, Number& number, char closing) {
    const auto result = std::from_chars(at, end, number);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != closing)
        throw std::runtime_error("damaged list");
    at = result.ptr + 1;
}

template <class Number>
char* print(char* at, Number number, char closing) {
    at = std::to_chars(at, at + 24, number).ptr;
    *at++ = closing;
    return at;
}

} // namespace

Index::Index(const std::vector<Item>& items) : items_(items) {
    size_t size = 16;
    while (size < items.size() * 2) size *= 2;
    slots_.assign(size, none);
    mask_ = size - 1;
    for (uint32_t number = 0; number < items.size(); ++number) {
        size_t slot = std::hash<std::string_view>()(items[number].path) & mask_;
        while (slots_[slot] != none) slot = (slot + 1) & mask_;
        slots_[slot] = number;
    }
}

uint32_t Index::find(std::string_view path) const {
    for (size_t slot = std::hash<std::string_view>()(path) & mask_;; slot = (slot + 1) & mask_) {
        const uint32_t number = slots_[slot];
        if (number == none || items_[number].path == path) return number;
    }
}

void sortByPath(std::vector<Item>& items) {
    std::sort(items.begin(), items.end(), [](const Item& left, const Item& right) { return left.path < right.path; });
}

Listing readList(const std::string& file) {
    const std::string packed = readFile(file);
    const auto* source = reinterpret_cast<const uint8_t*>(packed.data());
    std::string text(packed.size() * 8, '\0');
    size_t size = 0;
    while ((size = lzfse_decode_buffer(reinterpret_cast<uint8_t*>(text.data()), text.size(), source, packed.size(),
                                       nullptr)) == text.size())
        text.resize(text.size() * 2);
    text.resize(size);

    Listing listing;
    listing.memory.push_back(std::move(text));
    const char* at = listing.memory.back().data();
    const char* const end = at + size;
    while (at != end) {
        Item item;
        item.kind = *at;
        at += 2;
        parse(at, end, item.mode, '\t');
        parse(at, end, item.size, '\t');
        parse(at, end, item.mtime, '\t');
        parse(at, end, item.ctime, '\t');
        parse(at, end, item.ino, '\t');
        if (*at != '\t') {
            parse(at, end, item.blobSnapshot, '/');
            parse(at, end, item.blobNumber, '\t');
        } else {
            ++at;
        }
        const char* const lineEnd = std::find(at, end, '\n');
        item.path = std::string_view(at, static_cast<size_t>(lineEnd - at));
        at = lineEnd + 1;
        listing.items.push_back(item);
    }
    return listing;
}

void writeList(const std::string& file, const std::vector<Item>& items) {
    size_t room = 0;
    for (const Item& item : items) room += item.path.size() + 160;
    std::string text(room, '\0');
    char* at = text.data();
    for (const Item& item : items) {
        *at++ = item.kind;
        *at++ = '\t';
        at = print(at, item.mode, '\t');
        at = print(at, item.size, '\t');
        at = print(at, item.mtime, '\t');
        at = print(at, item.ctime, '\t');
        at = print(at, item.ino, '\t');
        if (item.blobSnapshot >= 0) {
            at = print(at, item.blobSnapshot, '/');
            at = print(at, item.blobNumber, '\t');
        } else {
            *at++ = '\t';
        }
        at = std::copy(item.path.begin(), item.path.end(), at);
        *at++ = '\n';
    }
    text.resize(static_cast<size_t>(at - text.data()));

    std::string packed(text.size() + 4096, '\0');
    const size_t size = lzfse_encode_buffer(reinterpret_cast<uint8_t*>(packed.data()), packed.size(),
                                            reinterpret_cast<const uint8_t*>(text.data()), text.size(), nullptr);
    const std::string temporary = file + ".new";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, packed.data(), size) != static_cast<ssize_t>(size) || close(fd) != 0 ||
        rename(temporary.c_str(), file.c_str()) != 0)
        throw std::runtime_error("can't write " + file);
}

} // namespace limits
