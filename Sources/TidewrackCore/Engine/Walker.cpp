#include "Engine/Walker.hpp"

#include "Engine/FolderReader.hpp"
#include "Engine/GitIgnore.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

namespace tidewrack {

const std::vector<std::string>& defaultExcludes() {
    static const std::vector<std::string> names = {".git",          "node_modules", ".build",      ".next", ".nuxt",
                                                   ".turbo",        "DerivedData",  "__pycache__", ".venv", ".gradle",
                                                   ".pytest_cache", ".mypy_cache",  ".swiftpm",    ".expo"};
    return names;
}

const std::vector<std::string>& defaultExcludesIfIgnored() {
    static const std::vector<std::string> names = {"build", "dist", "target", "coverage",
                                                   "out",   "Pods", ".cache", "venv"};
    return names;
}

namespace {

constexpr std::string_view ignoredFile = ".DS_Store";

Descriptor openRoot(const std::string& root) {
    Attributes attributes;
    if (const int error = attributesAt(AT_FDCWD, root.c_str(), attributes))
        throw TidewrackError::io("read", root, error);
    if (attributes.kind != Attributes::Kind::folder)
        throw TidewrackError::refused(root + " is no longer a folder (it's a symlink or file now).");
    Descriptor folder;
    if (const int error = openFolder(root, folder)) throw TidewrackError::io("read", root, error);
    return folder;
}

// One walk: hands the items of each folder that was read to the body and decides which folders are read next.
class Walk {
  public:
    Walk(int root, const Walker::Options& options, const std::function<bool(const Walker::Item&)>& body)
        : options_(options), body_(body), reader_(root) {}

    void run() {
        reader_.put("");
        while (const auto listing = reader_.take())
            if (!yieldChildren(*listing)) return;
    }

  private:
    bool yieldChildren(const FolderListing& listing) {
        path_ = listing.path;
        if (!path_.empty()) path_ += '/';
        const std::size_t prefix = path_.size();
        for (const auto& child : listing.children) {
            const std::string_view name = listing.name(child);
            path_.resize(prefix);
            path_ += name;
            const bool goOn = child.attributes.kind == Attributes::Kind::folder ? yieldFolder(name, child.attributes)
                                                                                : yieldFile(name, child.attributes);
            if (!goOn) return false;
        }
        return true;
    }

    bool yieldFile(std::string_view name, const Attributes& attributes) {
        if (name.size() == ignoredFile.size() && attributes.kind == Attributes::Kind::file && name == ignoredFile)
            return true;
        if (name.front() == '.' && temporaryOwner(name) >= 0) {
            if (options_.leftovers != nullptr) options_.leftovers->push_back(path_);
            return true;
        }
        return body_({path_, entryOf(attributes), false});
    }

    bool yieldFolder(std::string_view name, const Attributes& attributes) {
        if (options_.excludes.contains(name)) return true;
        if (!options_.skipPaths.empty() && options_.skipPaths.contains(path_)) return true;
        Walker::Item item{path_, entryOf(attributes), false};
        if (options_.isIgnored && options_.excludesIfIgnored.contains(name) && options_.isIgnored(path_)) {
            item.entry.markIgnored();
            item.ignored = true;
            return body_(item);
        }
        if (!body_(item)) return false;
        reader_.put(path_);
        return true;
    }

    const Walker::Options& options_;
    const std::function<bool(const Walker::Item&)>& body_;
    std::string path_;
    FolderReader reader_;
};

} // namespace

void Walker::walk(const std::string& root, const Options& options, const std::function<bool(const Item&)>& body) {
    const Descriptor folder = openRoot(root);
    Walk(folder.get(), options, body).run();
}

std::int64_t Walker::count(const std::string& root, const NameSet& excludes, std::int64_t limit) {
    Options options;
    options.excludes = excludes;
    std::int64_t count = 0;
    walk(root, options, [&](const Item&) { return ++count <= limit; });
    return count;
}

void walkProject(const Project& project, const NameSet& skipping, const std::function<bool(const Walker::Item&)>& body,
                 std::vector<std::string>* leftovers, const Deadline& deadline) {
    const auto& ifIgnored = project.excludesIfIgnored ? *project.excludesIfIgnored : defaultExcludesIfIgnored();
    Walker::Options options;
    options.excludes = NameSet(project.excludes.begin(), project.excludes.end());
    options.excludesIfIgnored = NameSet(ifIgnored.begin(), ifIgnored.end());
    options.skipPaths = skipping;
    options.leftovers = leftovers;
    const auto git = GitIgnore::open(project.root, deadline);
    if (git) options.isIgnored = [&](std::string_view path) { return git->isIgnored(path); };
    Walker::walk(project.root, options, body);
}

} // namespace tidewrack
