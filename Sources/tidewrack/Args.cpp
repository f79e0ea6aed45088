#include "Args.hpp"

#include "CommandTable.hpp"
#include "Store/Store.hpp"

#include <algorithm>
#include <charconv>

namespace tidewrack {

Args::Args(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::size_t equals = word.starts_with("--") ? word.find('=') : std::string::npos;
        if (word == "--") {
            plainFrom = positional.size();
            positional.insert(positional.end(), words.begin() + static_cast<std::ptrdiff_t>(i) + 1, words.end());
            return;
        }
        if (takesValue(word)) {
            if (i + 1 == words.size()) throw CliError(word + " needs a value");
            values[word] = words[++i];
        } else if (equals != std::string::npos && takesValue(word.substr(0, equals))) {
            values[word.substr(0, equals)] = word.substr(equals + 1);
        } else if (word.starts_with("--")) {
            flags.insert(word);
        } else {
            positional.push_back(word);
        }
    }
}

std::optional<std::string> Args::value(std::string_view option) const {
    const auto found = values.find(option);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> Args::word(std::size_t index) const {
    return index < positional.size() ? std::optional(positional[index]) : std::nullopt;
}

std::int64_t Args::number(std::size_t index, const char* name) const {
    const auto word = this->word(index);
    if (!word) throw CliError(std::string("missing ") + name);
    if (const auto number = snapshotNumber(*word)) return *number;
    throw CliError(std::string(name) + " must be a snapshot number, got " + *word);
}

void Args::drop(std::size_t count) {
    positional.erase(positional.begin(), positional.begin() + static_cast<std::ptrdiff_t>(count));
    if (plainFrom != none) plainFrom -= std::min(count, plainFrom);
}

void Args::remove(std::size_t index) {
    positional.erase(positional.begin() + static_cast<std::ptrdiff_t>(index));
    if (plainFrom != none && index < plainFrom) --plainFrom;
}

void Args::takeJoinedNumber(std::string_view option) {
    for (std::size_t i = 0; i < std::min(plainFrom, positional.size());) {
        const std::string& word = positional[i];
        if (!word.starts_with(option) || !parseSeq(std::string_view(word).substr(option.size()))) {
            ++i;
            continue;
        }
        values[std::string(option)] = word.substr(option.size());
        remove(i);
    }
}

int portNumber(const std::string& text) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535)
        throw CliError("--port needs a number from 1 to 65535, got " + text);
    return port;
}

std::optional<std::int64_t> snapshotNumber(std::string_view digits) {
    if (digits.starts_with('#')) digits.remove_prefix(1);
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    std::int64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace tidewrack
