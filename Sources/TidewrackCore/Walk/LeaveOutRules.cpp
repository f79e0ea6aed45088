#include "Walk/LeaveOutRules.hpp"

#include "Platform/Descriptor.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <optional>
#include <utility>

namespace tidewrack {

namespace {

using Names = std::pair<std::string_view, int (*)(int)>;

constexpr Names classes[] = {
    {"alnum", [](int c) { return std::isalnum(c); }}, {"alpha", [](int c) { return std::isalpha(c); }},
    {"blank", [](int c) { return std::isblank(c); }}, {"cntrl", [](int c) { return std::iscntrl(c); }},
    {"digit", [](int c) { return std::isdigit(c); }}, {"graph", [](int c) { return std::isgraph(c); }},
    {"lower", [](int c) { return std::islower(c); }}, {"print", [](int c) { return std::isprint(c); }},
    {"punct", [](int c) { return std::ispunct(c); }}, {"space", [](int c) { return std::isspace(c); }},
    {"upper", [](int c) { return std::isupper(c); }}, {"xdigit", [](int c) { return std::isxdigit(c); }}};

// The letter at the beginning, one behind a backslash as it is; taken off. None where nothing is left.
std::optional<unsigned char> takeLetter(std::string_view& text) {
    if (text.starts_with('\\')) text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    const auto letter = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    return letter;
}

// Whether a class such as [:digit:] at the beginning, which is taken off, has the letter. None: there is no such class.
std::optional<bool> takeClass(std::string_view& set, unsigned char letter) {
    const std::size_t end = set.find(":]", 2);
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view name = set.substr(2, end - 2);
    const auto found =
        std::find_if(std::begin(classes), std::end(classes), [&](const Names& each) { return each.first == name; });
    if (found == std::end(classes)) return std::nullopt;
    set.remove_prefix(end + 2);
    return found->second(letter) != 0;
}

// Whether the set in brackets at the pattern's beginning, which is taken off, has the letter. None: the set has no end,
// and stands for nothing.
std::optional<bool> takeSet(std::string_view& pattern, unsigned char letter) {
    std::string_view set = pattern.substr(1);
    const bool negated = set.starts_with('!') || set.starts_with('^');
    if (negated) set.remove_prefix(1);
    bool has = false;
    for (bool isFirst = true; isFirst || !set.starts_with(']'); isFirst = false) {
        if (set.starts_with("[:")) {
            const auto inClass = takeClass(set, letter);
            if (!inClass) return std::nullopt;
            has = has || *inClass;
            continue;
        }
        const auto low = takeLetter(set);
        if (!low) return std::nullopt;
        auto high = low;
        if (set.size() > 1 && set[0] == '-' && set[1] != ']') {
            set.remove_prefix(1);
            high = takeLetter(set);
            if (!high) return std::nullopt;
        }
        has = has || (*low <= letter && letter <= *high);
    }
    pattern = set.substr(1);
    return has != negated;
}

// Takes one letter's worth off the pattern where it stands for the letter.
bool takeMatch(std::string_view& pattern, unsigned char letter) {
    if (pattern.starts_with('[')) return takeSet(pattern, letter).value_or(false);
    if (pattern.starts_with('?')) {
        pattern.remove_prefix(1);
        return true;
    }
    return takeLetter(pattern) == letter;
}

// One component. Where letters don't fit, the latest star takes one more: none before it need be tried again.
bool matchesName(std::string_view pattern, std::string_view name) {
    std::optional<std::pair<std::string_view, std::string_view>> star; // what is behind it, and what it does not take
    while (true) {
        if (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            star = {pattern, name};
            continue;
        }
        if (name.empty() && pattern.empty()) return true;
        std::string_view rest = pattern;
        if (!name.empty() && !pattern.empty() && takeMatch(rest, static_cast<unsigned char>(name.front()))) {
            pattern = rest;
            name.remove_prefix(1);
            continue;
        }
        if (!star || star->second.empty()) return false;
        star->second.remove_prefix(1);
        std::tie(pattern, name) = *star;
    }
}

// The first component, taken off with the slash behind it.
std::string_view takeComponent(std::string_view& path) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, slash);
    path.remove_prefix(std::min(slash + 1, path.size()));
    return component;
}

// The same of a pattern: a slash in a set ends nothing. What is behind a set without an end belongs to it.
std::string_view takePatternComponent(std::string_view& pattern) {
    std::size_t at = 0;
    while (at < pattern.size() && pattern[at] != '/') {
        std::string_view rest = pattern.substr(at);
        if (rest.front() == '[') {
            if (!takeSet(rest, 0)) rest = {};
        } else {
            (void)takeLetter(rest);
        }
        at = pattern.size() - rest.size();
    }
    const std::string_view component = pattern.substr(0, at);
    pattern.remove_prefix(std::min(at + 1, pattern.size()));
    return component;
}

