#pragma once
// Histories as tests need them: older than they are, read by somebody without special rights.

#include "Support/TestFolders.hpp"

#include <exception>
#include <functional>
#include <string>

namespace tidewrack::testing {

// The text of what `action` throws.
template <typename Action>
std::string thrownBy(Action action) {
    try {
        (void)action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "<nothing thrown>";
}

// Changes one snapshot's record in the store.
void rewriteRecord(const World& world, std::int64_t seq, const std::function<void(SnapshotMeta&)>& change);

// Runs `action` in a process of its own, which may change its rights, and returns its text or what it throws.
std::string inOwnProcess(const std::function<std::string()>& action);

// The same as a user without special rights, to whom the folder, or this part of it, is handed over. When the tests
// themselves have no special rights it runs as their user.
std::string unprivileged(const TemporaryFolder& folder, const std::function<std::string()>& action,
                         const std::string& part = "");

// Runs a git command in a folder, apart from the user's own configuration. False when it fails or git is missing.
bool git(const std::string& folder, const std::string& words);

} // namespace tidewrack::testing
