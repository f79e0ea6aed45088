#include "Agents/SnapshotTexts.hpp"

#include "Support/Text.hpp"

#include <algorithm>
#include <iterator>

namespace tidewrack {

namespace {

using Kind = Warning::Kind;

std::string sourceText(const Warning& warning) {
    return warning.isPrevious ? "the previous snapshot" : "snapshot #" + std::to_string(warning.source);
}

std::string unreadText(const Warning& warning) {
    const std::string folder = warning.path.empty() ? "the project folder" : warning.path;
    const std::size_t count = warning.entries.size();
    const std::string entry = count == 1 ? warning.entries.front() : std::string();
    const std::string what = count == 0   ? folder
                             : count == 1 ? (warning.path.empty() ? entry : folder + "/" + entry)
                                          : std::to_string(count) + " entries of " + folder;
    std::string text = "couldn't read " + what + ": " + warning.failure.text() + "; ";
    const char* kept = warning.isOfSnapshot ? "recorded" : "taken";
    switch (warning.kept) {
    case Kept::nothing: return text + (warning.isOfSnapshot ? "not saved" : "left out");
    case Kept::partly: return text + kept + " as in " + sourceText(warning) + ", as far as that knows them";
    case Kept::all: return text + kept + " as in " + sourceText(warning);
    }
    return text;
}

std::string leftOutText(const Warning& warning) {
    const std::size_t others = warning.entries.size() - 1;
    return warning.entries.front() + (others == 0 ? " is" : " and " + std::to_string(others) + " more are") +
           " left out from now on; #" + std::to_string(warning.source) + " and older snapshots keep what they have";
}

std::string stillIgnoredText(const Warning& warning) {
    return warning.source == 0 ? "none counts as ignored" : "those of " + sourceText(warning) + " still are";
}

std::string noRoomText(const Warning& warning) {
    const bool one = warning.source == 1;
    return "the disk is almost full: " + warning.path +
           (one ? "" : " and " + std::to_string(warning.source - 1) + " more") + (one ? " is" : " are") +
           " listed but not kept";
}

} // namespace

std::string warningText(const Warning& warning) {
    switch (warning.kind) {
    case Kind::notSaved: return "couldn't save " + warning.path + ": " + warning.failure.text();
    case Kind::savedInPart: return "saved " + warning.path + " as far as it went: it was being written to";
    case Kind::previousUnreadable:
        return "previous snapshot #" + std::to_string(warning.source) + " is unreadable (" + warning.detail +
               "); taking a full one";
    case Kind::gitLate: return "git didn't say in time which folders it ignores; " + stillIgnoredText(warning);
    case Kind::gitFailed:
        return "git couldn't say which folders it ignores (see what `git status` says); " + stillIgnoredText(warning);
    case Kind::unread: return unreadText(warning);
    case Kind::unseenYet:
        return "what is in " + warning.path +
               " can't be seen before it is opened; what was changed in it stays as it is";
    case Kind::leftOutNow: return leftOutText(warning);
    case Kind::noRoom: return noRoomText(warning);
    case Kind::pruneFailed: return "prune failed: " + warning.detail;
    case Kind::listingUnread: return "can't tell what #" + std::to_string(warning.source) + " holds: " + warning.detail;
    case Kind::notCompared:
        return "can't tell what changed since #" + std::to_string(warning.source) + ": " + warning.detail;
    }
    return {};
}

std::vector<std::string> warningTexts(const std::vector<Warning>& warnings) {
    std::vector<std::string> texts;
    std::transform(warnings.begin(), warnings.end(), std::back_inserter(texts), warningText);
    return texts;
}

std::string tooLargeText(const NotKept& notKept) {
    if (notKept.tooLarge == 0) return {};
    const bool one = notKept.tooLarge == 1;
    return countText(notKept.tooLarge, "file") + " of " + bytesText(notKept.tooLargeBytes) +
           (one ? " is" : " in all are") + " listed but not kept";
}

} // namespace tidewrack
