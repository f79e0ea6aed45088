#include "CommandLine.hpp"

#include "Commands/Commands.hpp"
#include "Help.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Text.hpp"

#include <charconv>

namespace tidewrack {

namespace {

constexpr std::size_t flushSize = 65536;

} // namespace

Args::Args(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (takesValue(word)) {
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

namespace {

// What the words name, which are then taken off them.
const Command& takeCommand(Args& args) {
    std::vector<std::string>& words = args.positional;
    if (words.empty()) words.emplace_back(args.has("--version") ? "version" : "help");
    if (words[0] == "-h") words[0] = "help";
    if (words[0] == "-v") words[0] = "version";
    const Command* command = commandOf(words);
    if (command == nullptr) throw CliError("unknown command " + repairedUtf8(words[0]) + ". Run `tidewrack help`.");
    const bool two = command->name.find(' ') != std::string_view::npos;
    words.erase(words.begin(), words.begin() + (two ? 2 : 1));
    return *command;
}

int dispatch(const std::vector<std::string>& words, Surroundings& around) {
    Args args(words);
    const Command& command = takeCommand(args);
    // An agent's words are none of a person's: whatever they say, it gets its reply.
    if (args.has("--help") && command.run != commands::hook) {
        around.out.write(command.run == commands::help ? usageText() : helpText(command));
        return 0;
    }
    Invocation call(command, std::move(args), around);
    return command.run(call);
}

} // namespace

int run(const std::vector<std::string>& words, Surroundings& around) {
    int status = 1;
    try {
        status = dispatch(words, around);
    } catch (const std::bad_alloc&) {
        around.err.line("tidewrack: out of memory");
    } catch (const std::exception& error) {
        around.err.line(std::string("tidewrack: ") + repairedUtf8(error.what()));
    }
    around.out.flush();
    // A reader that has gone has seen all it wanted; any other failure to write is one.
    if (around.out.error() != 0 && around.out.error() != EPIPE) {
        around.err.line("tidewrack: can't write the output: " + errorText(around.out.error()));
        status = 1;
    }
    around.err.flush();
    return status;
}

} // namespace tidewrack
