#include "Shell/WordPaths.hpp"

#include "Shell/Budget.hpp"
#include "Support/Files.hpp"

#include <algorithm>

namespace tidewrack::shell {

namespace {

bool holdsGlob(std::string_view component) {
    return component.find_first_of("*?[") != std::string_view::npos;
}

} // namespace

bool isHard(std::string_view pattern) {
    return std::count(pattern.begin(), pattern.end(), '*') > std::ptrdiff_t{Budget::starsPerName};
}

bool GlobMatcher::start() {
    if (!deadline_) deadline_ = std::chrono::steady_clock::now() + Budget::patternTime;
    return ++patterns_ <= Budget::patterns && matches_ <= Budget::matches;
}

bool GlobMatcher::outOfTime() {
    return ++steps_ % 64 == 0 && std::chrono::steady_clock::now() >= *deadline_;
}

std::optional<std::vector<std::string>> GlobMatcher::match(const std::string& pattern) {
    std::vector<std::string> matches;
    if (pattern.find('\0') != std::string::npos) return matches;
    if (!start() || !descend("", pattern, matches)) return std::nullopt;
    std::sort(matches.begin(), matches.end());
    return matches;
}

std::optional<std::vector<std::string>> GlobMatcher::namesIn(const std::string& folder) {
    std::vector<std::string> names;
    if (!start() || !readNames(folder, nullptr, names)) return std::nullopt;
    matches_ += names.size();
    if (matches_ > Budget::matches) return std::nullopt;
    return names;
}

namespace {

// What names begin and end with that a pattern matches; most names of a large folder need no further look.
class NameEnds {
  public:
    explicit NameEnds(std::string_view pattern) {
        const std::size_t first = std::min(pattern.find_first_of("*?["), pattern.size());
        const std::size_t last = pattern.find_last_of("*?]");
        begin_ = pattern.substr(0, first);
        if (last != pattern.npos) end_ = pattern.substr(last + 1);
    }

    [[nodiscard]] bool fit(std::string_view name) const { return name.starts_with(begin_) && name.ends_with(end_); }

  private:
    std::string_view begin_;
    std::string_view end_;
};

} // namespace

// Adds the names that match `pattern` (null: all); false when time ran out.
bool GlobMatcher::readNames(const std::string& folder, const char* pattern, std::vector<std::string>& names) {
    bool inTime = true;
    const NameEnds ends(pattern && (flags_ & FNM_CASEFOLD) == 0 ? pattern : "*");
    // A folder that cannot be read holds no names, as for a shell.
    (void)visitNames(folder, [&](const char* name) {
        if (!pattern || (ends.fit(name) && fnmatch(pattern, name, flags_) == 0)) names.emplace_back(name);
        return inTime = !outOfTime();
    });
    return inTime;
}

// `path` is what has been matched so far, `rest` the pattern's components behind it.
bool GlobMatcher::descend(std::string path, std::string_view rest, std::vector<std::string>& matches) {
    while (!rest.empty()) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        const std::string component(rest.substr(0, slash));
        rest.remove_prefix(std::min(slash + 1, rest.size()));
        if (component.empty()) continue;
        if (!holdsGlob(component)) {
            path += '/';
            path += component;
            continue;
        }
        if (isHard(component)) return false;
        std::vector<std::string> names;
        if (!readNames(path + '/', component.c_str(), names)) return false;
        for (const std::string& name : names) {
            std::string found = path;
            found.append(1, '/').append(name);
            const bool withinLimits =
                rest.empty() ? add(std::move(found), matches) : descend(std::move(found), rest, matches);
            if (!withinLimits || outOfTime()) return false;
        }
        return true;
    }
    return !exists(path) || add(std::move(path), matches);
}

bool GlobMatcher::add(std::string path, std::vector<std::string>& matches) {
    matches.push_back(std::move(path));
    return ++matches_ <= Budget::matches;
}

} // namespace tidewrack::shell
