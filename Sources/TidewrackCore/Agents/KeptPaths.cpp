#include "Agents/KeptPaths.hpp"

#include "Support/Files.hpp"
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

const LeaveOutRules& KeptPaths::rules() {
    if (!rules_) rules_ = LeaveOutRules::of(project_);
    return *rules_;
}

bool KeptPaths::mayLeaveOut(std::string_view path) {
    return hasNameFrom(project_.excludes, path, project_) ||
           hasNameFrom(project_.excludesIfIgnored.value_or(defaultExcludesIfIgnored()), path, project_) ||
           rules().leavesOut(relative(path), true);
}

bool KeptPaths::leavesOut(std::string_view path) {
    if (rules().leavesOut(relative(path), isFolder(std::string(path)))) return false;
    const bool isExcluded = hasNameFrom(project_.excludes, path, project_);
    if (isExcluded && rules().empty()) return true; // else they may have it kept
    if (!mayLeaveOut(path)) return false;
    if (!reads()) return isExcluded;
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
