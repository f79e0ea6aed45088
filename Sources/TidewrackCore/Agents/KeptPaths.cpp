#include "Agents/KeptPaths.hpp"

#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <algorithm>
#include <exception>
#include <vector>

namespace tidewrack {

namespace {

bool hasNameFrom(const std::vector<std::string>& names, std::string_view path, const Project& project) {
    for (; path.size() > project.root.size(); path = parentOf(path))
        if (std::find(names.begin(), names.end(), lastComponent(path)) != names.end()) return true;
    return false;
}

} // namespace

bool KeptPaths::mayLeaveOut(std::string_view path) const {
    return hasNameFrom(project_.excludes, path, project_) ||
           hasNameFrom(project_.excludesIfIgnored.value_or(defaultExcludesIfIgnored()), path, project_);
}

bool KeptPaths::leavesOut(std::string_view path) {
    if (hasNameFrom(project_.excludes, path, project_)) return true;
    if (!mayLeaveOut(path) || !reads()) return false;
    const Entry* entry = listing_->find(relative(path));
    return !listing_->listsBelow(relative(path)) && (entry == nullptr || !entry->isKept());
}

bool KeptPaths::holds(std::string_view path) {
    if (!reads()) return false;
    const Entry* entry = listing_->find(relative(path));
    return entry != nullptr && entry->isKept();
}

std::string_view KeptPaths::relative(std::string_view path) const {
    return pathBelow(path, project_.root);
}

bool KeptPaths::reads() {
    if (looked_) return listing_.has_value();
    looked_ = true;
    try {
        if (!record_) record_ = history_.latest();
        if (record_) listing_ = history_.manifest(*record_);
    } catch (const std::exception&) { // what can't be told may be held
    }
    return listing_.has_value();
}

} // namespace tidewrack
