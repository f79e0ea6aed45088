// Taking back what agents did.

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Commands/UndoElsewhere.hpp"
#include "Commands/UnknownPaths.hpp"
#include "Commands/Vault.hpp"
#include "Invocation.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/TurnReports.hpp"
#include "Reports/VaultReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Timeline/TurnUndo.hpp"
#include "Vault/Vault.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace tidewrack::commands {

namespace {

constexpr int leftAlone = 3; // the exit status when some of what was asked for was not done

constexpr const char* nothingToUndo =
    "There's nothing to undo: no turn changed anything here that wasn't taken back already.";

std::int64_t numberOf(const std::string& text, const char* option) {
    const auto number = parseSeq(text.starts_with('#') ? text.substr(1) : text);
    if (!number)
        throw CliError(std::string(option) + " needs a snapshot number, got " + text +
                       ". `tidewrack timeline` lists the turns; --last is the newest.");
    return *number;
}

TurnUndo::Options optionsFrom(Invocation& call) {
    TurnUndo::Options options;
    if (call.args.has("--force")) options.later = UndoOptions::Later::overwritten;
    if (call.args.has("--keep-later")) options.later = UndoOptions::Later::kept;
    if (call.args.has("--force") && call.args.has("--keep-later"))
        throw CliError("--force and --keep-later contradict each other");
    options.dryRun = call.args.has("--dry-run");
    options.vault = call.args.has("--vault");
    return options;
}

// "1,3", each with its digest where that must hold: "1:d6e2a49b03c7f518"
LineDiff::ChosenHunks hunksOf(const std::string& list) {
    LineDiff::ChosenHunks hunks;
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t end = std::min(list.find(',', at), list.size());
        const std::string_view word = std::string_view(list).substr(at, end - at);
        const std::size_t colon = std::min(word.find(':'), word.size());
        const auto number = parseSeq(word.substr(0, colon));
        if (!number || *number < 1 || colon + 1 == word.size())
            throw CliError("--hunk needs numbers, as in --hunk 1,3, got " + list);
        const auto known = hunks.emplace(*number, word.substr(std::min(colon + 1, word.size()))).second;
        if (!known) throw CliError("--hunk names hunk " + std::to_string(*number) + " twice");
        at = end + 1;
    }
    return hunks;
}

std::string totals(const UndoResult& result) {
    using Kind = UndoAction::Kind;
    struct Total {
        Kind kind;
        const char* words;
    };
    std::string text;
    for (const Total& total : {Total{Kind::putBack, "put back"}, Total{Kind::remove, "removed"},
                               Total{Kind::overwrite, "overwritten"}, Total{Kind::merge, "merged"}}) {
        const auto count = std::count_if(result.actions.begin(), result.actions.end(), [&](const UndoneAction& each) {
            return each.action.kind == total.kind && !each.action.folder;
        });
        if (count == 0) continue;
        text += text.empty() ? filesText(static_cast<std::size_t>(count)) + " " : ", " + std::to_string(count) + " ";
        text += total.words;
    }
    return text.empty() ? text : text + ".\n";
}

// What was left alone, and which option helps there.
std::string leftText(const UndoResult& result, UndoOptions::Later later) {
    std::size_t left = 0;
    std::size_t forcible = 0;
    std::size_t passable = 0;
    for (const UndoneAction& each : result.actions) {
        if (!each.action.isLeft()) continue;
        ++left;
        forcible += each.action.forcible ? 1U : 0U;
        passable += each.action.isForOthers() ? 1U : 0U;
    }
    if (left == 0) return "";
    std::string text = std::to_string(left) + (left == 1 ? " path is" : " paths are") + " left alone";
    if (later != UndoOptions::Later::merged || forcible + passable == 0) return text + ".\n";
    if (forcible == left && passable == left)
        return text + "; --force puts such paths back whole, --keep-later passes over them.\n";
    if (forcible > 0) text += "; --force puts " + std::to_string(forcible) + " back whole";
    if (passable > 0) text += (forcible > 0 ? ", " : "; ") + ("--keep-later passes over " + std::to_string(passable));
    return text + ".\n";
}

