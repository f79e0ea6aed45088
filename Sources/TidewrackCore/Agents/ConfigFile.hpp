#pragma once
// Reading and replacing a configuration file that belongs to the user and to another program.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// The bytes of the file; none when there is no file (also at the end of a link that points at nothing). Throws when
// it is there but cannot be read or is not a regular file.
[[nodiscard]] std::optional<std::string> readConfig(const std::string& path);

// Removes what a process that died while it replaced the file has left, at both ends of a symbolic link. The folders
// are the agent's: a file there is ours by its name, its owner and its content, which begins as one of `texts` does, up
// to where that names our program.
void removeLeftoversBeside(const std::string& path, std::vector<std::string> texts);

// Where replaceConfig keeps the file as it was.
[[nodiscard]] std::string backupPath(const std::string& path);

// Makes `bytes` the content of `path`, whose content was `before` (none: there was no file), and returns the path of
// the backup of `before`, which replaces an older one. A missing folder is
// created. Atomic: a reader sees the old or the new content. A symbolic link stays and the file that it leads to is
// replaced; mode and, where allowed, owner stay. Throws when anything fails, or when the file no longer holds
// `before`; the old content is then still in place.
std::optional<std::string> replaceConfig(const std::string& path, const std::optional<std::string>& before,
                                         std::string_view bytes);

// Removes the file, whose content was `before`: at the end of a symbolic link, which stays. Throws as replaceConfig.
void removeConfig(const std::string& path, const std::string& before);

} // namespace tidewrack
