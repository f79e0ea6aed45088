// The manifest's file format: tab-separated text, LZFSE-compressed. Versions: 1 (the only one so far, no header).

#include "Platform/Process.hpp"
#include "Store/Manifest.hpp"

#include "Support/Errors.hpp"

#include <lzfse.h>

#include <array>
#include <charconv>
#include <cstring>
#include <future>

namespace tidewrack {

namespace {

constexpr std::size_t parallelSize = std::size_t{1} << 20;

char kindCode(EntryKind kind) {
    switch (kind) {
    case EntryKind::file: return 'f';
    case EntryKind::link: return 'l';
    case EntryKind::dir: return 'd';
    }
    return 'f';
}

template <typename Number>
void appendNumber(std::string& text, Number number) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text.append(digits.data(), end);
    text += '\t';
}

std::string compressedStream(std::string_view text) {
    const std::size_t room = text.size() + text.size() / 16 + 4096;
    const std::unique_ptr<char[]> out(new char[room]); // not zeroed: most of it stays unused
    const std::size_t size =
        lzfse_encode_buffer(reinterpret_cast<std::uint8_t*>(out.get()), room,
                            reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), nullptr);
    if (size == 0) throw TidewrackError::io("A manifest couldn't be compressed.");
    return {out.get(), size};
}

// A stream is a sequence of independent blocks and an end marker. So two halves compressed side by side make one stream
// when the first half's end marker is dropped.
std::string compressed(std::string_view text) {
    if (text.size() < parallelSize) return compressedStream(text);
    const std::size_t half = text.size() / 2;
    constexpr auto policy = std::launch::async | std::launch::deferred; // deferred where no thread can be started
    auto second = std::async(policy, [&] { return compressedStream(text.substr(half)); });
    std::string first = compressedStream(text.substr(0, half));
    first.resize(first.size() - Manifest::endMarker.size());
    return first + second.get();
}

// The library answers 0 for a fault and for the empty text alike, so the streams of the empty text are recognised by
// their bytes: an end marker alone, or one after a stored block without content.
bool holdsEmptyText(std::string_view bytes) {
    using namespace std::string_view_literals;
    return bytes == "bvx$"sv || bytes == "bvx-\0\0\0\0bvx$"sv;
}

// Reads one manifest text, field by field, where it lies.
class Parser {
  public:
    explicit Parser(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    [[nodiscard]] bool atEnd() const { return at_ == end_; }

    EntryKind kind() {
        const std::string_view field = upToTab();
        if (field == "f") return EntryKind::file;
        if (field == "l") return EntryKind::link;
        if (field == "d") return EntryKind::dir;
        throw TidewrackError::corrupt("manifest kind");
    }

    template <typename Number>
    Number number() {
        Number value = 0;
        const auto [stop, error] = std::from_chars(at_, end_, value);
        if (error != std::errc() || (stop != end_ && *stop != '\t' && *stop != '\n'))
            throw TidewrackError::corrupt("manifest number");
        at_ = stop;
        if (at_ != end_) ++at_;
        return value;
    }

    std::string_view upToTab() {
        const auto* tab = static_cast<const char*>(std::memchr(at_, '\t', static_cast<std::size_t>(end_ - at_)));
        return take(tab == nullptr ? end_ : tab);
    }

    std::string_view line() {
        const auto* feed = static_cast<const char*>(std::memchr(at_, '\n', static_cast<std::size_t>(end_ - at_)));
        if (feed == nullptr) throw TidewrackError::corrupt("manifest line end");
        return take(feed);
    }

  private:
    std::string_view take(const char* stop) {
        const std::string_view field(at_, static_cast<std::size_t>(stop - at_));
        at_ = stop == end_ ? end_ : stop + 1;
        return field;
    }

    const char* at_;
    const char* end_;
};

std::size_t countLines(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t feed = text.find('\n'); feed != std::string_view::npos; feed = text.find('\n', feed + 1)) ++count;
    return count;
}

// Prune deletes the contents that no line's blob names, so a damaged blob must not pass for another one.
bool isBlob(std::string_view blob) {
    if (blob.empty() || blob == "ign" || blob.starts_with("big:") || blob.starts_with("err")) return true;
    constexpr std::string_view digits = "0123456789";
    const auto slash = blob.find_first_not_of(digits);
    return slash != 0 && slash < blob.size() - 1 && blob[slash] == '/' &&
           blob.find_first_not_of(digits, slash + 1) == std::string_view::npos;
}

} // namespace