std::string pathsText(const std::vector<std::string>& paths, const Look& look, const char* at = " at ") {
    std::string text;
    for (const std::string& path : paths) text += (text.empty() ? at : ", ") + look.shown(repairedUtf8(path));
    return text;
}

std::string summary(const Done& done, const TurnUndo::Options& options, const Look& look) {
    if (!done.failure.empty()) return look.shown(done.failure) + "\n";
    const std::string what = choiceText(done.choice, now(), look);
    if (done.result.actions.empty()) {
        const std::string of = (done.isOutside ? " in projects of " : " of ") + what;
        if (options.paths.empty()) return "Nothing is left to take back" + of + ".\n";
        return "Nothing" + of + " is left to take back" + pathsText(options.paths, look) + ".\n";
    }
    std::string text = !done.result.acts() ? "Nothing of " + what + " is taken back:\n"
                       : options.dryRun    ? "Would take back " + what + ":\n"
                                           : "Took back " + what + ":\n";
    return text + undoText(done.result, look) + totals(done.result) + leftText(done.result, options.later);
}

std::string passedText(const Done& done, const Look& look) {
    std::string text;
    for (const TimelineRow& row : done.choice.passed)
        text += "Passed over " + choiceText({done.choice.by, {row}}, now(), look) +
                ": nothing is left of it that could be taken back.\n";
    return text;
}

// What was saved outside of projects before the turns' commands and is not there as it was, put back where that was
// asked for.
struct FromVault {
    std::string id;
    std::string command;
    std::vector<std::string> messages;
    bool failed = false;
};

// One line how to take it back.
void takeBackHint(Invocation& call, const Done& done, bool elsewhere) {
    if (!done.result.restored || !done.result.acts()) return;
    std::string words = "redo";
    if (done.choice.by == "redo") words = "undo " + std::to_string(done.result.restored->safety.seq);
    if (elsewhere) words += " --project " + shellWord(done.project.root);
    call.print("Take this back with: tidewrack " + words + (done.isOutside ? " (what came from the vault stays)" : "") +
               "\n");
}

// Those that `undo` names or puts back: with paths the ones that hold nothing else.
std::vector<VaultEntry> entriesOf(Invocation& call, const std::vector<VaultEntry>& all, const Project& project,
                                  const Timeline& timeline, const UndoChoice& choice,
                                  const TurnUndo::Options& options) {
    std::vector<TimelineRow> rows = choice.rows;
    addVaultEntries(all, project, timeline, rows);
    std::vector<VaultEntry> entries = entriesToPutBack(call.store(), all, rows);
    if (options.paths.empty()) return entries;
    const auto isAskedFor = [&](const VaultEntry::Item& item) {
        return std::any_of(options.paths.begin(), options.paths.end(), [&](const std::string& path) {
            return isAtOrBelow(Store::canonicalPlace(item.original), joined(project.root, path));
        });
    };
    std::erase_if(entries, [&](const VaultEntry& entry) {
        return !std::all_of(entry.items.begin(), entry.items.end(), isAskedFor);
    });
    return entries;
}

std::vector<FromVault> fromVault(Invocation& call, const Timeline& timeline, const Done& done,
                                 const TurnUndo::Options& options) {
    std::vector<FromVault> list;
    if (done.choice.by != "undo") return list;
    const Vault vault(call.store());
    std::vector<VaultEntry> entries;
    try {
        entries = vault.entries();
    } catch (const TidewrackError& error) { // then none of them is known
        if (options.vault) list.push_back({"", "", {error.what()}, true});
        return list;
    }
    for (const VaultEntry& entry : entriesOf(call, entries, done.project, timeline, done.choice, options))
        list.push_back({entry.id, entry.command, {}, false});
    if (!options.vault) return list;
    for (FromVault& each : list) {
        try {
            const auto acting = options.dryRun ? Vault::Acting::dryRun : Vault::Acting::forReal;
            const VaultRestored restored = vault.restore(each.id, acting);
            each.messages = messagesOf(restored);
            each.failed = restored.count() < restored.items.size();
        } catch (const TidewrackError& error) { // what is in the project is back all the same
            each.messages.emplace_back(error.what());
            each.failed = true;
        }
    }
    return list;
}

