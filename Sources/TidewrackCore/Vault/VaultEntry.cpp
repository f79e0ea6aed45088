#include "Vault/VaultEntry.hpp"

#include "Support/JsonFields.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <tuple>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::pair<NotSaved, const char*> reasonNames[] = {
    {NotSaved::notThere, "notThere"}, {NotSaved::inStore, "inStore"},
    {NotSaved::special, "special"},   {NotSaved::tooManyFiles, "tooManyFiles"},
    {NotSaved::tooLarge, "tooLarge"}, {NotSaved::noRoom, "noRoom"},
    {NotSaved::noTime, "noTime"},     {NotSaved::unreadable, "unreadable"}};

NotSaved reasonOf(const std::string& name) {
    for (const auto& [reason, known] : reasonNames)
        if (name == known) return reason;
    return NotSaved::unreadable; // of a later version
}

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

// JSON holds text only; a path that is none is kept a second time, byte for byte.
std::string bytesKey(const char* key) {
    return std::string(key) + "Hex";
}

void putPath(nlohmann::json& object, const char* key, const std::string& path) {
    object[key] = path;
    if (!isUtf8(path)) object[bytesKey(key)] = hexText(path);
}

std::string path(const JsonFields& fields, const char* key, std::string text) {
    const auto hex = fields.optionalText(bytesKey(key).c_str());
    return hex ? bytesOf(*hex).value_or(std::move(text)) : text;
}

VaultEntry::Item decodeItem(const JsonFields& fields) {
    return {path(fields, "original", fields.text("original")), fields.text("stored"), fields.text("kind"),
            path(fields, "parent", fields.optionalText("parent").value_or(""))};
}

} // namespace

const char* rawValue(NotSaved reason) {
    for (const auto& [known, name] : reasonNames)
        if (known == reason) return name;
    return "";
}

std::optional<NotSaved> VaultEntry::reason(std::size_t index) const {
    return index < reasons.size() ? std::optional(reasons[index]) : std::nullopt;
}

bool VaultEntry::isLeftOut(std::size_t index) const {
    const auto why = reason(index);
    return why != NotSaved::notThere && why != NotSaved::special;
}

std::size_t VaultEntry::leftOut() const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < skipped.size(); ++i)
        if (isLeftOut(i)) ++count;
    return count;
}

bool VaultEntry::isOlderThan(const VaultEntry& other) const {
    return std::tie(created, nanos, id) < std::tie(other.created, other.nanos, other.id);
}

nlohmann::json toJson(const VaultEntry& entry) {
    nlohmann::json items = nlohmann::json::array();
    for (const VaultEntry::Item& item : entry.items) {
        nlohmann::json object = {{"stored", item.stored}, {"kind", item.kind}};
        putPath(object, "original", item.original);
        if (!item.parent.empty()) putPath(object, "parent", item.parent);
        items.push_back(std::move(object));
    }
    nlohmann::json object = {{"id", entry.id},   {"created", isoText(entry.created)}, {"command", entry.command},
                             {"cwd", entry.cwd}, {"items", std::move(items)},         {"skipped", entry.skipped}};
    if (entry.nanos != 0) object["nanos"] = entry.nanos;
    if (entry.agent) object["agent"] = *entry.agent;
    if (entry.session) object["session"] = *entry.session;
    if (entry.turn) object["turn"] = *entry.turn;
    if (!entry.gitState.empty()) putPath(object, "gitState", entry.gitState);
    for (const NotSaved reason : entry.reasons) object["reasons"].push_back(rawValue(reason));
    return object;
}

VaultEntry decodeVaultEntry(std::string_view text, const std::string& source) {
    const JsonFields fields(text, source);
    VaultEntry entry;
    entry.id = fields.text("id");
    entry.created = fields.date("created");
    entry.nanos = fields.optionalInteger("nanos").value_or(0);
    entry.command = fields.text("command");
    entry.agent = fields.optionalText("agent");
    entry.session = fields.optionalText("session");
    entry.turn = fields.optionalText("turn");
    entry.cwd = fields.text("cwd");
    entry.gitState = path(fields, "gitState", fields.optionalText("gitState").value_or(""));
    for (const JsonFields& item : fields.objects("items")) entry.items.push_back(decodeItem(item));
    entry.skipped = fields.texts("skipped");
    for (const std::string& name : fields.optionalTexts("reasons").value_or(std::vector<std::string>()))
        entry.reasons.push_back(reasonOf(name));
    return entry;
}

} // namespace tidewrack
