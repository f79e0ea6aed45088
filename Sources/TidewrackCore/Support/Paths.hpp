#pragma once
// Paths as byte strings.

#include <string>
#include <string_view>

namespace tidewrack {

// The last component; empty for "/".
[[nodiscard]] std::string_view lastComponent(std::string_view path);
// Everything before the last component, without a trailing slash; empty for a relative path of one component,
// "/" for a child of the root.
[[nodiscard]] std::string_view parentOf(std::string_view path);
// "." and ".." resolved textually, no doubled or trailing slashes. `path` is absolute.
[[nodiscard]] std::string standardized(std::string_view path);
// `path` when absolute, else joined to the absolute folder `base`; standardized.
[[nodiscard]] std::string absolutePath(std::string_view path, std::string_view base);
// True when `path` is `folder` or lies in it; both canonical or both relative.
[[nodiscard]] bool isAtOrBelow(std::string_view path, std::string_view folder);
// What follows `folder` and its slash in a path below it; empty for the folder itself.
[[nodiscard]] std::string_view pathBelow(std::string_view path, std::string_view folder);
// `folder` + "/" + `name`, without doubling the slash of "/".
[[nodiscard]] std::string joined(std::string_view folder, std::string_view name);

} // namespace tidewrack
