#pragma once
// Hermetic surroundings: a folder of its own, a store and a home in it, and the front end run in this process.
// Histories as tests need them: older than they are, read by a user without special rights.

#include "CommandLine.hpp"
#include "Engine/Engine.hpp"

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace tidewrack::testing {

// A fresh folder, removed with everything in it at the end. Its path is canonical.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string at(const std::string& relative) const { return path_ + "/" + relative; }
    // Writes a file, with its parent folders.
    void write(const std::string& relative, const std::string& text) const;
    void makeFolder(const std::string& relative) const;
    void link(const std::string& relative, const std::string& destination) const;
    void remove(const std::string& relative) const;                    // with everything in it
    [[nodiscard]] std::string read(const std::string& relative) const; // "<missing>" when it can't be read
    [[nodiscard]] bool has(const std::string& relative) const;
    // Every path below with kind, mode, content or destination, sorted: equal texts are equal trees.
    [[nodiscard]] std::string listing(const std::string& relative = "") const;

  private:
    std::string path_;
};

// A file name or path of any bytes, for use below a TemporaryFolder. Where volumes take UTF-8 only, each byte that is
// none becomes a character of its own.
[[nodiscard]] std::string ofAnyBytes(const std::string& path);
[[nodiscard]] bool volumesTakeAnyBytes();

// A file of the checkout, or of a copy of it in TIDEWRACK_TEST_CHECKOUT: for a user who may not read the checkout.
[[nodiscard]] std::string inCheckout(const std::string& relative);
// A program that this build made.
[[nodiscard]] std::string builtProgram(const std::string& name);

// The text of such a file.
std::string checkoutText(const std::string& relative);
inline std::string document(const std::string& name) {
    return checkoutText("docs/" + name);
}
inline std::string testData(const std::string& name) {
    return checkoutText("Tests/Data/" + name);
}

// What one run of the program gave.
struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

// A home, a store and a project folder, with the program run in this process.
class World {
  public:
    World();

    TemporaryFolder folder;
    Environment environment;
    std::string current; // the working folder of runs; the project at first
    std::string program; // what runs in a process of its own: TIDEWRACK_TEST_PROGRAM, or this build's

    [[nodiscard]] std::string projectPath() const { return folder.at("project"); }
    // `tidewrack WORDS...`
    Outcome run(const std::vector<std::string>& words) const;
    // The same, failing the test unless it exits with 0; returns standard output.
    std::string ok(const std::vector<std::string>& words) const;
    [[nodiscard]] Store store() const;
    // The project that contains the current folder; it must be tracked.
    [[nodiscard]] Project project() const;
    [[nodiscard]] History history() const; // of that project
    [[nodiscard]] Manifest manifestOf(std::int64_t seq) const;
};

// The text of what `action` throws.
template <typename Action>
std::string thrownBy(Action action) {
    try {
        (void)action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "<nothing thrown>";
}

// Changes one snapshot's record in the store.
void rewriteRecord(const World& world, std::int64_t seq, const std::function<void(SnapshotMeta&)>& change);

// Runs `action` in a process of its own, which may change its rights, and returns its text or what it throws.
std::string inOwnProcess(const std::function<std::string()>& action);

// The same as a user without special rights, to whom the folder, or this part of it, is handed over. When the tests
// themselves have no special rights it runs as their user.
std::string unprivileged(const TemporaryFolder& folder, const std::function<std::string()>& action,
                         const std::string& part = "");

// Runs a git command in a folder, apart from the user's own configuration. False when it fails or git is missing.
bool git(const std::string& folder, const std::string& words);

} // namespace tidewrack::testing
