#include "Shell/Expansion.hpp"

#include "Shell/Budget.hpp"
#include "Shell/ValueChanges.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

namespace tidewrack::shell {

namespace {

bool isAsciiNameByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Empty for a variable without value, and where what a script or function is called with is not known.
std::string_view plainValue(std::string_view name, std::string_view home, Variables& variables) {
    if (name == "HOME") return home;
    const auto value = variables.value(name);
    if (!value && name == "IFS") return " \t\n";
    if (!value && !name.empty() && (isDigit(name[0]) || variables.mayHaveValue(name))) variables.setUnfollowed(true);
    if (value.value_or("").empty() && variables.isFilled(name)) variables.setUnfollowed(true);
    return value.value_or("");
}

// Whether an operation such as %.c, :1 or ^^ makes nothing of an empty value. Replacing does, unless its pattern may
// match an empty text.
bool leavesNothing(std::string_view operation) {
    if (operation.starts_with(':')) return operation.size() > 1 && operation[1] >= '0' && operation[1] <= '9';
    if (!operation.starts_with('/')) return operation.find_first_of("%#^,") == 0;
    const std::size_t pattern = operation.find_first_not_of('/');
    return pattern == std::string_view::npos || std::string_view("#%*$").find(operation[pattern]) == std::string::npos;
}

std::string expandedText(std::string_view text, std::string_view home, Variables& variables);

// The value of the text behind ":-". One with braces inside is not followed: their "}" has ended it too early.
std::string expandedFallback(std::string_view text, std::string_view home, Variables& variables) {
    if (text.find("${") != std::string_view::npos) {
        variables.setUnfollowed(true);
        return "";
    }
    if (text != "~" && !text.starts_with("~/")) return expandedText(text, home, variables);
    return std::string(home) + expandedText(text.substr(1), home, variables);
}

// The value of the text between "${" and "}".
std::string bracedValue(std::string_view body, std::string_view home, Variables& variables) {
    if (const std::size_t fallback = body.find(":-"); fallback != std::string_view::npos) {
        const auto value = variables.value(body.substr(0, fallback));
        if (variables.isUnknown(body.substr(0, fallback))) variables.setUnfollowed(true);
        if (value && !value->empty()) return std::string(*value);
        return expandedFallback(body.substr(fallback + 2), home, variables);
    }
    const std::size_t length = nameLength(body);
    const std::string_view name = body.substr(0, length);
    const std::string_view operation = body.substr(length);
    if (length > 0 && operation.starts_with(":=")) {
        std::string value(plainValue(name, home, variables));
        if (!value.empty()) return value;
        std::string assigned = expandedFallback(operation.substr(2), home, variables);
        if (!variables.assign(name, assigned)) variables.setUnfollowed(true);
        return assigned;
    }
    std::string_view change = operation;
    const bool all = change.starts_with("[@]") || change.starts_with("[*]"); // bound one after the other
    if (all) change.remove_prefix(3);
    if (length > 0 && all && change.empty())
        if (const auto value = variables.value(name)) return std::string(*value);
    if (operation.empty()) return std::string(plainValue(name, home, variables));
    // ${X:?text} is $X, or the shell stops before it runs the command.
    if (operation.starts_with(":?")) {
        const std::string_view value = plainValue(name, home, variables);
        if (value.empty()) variables.setUnfollowed(true);
        return std::string(value);
    }
    const std::string value(length > 0 ? plainValue(name, home, variables) : "");
    if (length > 0 && leavesNothing(operation) && value.empty()) return "";
    const auto expand = [&](std::string_view text) { return expandedText(text, home, variables); };
    const bool slices = all && change.starts_with(':'); // some of the values, not a part of each
    if (!value.empty() && !slices)
        if (auto changed = changedValue(change, value, expand, variables.steps())) return std::move(*changed);
    variables.setUnfollowed(true);
    return "";
}

// Expands the "$" that `text` begins with; returns how much of `text` it took.
std::size_t expandDollar(std::string_view text, std::string_view home, Variables& variables, std::string& out) {
    if (text.substr(1).starts_with('{')) {
        const std::size_t close = std::min(text.find('}'), text.size());
        out += bracedValue(text.substr(2, close - 2), home, variables);
        return std::min(close + 1, text.size());
    }
    if (text.size() > 1 && std::string_view("@*#?!$").find(text[1]) != std::string_view::npos) {
        variables.setUnfollowed(true);
        return 2;
    }
    std::size_t length = nameLength(text.substr(1));
    if (length > 1 && isDigit(text[1])) length = 1; // $10 is $1 and a 0
    const std::string_view name = text.substr(1, length);
    if (length == 0)
        out += '$';
    else
        out += plainValue(name, home, variables);
    return 1 + length;
}

std::string expandedText(std::string_view text, std::string_view home, Variables& variables) {
    std::string out;
    while (!text.empty()) {
        const std::size_t dollar = std::min(text.find('$'), text.size());
        out += text.substr(0, dollar);
        text.remove_prefix(dollar);
        if (text.empty()) break;
        const std::size_t length = characterLength(text);
        const std::size_t taken = length == 1 ? expandDollar(text, home, variables, out) : length;
        if (length > 1) out += text.substr(0, length);
        text.remove_prefix(taken);
    }
    return out;
}

void restoreDollars(std::string& text) {
    std::size_t from = text.find(protectedDollar);
    if (from == std::string::npos) return;
    std::size_t to = from;
    while (from < text.size()) {
        const bool marker = text.compare(from, protectedDollar.size(), protectedDollar) == 0;
        text[to++] = marker ? '$' : text[from];
        from += marker ? protectedDollar.size() : 1;
    }
    text.resize(to);
}

} // namespace

void Variables::noteUnknown(std::string_view name) {
    if (unknown_.size() >= Budget::variables) return noteOthersUnknown();
    unknown_.emplace(name);
    lastName_.clear();
}

bool Variables::assign(std::string_view name, std::string value) {
    if (!unknown_.empty())
        if (const auto known = unknown_.find(name); known != unknown_.end()) unknown_.erase(known);
    const auto found = assigned_.find(name);
    if (found != assigned_.end()) {
        if (!subshells_.empty()) replaced_.push_back({std::string(name), std::move(found->second)});
        found->second = std::move(value);
        return true;
    }
    if (assigned_.size() >= Budget::variables) return false;
    if (!subshells_.empty()) replaced_.push_back({std::string(name), std::nullopt});
    assigned_.emplace(name, std::move(value));
    lastName_.clear();
    lastValue_ = nullptr;
    return true;
}

void Variables::endSubshell() {
    for (; replaced_.size() > subshells_.back().replaced; replaced_.pop_back()) {
        auto& [name, value] = replaced_.back();
        if (value)
            assigned_[name] = std::move(*value);
        else
            assigned_.erase(name);
    }
    othersUnknown_ = subshells_.back().othersUnknown;
    subshells_.pop_back();
    lastName_.clear();
}

bool Variables::handOut(std::size_t size) {
    if (handedOut_ + size > Budget::valueBytes) return false;
    handedOut_ += size;
    return true;
}

const std::string* Variables::find(std::string_view name) {
    if (!lastName_.empty() && name == lastName_) return lastValue_;
    lastName_ = name;
    const auto assigned = assigned_.find(name);
    const auto inherited = assigned == assigned_.end() ? inherited_.find(name) : inherited_.end();
    if (assigned != assigned_.end())
        lastValue_ = &assigned->second;
    else
        lastValue_ = inherited != inherited_.end() ? &inherited->second : nullptr;
    if (isUnknown(name)) lastValue_ = nullptr;
    return lastValue_;
}

bool Variables::holdsAnyLike(std::string_view begin) const {
    const auto isIn = [&](const Environment& all) {
        const auto first = all.lower_bound(begin);
        return first != all.end() && first->first.starts_with(begin);
    };
    return isIn(assigned_) || isIn(inherited_);
}

std::optional<Parameters> Variables::exchangeParameters(std::optional<Parameters> parameters) {
    return std::exchange(parameters_, std::move(parameters));
}

std::optional<std::string_view> Variables::parameter(std::string_view number) const {
    std::size_t place = 0;
    (void)std::from_chars(number.data(), number.data() + number.size(), place);
    if (!parameters_) return std::nullopt;
    if (place >= parameters_->size()) return ""; // there are no more
    const std::optional<std::string>& value = (*parameters_)[place];
    return value ? std::optional<std::string_view>(*value) : std::nullopt;
}

std::optional<std::string_view> Variables::value(std::string_view name) {
    std::optional<std::string_view> found;
    if (!name.empty() && isDigit(name[0]))
        found = parameter(name);
    else if (const std::string* variable = find(name))
        found = *variable;
    if (!found || handOut(found->size())) return found;
    unfollowed_ = true;
    return std::nullopt;
}

std::size_t nameLength(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size()) {
        if (isAsciiNameByte(text[length])) {
            ++length;
            continue;
        }
        if (static_cast<unsigned char>(text[length]) < 0x80) break;
        const std::size_t character = characterLength(text.substr(length));
        if (!isLetterOrNumber(text.substr(length, character))) break;
        length += character;
    }
    return length;
}

Word expand(Word word, std::string_view home, Variables& variables) {
    expandInPlace(word, home, variables);
    return word;
}

void expandInPlace(Word& word, std::string_view home, Variables& variables) {
    if (!word.expands) return;
    if (word.tilde && (word.text == "~" || word.text.starts_with("~/"))) {
        word.text.replace(0, 1, home);
        word.plain = 0;
    }
    word.tilde = false;
    if (const std::size_t dollar = word.text.find('$'); dollar != std::string::npos) {
        word.plain = std::min(word.plain, static_cast<std::uint32_t>(dollar));
        word.text = expandedText(word.text, home, variables);
    }
    restoreDollars(word.text);
}

} // namespace tidewrack::shell
