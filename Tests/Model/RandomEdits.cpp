#include "Model/RandomEdits.hpp"

#include "Platform/Platform.hpp"
#include "Support/VolumeFacts.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace tidewrack::testing {

RandomEdits::RandomEdits(std::string root, std::string outside, std::size_t sizeLimit, std::uint64_t seed)
    : root_(std::move(root)), destinations_{"a", "b/a", ".", "../outside/file", outside, "no/where"},
      names_{"a",   "a-b", "a.b", "b",         "b",          "build",    "build",  "node_modules",       ".DS_Store",
             "sub", ":c",  "-rf", "two words", "line\nfeed", "tab\t\\n", "\u00e9", std::string(250, 'n')},
      sizeLimit_(sizeLimit), chance_(seed) {
    names_.push_back(ofAnyBytes("bad\xff"));
    if (!volumeIgnoresCase(root_)) names_.insert(names_.end(), {"e\u0301", "A"});
}

std::string RandomEdits::newPath(const Tree& now) {
    const std::string folder =
        chance_.oneIn(3) ? std::string() : chance_.pathIn(now, [](const auto& path, const auto& node) {
            return node.isFolder() && path != ".git" && path.size() < 600;
        });
    return (folder.empty() ? folder : folder + "/") + chance_.of(names_);
}

// The rules for git change by a step of their own.
std::string RandomEdits::anyPath(const Tree& now) {
    return chance_.pathIn(now, [](const auto& path, const auto&) { return path != ".git" && path != ".gitignore"; });
}

std::string RandomEdits::filePath(const Tree& now) {
    return chance_.pathIn(now,
                          [](const auto& path, const auto& node) { return node.kind == 'f' && path != ".gitignore"; });
}

std::string RandomEdits::content() {
    const std::size_t most[] = {1, 20, 20, 20, 5000, sizeLimit_ + 1, 2 * sizeLimit_};
    std::string text(chance_.below(chance_.of(most)), '\0');
    for (std::size_t i = 0; i < text.size(); i += 1 + i / 8) text[i] = static_cast<char>('a' + chance_.below(26));
    return text;
}

std::string RandomEdits::write(const std::string& path, int flags, const std::string& text) {
    const Descriptor file(::open(at(path).c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags, 0644));
    if (!file || writeAll(file.get(), text) != 0) return "no write " + path;
    return ((flags & O_APPEND) != 0 ? "append " : "write ") + std::to_string(text.size()) + " " + path;
}

// Same size, same modification time: only the status time tells, so it has to tick.
std::string RandomEdits::overwriteUnseen(const Tree& now, const std::string& path) {
    std::this_thread::sleep_for(std::chrono::milliseconds(11));
    const Node& node = now.at(path);
    const Descriptor file(::open(at(path).c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file || writeAll(file.get(), std::string(node.text.size(), 'u')) != 0) return "no write " + path;
    (void)setModificationTime(AT_FDCWD, at(path).c_str(), node.mtime);
    return "overwrite unseen " + path;
}

std::string RandomEdits::truncate(const std::string& path) {
    const std::size_t size = chance_.oneIn(3) ? chance_.below(2 * sizeLimit_) : chance_.below(30);
    const Descriptor file(::open(at(path).c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    return (file && ::ftruncate(file.get(), static_cast<off_t>(size)) == 0 ? "truncate " : "no truncate ") +
           std::to_string(size) + " " + path;
}

std::string RandomEdits::chmod(const Tree& now) {
    const unsigned folders[] = {0755, 0755, 0700, 0500, 0, 02755, 01777};
    const unsigned files[] = {0644, 0600, 04755, 0444, 0, 02711};
    const std::string path = anyPath(now);
    if (path.empty() || now.at(path).kind == 'l') return "no chmod";
    unsigned mode = now.at(path).isFolder() ? chance_.of(folders) : chance_.of(files);
    if (::geteuid() != 0) mode |= now.at(path).isFolder() ? 0700U : 0600U; // else the model could not look either
    const bool done = ::chmod(at(path).c_str(), static_cast<mode_t>(mode)) == 0;
    return (done ? "chmod " : "no chmod ") + std::to_string(mode) + " " + path;
}

std::string RandomEdits::touch(const Tree& now) {
    const std::string path = anyPath(now);
    if (path.empty()) return "no touch";
    constexpr std::int64_t second = 1'000'000'000;
    const std::int64_t was = now.at(path).mtime;
    const std::int64_t times[] = {was - was % second,    was - 1, was + second, 0, -5 * second - 1,
                                  1'234'567'890 * second};
    (void)setModificationTime(AT_FDCWD, at(path).c_str(), chance_.of(times));
    return "touch " + path;
}

std::string RandomEdits::rename(const Tree& now) {
    const std::string from = anyPath(now);
    const std::string to = chance_.oneIn(2) ? newPath(now) : anyPath(now);
    if (from.empty() || to.empty()) return "no rename";
    const bool done = ::rename(at(from).c_str(), at(to).c_str()) == 0;
    return (done ? "rename " : "no rename ") + from + " -> " + to;
}

std::string RandomEdits::becomeOther(const std::string& path) {
    if (path.empty()) return "nothing to replace";
    (void)removeTree(at(path));
    switch (chance_.below(4)) {
    case 0: return write(path, O_CREAT, content());
    case 1: (void)::symlink(chance_.of(destinations_).c_str(), at(path).c_str()); return "now a link: " + path;
    case 2: (void)::mkfifo(at(path).c_str(), 0600); return "now a pipe: " + path;
    default:
        (void)::mkdir(at(path).c_str(), 0755);
        return "now a folder: " + path + ", " + write(path + "/" + chance_.of(names_), O_CREAT, content());
    }
}

std::string RandomEdits::removeSome(const Tree& now) {
    const std::string path = anyPath(now);
    if (path.empty()) return "nothing to remove";
    (void)removeTree(at(path));
    return "remove " + path;
}

std::string RandomEdits::edit(const Tree& now) {
    if (now.size() > 50 && chance_.oneIn(2)) return removeSome(now);
    const std::string file = filePath(now);
    const std::string path = newPath(now);
    switch (file.empty() ? chance_.below(6) : chance_.below(18)) {
    case 0:
    case 17: return write(path, O_CREAT | O_TRUNC, content());
    case 1:
    case 5:
    case 16:
        if (::mkdir(at(path).c_str(), 0755) != 0) return "no folder " + path;
        return "folder " + path;
    case 2: (void)::symlink(chance_.of(destinations_).c_str(), at(path).c_str()); return "link " + path;
    case 3: {
        const bool ignoring = write(".gitignore", O_CREAT | O_TRUNC, chance_.oneIn(2) ? "build/\n" : "other/\n") != "";
        return ignoring ? "other rules for git" : "";
    }
    case 4: return write(path, O_CREAT | O_TRUNC, content());
    case 14: return write(file, O_TRUNC, content());
    case 6: return write(file, 0, std::string(now.at(file).text.size(), 's'));
    case 7: return write(file, O_APPEND, content());
    case 8: return overwriteUnseen(now, file);
    case 9: return truncate(file);
    case 10: return chmod(now);
    case 11: return touch(now);
    case 12: return rename(now);
    case 13:
        (void)::linkat(AT_FDCWD, at(file).c_str(), AT_FDCWD, at(path).c_str(), 0);
        return "hard link " + file + " -> " + path;
    case 15: return becomeOther(anyPath(now));
    default: return removeSome(now);
    }
}

} // namespace tidewrack::testing