std::string vaultText(Invocation& call, const std::vector<FromVault>& list) {
    std::string text;
    for (const FromVault& each : list) {
        for (const std::string& message : each.messages) text += call.shown(repairedUtf8(message)) + "\n";
        if (!call.args.has("--vault"))
            text += "Outside of projects stays as it is; what was saved there first: vault entry " + each.id + " (" +
                    call.shown(repairedUtf8(each.command)) + "). To put it back, run: tidewrack vault restore " +
                    each.id + "\n";
    }
    return text;
}

nlohmann::json vaultJson(const std::vector<FromVault>& list) {
    nlohmann::json array = nlohmann::json::array();
    for (const FromVault& each : list) {
        nlohmann::json messages = nlohmann::json::array();
        for (const std::string& message : each.messages) messages.push_back(repairedUtf8(message));
        array.push_back({{"id", each.id}, {"messages", messages}});
    }
    return array;
}

int report(Invocation& call, const TurnUndo& undo, std::vector<Done> all, const TurnUndo::Options& options) {
    int status = 0;
    const std::vector<FromVault> vault = fromVault(call, undo.timeline(), all.front(), options);
    all.front().isOutside = options.vault && !vault.empty();
    nlohmann::json list = nlohmann::json::array();
    std::string text = passedText(all.front(), call.look());
    for (const Done& done : all) {
        if ((!done.failure.empty() && !done.gone) || !done.result.isComplete()) status = leftAlone;
        list.push_back(undoJson(done.project.root, done.choice, done.result));
        if (!done.failure.empty()) list.back()["warnings"].push_back(repairedUtf8(done.failure));
        if (&done != &all.front()) text += "In " + call.shown(done.project.root) + ": ";
        text += summary(done, options, call.look());
    }
    for (const FromVault& each : vault) status = each.failed ? leftAlone : status;
    if (call.json()) {
        call.printJson({{"version", 1},
                        {"dryRun", options.dryRun},
                        {"projects", list},
                        {"passedOver", spansJson(all.front().choice.passed)},
                        {"vault", vaultJson(vault)}});
    } else {
        call.print(text + vaultText(call, vault));
        for (const Done& done : all) {
            if (done.result.restored) call.print(warningsText(*done.result.restored, call.look()));
            call.warn(done.result.warnings);
        }
        if (options.dryRun) call.print("Nothing was changed.\n");
        for (const Done& done : all) takeBackHint(call, done, &done != &all.front());
    }
    return status;
}

int nothing(Invocation& call, const UndoChoice& choice, const std::string& sentence, bool dryRun) {
    if (call.json())
        call.printJson({{"version", 1},
                        {"dryRun", dryRun},
                        {"projects", nlohmann::json::array()},
                        {"passedOver", spansJson(choice.passed)},
                        {"vault", nlohmann::json::array()}});
    else
        call.print(passedText({{}, choice, {}}, call.look()) + sentence + "\n");
    return 0;
}

// Carried out, or planned, in this project and where the same turn worked as well. This one comes last: whoever is cut
// short finds the turn still there, and the same words finish it.
std::vector<Done> done(Invocation& call, const TurnUndo& undo, Done first, const TurnUndo::Options& options,
                       bool everywhere) {
    std::vector<Done> all;
    if (everywhere) all = inOtherProjects(call, first, options);
    try {
        first.result = undo.run(first.choice, options);
    } catch (const TidewrackError& error) {
        if (all.empty()) throw;
        first.failure = error.what(); // what was done elsewhere is told
    }
    all.insert(all.begin(), std::move(first));
    return all;
}

std::string turnHint(const TimelineRow& row) {
    return "The turn before it: tidewrack undo --turn " + std::to_string(row.first);
}

// The way on from a newest turn of which nothing can be taken back as it is.
std::string turnBefore(const TurnUndo& undo, const Done& first) {
    if (first.result.acts() || first.result.isComplete()) return "";
    const TimelineRow* before = undo.turnBefore(first.choice.rows.front());
    return before == nullptr ? "" : turnHint(*before) + "\n";
}

