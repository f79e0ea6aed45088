#pragma once
// A folder for targets that work on files; in memory where the system has such a place, for the sake of speed.

#include "Fuzz/Fuzz.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/Platform.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

namespace tidewrack::fuzz {

class Scratch {
  public:
    Scratch() {
        const char* chosen = ::getenv("TMPDIR");
        const char* inMemory = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path_ = std::string(chosen ? chosen : inMemory) + "/tidewrack-fuzz-XXXXXX";
        require(::mkdtemp(path_.data()) != nullptr, "there is room for temporary files");
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { (void)removeTree(path_); }

    const std::string& path() const { return path_; }

    void write(const std::string& path, std::string_view bytes) const {
        ::unlink(path.c_str()); // cutting a file short can wait for the disk
        const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        require(file && writeAll(file.get(), bytes) == 0, "a temporary file is written");
    }

  private:
    std::string path_;
};

// One for the whole program.
inline const Scratch& scratch() {
    static const Scratch folder;
    return folder;
}

} // namespace tidewrack::fuzz
