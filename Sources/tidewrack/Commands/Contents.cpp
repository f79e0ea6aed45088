// What a file held.

#include "Commands/Commands.hpp"
#include "Commands/UnknownPaths.hpp"
#include "Invocation.hpp"
#include "Reports/PatchReport.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tidewrack::commands {

namespace {

// Why nothing is known of a path that the listing lacks: a folder above it that is left out. None when there is none.
std::optional<std::string> leftOut(const Project& project, const Manifest& manifest, std::string_view path) {
    for (std::string_view above = parentOf(path); !above.empty(); above = parentOf(above)) {
        const Entry* entry = manifest.find(above);
        if (entry != nullptr && entry->isIgnoredFolder())
            return std::string(above) + " is left out, since it is ignored";
    }
    for (std::string_view rest = path; !rest.empty(); rest = parentOf(rest)) {
        const std::string name(lastComponent(rest));
        if (std::find(project.excludes.begin(), project.excludes.end(), name) != project.excludes.end())
            return name + " is never kept";
    }
    return std::nullopt;
}

struct Asked {
    const Project& project;
    std::int64_t seq;
    const std::string& word; // as it was typed
    std::string relative;

    [[nodiscard]] std::string inSnapshot() const { return " in snapshot #" + std::to_string(seq); }
};

// Why there is no content to print.
std::string noFileText(Invocation& call, const Asked& asked, const Manifest& manifest) {
    const Entry* entry = manifest.find(asked.relative);
    if (asked.relative.empty() || (entry != nullptr && entry->kind == EntryKind::dir))
        return asked.word + " is a folder" + asked.inSnapshot();
    if (entry != nullptr && entry->kind == EntryKind::link) {
        const auto link = sideOf(call.store(), asked.project, entry);
        return asked.word + " is a link" + (link && link->content ? " to " + *link->content : "") + asked.inSnapshot();
    }
    std::string text = asked.word + " isn't in snapshot #" + std::to_string(asked.seq);
    if (const auto reason = leftOut(asked.project, manifest, asked.relative)) return text + ": " + *reason;
    return text + adviceOn(call, asked.project, manifest, asked.word);
}

// The path that is meant, relative to the root. Whoever stands outside of the project, and gives a relative one, is
// told of the same path from the root.
std::string relativePath(Invocation& call, const Project& project, std::int64_t seq, const std::string& word) {
    const std::string path = call.absolute(word);
    if (word.starts_with('/') || isAtOrBelow(Store::canonicalPlace(path), project.root))
        return Engine::relative(project, path);
    const History history = call.store().history(project);
    const std::string advice = adviceOn(call, project, history.manifest(history.snapshot(seq)), word);
    if (advice.empty()) return Engine::relative(project, path); // throws
    throw CliError(path + " is outside " + project.root + advice);
}

// `place` is where the content would be kept; its name tells why it is not there.
std::string notKeptText(const History& history, const Asked& asked, const std::string& place) {
    Entry entry;
    entry.blob = std::string_view(place).substr(history.blobPath("").size());
    return "the content of " + asked.word + " wasn't kept" + asked.inSnapshot() + ": " +
           entry.notKeptReason().value_or("it is missing from the store");
}

} // namespace

int cat(Invocation& call) {
    const SnapshotWord snapshot = call.snapshotWord(0, "snapshot");
    const auto path = call.args.word(1);
    if (!path) throw CliError("missing path");
    const Project project = call.project();
    const History history = call.store().history(project);
    const std::int64_t seq = call.number(project, snapshot);
    const Asked asked{project, seq, *path, relativePath(call, project, seq, *path)};
    const auto content = call.engine().contentPath(project, seq, asked.relative);
    if (!content) throw CliError(noFileText(call, asked, history.manifest(history.snapshot(seq))));
    const Descriptor file(::open(content->c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && errno != ENOENT) throw TidewrackError::io("read", *content, errno);
    if (!file) throw CliError(notKeptText(history, asked, *content));
    std::string bytes(1 << 16, '\0');
    while (true) {
        const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw TidewrackError::io("read", *content, errno);
        if (count == 0) return 0;
        call.print(std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
    }
}

} // namespace tidewrack::commands
