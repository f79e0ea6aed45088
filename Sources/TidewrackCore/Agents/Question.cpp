#include "Agents/Question.hpp"

namespace tidewrack {

namespace {

constexpr std::string_view allow = " Allow?";

std::string asSentence(std::string text) {
    if (!text.ends_with('.')) text += '.';
    return text;
}

// What became of the snapshot that the reason promises.
std::string onSnapshot(const SavedBefore& saved) {
    if (saved.notSnapshotted) return asSentence(" Tidewrack couldn't snapshot it first: " + *saved.notSnapshotted);
    std::string text = " Tidewrack snapshotted it first";
    if (saved.gaps.count > 0)
        text += ", without " + std::to_string(saved.gaps.count) + (saved.gaps.count == 1 ? " file (" : " files (") +
                saved.gaps.reason + ")";
    if (saved.losesGitHistory) text += ", but not git's own history";
    return text + ".";
}

} // namespace

std::string question(const shell::Verdict& verdict, const SavedBefore& saved) {
    std::string text = verdict.reason;
    const bool promises = !verdict.promised.empty();
    const bool holds = !saved.notSnapshotted && saved.gaps.count == 0 && !saved.losesGitHistory;
    if (!saved.unsaved && (!promises || holds)) return text;
    text.resize(text.size() - (promises ? shell::snapshotPromise.size() : text.ends_with(allow) ? allow.size() : 0));
    if (promises) text += onSnapshot(saved);
    if (!saved.unsaved) return text.append(allow);
    const std::size_t more = saved.unsaved->more;
    const std::string lost = saved.unsaved->path + (more > 0 ? " and " + std::to_string(more) + " more" : "");
    text += text.empty() ? "This deletes or overwrites " + lost + ". Tidewrack can't save " + (more > 0 ? "them" : "it")
                         : " Tidewrack can't save " + lost;
    return text.append(": ").append(saved.unsaved->reason).append(".").append(allow);
}

} // namespace tidewrack
