#pragma once
// What a shell makes of a variable's value: ${X%pattern}, ${X/pattern/text}, ${X:1:2}, ${X^^}.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack::shell {

// The value behind `operation`, which is what stands between the name and the "}". None for an operation that is not
// worked out, and for one whose patterns would take more steps than `steps`, from which they are subtracted.
// `expand` gives the variables in a pattern and in what replaces it their values.
[[nodiscard]] std::optional<std::string> changedValue(std::string_view operation, std::string_view value,
                                                      const std::function<std::string(std::string_view)>& expand,
                                                      std::size_t& steps);

// What basename and dirname print of a path.
[[nodiscard]] std::string baseName(std::string_view path);
[[nodiscard]] std::string folderName(std::string_view path);

} // namespace tidewrack::shell