std::string Manifest::escape(std::string_view path) {
    std::string result;
    result.reserve(path.size());
    for (const char c : path) {
        if (c == '\\')
            result += "\\\\";
        else if (c == '\t')
            result += "\\t";
        else if (c == '\n')
            result += "\\n";
        else
            result += c;
    }
    return result;
}

std::string Manifest::unescape(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result += text[i];
            continue;
        }
        const char next = text[++i];
        result += next == 't' ? '\t' : next == 'n' ? '\n' : next;
    }
    return result;
}

std::string Manifest::encodedText() const {
    std::string text;
    std::size_t length = 0;
    for (const Item& item : items()) length += item.path.size() + item.entry.blob.size() + 90;
    text.reserve(length);
    willFill(text.data(), text.capacity());
    for (const Item& item : items()) {
        text += kindCode(item.entry.kind);
        text += '\t';
        appendNumber(text, item.entry.mode);
        appendNumber(text, item.entry.size);
        appendNumber(text, item.entry.mtime);
        appendNumber(text, item.entry.ctime);
        appendNumber(text, item.entry.ino);
        text += item.entry.blob;
        text += '\t';
        if (item.path.find_first_of("\\\t\n") == std::string_view::npos)
            text += item.path;
        else
            text += escape(item.path);
        text += '\n';
    }
    return text;
}

Manifest Manifest::decodeText(TextBuffer buffer) {
    ManifestBuilder builder;
    const std::string_view text = builder.arena_->adopt(std::move(buffer.bytes), buffer.size);
    builder.others_.reserve(countLines(text));
    willFill(builder.others_.data(), builder.others_.capacity() * sizeof(Item));
    Parser parser(text);
    while (!parser.atEnd()) {
        Item item;
        item.entry.kind = parser.kind();
        item.entry.mode = parser.number<std::uint16_t>();
        item.entry.size = parser.number<std::int64_t>();
        item.entry.mtime = parser.number<std::int64_t>();
        item.entry.ctime = parser.number<std::int64_t>();
        item.entry.ino = parser.number<std::uint64_t>();
        item.entry.blob = parser.upToTab();
        const std::string_view path = parser.line();
        item.path = path.find('\\') == std::string_view::npos ? path : builder.arena_->add(unescape(path));
        builder.others_.push_back(item);
    }
    return builder.finish();
}

// The decompressed size is recorded nowhere, so the buffer doubles until the text leaves room in it. Memory that is
// only reserved costs nothing.
TextBuffer Manifest::decompressed(std::string_view bytes) {
    if (holdsEmptyText(bytes)) return TextBuffer({});
    const std::size_t mostRoom = bytes.size() * 4096 + 4096;
    for (std::size_t room = bytes.size() * 8 + 4096; room <= mostRoom; room *= 2) {
        std::unique_ptr<char[]> text(new char[room]);
        willFill(text.get(), room);
        const std::size_t size =
            lzfse_decode_buffer(reinterpret_cast<std::uint8_t*>(text.get()), room,
                                reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), nullptr);
        if (size == room) continue;
        if (size == 0) break;
        return {std::move(text), size};
    }
    throw TidewrackError::corrupt("a manifest that can't be decompressed");
}

void Manifest::forEachBlob(std::string_view text, const std::function<void(std::string_view)>& visit) {
    constexpr int fieldsBefore = 6;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at != end;) {
        const auto* feed = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
        if (feed == nullptr) throw TidewrackError::corrupt("manifest line end");
        if ((*at != 'f' && *at != 'l' && *at != 'd') || at[1] != '\t') throw TidewrackError::corrupt("manifest kind");
        const auto afterTab = [&](const char* from) {
            const auto* tab = static_cast<const char*>(std::memchr(from, '\t', static_cast<std::size_t>(feed - from)));
            if (tab == nullptr) throw TidewrackError::corrupt("manifest line end");
            return tab + 1;
        };
        for (int field = 0; field < fieldsBefore; ++field) at = afterTab(at);
        const std::string_view blob(at, static_cast<std::size_t>(afterTab(at) - 1 - at));
        if (!isBlob(blob)) throw TidewrackError::corrupt("manifest blob");
        visit(blob);
        at = feed + 1;
    }
}

std::string Manifest::encoded() const {
    return compressed(encodedText());
}

Manifest Manifest::decode(std::string_view bytes) {
    return decodeText(decompressed(bytes));
}

} // namespace tidewrack
