#pragma once
// What taking back a part of the history means for one path: see UndoPlan, which makes one plan of them all.

#include "Timeline/UndoPlan.hpp"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

class PathPlanner {
  public:
    PathPlanner(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
                const UndoContents& contents)
        : steps_(steps), now_(now), options_(options), contents_(contents) {}

    // None where everything is as it should be.
    std::optional<UndoAction> plan(const std::string& path);
    // Unlike `differs` by what the contents are, not by where they are kept.
    [[nodiscard]] bool same(const Entry* a, const Entry* b) const;

  private:
    using Reason = UndoAction::Reason;
    // A path's state while steps are taken back one by one: an entry, nothing, or a text that was merged.
    struct State {
        const Entry* entry = nullptr;
        std::optional<std::string> text;
        std::uint16_t mode = 0;
    };

    [[nodiscard]] bool sameContent(const Entry& a, const Entry& b) const;
    std::optional<UndoAction> withLater(UndoAction action, State state, const Entry* oldest, const Entry* now) const;
    [[nodiscard]] std::optional<UndoAction> ofUnread(std::string_view folder) const;
    const Entry* unseen(const std::string& path);
    [[nodiscard]] std::optional<UndoAction> amongUnseen(std::optional<UndoAction> action, const Entry* now,
                                                        bool isOwners) const;
    [[nodiscard]] bool findNested(UndoAction& action) const;
    static std::optional<UndoAction> ofIgnored(UndoAction action, const Entry* oldest, const Entry* now);
    [[nodiscard]] bool isAt(const State& state, const Entry* entry) const;
    void takeBack(const UndoStep& step, const Entry* before, const Entry* after, State& state, UndoAction& action);
    void takeBackUnlisted(const UndoStep& step, const Entry& before, State& state, UndoAction& action);
    static void takeBackMode(const UndoStep& step, const Entry& before, const Entry& after, State& state,
                             UndoAction& action);
    static Reason laterChange(const Entry* after, const State& state);
    [[nodiscard]] Reason merge(const Entry* before, const Entry* after, State& state);
    Reason take(const Entry& content, std::uint16_t mode, State& state);
    [[nodiscard]] std::optional<UndoAction> finished(UndoAction action, State state, const Entry* now) const;
    static void leave(UndoAction& action, Reason reason, std::string detail);

    const std::vector<UndoStep>& steps_;
    const Manifest& now_;
    const UndoOptions& options_;
    const UndoContents& contents_;
    std::deque<Entry> made_; // contents with a mode of their own
};

[[nodiscard]] inline bool isFile(const Entry* entry) {
    return entry != nullptr && entry->kind == EntryKind::file;
}
[[nodiscard]] inline bool isFolder(const Entry* entry) {
    return entry != nullptr && entry->kind == EntryKind::dir;
}
// The folder around the path that could not be read when the listing was taken; empty: there is none. What a later
// listing has in there may have been in there.
[[nodiscard]] std::string_view unreadAround(const Manifest& listing, std::string_view path);

} // namespace tidewrack
