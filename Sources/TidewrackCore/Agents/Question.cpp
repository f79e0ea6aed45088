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
    return text + ".";
}

} // namespace

std::string question(const std::string& reason, const SavedBefore& saved) {
    std::string text = reason;
    const bool promises = text.ends_with(shell::snapshotPromise);
    const bool holds = !saved.notSnapshotted && saved.gaps.count == 0;
    if (!saved.unsaved && (!promises || holds)) return text;
    text.resize(text.size() - (promises ? shell::snapshotPromise.size() : text.ends_with(allow) ? allow.size() : 0));
    if (promises) text += onSnapshot(saved);
    if (!saved.unsaved) return text.append(allow);
    text += text.empty() ? "This deletes or overwrites " + saved.unsaved->path + ". Tidewrack can't save it"
                         : " Tidewrack can't save " + saved.unsaved->path;
    return text.append(": ").append(saved.unsaved->reason).append(".").append(allow);
}

} // namespace tidewrack
