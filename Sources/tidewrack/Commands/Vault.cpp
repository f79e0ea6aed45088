// Lists what the vault holds and puts an entry back.

#include "Commands/Vault.hpp"

#include "Agents/HookHandler.hpp"
#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/VaultReports.hpp"
#include "Vault/Vault.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::commands {

namespace {

constexpr std::size_t commandLength = 200;

[[noreturn]] void usageError() {
    throw CliError("usage: tidewrack vault restore <id>");
}

std::string listing(const VaultEntry& entry, Date now, const Look& look) {
    const bool isGitState = !entry.gitState.empty();
    std::string text = entry.id + "  " + ago(entry.created, now) + "  ";
    text += isGitState ? "git state of " + look.shown(entry.gitState) : std::to_string(entry.items.size()) + " saved";
    if (const std::size_t leftOut = entry.leftOut(); leftOut > 0) text += ", " + std::to_string(leftOut) + " not saved";
    text += "\n    $ " + look.shown(oneLine(entry.command, commandLength)) + "\n";
    if (!isGitState)
        for (const VaultEntry::Item& item : entry.items) text += "    " + look.shown(item.original) + "\n";
    for (std::size_t i = 0; i < entry.skipped.size(); ++i) {
        if (!entry.isLeftOut(i)) continue;
        const auto reason = entry.reason(i);
        text +=
            "    not saved: " + look.shown(entry.skipped[i]) + (reason ? " (" + reasonText(*reason) + ")" : "") + "\n";
    }
    return text;
}

nlohmann::json asJson(const VaultRestored& result) {
    nlohmann::json items = nlohmann::json::array();
    for (const RestoredItem& item : result.items) {
        nlohmann::json object = {{"path", item.original},
                                 {"restored", item.isBack()},
                                 {"asSaved", item.wasThere},
                                 {"copy", item.copy},
                                 {"missing", missingTexts(item)}};
        if (item.aside) object["aside"] = *item.aside;
        if (!item.isBack()) object["error"] = failureText(item);
        items.push_back(std::move(object));
    }
    nlohmann::json object = {{"version", 1}, {"dryRun", result.isDryRun}, {"items", std::move(items)}};
    if (result.gitState) object["folder"] = result.gitState->folder;
    if (result.gitState) object["commands"] = gitStateCommands(result);
    return object;
}

} // namespace

int vault(Invocation& call) {
    if (call.args.word(0)) usageError();
    const auto entries = Vault(Store::fromEnvironment(call.around.environment)).entries();
    if (call.json()) {
        nlohmann::json list = nlohmann::json::array();
        for (const VaultEntry& entry : entries) list.push_back(toJson(entry));
        call.printJson(list);
        return 0;
    }
    if (entries.empty()) call.print("The vault is empty.\n");
    for (const VaultEntry& entry : entries) call.print(listing(entry, now(), call.look()));
    return 0;
}

int vaultRestore(Invocation& call) {
    const auto id = call.args.word(0);
    if (!id) usageError();
    const auto acting = call.args.has("--dry-run") ? Vault::Acting::dryRun : Vault::Acting::forReal;
    const VaultRestored result = Vault(Store::fromEnvironment(call.around.environment)).restore(*id, acting);
    if (call.json()) {
        call.printJson(asJson(result));
        for (const std::string& path : result.givenBack) call.warn({givenBackText(path)});
        return result.isWhole() ? 0 : 1;
    }
    for (const std::string& message : messagesOf(result)) call.print(call.shown(message) + "\n");
    return result.isWhole() ? 0 : 1;
}

void clearAfterVault(Invocation& call) {
    if (call.args.has("--dry-run")) return;
    for (const std::string& path : Vault(call.store()).clearCutShort()) call.warn({givenBackText(path)});
}

} // namespace tidewrack::commands
