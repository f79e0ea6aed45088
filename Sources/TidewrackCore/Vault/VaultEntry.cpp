#include "Vault/VaultEntry.hpp"

#include "Support/JsonFields.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

nlohmann::json toJson(const VaultEntry& entry) {
    nlohmann::json items = nlohmann::json::array();
    for (const VaultEntry::Item& item : entry.items)
        items.push_back({{"original", item.original}, {"stored", item.stored}, {"kind", item.kind}});
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
    for (const JsonFields& item : fields.objects("items"))
        entry.items.push_back({item.text("original"), item.text("stored"), item.text("kind")});
    entry.skipped = fields.texts("skipped");
    return entry;
}

} // namespace tidewrack
