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
    const auto takesWord = [&](std::string_view option) {
        if (option.starts_with("--")) return listsWord(options, option);
        return letters.find(option.back()) != std::string::npos;
    };
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const Word& word = arguments[index];
        const std::string_view text = word.text;
        if (text == "--") {
            for (const Word& operand : arguments.subspan(index + 1)) operands.words.push_back(&operand);
            break;
        }
        if (!isOption(word)) {
            operands.words.push_back(&word);
        } else if (text.size() > 1 && index + 1 < arguments.size() && takesWord(text)) {
            ++index;
            if (text == "--target-directory" || (letters.find('t') != text.npos && text.back() == 't'))
                operands.folder = arguments[index];
        } else if (text.starts_with("--target-directory=")) {
            operands.folder = word;
            operands.folder->text.erase(0, text.find('=') + 1);
        }
    }
    return operands;
}

bool hasOption(Words arguments, char letter, std::string_view name) {
    return std::any_of(arguments.begin(), arguments.end(), [&](const Word& word) {
        return word.text == name || (isShortCluster(word) && word.text.find(letter) != std::string::npos);
    });
}

std::string valueOf(Words arguments, char letter, std::string_view name) {
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& text = arguments[index].text;
        const std::string shortName = {'-', letter};
        if ((text == name || text == shortName) && index + 1 < arguments.size()) return arguments[index + 1].text;
        if (text.starts_with(shortName)) return text.substr(2);
        if (text.starts_with(name) && text.substr(name.size()).starts_with('=')) return text.substr(name.size() + 1);
    }
    return {};
}

} // namespace tidewrack::shell
