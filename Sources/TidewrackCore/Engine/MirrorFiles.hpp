#pragma once
// One file after the other gets from a store into its mirror. A copy has its name only once its bytes are on the disk,
// so that one with the size and the time of the original is whole, whatever ended the run that made it.

#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tidewrack {

// What a mirror got, or would get in a dry run.
struct MirrorCounts {
    std::int64_t files = 0;   // contents, listings, copies of the vault and all else, but for records
    std::int64_t linked = 0;  // of these as a second name of the store's own file
    std::int64_t bytes = 0;   // of the others
    std::int64_t removed = 0; // files that the store no longer has
};

class MirrorFiles {
  public:
    // A file that is never changed in place may have a second name in the mirror. One that grows is copied.
    enum class Way : std::uint8_t { shared, copied };
    // What becomes of a file that is there, and another one.
    enum class Other : std::uint8_t { replaced, left };

    // `home` and `folder` are the store and the mirror, which need not be there in a dry run.
    MirrorFiles(const std::string& home, const std::string& folder, bool dryRun);
    MirrorFiles(const MirrorFiles&) = delete;
    MirrorFiles& operator=(const MirrorFiles&) = delete;
    ~MirrorFiles(); // removes copies that have no name yet

    // Brings one file or link. What is gone meanwhile is none.
    void bring(const std::string& from, const std::string& to, Way way, Other other);
    // Brings all of a folder but for temporary files. Names that `skips` says are left out.
    using Skips = std::function<bool(const std::string& name)>;
    void bringFolder(const std::string& from, const std::string& to, Way way, Other other, const Skips& skips = {});
    // The folder with its parents. Throws TidewrackError io.
    void makeFolder(const std::string& path, mode_t mode = 0755) const;
    // Writes a small file, with the time that the original has. Throws TidewrackError io.
    void write(const std::string& to, const std::string& text, std::int64_t mtime);
    // Copies a new folder or file with all that is in it. False when something that can be read was not copied.
    [[nodiscard]] bool copyWhole(const std::string& from, const std::string& to, FilesOfManyNames& names);
    // Removes a file or a folder with all that is in it. Throws TidewrackError io: what was to go later stays.
    void remove(const std::string& path);
    // Brings all that was done so far to the disk, if anything was, and gives the copies their names, in the order in
    // which they were made. Throws TidewrackError io.
    void flush();

    // Why something that can be read is not in the mirror, since the last call; empty: nothing.
    [[nodiscard]] std::string takeFault();

    // Whether the two are one file, or a file and its copy.
    [[nodiscard]] static bool isSame(const Attributes& a, const Attributes& b);

    MirrorCounts counts;
    std::vector<std::string> warnings;
    std::function<void(const char* what, std::size_t count)> progress; // may be empty

  private:
    void put(const std::string& from, const std::string& to, const Attributes& attributes, Way way);
    [[nodiscard]] int make(const std::string& from, const std::string& to, const Attributes& attributes, Way way);
    [[nodiscard]] int copy(const std::string& from, const std::string& to);
    void stage(const std::string& temporary, const std::string& to);
    void countFile(const Attributes& attributes, bool linked);
    void fail(const std::string& from, const std::string& to, int error);

    std::string folder_;
    bool dryRun_;
    bool links_ = false; // the volumes are one that can't share blocks
    std::string fault_;  // the first
    bool unflushed_ = false;
    struct Staged {
        std::string temporary;
        std::string to;
    };
    std::vector<Staged> staged_;
    std::size_t named_ = 0; // how many of these have their names
    CopyMemory memory_;
};

} // namespace tidewrack
