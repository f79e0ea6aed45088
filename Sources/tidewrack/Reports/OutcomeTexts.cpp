#include "Reports/OutcomeTexts.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Platform/Process.hpp"

namespace tidewrack {

namespace {

using Action = PathOutcome::Action;
using Reason = Obstacle::Reason;

std::string numberText(std::int64_t seq) {
    return "#" + std::to_string(seq);
}

std::string notKeptText(const std::string& blob) {
    Entry entry;
    entry.blob = blob;
    return entry.notKeptReason().value_or("");
}

std::string standingText(const std::string& what) {
    return what == "other" ? "a pipe, socket or device" : "a " + what;
}

} // namespace

std::string reasonText(const Obstacle& obstacle, std::int64_t target) {
    const std::string& parent = obstacle.parent;
    switch (obstacle.reason) {
    case Reason::none: return "";
    case Reason::systemError: return errorText(obstacle.error);
    case Reason::notInHistory: return "it isn't in history (ignored, or added just now)";
    case Reason::notSavedFirst: return "it couldn't be saved first (" + notKeptText(obstacle.detail) + ")";
    case Reason::changedSince:
        return "it changed after the safety snapshot" +
               (obstacle.detail.empty() ? "" : "; that version is " + obstacle.detail + " beside it");
    case Reason::folderInTheWay: return "a folder with content we don't keep is in the way";
    case Reason::folderHoldsMore: return "a folder with something else in it is in the way";
    case Reason::somethingInTheWay: return "something else is there (" + standingText(obstacle.detail) + ")";
    case Reason::notKeptThen: return notKeptText(obstacle.detail) + " when that snapshot was taken";
    case Reason::damaged: return "what was kept of it is damaged";
    case Reason::ignoredByGit: return "it is ignored, so its content isn't in history";
    case Reason::unreadThen: return "it couldn't be read when that snapshot was taken";
    case Reason::parentNotMade: return "couldn't create " + parent + ": " + errorText(obstacle.error);
    case Reason::parentUnreachable: return parent + ": " + errorText(obstacle.error);
    case Reason::parentIsLink:
        return parent + " is now a symlink to " + obstacle.detail + ". Restore " + parent +
               " itself to bring the folder back.";
    case Reason::parentIsFile: return parent + " is now a file, not a folder";
    case Reason::contentNotBack: return "its content couldn't be restored as " + obstacle.detail;
    case Reason::notInSnapshot: return "isn't in snapshot " + numberText(target);
    }
    return "";
}

namespace {

std::string recoveredText(const PathOutcome& outcome) {
    return "a restore that was cut short had left a version of " + outcome.path + " that no snapshot had; it is " +
           outcome.found;
}

// None for what was done.
std::string outcomeText(const PathOutcome& outcome, const RestoreResult& result) {
    const std::string& path = outcome.path;
    const std::string reason = reasonText(outcome.obstacle, result.target);
    switch (outcome.action) {
    case Action::restored:
    case Action::removed: return "";
    case Action::notRestored: return "couldn't restore " + path + ": " + reason;
    case Action::notRemoved: return "couldn't remove " + path + ": " + reason;
    case Action::notCreated: return "couldn't create " + path + "/: " + reason;
    case Action::notReplaced: return "didn't replace " + path + ": " + reason;
    case Action::kept: return "kept " + path + "/: " + reason;
    case Action::keptContents: return "kept what is in " + path + "/: " + reason;
    case Action::skipped: return "skipped " + path + ": " + reason;
    case Action::recovered: return recoveredText(outcome) + " in " + numberText(result.safety.seq);
    case Action::recoveredUnsaved: return recoveredText(outcome) + " now";
    case Action::toRecover:
        return "a restore that was cut short left a version of " + path + " that no snapshot has; it would become " +
               outcome.found;
    case Action::givenBack: return "a restore that was cut short had moved " + path + " aside; it is back";
    case Action::toGiveBack: return "a restore that was cut short moved " + path + " aside; it would be put back";
    case Action::leftover: return "couldn't clear away " + path + ", which a restore that was cut short had left";
    case Action::missing: return path + " " + reason;
    }
    return "";
}

} // namespace

std::vector<std::string> warningTexts(const RestoreResult& result) {
    std::vector<std::string> texts;
    if (result.prunedUpTo)
        texts.push_back("snapshots " + numberText(result.target + 1) + "–" + numberText(*result.prunedUpTo - 1) +
                        " were pruned, so this undid everything from " + numberText(result.target) + " to " +
                        numberText(*result.prunedUpTo));
    for (const Warning& warning : result.safetyWarnings) texts.push_back(warningText(warning));
    for (const PathOutcome& outcome : result.outcomes)
        if (std::string text = outcomeText(outcome, result); !text.empty()) texts.push_back(std::move(text));
    if (result.leavesTemporaries)
        texts.emplace_back("couldn't remove every temporary file; the next restore or undo clears them up");
    if (result.flushError != 0)
        texts.push_back("couldn't bring what was restored to the disk for good: " + errorText(result.flushError));
    return texts;
}

} // namespace tidewrack
