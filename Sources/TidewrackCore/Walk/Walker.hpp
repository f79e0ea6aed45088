#pragma once
// The listing of a project folder: one item per file, symbolic link and folder, with the attributes that a manifest
// records. Links are never followed and the process's working folder never changes.

#include "Platform/Attributes.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"
#include "Store/Manifest.hpp"
#include "Store/Records.hpp"
#include "Walk/FolderReader.hpp"
#include "Walk/GitIgnore.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Folder names left out of every snapshot, in order of declaration.
[[nodiscard]] const std::vector<std::string>& defaultExcludes();
// Folder names left out when git ignores them.
[[nodiscard]] const std::vector<std::string>& defaultExcludesIfIgnored();

using NameSet = std::set<std::string, std::less<>>;

class Walker {
  public:
    struct Item {
        std::string_view path; // relative to the root; valid during the call only
        Entry entry;
    };
    // Returns whether to continue the walk.
    using Body = std::function<bool(const Item&)>;
    // Whether an earlier listing has the folder at this relative path as one that git ignores.
    using WasIgnored = std::function<bool(std::string_view)>;

    // What the walk could not see: a folder that could not be opened or read to its end or, with `entries`, items in it
    // that could not be looked at. Items that vanished meanwhile are not among them.
    struct Unread {
        std::string folder; // relative to the root
        int error = 0;      // an errno value
        std::vector<std::string> entries;

        bool operator==(const Unread&) const = default;
    };

    // Temporary files of restores. Unfinished copies, which have a number after the prefix and nothing more, are in no
    // listing.
    struct Temporaries {
        std::vector<std::string> prefixes{};       // of their names
        std::vector<std::string>* found = nullptr; // receives the paths of all
    };

    struct Options {
        NameSet excludes;
        NameSet excludesIfIgnored;
        // Git's answer for a relative folder path, if it gives one; may be empty.
        std::function<std::optional<bool>(std::string_view)> isIgnored;
        std::function<GitOutcome()> gitOutcome; // how git does with that; may be empty
        NameSet skipPaths;                      // relative folder paths left out, with everything below
        LeaveOutRules rules;                    // outweigh names and git; what they leave out is listed as ignored
        Temporaries temporaries;
    };

    // Throws TidewrackError io "can't read <root>: <reason>" or refused "<root> is no longer a folder (...)".
    Walker(const std::string& root, Options options);

    // Tells how many files to expect, for a caller that has something else to do before it walks. A second thread
    // begins to read at once where they are many.
    void expect(std::int64_t files);
    // Calls `body` on this thread for every item, a folder before its contents, siblings in no particular order; stops
    // when it returns false. Sub-folders and items that cannot be read are left out, and unread() lists them. Where git
    // gives no answer `wasIgnored` does, and without it nothing is ignored. Throws TidewrackError io "can't read
    // <root>: <reason>". To be called once.
    void walk(const Body& body, const WasIgnored& wasIgnored = {});
    [[nodiscard]] const std::vector<Unread>& unread() const { return unread_; }
    // The folders that were left out for their names, relative to the root. They are no items.
    [[nodiscard]] const std::vector<std::string>& omitted() const { return omitted_; }
    [[nodiscard]] GitOutcome gitOutcome() const {
        return options_.gitOutcome ? options_.gitOutcome() : GitOutcome::answered;
    }

    [[nodiscard]] const LeaveOutRules& rules() const { return options_.rules; }

    // Counts the items that a walk yields with the given excluded names and the rules in the folder; gives up at
    // `limit` + 1, and at the deadline, when there is no count.
    [[nodiscard]] static std::optional<std::int64_t> count(const std::string& root, const NameSet& excludes,
                                                           std::int64_t limit, const Deadline& deadline = std::nullopt);

  private:
    bool yieldChildren(const FolderListing& listing, const Body& body);
    bool yieldFile(std::string_view name, const Attributes& attributes, const Body& body);
    bool yieldFolder(std::string_view name, const Attributes& attributes, const Body& body);
    [[nodiscard]] bool isTemporary(std::string_view name);
    // What becomes of a folder.
    enum class Way : std::uint8_t { skipped, omitted, ignored, asked, entered };
    [[nodiscard]] Way wayOf(std::string_view name, std::string_view path) const;
    [[nodiscard]] bool isIgnored();
    void noteUnread(const FolderListing& listing);

    const Options options_;
    const std::string rootPath_;
    const Descriptor root_;
    std::string path_; // of the item at hand
    WasIgnored wasIgnored_;
    std::vector<Unread> unread_;
    std::vector<std::string> omitted_;
    FolderReader reader_;
};

// The walker that the engine uses for a tracked project: its own exclusions, with git asked where there is a
// repository. Its answers may take a few seconds; with `patience` what is left of that. `skipping` holds the roots of
// nested projects.
[[nodiscard]] std::unique_ptr<Walker> projectWalker(const Project& project, const NameSet& skipping,
                                                    Walker::Temporaries temporaries = {},
                                                    GitIgnore::Patience* patience = nullptr);

} // namespace tidewrack
