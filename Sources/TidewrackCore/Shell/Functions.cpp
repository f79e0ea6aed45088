#include "Shell/Functions.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"

#include <algorithm>

namespace tidewrack::shell {

namespace {

bool isPlain(const Word& word, std::string_view text) {
    return word.text == text && word.plain == text.size();
}

std::size_t openedBraces(const Command& command) {
    const auto end = command.words.begin() + static_cast<std::ptrdiff_t>(wordsBeforeCommand(command.words));
    return static_cast<std::size_t>(
        std::count_if(command.words.begin(), end, [](const Word& word) { return isPlain(word, "{"); }));
}

} // namespace

std::shared_ptr<const Functions::Body> Functions::body(std::string_view name) const {
    const auto found = bodies_.find(name);
    return found == bodies_.end() ? nullptr : found->second;
}

void Functions::begin(const std::string& name, const Command& definition, std::size_t nesting, std::size_t calls) {
    bodies_[name] = nullptr;
    if (recorded_) return; // one within another is judged where it stands
    name_ = name;
    recorded_ = std::make_shared<Body>();
    nesting_ = nesting;
    calls_ = calls;
    depth_ = definition.depth;
    braces_ = 0;
    inParentheses_ = false;
    if (definition.isDefinition) return;
    Command first = definition;
    first.words.erase(first.words.begin(), first.words.begin() + 2);
    first.braced.clear();
    if (!first.words.empty()) record(first);
}

void Functions::record(const Command& command) {
    const bool isFirst = recorded_->empty();
    if (isFirst) inParentheses_ = command.depth > depth_;
    if (!isFirst && inParentheses_ && command.sharedDepth <= depth_) return end(true);
    const bool closes = !command.words.empty() && isPlain(command.words.front(), "}");
    if (closes && (braces_ == 0 || --braces_ == 0)) return end(true);
    braces_ += openedBraces(command);
    if (recorded_->size() >= Budget::functionLength) return end(false);
    Command& own = recorded_->emplace_back(command);
    own.depth -= std::min(own.depth, depth_);
    own.sharedDepth -= std::min(own.sharedDepth, depth_);
    if (braces_ == 0 && !inParentheses_) end(true); // NAME() COMMAND
}

void Functions::end(bool whole) {
    if (whole) bodies_[name_] = std::move(recorded_);
    recorded_ = nullptr;
}

} // namespace tidewrack::shell
