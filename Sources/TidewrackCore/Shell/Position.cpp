#include "Shell/Position.hpp"

#include "Shell/Budget.hpp"

#include <utility>

namespace tidewrack::shell {

void Position::Stack::push(Place place) {
    last_ = std::make_shared<const Item>(Item{std::move(place), std::move(last_)});
    ++size_;
}

void Position::Stack::pop() {
    last_ = std::shared_ptr(last_->below);
    --size_;
}

std::vector<std::string> Position::Stack::folders() const {
    std::vector<std::string> folders;
    for (const Item* item = last_.get(); item != nullptr && folders.size() < Budget::doubtfulFolders;
         item = item->below.get())
        folders.push_back(item->place.folder);
    return folders;
}

bool Position::enter(std::string folder, std::size_t depth, std::vector<std::string> others) {
    if (folder.size() > Budget::folderLength) return false;
    const bool saved = depth == 0 || (saved_.size() > 0 && saved_.top().depth >= depth);
    if (!saved && saved_.size() < Budget::subshells) saved_.push({depth, folder_, others_});
    previous_ = std::exchange(folder_, std::move(folder));
    others_ = std::move(others);
    return true;
}

bool Position::leaveSubshells(std::size_t sharedDepth) {
    bool left = false;
    for (; saved_.size() > 0 && saved_.top().depth > sharedDepth; left = true) {
        folder_ = saved_.top().folder;
        others_ = saved_.top().others;
        saved_.pop();
    }
    return left;
}

bool Position::swap(std::size_t depth) {
    if (pushed_.size() == 0) return false;
    std::string folder = pushed_.top().folder;
    pushed_.pop();
    push();
    return enter(std::move(folder), depth);
}

bool Position::pop(std::size_t depth) {
    if (pushed_.size() == 0) return false;
    std::string folder = pushed_.top().folder;
    pushed_.pop();
    return enter(std::move(folder), depth);
}

bool Position::mayChange() {
    return ++changes_ <= Budget::folderChanges;
}

} // namespace tidewrack::shell
