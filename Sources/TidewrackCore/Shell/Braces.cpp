#include "Shell/Braces.hpp"

#include "Shell/Budget.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>

namespace tidewrack::shell {

namespace {

using Words = std::vector<std::string>;

// The length of the unit at `at`: an escaped character or a quoted text as a whole, else one byte.
std::size_t unitLength(std::string_view text, std::size_t at) {
    const char c = text[at];
    if (c == '\\') return std::min<std::size_t>(2, text.size() - at);
    if (c != '\'' && c != '"') return 1;
    const bool escapes = c == '"' || (at > 0 && text[at - 1] == '$');
    std::size_t end = at + 1;
    while (end < text.size() && text[end] != c) end += escapes && text[end] == '\\' ? 2U : 1U;
    return std::min(end + 1, text.size()) - at;
}

struct Range {
    long first;
    long last;
    bool letters;
    std::size_t width; // numbers are filled up with zeros to it
};

// The range that {body} counts through; none when it is no range.
std::optional<Range> rangeOf(std::string_view body) {
    const std::size_t dots = body.find("..");
    if (dots == std::string_view::npos) return std::nullopt;
    const std::string_view from = body.substr(0, dots);
    const std::string_view to = body.substr(dots + 2);
    const auto isLetter = [](std::string_view text) {
        return text.size() == 1 && ((text[0] >= 'a' && text[0] <= 'z') || (text[0] >= 'A' && text[0] <= 'Z'));
    };
    if (isLetter(from) && isLetter(to)) return Range{from[0], to[0], true, 0};
    const auto number = [](std::string_view text, long& value) {
        const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        return text.size() <= Budget::braceNumberLength && result.ec == std::errc() &&
               result.ptr == text.data() + text.size();
    };
    Range range{0, 0, false, 0};
    if (!number(from, range.first) || !number(to, range.last)) return std::nullopt;
    const auto padded = [](std::string_view text) {
        text.remove_prefix(text.starts_with('-') ? 1 : 0);
        return text.size() > 1 && text[0] == '0';
    };
    if (padded(from) || padded(to)) range.width = std::max(from.size(), to.size());
    return range;
}

std::string numberText(long number, std::size_t width) {
    std::string digits = std::to_string(std::labs(number));
    const std::string sign = number < 0 ? "-" : "";
    if (digits.size() + sign.size() < width) digits.insert(0, width - digits.size() - sign.size(), '0');
    return sign + digits;
}

class Expansion {
  public:
    explicit Expansion(std::string_view source) : source_(source) { findPairs(); }

    std::optional<Words> all() {
        Words words = expand(0, source_.size(), 0);
        if (tooMuch_) return std::nullopt;
        for (std::string& word : words)
            if (word.starts_with('#')) word.insert(0, 1, '\\');
        return words;
    }

  private:
    enum class Kind { list, range, variable };
    struct Pair {
        std::size_t close;
        Kind kind;
    };

    void findPairs();
    Words expand(std::size_t begin, std::size_t end, std::size_t depth);
    Words expandPair(std::size_t open, const Pair& pair, std::size_t depth);
    Words countThrough(const Range& range);
    void append(Words& words, const Words& endings);

    std::string_view source_;
    std::map<std::size_t, Pair> pairs_; // by the place of the opening brace
    bool tooMuch_ = false;
};

void Expansion::findPairs() {
    struct Open {
        std::size_t at;
        bool variable;
        bool comma;
    };
    std::vector<Open> open;
    for (std::size_t at = 0; at < source_.size(); at += unitLength(source_, at)) {
        const char c = source_[at];
        if (c == '{') {
            open.push_back({at, at > 0 && source_[at - 1] == '$', false});
        } else if (c == ',' && !open.empty()) {
            open.back().comma = true;
        } else if (c == '}' && !open.empty()) {
            const Open opened = open.back();
            open.pop_back();
            if (opened.variable)
                pairs_[opened.at] = {at, Kind::variable};
            else if (opened.comma)
                pairs_[opened.at] = {at, Kind::list};
            else if (rangeOf(source_.substr(opened.at + 1, at - opened.at - 1)))
                pairs_[opened.at] = {at, Kind::range};
        }
    }
}

Words Expansion::expand(std::size_t begin, std::size_t end, std::size_t depth) {
    Words words(1);
    if (depth > Budget::braceDepth) tooMuch_ = true;
    std::size_t literal = begin;
    for (std::size_t at = begin; at < end && !tooMuch_;) {
        const auto pair = source_[at] == '{' ? pairs_.find(at) : pairs_.end();
        if (pair == pairs_.end()) {
            at += unitLength(source_, at);
        } else if (pair->second.kind == Kind::variable) {
            at = pair->second.close + 1;
        } else {
            append(words, {std::string(source_.substr(literal, at - literal))});
            append(words, expandPair(at, pair->second, depth));
            at = literal = pair->second.close + 1;
        }
    }
    if (!tooMuch_) append(words, {std::string(source_.substr(literal, end - literal))});
    return words;
}

Words Expansion::expandPair(std::size_t open, const Pair& pair, std::size_t depth) {
    if (pair.kind == Kind::range) return countThrough(*rangeOf(source_.substr(open + 1, pair.close - open - 1)));
    Words words;
    std::size_t begin = open + 1;
    for (std::size_t at = begin; at <= pair.close && !tooMuch_;) {
        const auto inner = source_[at] == '{' ? pairs_.find(at) : pairs_.end();
        if (inner != pairs_.end()) {
            at = inner->second.close + 1;
            continue;
        }
        if (at == pair.close || source_[at] == ',') {
            for (std::string& word : expand(begin, at, depth + 1)) words.push_back(std::move(word));
            if (words.size() > Budget::braceWordsPerList) tooMuch_ = true;
            begin = at + 1;
        }
        at += unitLength(source_, at);
    }
    return words;
}

Words Expansion::countThrough(const Range& range) {
    Words words;
    if (std::labs(range.last - range.first) >= static_cast<long>(Budget::braceWordsPerList)) {
        tooMuch_ = true;
        return words;
    }
    const long step = range.first <= range.last ? 1 : -1;
    for (long value = range.first; value != range.last + step; value += step)
        words.push_back(range.letters ? std::string(1, static_cast<char>(value)) : numberText(value, range.width));
    return words;
}

// Replaces every word by itself with each of the endings.
void Expansion::append(Words& words, const Words& endings) {
    std::size_t wordBytes = 0;
    std::size_t endingBytes = 0;
    for (const std::string& word : words) wordBytes += word.size();
    for (const std::string& ending : endings) endingBytes += ending.size();
    tooMuch_ = tooMuch_ || words.size() * endings.size() > Budget::braceWordsPerList ||
               wordBytes * endings.size() + endingBytes * words.size() > Budget::braceBytes;
    if (tooMuch_) return;
    if (endings.size() == 1) {
        for (std::string& word : words) word += endings.front();
        return;
    }
    Words result;
    result.reserve(words.size() * endings.size());
    for (const std::string& word : words)
        for (const std::string& ending : endings) result.push_back(word + ending);
    words = std::move(result);
}

} // namespace

std::optional<std::vector<std::string>> expandBraces(std::string_view source) {
    if (source.size() > Budget::braceBytes) return std::nullopt;
    return Expansion(source).all();
}

} // namespace tidewrack::shell
