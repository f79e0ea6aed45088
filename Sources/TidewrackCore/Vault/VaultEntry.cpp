#include "Vault/VaultEntry.hpp"

#include "Support/JsonFields.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <charconv>

namespace tidewrack {

namespace {

// JSON holds text only; a path that is none is kept a second time, byte for byte.
constexpr const char* bytesKey = "originalHex";

// None when it is not hexadecimal.
std::optional<std::string> bytesOf(std::string_view hex) {
    std::string bytes;
    for (std::size_t at = 0; at < hex.size(); at += 2) {
        const std::string_view pair = hex.substr(at, 2);
        unsigned char byte = 0;
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (pair.size() != 2 || error != std::errc() || end != pair.data() + 2) return std::nullopt;
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

VaultEntry::Item decodeItem(const JsonFields& fields) {
    VaultEntry::Item item{fields.text("original"), fields.text("stored"), fields.text("kind")};
    if (const auto hex = fields.optionalText(bytesKey)) item.original = bytesOf(*hex).value_or(item.original);
    return item;
}

} // namespace

nlohmann::json toJson(const VaultEntry& entry) {
    nlohmann::json items = nlohmann::json::array();
    for (const VaultEntry::Item& item : entry.items) {
        nlohmann::json object = {{"original", item.original}, {"stored", item.stored}, {"kind", item.kind}};
        if (!isUtf8(item.original)) object[bytesKey] = hexText(item.original);
        items.push_back(std::move(object));
    }
    nlohmann::json object = {{"id", entry.id},   {"created", isoText(entry.created)}, {"command", entry.command},
                             {"cwd", entry.cwd}, {"items", std::move(items)},         {"skipped", entry.skipped}};
    if (entry.agent) object["agent"] = *entry.agent;
    return object;
}

VaultEntry decodeVaultEntry(std::string_view text, const std::string& source) {
    const JsonFields fields(text, source);
    VaultEntry entry;
    entry.id = fields.text("id");
    entry.created = fields.date("created");
    entry.command = fields.text("command");
    entry.agent = fields.optionalText("agent");
    entry.cwd = fields.text("cwd");
    for (const JsonFields& item : fields.objects("items")) entry.items.push_back(decodeItem(item));
    entry.skipped = fields.texts("skipped");
    return entry;
}

} // namespace tidewrack
