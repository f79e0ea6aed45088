#include "Shell/Options.hpp"

#include "Shell/NameFilter.hpp"

#include <algorithm>

namespace tidewrack::shell {

using Words = std::span<const Word>;

bool isOption(const Word& word) {
    return word.text.starts_with('-');
}

bool isShortCluster(const Word& word) {
    return isOption(word) && !word.text.starts_with("--");
}

Operands operandsOf(Words arguments, std::string_view letters, std::string_view options) {
    Operands operands;
    constexpr std::string_view target = "--target-directory"; // which may be cut short
    const bool hasTarget = letters.find('t') != letters.npos;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const Word& word = arguments[index];
        const std::string_view text = word.text;
        const bool hasNext = index + 1 < arguments.size();
        if (text == "--") {
            for (const Word& operand : arguments.subspan(index + 1)) operands.words.push_back(&operand);
            break;
        }
        if (!isOption(word)) {
            operands.words.push_back(&word);
        } else if (text.starts_with("--")) {
            const std::size_t equals = text.find('=');
            const std::string_view name = text.substr(0, equals);
            const bool isTarget = hasTarget && name.size() > 2 && target.starts_with(name);
            operands.longOptions.push_back(name);
            if (isTarget && equals != text.npos) {
                operands.folder = word;
                operands.folder->text.erase(0, equals + 1);
            } else if (hasNext && equals == text.npos && (isTarget || listsWord(options, name))) {
                ++index;
                if (isTarget) operands.folder = arguments[index];
            }
        } else if (text.size() > 1) {
            const std::size_t at = std::min(text.find_first_of(letters, 1), text.size());
            operands.flags += text.substr(1, at - 1);
            const bool isJoined = at + 1 < text.size();
            const bool isTarget = hasTarget && at < text.size() && text[at] == 't';
            if (at < text.size() && !isJoined && hasNext) ++index;
            if (isTarget && (isJoined || hasNext)) operands.folder = isJoined ? word : arguments[index];
            if (isTarget && isJoined) operands.folder->text.erase(0, at + 1);
        }
    }
    return operands;
}

bool Operands::has(char letter, std::string_view name) const {
    return flags.find(letter) != flags.npos ||
           std::find(longOptions.begin(), longOptions.end(), name) != longOptions.end();
}

bool hasOption(Words arguments, char letter, std::string_view name) {
    return std::any_of(arguments.begin(), arguments.end(), [&](const Word& word) {
        return word.text == name || (isShortCluster(word) && word.text.find(letter) != std::string::npos);
    });
}

std::string valueOf(Words arguments, char letter, std::string_view name) {
    std::string value;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& text = arguments[index].text;
        const std::string shortName = {'-', letter};
        if ((text == name || text == shortName) && index + 1 < arguments.size())
            value = arguments[++index].text;
        else if (text.starts_with(shortName))
            value = text.substr(2);
        else if (text.starts_with(name) && text.substr(name.size()).starts_with('='))
            value = text.substr(name.size() + 1);
    }
    return value;
}

} // namespace tidewrack::shell