bool isStars(std::string_view component) {
    return component.size() >= 2 && component.find_first_not_of('*') == std::string_view::npos;
}

// Spaces at the end don't count, unless a backslash is before them.
std::string_view withoutSpaces(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == ' ') continue;
        if (line[at] == '\\') ++at;
        end = std::min(at + 1, line.size());
    }
    return line.substr(0, end);
}

// The content of a regular file; none of what is larger.
std::string smallFile(const std::string& path, std::size_t largest) {
    std::string text;
    const Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)); // a pipe would be waited for
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return text;
    text.resize(largest + 1);
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        size += static_cast<std::size_t>(count);
    }
    text.resize(size > largest ? 0 : size);
    return text;
}

} // namespace

bool matchesPattern(std::string_view pattern, std::string_view path) {
    std::optional<std::pair<std::string_view, std::string_view>> stars; // as in matchesName
    while (true) {
        if (pattern.empty() && path.empty()) return true;
        std::string_view restOfPattern = pattern;
        const std::string_view component = takePatternComponent(restOfPattern);
        if (!pattern.empty() && isStars(component)) {
            if (restOfPattern.empty()) return !path.empty(); // all that is in the folder
            pattern = restOfPattern;
            stars = {pattern, path};
            continue;
        }
        std::string_view restOfPath = path;
        if (!pattern.empty() && !path.empty() && matchesName(component, takeComponent(restOfPath))) {
            pattern = restOfPattern;
            path = restOfPath;
            continue;
        }
        if (!stars || stars->second.empty()) return false;
        (void)takeComponent(stars->second);
        std::tie(pattern, path) = *stars;
    }
}

LeaveOutRules LeaveOutRules::of(const Project& project) {
    LeaveOutRules rules;
    rules.add(smallFile(joined(project.root, fileName), largestFile));
    for (const std::string& pattern : project.patterns) rules.add(pattern);
    return rules;
}

void LeaveOutRules::keepAll() {
    std::erase_if(rules_, [](const Rule& rule) { return !rule.keeps; });
}

void LeaveOutRules::add(std::string_view lines) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (lines.starts_with(mark)) lines.remove_prefix(mark.size());
    const std::size_t most = rules_.size() + mostRules; // those of the record hold whatever the file has
    while (!lines.empty() && rules_.size() < most) {
        const std::size_t feed = std::min(lines.find('\n'), lines.size());
        std::string_view line = lines.substr(0, feed);
        lines.remove_prefix(std::min(feed + 1, lines.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.starts_with('#')) continue;
        line = withoutSpaces(line);
        Rule rule;
        rule.keeps = line.starts_with('!');
        if (rule.keeps) line.remove_prefix(1);
        rule.foldersOnly = line.ends_with('/');
        if (rule.foldersOnly) line.remove_suffix(1);
        rule.isWhole = line.find('/') != std::string_view::npos;
        if (line.starts_with('/')) line.remove_prefix(1);
        if (line.empty()) continue;
        rule.isLiteral = line.find_first_of("*?[\\") == std::string_view::npos;
        rule.pattern = line;
        rules_.push_back(std::move(rule));
    }
}

bool LeaveOutRules::matches(const Rule& rule, std::string_view path, std::string_view name, bool isFolder) {
    if (rule.foldersOnly && !isFolder) return false;
    const std::string_view compared = rule.isWhole ? path : name;
    if (rule.isLiteral) return compared == rule.pattern;
    return matchesPattern(rule.pattern, compared);
}

LeaveOutRules::Verdict LeaveOutRules::of(std::string_view path, bool isFolder) const {
    if (rules_.empty() || path == fileName) return Verdict::none;
    const std::string_view name = lastComponent(path);
    if (name == ".git") return Verdict::none;
    const auto rule = std::find_if(rules_.rbegin(), rules_.rend(),
                                   [&](const Rule& each) { return matches(each, path, name, isFolder); });
    if (rule == rules_.rend()) return Verdict::none;
    return rule->keeps ? Verdict::kept : Verdict::leftOut;
}

bool LeaveOutRules::leavesOut(std::string_view path, bool isFolder) const {
    if (of(path, isFolder) == Verdict::leftOut) return true;
    for (std::size_t end = path.size(); (end = path.rfind('/', end)) != std::string_view::npos && end > 0; --end)
        if (of(path.substr(0, end), true) == Verdict::leftOut) return true;
    return false;
}

} // namespace tidewrack
