// A manifest's bytes, and its text before compression: what can be read can be written and read again.

#include "Fuzz/Fuzz.hpp"

#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"

#include <algorithm>
#include <optional>

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
    if (const auto manifest = decodedBy([&] { return Manifest::decodeText(TextBuffer(input)); }))
        checkListing(*manifest);
    if (const auto manifest = decodedBy([&] { return Manifest::decode(input); })) checkListing(*manifest);
    require(Manifest::unescape(Manifest::escape(input)) == input, "every path comes back from its escaped form");
}
