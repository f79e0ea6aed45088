#pragma once
// The files that an agent's own tool is about to change.

#include "Agents/HookContext.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

class EditedFiles {
  public:
    // `context` must outlive this.
    explicit EditedFiles(HookContext& context) : context_(context) {}

    // Those of the files that no snapshot of this turn holds as they are, for the caller to save: in a project that the
    // turn had not come to yet, or outside of all projects and there already. What the turn's snapshot holds is noted
    // in the project's "edits.log" as the turn's. A file behind a symbolic link counts as well as the link. `unkept`
    // receives, sorted, those that the turn's snapshot lacks, and that another one would lack too: left out by name,
    // too large, unreadable.
    [[nodiscard]] std::vector<std::string> notHeld(const std::vector<std::string>& paths,
                                                   std::vector<std::string>& unkept);

  private:
    void sortOut(const std::string& path, std::vector<std::string>& unheld, std::vector<std::string>& unkept);
    [[nodiscard]] bool lacks(const SnapshotMeta& record, const Project& project, const std::string& path) const;

    HookContext& context_;
};

} // namespace tidewrack
