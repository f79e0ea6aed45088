// What the owner wants gone from the history.

#include "Engine/Forget.hpp"

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Invocation.hpp"
#include "Reports/CareReports.hpp"
#include "Reports/JsonReports.hpp"
#include "SnapshotWord.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

namespace {

// Unlike elsewhere a minute means its beginning: nothing goes that may be meant to stay.
Date timeBefore(const std::string& text) {
    const auto word = snapshotWord(text, now());
    if (!word || word->kind != SnapshotWord::Kind::time)
        throw CliError("'" + text + "' is no time. Times are 30m, 2h, 3d, 1w, yesterday, 14:00 and 2026-11-19T13:40");
    const bool isMinute = std::count(text.begin(), text.end(), ':') == 1;
    return word->time - std::chrono::seconds(isMinute ? 59 : 0);
}

ForgetChoice choiceOf(const Invocation& call) {
    ForgetChoice choice;
    if (const auto text = call.args.value("--before")) choice.before = timeBefore(*text);
    for (std::size_t i = 0; i < call.args.positional.size(); ++i)
        choice.seqs.push_back(call.args.number(i, "snapshot number"));
    if (choice.before.has_value() == !choice.seqs.empty())
        throw CliError("forget takes the numbers of snapshots, or --before and a time");
    return choice;
}

std::string whatGoes(const ForgetResult& result) {
    return countText(static_cast<std::int64_t>(result.removed.size()), "snapshot") +
           (result.removed.empty() ? "" : " (" + numbersText(result.removed) + ")") + " and " +
           countText(result.contents, "stored file") + "; " +
           countText(static_cast<std::int64_t>(result.remaining), "snapshot") +
           (result.remaining == 1 ? " stays.\n" : " stay.\n");
}

std::string notesOn(const ForgetResult& result) {
    std::string text;
    const auto note = [&](const std::vector<std::int64_t>& seqs, const char* one, const char* more) {
        if (!seqs.empty()) text += numbersText(seqs) + (seqs.size() == 1 ? one : more) + "\n";
    };
    note(result.pinned, " is pinned and goes as well.", " are pinned and go as well.");
    note(result.left, " stays because it is pinned.", " stay because they are pinned.");
    note(result.resumed, " was to go already: an earlier forget was cut short.",
         " were to go already: an earlier forget was cut short.");
    return text;
}

nlohmann::json forgetJson(const ForgetResult& result, bool dryRun) {
    return {{"version", 1},
            {"dryRun", dryRun},
            {"removedSnapshots", result.removed},
            {"removedBlobs", result.contents},
            {"pinned", result.pinned},
            {"left", result.left},
            {"resumed", result.resumed},
            {"remaining", result.remaining}};
}

// Asks until what is answered for is what is there.
bool isWanted(Invocation& call, const Project& project, const ForgetChoice& choice) {
    ForgetResult shown;
    for (bool first = true;; first = false) {
        ForgetResult planned = forget(call.engine(), project, choice, Engine::Acting::dryRun);
        if (!first && planned == shown) return true;
        if (planned.removed.empty()) return true;
        call.print((first ? "" : "Meanwhile that became something else.\n") + ("This removes " + whatGoes(planned)) +
                   notesOn(planned));
        if (!saysYes(call, "Nothing brings them back. Do it? (yes/no) ")) return false;
        shown = std::move(planned);
    }
}

} // namespace

int forget(Invocation& call) {
    const ForgetChoice choice = choiceOf(call);
    const Project project = call.project();
    const bool dryRun = call.args.has("--dry-run");
    if (!dryRun && !call.args.has("--yes")) {
        if (!canAsk(call))
            throw CliError("forget asks first, and there is no terminal to ask on; --dry-run tells what would go, and "
                           "--yes removes it");
        if (!isWanted(call, project, choice)) {
            call.print("Nothing was changed.\n");
            return 0;
        }
    }
    const ForgetResult result =
        tidewrack::forget(call.engine(), project, choice, dryRun ? Engine::Acting::dryRun : Engine::Acting::forReal);
    if (call.json())
        call.printJson(forgetJson(result, dryRun));
    else
        call.print((dryRun ? "Would remove " : "Removed ") + whatGoes(result) + notesOn(result));
    return 0;
}

} // namespace tidewrack::commands
