#include "Model/RandomEdits.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Support/TestFolders.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace tidewrack::testing {

RandomEdits::RandomEdits(std::string root, std::string outside, std::size_t sizeLimit, std::uint64_t seed)
    : root_(std::move(root)), destinations_{"a", "b/a", ".", "../outside/file", outside, "no/where"},
      names_{"a",   "a-b", "a.b", "b",         "b",          "build",    "build",  "node_modules",       ".DS_Store",
             "sub", ":c",  "-rf", "two words", "line\nfeed", "tab\t\\n", "\u00e9", std::string(250, 'n')},
      sizeLimit_(sizeLimit), chance_(seed) {
    names_.insert(names_.end(),
                  {ofAnyBytes("bad\xff"), "two words more", ".tidewrack-12-3"}); // begins like another one
    if (!volumeIgnoresCase(root_)) names_.insert(names_.end(), {"e\u0301", "A"});
}

std::string RandomEdits::newPath(const Tree& now) {
    const auto roomy = [](const auto& path, const auto& node) {
        return node.isFolder() && path != ".git" && path.size() < 600;
    };
    const std::string folder = chance_.oneIn(3) ? std::string() : chance_.pathIn(now, roomy);
    return (folder.empty() ? folder : folder + "/") + chance_.of(names_);
}

// The rules change by steps of their own.
std::string RandomEdits::anyPath(const Tree& now, bool filesOnly) {
    return chance_.pathIn(now, [&](const auto& path, const auto& node) {
        return path != ".git" && path != ".gitignore" && path != ".tidewrackignore" && (!filesOnly || node.kind == 'f');
    });
}

std::string RandomEdits::content() {
    const std::size_t most[] = {1, 20, 20, 20, 5000, sizeLimit_ + 1, 2 * sizeLimit_};
    std::string text(chance_.below(chance_.of(most)), '\0');
    for (std::size_t i = 0; i < text.size(); i += 1 + i / 8) text[i] = static_cast<char>('a' + chance_.below(26));
    return text;
}

std::string RandomEdits::write(const std::string& path, int flags, const std::string& text) const {
    const Descriptor file(::open(at(path).c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags, 0644));
    const bool done = file && writeAll(file.get(), text) == 0;
    return (done ? "write " : "no write ") + std::to_string(text.size()) + " " + path;
}

// Same size, same modification time: only the status time tells, so it has to tick.
std::string RandomEdits::overwriteUnseen(const std::string& path, const Node& was) const {
    std::this_thread::sleep_for(std::chrono::milliseconds(11));
    const std::string done = write(path, 0, std::string(was.text.size(), 'u'));
    (void)setModificationTime(AT_FDCWD, at(path).c_str(), was.mtime);
    return "unseen " + done;
}

std::string RandomEdits::chmod(const std::string& path, const Node& was) {
    const unsigned folders[] = {0755, 0755, 0700, 0500, 0, 02755, 01777};
    const unsigned files[] = {0644, 0600, 04755, 0444, 0, 02711};
    unsigned mode = was.isFolder() ? chance_.of(folders) : chance_.of(files);
    if (::geteuid() != 0) mode |= was.isFolder() ? 0700U : 0600U; // else the model could not look either
    if (was.kind != 'l') (void)::chmod(at(path).c_str(), static_cast<mode_t>(mode));
    return "chmod " + std::to_string(mode) + " " + path;
}

std::string RandomEdits::touch(const std::string& path, const Node& was) {
    constexpr std::int64_t second = 1'000'000'000;
    const std::int64_t times[] = {was.mtime - was.mtime % second, was.mtime - 1, was.mtime + second, -5 * second - 1};
    (void)setModificationTime(AT_FDCWD, at(path).c_str(), chance_.of(times));
    return "touch " + path;
}

std::string RandomEdits::becomeOther(const std::string& path) {
    (void)removeTree(at(path));
    switch (chance_.below(5)) {
    case 0: return "replace, " + write(path, O_CREAT, content());
    case 1: (void)::symlink(chance_.of(destinations_).c_str(), at(path).c_str()); return "now a link " + path;
    case 2: (void)::mkfifo(at(path).c_str(), 0600); return "now a pipe " + path;
    case 3: return "remove " + path;
    default:
        (void)::mkdir(at(path).c_str(), 0755);
        return "now a folder " + path + ", " + write(path + "/" + chance_.of(names_), O_CREAT, content());
    }
}

// A new thing, or another name for an old one.
std::string RandomEdits::add(const std::string& path, const std::string& old, const std::string& file) {
    switch (chance_.below(7)) {
    case 0: (void)::symlink(chance_.of(destinations_).c_str(), at(path).c_str()); return "link " + path;
    case 1: (void)::link(at(file).c_str(), at(path).c_str()); return "hard link " + file + " -> " + path;
    case 2: (void)::rename(at(old).c_str(), at(path).c_str()); return "rename " + old + " -> " + path;
    case 3:
    case 4: (void)::mkdir(at(path).c_str(), 0755); return "folder " + path;
    default: return write(path, O_CREAT | O_TRUNC, content());
    }
}

std::string RandomEdits::edit(const Tree& now) {
    const std::string old = anyPath(now, false);
    const std::string file = anyPath(now, true);
    const bool full = now.size() > 60;
    if (file.empty() || (!full && chance_.oneIn(3))) return add(newPath(now), old, file);
    const Node& was = now.at(file);
    switch (chance_.below(full ? 15 : 12)) {
    case 0: return write(file, O_TRUNC, content());
    case 1: return "same size, " + write(file, 0, std::string(was.text.size(), 's'));
    case 2: return "append, " + write(file, O_APPEND, content());
    case 3: return overwriteUnseen(file, was);
    case 4: (void)::truncate(at(file).c_str(), static_cast<off_t>(content().size())); return "truncate " + file;
    case 5: return chmod(old, now.at(old));
    case 6: return touch(old, now.at(old));
    case 7: return "rules, " + write(".gitignore", O_CREAT | O_TRUNC, chance_.oneIn(2) ? "build/\n" : "other/\n");
    case 8: {
        const std::string to = anyPath(now, false);
        (void)::rename(at(old).c_str(), at(to).c_str());
        return "rename " + old + " -> " + to;
    }
    case 9: return becomeOther(old);
    case 10:
        return "owner's rules, " +
               write(".tidewrackignore", O_CREAT | O_TRUNC, chance_.oneIn(2) ? "sub\n*.b\n" : "other\n");
    default: (void)removeTree(at(old)); return "remove " + old;
    }
}

} // namespace tidewrack::testing
