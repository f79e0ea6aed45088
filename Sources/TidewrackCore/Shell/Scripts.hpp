#pragma once
// What the texts do to files that programs such as sed, awk, ed and sqlite3 are given to follow.

#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

struct ScriptEffects {
    std::vector<std::string> files; // that are written, by their names in the text
    bool unknown = false;           // it may do anything, such as running another program

    [[nodiscard]] bool none() const { return files.empty() && !unknown; }
};

// Programs that follow a text, by the language of that.
enum class Language { awk, editor, database };

// Adds to `effects` what a text of that language does.
void readScript(Language language, std::string_view text, ScriptEffects& effects);

// What sed does, called with these arguments, beside printing.
[[nodiscard]] ScriptEffects sedEffects(std::span<const Word> arguments);

// Whether a line of Python or JavaScript only computes something and prints it.
[[nodiscard]] bool pythonOnlyPrints(std::string_view code);
[[nodiscard]] bool javaScriptOnlyPrints(std::string_view code);

} // namespace tidewrack::shell
