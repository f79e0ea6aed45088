#include "Walk/GitQuestion.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Process.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace tidewrack {

namespace {

using std::chrono::steady_clock;

// Every setting by which a repository could make git run or reach something while it answers. The command line counts
// more than any file, included ones too. Nothing but GIT_ALLOW_PROTOCOL overrides a repository's
// `protocol.<name>.allow`, and nothing but GIT_NO_LAZY_FETCH keeps a missing object from being fetched. A git that does
// not know the latter yet would start a second git for that, and finds none. Threads count as processes, and the child
// may start none.
constexpr std::array settings = {"core.fsmonitor=false",    "core.hooksPath=/dev/null",
                                 "core.preloadIndex=false", "index.threads=1",
                                 "protocol.allow=never",    "core.sshCommand=false",
                                 "core.askPass=false",      "core.gitProxy=false",
                                 "credential.helper=",      "gc.auto=0",
                                 "maintenance.auto=false"};
constexpr std::array ownVariables = {"PATH=/dev/null",
                                     "GIT_EXEC_PATH=/dev/null",
                                     "GIT_ALLOW_PROTOCOL=none",
                                     "GIT_NO_LAZY_FETCH=1",
                                     "GIT_TERMINAL_PROMPT=0",
                                     "GIT_OPTIONAL_LOCKS=0",
                                     "GIT_TRACE2=0",
                                     "GIT_TRACE2_EVENT=0",
                                     "GIT_TRACE2_PERF=0",
                                     "LC_ALL=C"};

// These variables lead to the user's own settings, and so to the user's global ignore file, or name the user who called
// sudo, whose repositories git then trusts.
constexpr std::array inherited = {"HOME", "XDG_CONFIG_HOME", "SUDO_UID"};

} // namespace

ChildCommand gitCommand(const std::string& folder, const std::vector<std::string>& words) {
    ChildCommand result{gitProgram(), {"--no-pager"}, {ownVariables.begin(), ownVariables.end()}};
    for (const char* setting : settings) result.arguments.insert(result.arguments.end(), {"-c", setting});
    result.arguments.insert(result.arguments.end(), {"-C", folder});
    result.arguments.insert(result.arguments.end(), words.begin(), words.end());
    for (const char* name : inherited)
        if (const char* value = std::getenv(name)) result.environment.push_back(std::string(name) + "=" + value);
    return result;
}

namespace {

// All that git prints. None when it fails, or is not done in time.
std::optional<std::string> answerOf(const std::string& folder, const std::vector<std::string>& words,
                                    GitPatience& patience) {
    if (gitProgram().empty() || patience <= GitPatience::zero()) return std::nullopt;
    const auto asked = steady_clock::now();
    const Deadline until = asked + patience;
    std::string answer;
    ChildProcess git;
    int error = git.start(gitCommand(folder, words));
    while (error == 0) error = git.receive(answer, until);
    const bool done = error == EPIPE && git.succeeds(until);
    git.end();
    patience -= steady_clock::now() - asked;
    return done ? std::optional(std::move(answer)) : std::nullopt;
}

// A path as git prints it for people: in double quotes, with escapes, where it holds what is special.
std::string unquoted(std::string_view text) {
    if (text.size() < 2 || !text.starts_with('"') || !text.ends_with('"')) return std::string(text);
    text = text.substr(1, text.size() - 2);
    std::string path;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\' || at + 1 == text.size()) {
            path += text[at];
            continue;
        }
        ++at;
        constexpr std::string_view letters = "abfnrtv";
        constexpr std::string_view meanings = "\a\b\f\n\r\t\v";
        int byte = 0;
        const char* const digits = text.data() + at;
        const char* const end = digits + std::min<std::size_t>(3, text.size() - at);
        if (const std::size_t which = letters.find(text[at]); which != letters.npos) {
            path += meanings[which];
        } else if (std::from_chars(digits, end, byte, 8).ptr == digits + 3) {
            path += static_cast<char>(byte);
            at += 2;
        } else {
            path += text[at];
        }
    }
    return path;
}

// The number behind a name such as "  mtime: 17:25", which is cut off.
std::optional<std::int64_t> numberBehind(std::string_view& text, std::string_view name) {
    const std::size_t at = text.find(name);
    if (at == text.npos) return std::nullopt;
    text.remove_prefix(at + name.size());
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

} // namespace

std::optional<std::set<std::string>> cleanedByGit(const std::string& folder, const std::vector<std::string>& words,
                                                  GitPatience& patience) {
    constexpr std::string_view begin = "Would remove ";
    std::vector<std::string> all = {"-c", "core.quotePath=false", "clean", "-n"};
    all.insert(all.end(), words.begin(), words.end());
    const auto answer = answerOf(folder, all, patience);
    if (!answer) return std::nullopt;
    std::set<std::string> paths;
    std::string_view rest = *answer;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.starts_with(begin)) paths.insert(absolutePath(unquoted(line.substr(begin.size())), folder));
    }
    return paths;
}

// Comparing contents would pass them through the repository's own programs. What the index has of each file tells
// enough: mode, number and stage; a tab, the path and a zero byte; then lines with times and size.
std::optional<std::set<std::string>> changedForGit(const std::string& folder, const std::vector<std::string>& paths,
                                                   GitPatience& patience) {
    std::vector<std::string> words = {"--literal-pathspecs", "ls-files", "--stage", "--debug", "-z", "--"};
    words.insert(words.end(), paths.begin(), paths.end());
    const auto answer = answerOf(folder, words, patience);
    if (!answer) return std::nullopt;
    std::set<std::string> changed;
    std::string_view rest = *answer;
    while (!rest.empty()) {
        const std::size_t tab = rest.find('\t');
        const std::size_t zero = rest.find('\0');
        if (tab == rest.npos || zero == rest.npos || zero < tab) return std::nullopt; // of another git
        std::string path = absolutePath(rest.substr(tab + 1, zero - tab - 1), folder);
        rest.remove_prefix(zero + 1);
        const auto seconds = numberBehind(rest, "mtime: ");
        const auto nanos = numberBehind(rest, ":");
        const auto size = numberBehind(rest, "size: ");
        const auto flags = rest.find('\n');
        if (!seconds || !nanos || !size) return std::nullopt;
        rest.remove_prefix(flags == rest.npos ? rest.size() : flags + 1);
        Attributes now;
        const bool isThere = attributesAt(AT_FDCWD, path.c_str(), now) == 0;
        // A git that keeps no parts of seconds has 0 for them.
        const bool sameTime =
            now.mtime / nanosPerSecond == *seconds && (*nanos == 0 || now.mtime % nanosPerSecond == *nanos);
        constexpr std::int64_t sizeMask = 0xffffffff; // of what the index keeps of a size
        if (isThere && !(sameTime && (now.size & sizeMask) == *size)) changed.insert(std::move(path));
    }
    return changed;
}

} // namespace tidewrack
