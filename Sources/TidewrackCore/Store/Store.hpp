#pragma once
// Where the histories live, and which folders have one. docs/store-format.md shows the tree.

#include "Store/History.hpp"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// The process's environment, handed in so that tests choose it.
using Environment = std::map<std::string, std::string, std::less<>>;

// HOME when set and not empty, else the password database's home folder.
[[nodiscard]] std::string homeFolder(const Environment& environment);

// All tracked projects as far as their records can be read.
struct Registry {
    struct Unreadable {
        std::string path; // of a record, or of the folder of all
        std::string reason;

        bool operator==(const Unreadable&) const = default;
    };

    std::vector<Project> projects; // by id
    std::vector<Unreadable> unreadable;
};

class Store {
  public:
    // TIDEWRACK_HOME when set and not empty, else "Library/Application Support/Tidewrack" in the home folder.
    // Creates nothing. Throws TidewrackError io when neither variable nor password database tell a home folder.
    static Store fromEnvironment(const Environment& environment);
    // `root`: the store's own folder; `user`: the user's home folder, for the folders too broad to track.
    Store(std::string root, std::string user) : home(std::move(root)), userHome(std::move(user)) {}

    std::string home;
    std::string userHome;

    // The one spelling of a path used for comparisons and records: absolute, without "." and "..", symbolic links
    // resolved, no trailing slash. Missing tails are kept as they are.
    [[nodiscard]] static std::string canonical(const std::string& path);
    // The same for the place that a path names: a link there is not followed.
    [[nodiscard]] static std::string canonicalPlace(const std::string& path);
    // "<slug of the last component>-<8 hex digits of the root's SHA-256>"
    [[nodiscard]] static std::string projectID(const std::string& root);

    // Enters a project into the registry, with an empty history. Throws TidewrackError io. A record that is there under
    // its id stays: throws refused when it is another project's or can't be read. A lock is not waited for any longer
    // than until `lockedUntil`.
    void add(const Project& project, const Deadline& lockedUntil = std::nullopt) const;
    // Removes a project's whole history: in one step it is none any more, and what it kept is then removed. What an
    // earlier untrack that was cut short has left is removed as well.
    void untrack(const Project& project) const;
    // Makes the project's history that of the folder `root`, which has none. It is in one of both places at any time:
    // where a sudden death comes between it is found by its old root, and can be moved again. Throws TidewrackError io,
    // corrupt and refused.
    void move(const Project& project, const std::string& root) const;
    // Whether the folder has a history without a record, which is no project's.
    [[nodiscard]] bool hasRemains(const Project& project) const;

    // All tracked projects, by id, but for those whose records can't be read. Throws TidewrackError corrupt when one
    // does not decode, and as refuseForeign().
    [[nodiscard]] std::vector<Project> projects() const;
    // The same for callers that go on with the sound ones and tell of the others. Throws as refuseForeign() alone.
    [[nodiscard]] Registry registry() const;
    // The same whoever may have written it: for judging what is worth a question, and nothing else.
    [[nodiscard]] Registry registryAsItIs() const;
    // The nearest tracked root at or above `path`.
    [[nodiscard]] std::optional<Project> projectContaining(const std::string& path) const;
    [[nodiscard]] static std::optional<Project> projectContaining(const std::string& path,
                                                                  const std::vector<Project>& projects);

    [[nodiscard]] History history(const Project& project) const {
        return {projectsFolder() + "/" + project.id, project.root};
    }

    // Sentences on a project whose kept copies cost real disk space; none where blocks are shared.
    [[nodiscard]] std::vector<std::string> storageWarnings(const Project& project) const;
    // Throws TidewrackError refused when others could have written what is taken for history: the store belongs to
    // another user and neither that user nor this one is root, or everybody can write to it. To be called before
    // anything in it is believed.
    void refuseForeign() const;
    // Creates the store's folder (mode 0700) with its parents. Returns an errno value.
    [[nodiscard]] int makeHome() const;

  private:
    [[nodiscard]] std::string projectsFolder() const { return home + "/projects"; }
    [[nodiscard]] std::vector<std::string> recordPaths() const;
    void removeUntracked() const;
};

} // namespace tidewrack
