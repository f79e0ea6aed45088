#include "Shell/Outputs.hpp"

#include "Shell/ValueChanges.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace tidewrack::shell {

using namespace std::string_view_literals;

std::optional<std::string> printedBy(std::span<const std::string> words, const std::string& folder, Effects& effects) {
    const auto is = [&](std::initializer_list<std::string_view> texts) {
        return std::equal(words.begin(), words.end(), texts.begin(), texts.end());
    };
    if (is({"pwd"}) || is({"pwd", "-P"}) || is({"pwd", "-L"})) return folder;
    // A name that nothing has: the new file or folder gets another one.
    if (is({"mktemp"}) || is({"mktemp", "-d"})) return "/tmp/tmp.XXXXXXXXXX";
    const bool topLevel = is({"git", "rev-parse", "--show-toplevel"});
    if (topLevel || is({"git", "rev-parse", "--git-dir"}) || is({"git", "rev-parse", "--absolute-git-dir"})) {
        const std::string& top = effects.gitTopLevel(folder);
        if (top.empty()) return std::nullopt;
        return topLevel ? top : joined(top, ".git");
    }
    if (words.size() < 2) return std::nullopt;
    const std::string_view name = words.front();
    const std::string& last = words.back();
    if (is({"command", "-v", last}) || is({"type", "-p", last}) || is({"type", "-P", last})) return last;
    if (words[1].starts_with('-') && !is({"readlink", "-f", last}) && !is({"realpath", "-e", last}))
        return std::nullopt;
    if (is({"which", last})) return last;
    if (is({"dirname", last})) return folderName(last);
    if (is({"basename", last})) return baseName(last);
    if (name == "basename"sv && words.size() == 3) {
        std::string base = baseName(words[1]);
        if (base.size() > last.size() && base.ends_with(last)) base.resize(base.size() - last.size());
        return base;
    }
    if (is({"realpath", last}) || is({"realpath", "-e", last}) || is({"readlink", "-f", last})) {
        std::string real = effects.takesLook() ? realPath(absolutePath(last, folder)) : "";
        return real.empty() ? std::nullopt : std::optional(std::move(real));
    }
    if (name != "echo"sv && !(name == "printf"sv && words.size() == 2 && last.find_first_of("%\\") == last.npos))
        return std::nullopt;
    std::string text;
    for (const std::string& word : words.subspan(1)) text.append(text.empty() ? 0 : 1, ' ').append(word);
    return text;
}

} // namespace tidewrack::shell
