#include "Shell/ValueChanges.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <charconv>

namespace tidewrack::shell {

namespace {

bool holdsWildcard(std::string_view pattern) {
    return pattern.find_first_of("*?[") != pattern.npos;
}

// A pattern without wildcards is a text. One with several stars may take a long time, and is not worked out.
class Pattern {
  public:
    explicit Pattern(std::string text) : text_(std::move(text)), wild_(holdsWildcard(text_)) {}

    [[nodiscard]] bool isSimple() const { return std::count(text_.begin(), text_.end(), '*') < 3; }
    [[nodiscard]] bool isEmpty() const { return text_.empty(); }

    // Counts what it takes to try it on parts of a text of this size; false when it is too much.
    [[nodiscard]] bool fits(std::size_t size, std::size_t parts, std::size_t& steps) const {
        const std::size_t cost = wild_ ? parts * size * (text_.size() + 1) : size + text_.size();
        if (cost > steps) return false;
        steps -= cost;
        return true;
    }

    [[nodiscard]] bool matches(std::string_view text) const {
        if (!wild_) return text == text_;
        return fnmatch(text_.c_str(), std::string(text).c_str(), FNM_NOESCAPE) == 0;
    }

    // How much of the text's begin it matches, at most; npos where it matches none.
    [[nodiscard]] std::size_t lengthAt(std::string_view text) const {
        if (!wild_) return text.starts_with(text_) ? text_.size() : text.npos;
        for (std::size_t length = text.size() + 1; length-- > 0;)
            if (matches(text.substr(0, length))) return length;
        return text.npos;
    }

  private:
    std::string text_;
    bool wild_;
};

// ${X%p}, ${X%%p}, ${X#p} and ${X##p}: without the shortest or longest end or begin that matches.
std::string cutValue(std::string_view value, const Pattern& pattern, bool atEnd, bool longest) {
    for (std::size_t step = 0; step <= value.size(); ++step) {
        const std::size_t length = longest ? value.size() - step : step;
        const std::size_t rest = value.size() - length;
        if (pattern.matches(atEnd ? value.substr(rest) : value.substr(0, length)))
            return std::string(atEnd ? value.substr(0, rest) : value.substr(length));
    }
    return std::string(value);
}

std::string replacedValue(std::string_view value, const Pattern& pattern, std::string_view by, bool all) {
    std::string result;
    for (std::size_t at = 0; at < value.size();) {
        const std::size_t length = pattern.lengthAt(value.substr(at));
        if (length == value.npos || length == 0) {
            result += value[at++];
            continue;
        }
        result += by;
        at += length;
        if (!all) return result.append(value.substr(at));
    }
    return result;
}

std::string replacedAtEnd(std::string_view value, const Pattern& pattern, std::string_view by) {
    for (std::size_t at = 0; at <= value.size(); ++at)
        if (pattern.matches(value.substr(at))) return std::string(value.substr(0, at)).append(by);
    return std::string(value);
}

// :2, :2:3
std::optional<std::string> partOf(std::string_view value, std::string_view bounds) {
    const auto number = [](std::string_view text) {
        std::size_t count = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
        const bool whole = error == std::errc() && end == text.data() + text.size();
        return whole ? std::optional(count) : std::nullopt;
    };
    const std::size_t colon = bounds.find(':');
    const auto from = number(bounds.substr(0, colon));
    const auto length = colon == bounds.npos ? std::optional(value.size()) : number(bounds.substr(colon + 1));
    if (!from || !length) return std::nullopt;
    return std::string(value.substr(std::min(*from, value.size()), *length));
}

std::optional<std::string> inOtherCase(std::string_view value, std::string_view operation) {
    const bool up = operation[0] == '^';
    const bool all = operation.size() == 2;
    if (operation != (up ? "^^" : ",,") && operation.size() != 1) return std::nullopt;
    std::string result(value);
    for (char& c : result) {
        if (static_cast<unsigned char>(c) >= 0x80) return std::nullopt;
        if (up ? c >= 'a' && c <= 'z' : c >= 'A' && c <= 'Z') c = static_cast<char>(c ^ 0x20);
        if (!all) break;
    }
    return result;
}

} // namespace

std::optional<std::string> changedValue(std::string_view operation, std::string_view value,
                                        const std::function<std::string(std::string_view)>& expand,
                                        std::size_t& steps) {
    if (operation.empty() || operation.find("${") != operation.npos) return std::nullopt;
    const char kind = operation[0];
    if (kind == ':') return partOf(value, operation.substr(1));
    if (kind == '^' || kind == ',') return inOtherCase(value, operation);
    if (kind != '%' && kind != '#' && kind != '/') return std::nullopt;
    const bool twice = operation.size() > 1 && operation[1] == kind;
    operation.remove_prefix(twice ? 2 : 1);
    if (kind != '/') {
        const Pattern pattern(expand(operation));
        if (!pattern.isSimple() || !pattern.fits(value.size(), value.size(), steps)) return std::nullopt;
        return cutValue(value, pattern, kind == '%', twice);
    }
    const char anchor = !twice && !operation.empty() && (operation[0] == '#' || operation[0] == '%') ? operation[0] : 0;
    if (anchor) operation.remove_prefix(1);
    const std::size_t slash = std::min(operation.find('/'), operation.size());
    const std::string by = expand(operation.substr(std::min(slash + 1, operation.size())));
    const Pattern pattern(expand(operation.substr(0, slash)));
    if (!pattern.isSimple() || !pattern.fits(value.size(), value.size() * value.size(), steps)) return std::nullopt;
    if (anchor == '%') return replacedAtEnd(value, pattern, by);
    if (anchor == '#') {
        const std::size_t length = pattern.lengthAt(value);
        return length == value.npos ? std::string(value) : by + std::string(value.substr(length));
    }
    if (pattern.isEmpty()) return std::nullopt;
    return replacedValue(value, pattern, by, twice);
}

std::string baseName(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path == "/" ? "/" : std::string(path.substr(path.rfind('/') + 1));
}

std::string folderName(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    path = path.substr(0, slash);
    while (path.ends_with('/')) path.remove_suffix(1);
    return path.empty() ? "/" : std::string(path);
}

} // namespace tidewrack::shell
