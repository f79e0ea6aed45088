#include "Shell/GuardRun.hpp"

#include "Shell/ListRules.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/Outputs.hpp"
#include "Shell/Wrappers.hpp"
#include "Shell/Writers.hpp"
#include "Support/Paths.hpp"

#include <span>
#include <utility>

namespace tidewrack::shell {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// What ls prints may become the operands of another command.
void Guard::takeListing(std::vector<Word> words, const Command& command) {
    values_.expandAll(words, command);
    if (command.toPipe) lister_ = words;
    bool named = false;
    for (const Word& word : Words(words).subspan(1)) {
        if (word.text.starts_with('-') || word.unknown || !effects_.takesListing()) continue;
        named = true;
        std::string path = absolutePath(word.text, position_.folder());
        if (word.glob)
            effects_.list({std::string(parentOf(path)), {std::string(lastComponent(path))}, false});
        else
            effects_.list({std::move(path), {}, false});
    }
    if (!named) effects_.list({position_.folder(), {}, false});
}

// What a command writes into a pipe, and what a shell is given to read. True when nothing else is to be judged.
bool Guard::takeInputs(const std::vector<Word>& words, Command& command) {
    if (!command.fromPipe && !command.toPipe && command.inputs.empty()) return false;
    const std::optional<std::string> piped = command.fromPipe ? std::move(written_) : std::nullopt;
    written_ = command.toPipe ? outputOf(words) : std::nullopt;
    if (!words.empty() && commandName(words.front()) == "xargs"sv) {
        std::optional<std::string> text = piped;
        if (!text && command.inputs.size() == 1 && command.inputs.front().kind == Input::Kind::text)
            text = textOf(command.inputs.front(), command);
        if (text) examineItems(*text, Words(words).subspan(1), position_.folder(), effects_);
    }
    if (!words.empty() && (command.fromPipe || !command.inputs.empty()) && readsScript(commandName(words.front())))
        takeScript(words.front(), command, piped);
    if (!readsCommands(words)) {
        // cat <<EOF | sh
        if (command.toPipe && words.size() == 1 && words.front().text == "cat" && command.inputs.size() == 1 &&
            command.inputs.front().kind == Input::Kind::text)
            written_ = textOf(command.inputs.front(), command);
        return false;
    }
    if (piped) {
        takeText({*piped, false, true});
        return true;
    }
    if (command.inputs.size() != 1 || command.inputs.front().kind != Input::Kind::text) return false;
    const auto text = textOf(command.inputs.front(), command);
    takeText({text.value_or(""), !text, true});
    return true;
}

// What a command prints, as far as that is known without running it.
std::optional<std::string> Guard::outputOf(const std::vector<Word>& words) {
    auto text = literalOutput(words);
    if (text || words.empty()) return text;
    std::vector<std::string> texts;
    for (const Word& word : words) {
        if (word.unknown || word.glob) return std::nullopt;
        texts.push_back(word.text);
    }
    return printedBy(texts, position_.folder(), effects_);
}

// What ed or sqlite3 reads: commands, or data of which nobody knows what is made of it.
void Guard::takeScript(const Word& program, const Command& command, const std::optional<std::string>& piped) {
    std::optional<std::string> text = piped;
    if (!text && command.inputs.size() == 1 && command.inputs.front().kind == Input::Kind::text)
        text = textOf(command.inputs.front(), command);
    if (!examineInput(commandName(program), text, position_.folder(), effects_)) takeUnknown(program);
}

std::optional<std::string> Guard::textOf(const Input& input, const Command& command) {
    std::vector<Word> words = {input.word};
    values_.expandAll(words, command);
    if (words.size() != 1 || words.front().unknown) return std::nullopt;
    return std::move(words.front().text);
}

} // namespace tidewrack::shell
