#pragma once
// Git's own ignore rules, asked of one long-lived `git check-ignore` child.
//
// Anybody may have written a repository's settings. The child is started so that none of them makes it run a program,
// open a connection or write a file, and it reads no GIT_ variable of this process.

#include "Platform/ChildProcess.hpp"
#include "Platform/Deadline.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// How git did with what one walk asked it. Where it does not find the repository that a ".git" seems to tell of, it has
// answered: there is nothing to ignore.
enum class GitOutcome { answered, late, failed };

// Owns the child for the length of one walk. The child is started at the first question, because most walks ask none.
// Once it has failed, or its answers have taken longer than they may, it is ended and every further question is without
// an answer.
class GitIgnore {
  public:
    using Patience = std::chrono::steady_clock::duration;
    static constexpr Patience patienceOfCommands = std::chrono::seconds(5);
    static constexpr Patience patienceOfHooks = std::chrono::milliseconds(500);

    // None unless `root` lies in a repository and git is installed. `patience`: what all answers together may take;
    // where it is `shared` with other walks, what is left of that, and it must outlive this.
    [[nodiscard]] static std::unique_ptr<GitIgnore>
    open(const std::string& root, Patience patience = patienceOfCommands, Patience* shared = nullptr);
    // Whether a ".git" exists at the path or at any ancestor.
    [[nodiscard]] static bool insideRepo(const std::string& path);

    GitIgnore(std::string root, Patience patience, Patience* shared = nullptr)
        : root_(std::move(root)), own_(patience), left_(shared == nullptr ? own_ : *shared) {}
    GitIgnore(const GitIgnore&) = delete;
    GitIgnore& operator=(const GitIgnore&) = delete;

    // Whether git ignores the folder at this path relative to the root. None: git gave no answer.
    [[nodiscard]] std::optional<bool> isIgnored(std::string_view path);

    // `answered` as long as nothing is asked.
    [[nodiscard]] GitOutcome outcome() const { return outcome_; }

  private:
    enum class State { unasked, answering, gone };

    void start();
    void giveUp();
    [[nodiscard]] bool isInSubmodule(std::string_view asked) const;
    [[nodiscard]] std::optional<bool> answerTo(std::string_view question);
    [[nodiscard]] std::optional<std::string> readField(const Deadline& until);

    const std::string root_;
    Patience own_;
    Patience& left_; // of the time that answers may take
    State state_ = State::unasked;
    GitOutcome outcome_ = GitOutcome::answered;
    std::unique_ptr<ChildProcess> git_;
    std::string buffer_; // read from the child and not yet consumed
};

} // namespace tidewrack
