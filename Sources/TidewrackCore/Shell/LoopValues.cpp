// The values that loops and arrays give a variable, one after the other.

#include "Shell/WordValues.hpp"

#include "Shell/Budget.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tidewrack::shell {

namespace {

// Where the text mentions the variable; npos where it does not.
std::size_t mentionAt(std::string_view text, std::string_view name) {
    for (std::size_t at = text.find('$'); at != std::string_view::npos; at = text.find('$', at + 1)) {
        std::string_view behind = text.substr(at + 1);
        if (behind.starts_with('{')) behind.remove_prefix(1);
        if (behind.starts_with(name) && nameLength(behind) == name.size()) return at;
    }
    return text.npos;
}

// Also in the words of the commands within.
bool mentions(const Word& word, const Command& command, std::string_view name) {
    if (mentionAt(word.text, name) != word.text.npos) return true;
    for (std::size_t at = word.text.find(firstMarkByte); at != std::string::npos;
         at = word.text.find(firstMarkByte, at + 1)) {
        const auto number = markedSubstitution(std::string_view(word.text).substr(at));
        if (!number || *number >= command.nested.size()) continue;
        for (const Command& inner : command.nested[*number].program.commands)
            if (std::any_of(inner.words.begin(), inner.words.end(),
                            [&](const Word& one) { return mentions(one, inner, name); }))
                return true;
    }
    return false;
}

// The work of expanding the words once more, counted in alternatives of usual size.
std::size_t costOf(const std::vector<Word>& words) {
    std::size_t bytes = 0;
    for (const Word& word : words) bytes += 64 + word.text.size();
    return 1 + bytes / 256;
}

} // namespace

WordValues::Loop* WordValues::loopOf(std::string_view name) {
    const auto found = std::find_if(loops_.begin(), loops_.end(), [&](const Loop& loop) { return loop.name == name; });
    return found == loops_.end() ? nullptr : &*found;
}

// The loop variables of several values that the words mention; none when it would take too long to try them all.
std::vector<std::string> WordValues::choicesIn(const std::vector<Word>& words, const Command& command) {
    std::vector<std::string> choices;
    for (const Loop& loop : loops_) {
        const auto isIn = [&](const Word& word) { return word.expands && mentions(word, command, loop.name); };
        if (loop.values.size() > 1 && std::any_of(words.begin(), words.end(), isIn)) choices.push_back(loop.name);
    }
    if (!choices.empty() && alternatives_ + costOf(words) > Budget::alternatives) {
        effects_.opaque(position_.folder());
        choices.clear();
    }
    return choices;
}

bool WordValues::forEachRun(const std::vector<Word>& words, const Command& command,
                            const std::function<void(Readings&&)>& visit) {
    const std::vector<std::string> choices = choicesIn(words, command);
    if (choices.empty()) return false;
    visitRuns(words, command, choices, visit);
    return true;
}

// A run may bind the loop's own variable anew.
void WordValues::visitRuns(const std::vector<Word>& words, const Command& command, std::span<const std::string> loops,
                           const std::function<void(Readings&&)>& visit) {
    if (loops.empty()) return visit(read(words, command));
    Loop* loop = loopOf(loops.front());
    if (loop == nullptr) return visitRuns(words, command, loops.subspan(1), visit);
    std::vector<Word> all = std::exchange(loop->values, {});
    for (const Word& value : all) {
        alternatives_ += costOf(words) + value.text.size() / 256;
        if (alternatives_ > Budget::alternatives) {
            effects_.opaque(position_.folder());
            break;
        }
        if (loop = loopOf(loops.front()); loop != nullptr) loop->values.assign(1, value);
        visitRuns(words, command, loops.subspan(1), visit);
    }
    if (loop = loopOf(loops.front()); loop != nullptr) loop->values = std::move(all);
}

std::vector<Word> WordValues::expandedOverLoops(std::vector<Word> words) {
    std::vector<Word> result;
    result.reserve(words.size());
    for (Word& word : words) {
        if (word.expands)
            expandOver(std::move(word), 0, false, result);
        else
            result.push_back(std::move(word));
    }
    return result;
}

// Adds the word once for every value of every loop variable that it mentions.
void WordValues::expandOver(Word word, std::size_t loop, bool glob, std::vector<Word>& out) {
    while (loop < loops_.size() && !mentions(word, *command_, loops_[loop].name)) ++loop;
    if (loop == loops_.size()) {
        word.glob |= glob;
        expandOne(word);
        out.push_back(std::move(word));
        return;
    }
    if (loops_[loop].values.empty()) {
        noteKnownFolder(word, mentionAt(word.text, loops_[loop].name));
        setUnknown(word);
        out.push_back(std::move(word));
        return;
    }
    for (const Word& value : loops_[loop].values) {
        alternatives_ += 1 + (word.text.size() + value.text.size()) / 256;
        if (alternatives_ > Budget::alternatives) return effects_.opaque(position_.folder());
        if (value.unknown) {
            noteKnownFolder(word, mentionAt(word.text, loops_[loop].name));
            setUnknown(out.emplace_back(word));
            continue;
        }
        variables_.assign(loops_[loop].name, value.text);
        expandOver(word, loop + 1, glob || value.glob, out);
    }
}

void WordValues::bindLoop(std::string_view name, std::vector<Word> values) {
    forgetLoop(name);
    if (values.empty()) return variables_.noteUnknown(name);
    variables_.assign(name, "");
    if (loops_.size() >= Budget::loops || values.size() > Budget::valuesPerLoop)
        return effects_.opaque(position_.folder());
    loops_.push_back({std::string(name), std::move(values)});
}

void WordValues::extendLoop(std::string_view name, std::vector<Word> values) {
    std::vector<Word> all;
    if (const Loop* loop = loopOf(name)) {
        all = loop->values;
    } else if (variables_.isUnknown(name)) {
        return;
    } else if (const auto value = variables_.value(name)) {
        all.emplace_back().text = *value;
    }
    all.insert(all.end(), std::make_move_iterator(values.begin()), std::make_move_iterator(values.end()));
    bindLoop(name, std::move(all));
}

void WordValues::forgetLoop(std::string_view name) {
    loops_.erase(std::remove_if(loops_.begin(), loops_.end(), [&](const Loop& loop) { return loop.name == name; }),
                 loops_.end());
}

} // namespace tidewrack::shell
