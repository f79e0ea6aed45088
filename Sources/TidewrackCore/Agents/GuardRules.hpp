#pragma once
// Rules of the user's own for the guard: "guard.json" in the store, and in the root of a project, where it may only
// make the guard stricter. docs/guard.md has the format.

#include "Shell/Decision.hpp"
#include "Shell/Program.hpp"
#include "Store/Store.hpp"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

class GuardRules {
  public:
    // Reads the user's file. One that is not there has no rules. `~/` in it is `home`.
    GuardRules(const Store& store, std::string home);
    GuardRules(const GuardRules&) = delete;
    GuardRules& operator=(const GuardRules&) = delete;

    // Reads a project's file, which an agent can write: of that only what strengthens counts.
    void add(const Project& project);

    // Why a file, or a part of it, was passed over: one sentence each.
    [[nodiscard]] const std::vector<std::string>& faults() const { return faults_; }

    // Whether the user says that the program only reads.
    [[nodiscard]] bool isReader(std::string_view program) const;

    // Notes whether a command, without wrappers, is to be asked about.
    void note(std::span<const shell::Word> words);

    // Raises the verdict because of what was noted, and where a target is protected, also by the file of the project
    // that it lies in. What the user's file protects is not known where that has a fault: each target is then asked
    // about.
    void strengthen(shell::Decision& decision, const std::vector<Project>& projects);

    // Takes out of the decision what is never worth a copy and lies in none of the projects.
    void leaveOutUncopied(shell::Decision& decision, const std::vector<Project>& projects) const;

  private:
    struct Protected {
        std::string path; // absolute, canonical
        shell::Verdict::Kind answer = shell::Verdict::Kind::ask;
    };
    enum class Owner { user, project };

    [[nodiscard]] std::optional<nlohmann::json> readFile(const std::string& path, Owner owner);
    [[nodiscard]] std::vector<std::string> textsIn(const nlohmann::json& rules, const char* key,
                                                   const std::string& path);
    void takeStrengthening(const nlohmann::json& rules, const std::string& path, const std::string& folder);
    void protectAll(shell::Decision& decision) const;
    void protect(const std::string& target, bool goesWhole, shell::Verdict& verdict) const;
    [[nodiscard]] std::string placed(const std::string& spelled, const std::string& folder) const;

    const std::string home_;
    std::vector<Protected> protected_;
    std::vector<std::vector<std::string>> asked_; // the words of commands
    std::vector<std::string> readers_;
    std::vector<std::string> uncopied_; // folders, absolute
    std::vector<std::string> faults_;
    std::string doubtful_;             // the user's file, where it has a fault in what strengthens
    std::set<std::string> read_;       // ids of projects
    std::optional<std::string> noted_; // what is to be asked about
};

} // namespace tidewrack
