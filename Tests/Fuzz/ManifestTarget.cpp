// A manifest's bytes, and its text before compression: what can be read can be written and read again.

#include "Fuzz/Fuzz.hpp"

#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string>

using namespace tidewrack;
using fuzz::require;

namespace {

template <typename Decode>
std::optional<Manifest> decodedBy(Decode decode) {
    try {
        return decode();
    } catch (const TidewrackError& error) {
        require(error.kind() == TidewrackError::Kind::corrupt, "what cannot be read is corrupt");
        return std::nullopt;
    }
}

// What a prune goes by must name whatever the listing names, or be refused.
void checkBlobs(std::string_view text) {
    std::multiset<std::string, std::less<>> blobs;
    const bool read = decodedBy([&] {
                          Manifest::forEachBlob(text, [&](std::string_view blob) { blobs.emplace(blob); });
                          return Manifest();
                      }).has_value();
    if (!read) return;
    if (const auto manifest = decodedBy([&] { return Manifest::decodeText(TextBuffer(text)); }))
        for (const Manifest::Item& item : manifest->items())
            require(blobs.contains(item.entry.blob), "no content that is listed is passed over");
}

void checkListing(const Manifest& manifest) {
    const auto& items = manifest.items();
    require(std::adjacent_find(items.begin(), items.end(),
                               [](const auto& a, const auto& b) { return a.path >= b.path; }) == items.end(),
            "the paths ascend, each once");
    for (const Manifest::Item& item : items)
        require(manifest.find(item.path) == &item.entry, "every path is found where it is listed");
    const std::string text = manifest.encodedText();
    const Manifest again = Manifest::decodeText(TextBuffer(text));
    require(again.items() == items, "reading what was written gives the same listing");
    require(again.encodedText() == text, "the same listing is written as the same text");
    require(Manifest::decode(manifest.encoded()).items() == items, "compression changes nothing");
}

} // namespace

FUZZ_TARGET(manifest) {
    checkBlobs(input);
    if (const auto manifest = decodedBy([&] { return Manifest::decodeText(TextBuffer(input)); }))
        checkListing(*manifest);
    if (const auto manifest = decodedBy([&] { return Manifest::decode(input); })) checkListing(*manifest);
    require(Manifest::unescape(Manifest::escape(input)) == input, "every path comes back from its escaped form");
}
