#include "Walk/Walker.hpp"

#include "Platform/OpenFolder.hpp"
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

} // namespace

Walker::Walker(const std::string& root, Options options)
    : options_(std::move(options)), rootPath_(root), root_(openRoot(root)),
      reader_(root_.get(),
              [this](std::string_view name, std::string_view path) { return wayOf(name, path) == Way::entered; }) {}

void Walker::expect(std::int64_t files) {
    constexpr std::int64_t filesForTwo = 200; // fewer are read before a second thread is of use
    if (files >= filesForTwo) reader_.readAhead();
}

void Walker::walk(const Body& body, const WasIgnored& wasIgnored) {
    wasIgnored_ = wasIgnored;
    while (const FolderListing* listing = reader_.take()) {
        if (listing->error != 0 && listing->path.empty()) throw TidewrackError::io("read", rootPath_, listing->error);
        noteUnread(*listing);
        if (!yieldChildren(*listing, body)) return;
    }
}

void Walker::noteUnread(const FolderListing& listing) {
    const int error = listing.error;
    const bool gone = error == ENOENT || error == ENOTDIR || error == ELOOP; // or something else by now
    if (error != 0 && !gone) unread_.push_back({listing.path, error, {}});
    if (!listing.unknown.empty()) unread_.push_back({listing.path, listing.unknownError, listing.unknown});
}

bool Walker::yieldChildren(const FolderListing& listing, const Body& body) {
    path_ = listing.path;
    if (!path_.empty()) path_ += '/';
    const std::size_t prefix = path_.size();
    for (const auto& child : listing.children) {
        const std::string_view name = listing.name(child);
        path_.resize(prefix);
        path_ += name;
        const bool goOn = child.attributes.kind == Attributes::Kind::folder ? yieldFolder(name, child.attributes, body)
                                                                            : yieldFile(name, child.attributes, body);
        if (!goOn) return false;
    }
    return true;
}

bool Walker::yieldFile(std::string_view name, const Attributes& attributes, const Body& body) {
    if (name.size() == ignoredFile.size() && attributes.kind == Attributes::Kind::file && name == ignoredFile)
        return true;
    if (isTemporary(name)) return true;
    Item item{path_, entryOf(attributes)};
    if (options_.rules.of(path_, false) == LeaveOutRules::Verdict::leftOut) item.entry.markIgnored();
    return body(item);
}

bool Walker::yieldFolder(std::string_view name, const Attributes& attributes, const Body& body) {
    const Way way = wayOf(name, path_);
    if (way == Way::omitted) omitted_.push_back(path_);
    if (way == Way::omitted || way == Way::skipped) return true;
    (void)isTemporary(name); // an exchange moves aside whatever has the name
    Item item{path_, entryOf(attributes)};
    if (way == Way::ignored || (way == Way::asked && isIgnored())) {
        item.entry.markIgnored();
        return body(item);
    }
    if (!body(item)) return false;
    if (way == Way::asked) reader_.put(path_);
    return true;
}

// Reports every temporary file of a restore. Returns whether it is an unfinished copy: a file that was moved aside may
// be the only copy, and is listed.
bool Walker::isTemporary(std::string_view name) {
    const auto& [prefixes, found] = options_.temporaries;
    const auto prefix =
        std::find_if(prefixes.begin(), prefixes.end(), [&](const auto& each) { return name.starts_with(each); });
    if (prefix == prefixes.end()) return false;
    if (found != nullptr) found->push_back(path_);
    return name.find_first_not_of("0123456789", prefix->size()) == std::string_view::npos;
}

Walker::Way Walker::wayOf(std::string_view name, std::string_view path) const {
    if (!options_.skipPaths.empty() && options_.skipPaths.contains(path)) return Way::skipped;
    switch (options_.rules.of(path, true)) {
    case LeaveOutRules::Verdict::leftOut: return Way::ignored;
    case LeaveOutRules::Verdict::kept: return Way::entered;
    case LeaveOutRules::Verdict::none: break;
    }
    if (options_.excludes.contains(name)) return Way::omitted;
    return options_.isIgnored && options_.excludesIfIgnored.contains(name) ? Way::asked : Way::entered;
}

bool Walker::isIgnored() {
    if (const auto answer = options_.isIgnored(path_)) return *answer;
    return wasIgnored_ && wasIgnored_(path_);
}

std::optional<std::int64_t> Walker::count(const std::string& root, const NameSet& excludes, std::int64_t limit,
                                          const Deadline& deadline) {
    constexpr std::int64_t betweenLooks = 256; // at the clock
    Options options;
    options.excludes = excludes;
    Project project;
    project.root = root;
    options.rules = LeaveOutRules::of(project);
    std::int64_t count = 0;
    bool late = false;
    Walker(root, std::move(options)).walk([&](const Item&) {
        late = count % betweenLooks == 0 && passed(deadline);
        return !late && ++count <= limit;
    });
    return late ? std::nullopt : std::optional(count);
}

std::unique_ptr<Walker> projectWalker(const Project& project, const NameSet& skipping, Walker::Temporaries temporaries,
                                      GitIgnore::Patience* patience) {
    const auto& ifIgnored = project.excludesIfIgnored ? *project.excludesIfIgnored : defaultExcludesIfIgnored();
    Walker::Options options;
    options.excludes = NameSet(project.excludes.begin(), project.excludes.end());
    options.excludesIfIgnored = NameSet(ifIgnored.begin(), ifIgnored.end());
    options.skipPaths = skipping;
    options.temporaries = std::move(temporaries);
    options.rules = LeaveOutRules::of(project);
    if (options.temporaries.found != nullptr) options.rules.keepAll(); // one may be in a folder that is left out since
    if (const std::shared_ptr<GitIgnore> git = GitIgnore::open(project.root, GitIgnore::patienceOfCommands, patience)) {
        options.isIgnored = [git](std::string_view path) { return git->isIgnored(path); };
        options.gitOutcome = [git] { return git->outcome(); };
    }
    return std::make_unique<Walker>(project.root, std::move(options));
}

} // namespace tidewrack
