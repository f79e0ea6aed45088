#include "Walk/GitIgnore.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Process.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Walk/GitQuestion.hpp"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <climits>

namespace tidewrack {

namespace {

using std::chrono::steady_clock;

// Whether the path or any ancestor has a ".git" that `matches`.
template <class Matches>
bool atOrAbove(std::string folder, const Matches& matches) {
    while (!folder.empty()) {
        if (matches(folder + "/.git")) return true;
        if (folder == "/") return false;
        const auto slash = folder.rfind('/');
        if (slash == std::string::npos) return false;
        folder.resize(slash == 0 ? 1 : slash);
    }
    return false;
}

bool isThere(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

// A folder that is only named like one lacks the file that every repository has. What may not be looked into counts as
// one, and so does a file, which leads to one elsewhere.
bool isRepository(const std::string& git) {
    return isThere(git) && (isThere(git + "/HEAD") || errno != ENOENT);
}

} // namespace

bool GitIgnore::insideRepo(const std::string& path) {
    return atOrAbove(path, isThere);
}

std::unique_ptr<GitIgnore> GitIgnore::open(const std::string& root, Patience patience, Patience* shared) {
    if (!insideRepo(root) || gitProgram().empty()) return nullptr;
    return std::make_unique<GitIgnore>(root, patience, shared);
}

// git ends when it is asked about a path inside a submodule, so such paths are not asked about. A submodule has a
// ".git" file. A linked work tree has one too, but that leads to a folder directly in "worktrees".
bool GitIgnore::isInSubmodule(std::string_view asked) const {
    for (std::string_view folder = parentOf(asked); !folder.empty(); folder = parentOf(folder)) {
        const std::string path = root_ + "/" + std::string(folder) + "/.git";
        Attributes attributes;
        std::string link;
        if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0 || attributes.kind != Attributes::Kind::file)
            continue;
        return readFile(path, link) != 0 || lastComponent(parentOf(link)) != "worktrees";
    }
    return false;
}

std::optional<bool> GitIgnore::isIgnored(std::string_view path) {
    // The system takes no longer path in one call, so git could not look at it either; and every shorter one fits into
    // a pipe.
    if (path.size() >= PATH_MAX || path.find('\0') != std::string_view::npos) return false;
    if (isInSubmodule(path)) return false;
    if (state_ == State::unasked) start();
    if (state_ == State::gone) return std::nullopt;
    const auto asked = steady_clock::now();
    // git would take a leading colon for one of its own signs.
    auto answer = answerTo((path.starts_with(':') ? "./" : "") + std::string(path));
    left_ -= steady_clock::now() - asked;
    if (!answer) giveUp();
    return answer;
}

void GitIgnore::start() {
    git_ = std::make_unique<ChildProcess>();
    state_ = State::answering;
    const bool usedUp = left_ <= Patience::zero(); // by others
    if (usedUp || git_->start(gitCommand(root_, {"check-ignore", "--stdin", "-z", "--verbose", "--non-matching"})) != 0)
        giveUp();
}

void GitIgnore::giveUp() {
    state_ = State::gone;
    git_.reset();
    if (left_ <= Patience::zero())
        outcome_ = GitOutcome::late;
    else if (atOrAbove(root_, isRepository))
        outcome_ = GitOutcome::failed;
}

std::optional<bool> GitIgnore::answerTo(std::string_view question) {
    const Deadline until = steady_clock::now() + left_;
    if (git_->send(std::string(question) + '\0') != 0) return std::nullopt;
    std::array<std::string, 4> fields; // source, line number, pattern, path
    for (std::string& field : fields) {
        auto text = readField(until);
        if (!text) return std::nullopt;
        field = std::move(*text);
    }
    return !fields[0].empty() && !fields[2].starts_with('!');
}

std::optional<std::string> GitIgnore::readField(const Deadline& until) {
    while (true) {
        const auto end = buffer_.find('\0');
        if (end != std::string::npos) {
            std::string field = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return field;
        }
        if (git_->receive(buffer_, until) != 0) return std::nullopt;
    }
}

} // namespace tidewrack
