#pragma once
// The files of completions/, inside of the program: the build writes the source.

#include <span>
#include <string_view>

namespace tidewrack {

struct CompletionScript {
    std::string_view shell;
    std::string_view text;
};

[[nodiscard]] std::span<const CompletionScript> completionScripts();

} // namespace tidewrack