// `done`, for the newest turn. Where it can't be read the error tells the way on.
std::vector<Done> newestDone(Invocation& call, const TurnUndo& undo, Done first, const TurnUndo::Options& options,
                             bool everywhere) {
    const TimelineRow row = first.choice.rows.front();
    try {
        return done(call, undo, std::move(first), options, everywhere);
    } catch (const TidewrackError& error) {
        if (error.kind() != TidewrackError::Kind::corrupt) throw;
        const TimelineRow* before = undo.turnBefore(row);
        throw CliError(error.what() + (before == nullptr ? "" : ". " + turnHint(*before)));
    }
}

UndoChoice chosen(Invocation& call, const TurnUndo& undo, const TurnUndo::Options& options) {
    if (const auto turn = call.args.value("--turn")) return undo.turn(numberOf(*turn, "--turn"));
    if (const auto session = call.args.value("--session")) return undo.session(*session);
    if (const auto of = call.args.value("--session-of")) {
        const UndoChoice turn = undo.turn(numberOf(*of, "--session-of"));
        const auto& session = turn.rows.front().session;
        if (!session) throw TidewrackError::refused("That turn has no session.");
        return undo.session(*session);
    }
    return undo.last(options);
}

// Two numbers with dots in between; "../file" is a path.
bool isRange(const std::string& word) {
    const auto begins = [&](std::size_t at) {
        return at < word.size() && (word[at] == '#' || (word[at] >= '0' && word[at] <= '9'));
    };
    const std::size_t dots = word.find("..");
    return dots != std::string::npos && begins(0) && begins(dots + 2);
}

UndoChoice rangeOf(const TurnUndo& undo, const std::string& range) {
    const std::size_t dots = range.find("..");
    const std::int64_t from = numberOf(range.substr(0, dots), "A..B");
    const std::int64_t to = numberOf(range.substr(dots + 2), "A..B");
    if (to < from) throw CliError("A..B goes from the older snapshot to the newer one, got " + range);
    return undo.range(from, to);
}

} // namespace

namespace {

// `undo --dry-run` shows what `undo` without a word would ask about.
bool isOfNewestTurn(const Args& args) {
    return args.has("--last") || (args.positional.empty() && args.has("--dry-run"));
}

} // namespace

bool isUndoOfTurns(const Args& args) {
    for (const char* option : {"--turn", "--session", "--session-of"})
        if (args.value(option)) return true;
    return isOfNewestTurn(args) || isRange(args.word(0).value_or(""));
}

namespace {

// A number beside --last means another turn, hardly a path of that name.
void refuseNumber(const Args& args, int ways) {
    const std::string word = args.word(0).value_or("");
    if (ways != 1 || args.plainFrom == 0 || (!snapshotNumber(word) && !isRange(word))) return;
    throw CliError("undo takes either " + word +
                   " or one of --last, --turn, --session and --session-of. A path of that "
                   "name goes behind --, as in: tidewrack undo --last -- " +
                   word);
}

} // namespace

