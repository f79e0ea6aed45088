#pragma once
// What a snapshot of a project holds, for hooks that take no other one. Takes no lock.

#include "Store/History.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

class KeptPaths {
  public:
    // Of the newest snapshot, or of `record`. `project` must outlive this.
    KeptPaths(History history, const Project& project, std::optional<SnapshotMeta> record = std::nullopt)
        : history_(std::move(history)), project_(project), record_(std::move(record)) {}

    // Whether snapshots leave out what is at the absolute path, which lies in the project, because it can be made anew:
    // by its name, or because its name is one that is left out where git ignores it, and the listing has nothing there.
    // What the owner's rules leave out is no such thing.
    [[nodiscard]] bool leavesOut(std::string_view path);
    // Whether snapshots may leave out the path by its name, or by the rules.
    [[nodiscard]] bool mayLeaveOut(std::string_view path);
    // Whether the snapshot holds the content of the file or link at the absolute path.
    [[nodiscard]] bool holds(std::string_view path);

  private:
    [[nodiscard]] std::string_view relative(std::string_view path) const;
    [[nodiscard]] const LeaveOutRules& rules();
    [[nodiscard]] bool reads(); // false where there is no listing that can be read

    History history_;
    const Project& project_;
    std::optional<SnapshotMeta> record_;
    std::optional<LeaveOutRules> rules_;
    bool looked_ = false;
    std::optional<Manifest> listing_;
};

} // namespace tidewrack
