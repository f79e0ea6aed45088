#pragma once
// Git's own ignore rules, asked of one long-lived `git check-ignore` child.

#include "Platform/Descriptor.hpp"
#include "Support/Deadline.hpp"

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// Owns the child for the length of one walk. The child is started at the first question, because most walks ask
// none. When it cannot be started, dies or gives no answer before the deadline, every further answer is "not ignored".
class GitIgnore {
  public:
    // None unless `root` lies in a repository and git is installed.
    [[nodiscard]] static std::unique_ptr<GitIgnore> open(const std::string& root,
                                                         const Deadline& deadline = std::nullopt);
    // Whether a ".git" exists at the path or at any ancestor.
    [[nodiscard]] static bool insideRepo(const std::string& path);

    GitIgnore(std::string root, const Deadline& deadline) : root_(std::move(root)), deadline_(deadline) {}
    GitIgnore(const GitIgnore&) = delete;
    GitIgnore& operator=(const GitIgnore&) = delete;
    ~GitIgnore();

    // One question, one answer: whether git ignores the folder at this path relative to the root.
    [[nodiscard]] bool isIgnored(std::string_view path);

  private:
    void launch();
    [[nodiscard]] bool isInSubmodule(std::string_view asked) const;
    [[nodiscard]] bool waitForAnswer(const Deadline& until);
    [[nodiscard]] std::optional<std::string> readField(const Deadline& until);

    std::string root_;
    Deadline deadline_;
    pid_t process_ = -1;
    Descriptor input_;
    Descriptor output_;
    std::string buffer_; // read from the child and not yet consumed
    bool dead_ = false;
    bool launched_ = false;
};

} // namespace tidewrack