int undoTurns(Invocation& call) {
    int ways = 0;
    for (const char* option : {"--turn", "--session", "--session-of"}) ways += call.args.value(option) ? 1 : 0;
    const bool newest = call.args.has("--last") || (ways == 0 && isOfNewestTurn(call.args));
    if (newest) ++ways;
    if (ways > 1) throw CliError("undo takes one of --last, --turn, --session and --session-of");
    for (const char* option : {"--here", "--vault"}) // of two snapshots nothing tells what else was done
        if (ways == 0 && call.args.has(option))
            throw CliError(std::string(option) + " goes with --last, --turn, --session or --session-of");
    refuseNumber(call.args, ways);
    const Project project = call.project();
    clearAfterVault(call);
    const TurnUndo undo(call.engine(), project);
    TurnUndo::Options options = optionsFrom(call);
    options.paths = call.relativePaths(project, ways == 0 ? 1 : 0);
    if (const auto hunks = call.args.value("--hunk")) {
        if (options.paths.size() != 1) throw CliError("--hunk goes with one path, whose hunks it counts");
        if (options.later != UndoOptions::Later::merged)
            throw CliError("--hunk merges: it goes without --force and --keep-later");
        options.hunks = hunksOf(*hunks);
    }
    options.here = call.args.has("--here") || !options.paths.empty();
    const UndoChoice choice = ways == 0 ? rangeOf(undo, *call.args.word(0)) : chosen(call, undo, options);
    call.warnOfUnread(undo.unread()); // where one of them was asked for, that was refused
    const bool last = newest && !call.json();
    if (last) call.print(newerElsewhere(call, project, undo, choice));
    if (choice.rows.empty()) {
        if (undo.unread().empty()) refuseNeverThere(call, project, undo.records(), options.paths, 0);
        return nothing(call, choice, nothingToUndo, options.dryRun);
    }
    refuseGone(project, std::to_string(choice.rows.back().first));
    const bool everywhere = ways > 0 && !options.here;
    if (options.vault && !options.paths.empty() &&
        entriesOf(call, readVaultEntries(call.store()), project, undo.timeline(), choice, options).empty())
        throw CliError("nothing that the vault has of it lies" +
                       pathsText(options.paths, call.look(), " at or below ") + "; tidewrack vault lists what it has");
    const auto doing = newest ? newestDone : done;
    const std::vector<Done> all = doing(call, undo, {project, choice, {}}, options, everywhere);
    const int status = report(call, undo, all, options);
    if (last) call.print(turnBefore(undo, all.front()));
    return status;
}

bool canAsk(Invocation& call) {
    return !call.json() && call.around.out.isTerminal() && ::isatty(call.around.input) == 1;
}

bool saysYes(Invocation& call, const char* question) {
    call.print(question);
    call.around.out.flush();
    std::string answer;
    for (char letter = 0; ::read(call.around.input, &letter, 1) == 1 && letter != '\n';) answer += letter;
    return isYes(answer);
}

int undoAsking(Invocation& call) {
    const Project project = call.project();
    TurnUndo::Options options;
    std::string shown;
    for (;;) { // until what is answered for is what is there
        const TurnUndo undo(call.engine(), project);
        if (shown.empty()) call.warnOfUnread(undo.unread());
        options.dryRun = true;
        const UndoChoice choice = undo.last(options);
        std::string text = newerElsewhere(call, project, undo, choice);
        if (choice.rows.empty()) {
            call.print(text);
            return nothing(call, choice, nothingToUndo, true);
        }
        refuseGone(project, std::to_string(choice.rows.back().first));
        const std::vector<Done> planned = newestDone(call, undo, {project, choice, {}}, options, true);
        text += passedText(planned.front(), call.look());
        for (const Done& each : planned)
            text += (each.project.id == project.id ? "" : "In " + call.shown(each.project.root) + ": ") +
                    summary(each, options, call.look());
        if (text == shown) {
            options.dryRun = false;
            return report(call, undo, done(call, undo, {project, choice, {}}, options, true), options);
        }
        call.print((shown.empty() ? "" : "More was changed meanwhile.\n") + text);
        if (std::none_of(planned.begin(), planned.end(), [](const Done& each) { return each.result.acts(); })) {
            call.print(turnBefore(undo, planned.front()));
            return leftAlone;
        }
        if (!saysYes(call, "Do it? (yes/no) ")) {
            call.print("Nothing was changed.\n");
            return 0;
        }
        clearAfterVault(call); // where that changes the plan it is asked about again
        shown = std::move(text);
    }
}

int redo(Invocation& call) {
    if (!call.args.positional.empty()) throw CliError("redo takes no words; it takes back the newest undo or restore");
    const Project project = call.project();
    clearAfterVault(call);
    const TurnUndo undo(call.engine(), project);
    call.warnOfUnread(undo.unread());
    refuseGone(project, "last");
    const TurnUndo::Options options = optionsFrom(call);
    const UndoChoice choice = undo.redo();
    if (choice.rows.empty())
        return nothing(call, choice, "There's nothing to redo: no undo or restore here that wasn't redone already.",
                       options.dryRun);
    return report(call, undo, {{project, choice, undo.run(choice, options)}}, options);
}

} // namespace tidewrack::commands
