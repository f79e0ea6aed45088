#include "CommandLine.hpp"

#include <algorithm>
#include <charconv>

namespace tidewrack {

namespace {

constexpr std::string_view valueOptions[] = {"--label", "--agent",   "--session", "--turn",
                                             "--kind",  "--project", "-n",        "--home"};
constexpr std::size_t flushSize = 65536;

} // namespace

Args::Args(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (std::find(std::begin(valueOptions), std::end(valueOptions), word) != std::end(valueOptions)) {
            if (i + 1 == words.size()) throw CliError(word + " needs a value");
            values[word] = words[++i];
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
    std::string_view digits = *word;
    if (digits.starts_with('#')) digits.remove_prefix(1);
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    std::int64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || stop != end)
        throw CliError(std::string(name) + " must be a snapshot number, got " + *word);
    return number;
}

void Sink::write(std::string_view text) {
    if (text_ != nullptr) {
        *text_ += text;
        return;
    }
    waiting_ += text;
    if (waiting_.size() >= flushSize) flush();
}

void Sink::line(std::string_view text) {
    write(text);
    write("\n");
}

void Sink::flush() {
    if (fd_ >= 0 && error_ == 0 && !waiting_.empty()) error_ = writeAll(fd_, waiting_);
    waiting_.clear();
}

} // namespace tidewrack
