#pragma once
// What a snapshot of a project holds, for hooks that take no other one. Takes no lock.

#include "Store/History.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

class KeptPaths {
  public:
    // Of the newest snapshot, or of `record`. `project` must outlive this.
    KeptPaths(History history, const Project& project, std::optional<SnapshotMeta> record = std::nullopt)
        : history_(std::move(history)), project_(project), record_(std::move(record)) {}

    // Whether snapshots leave out what is at the absolute path, which lies in the project: by its name, or because its
    // name is one that is left out where git ignores it, and the listing has nothing there.
    [[nodiscard]] bool leavesOut(std::string_view path);
    // Whether snapshots may leave out the path by its name.
    [[nodiscard]] bool mayLeaveOut(std::string_view path) const;
    // Whether the snapshot holds the content of the file or link at the absolute path.
    [[nodiscard]] bool holds(std::string_view path);

  private:
    [[nodiscard]] std::string_view relative(std::string_view path) const;
    [[nodiscard]] bool reads(); // false where there is no listing that can be read

    History history_;
    const Project& project_;
    std::optional<SnapshotMeta> record_;
    bool looked_ = false;
    std::optional<Manifest> listing_;
};

} // namespace tidewrack
