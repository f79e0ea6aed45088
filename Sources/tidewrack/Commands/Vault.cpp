#include "Commands/Vault.hpp"

#include "Agents/HookHandler.hpp"
#include "CommandLine.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

constexpr std::size_t commandLength = 200;

std::string listing(const VaultEntry& entry, Date now) {
    std::string text = entry.id + "  " + ago(entry.created, now) + "  " + std::to_string(entry.items.size()) + " saved";
    if (!entry.skipped.empty()) text += ", " + std::to_string(entry.skipped.size()) + " too big";
    text += "\n    $ " + oneLine(entry.command, commandLength) + "\n";
    for (const VaultEntry::Item& item : entry.items) text += "    " + item.original + "\n";
    return text;
}

} // namespace

std::string runVault(const std::vector<std::string>& words, const Vault& vault, Date now) {
    std::string text;
    if (words.empty()) {
        for (const VaultEntry& entry : vault.entries()) text += listing(entry, now);
        return text.empty() ? "The vault is empty.\n" : text;
    }
    if (words.size() < 2 || words[0] != "restore") throw CliError("usage: tidewrack vault restore <id>");
    for (const std::string& message : vault.restore(words[1])) text += repairedUtf8(message) + "\n";
    return text;
}

std::string vaultJson(const Vault& vault) {
    nlohmann::json list = nlohmann::json::array();
    for (const VaultEntry& entry : vault.entries()) list.push_back(toJson(entry));
    return prettyJson(list, Slashes::escaped) + "\n";
}

} // namespace tidewrack
