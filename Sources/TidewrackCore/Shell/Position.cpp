#include "Shell/Position.hpp"

#include "Shell/Budget.hpp"

#include <utility>

namespace tidewrack::shell {

bool Position::enter(std::string folder, std::size_t depth) {
    if (folder.size() > Budget::folderLength) return false;
    const bool saved = depth == 0 || (!saved_.empty() && saved_.back().depth >= depth);
    if (!saved && saved_.size() < Budget::subshells) saved_.push_back({depth, folder_});
    previous_ = std::exchange(folder_, std::move(folder));
    return true;
}

bool Position::leaveSubshells(std::size_t sharedDepth) {
    bool left = false;
    for (; !saved_.empty() && saved_.back().depth > sharedDepth; left = true) {
        folder_ = std::move(saved_.back().folder);
        saved_.pop_back();
    }
    return left;
}

bool Position::swap(std::size_t depth) {
    return !pushed_.empty() && enter(std::exchange(pushed_.back(), folder_), depth);
}

bool Position::pop(std::size_t depth) {
    if (pushed_.empty()) return false;
    std::string folder = std::move(pushed_.back());
    pushed_.pop_back();
    return enter(std::move(folder), depth);
}

bool Position::mayChange() {
    return ++changes_ <= Budget::folderChanges;
}

} // namespace tidewrack::shell
