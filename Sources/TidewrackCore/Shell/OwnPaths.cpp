#include "Shell/OwnPaths.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

// Options of the program whose value is a word of its own.
constexpr std::array valueOptions = {"-C"sv,        "-n"sv,        "--agent"sv,      "--before"sv, "--home"sv,
                                     "--html"sv,    "--hunk"sv,    "--kind"sv,       "--label"sv,  "--port"sv,
                                     "--project"sv, "--session"sv, "--session-of"sv, "--skip"sv,   "--turn"sv};

// Options that make it only explain.
constexpr std::array explaining = {"-h"sv, "--help"sv};

struct OwnCommand {
    std::string_view name;
    std::string_view part; // the word behind it; empty where it has none
    std::string_view question;
    bool dryRunShows = true; // with --dry-run it only shows what it would do, or refuses
};

constexpr auto deletesHistory =
    "This would delete Tidewrack's own history of the project, and nothing could undo that. Allow?"sv;
constexpr auto deletesSnapshots =
    "This would delete snapshots from Tidewrack's own history, and nothing could undo that. Allow?"sv;
constexpr auto removesHooks =
    "This would remove Tidewrack's hooks: what an agent does would no longer be saved before. Allow?"sv;

constexpr auto unpins = "This would unpin a snapshot, which Tidewrack's own history may then delete. Allow?"sv;

constexpr auto opensPage =
    "This would open a page in which Tidewrack's history of the project can be read and taken back. Allow?"sv;

constexpr auto keepsLess =
    "This may leave files out of Tidewrack's own history: what an agent does to them could not be undone. Allow?"sv;

constexpr auto changesMirror =
    "This would take out of a mirror of Tidewrack's own history what the history no longer has. Allow?"sv;

constexpr OwnCommand ownCommands[] = {
    {"browse", "", opensPage, false},
    {"untrack", "", deletesHistory},
    {"prune", "", deletesSnapshots},
    {"hooks", "uninstall", removesHooks},
    {"unpin", "", unpins},
    {"exclude", "", keepsLess},
    {"config", "set", keepsLess},
    {"forget", "", deletesSnapshots},
    {"mirror", "", changesMirror},
};

// One of each kind of the files that the history consists of.
constexpr std::array storedFiles = {"projects/a/project.json"sv, "projects/a/snapshots/1.json"sv,
                                    "projects/a/manifests/1.mf"sv, "projects/a/blobs/1/1"sv};

std::string questionOn(std::string_view target, const OwnPath& own) {
    std::string text = "This changes ";
    text.append(target);
    switch (own.role) {
    case OwnPath::Role::history:
        text += ". It would delete or damage Tidewrack's own history in " + own.path +
                ", and nothing could undo that. Allow?";
        break;
    case OwnPath::Role::hooks:
        text += ". It may remove Tidewrack's hooks in " + own.path +
                ": what an agent does would no longer be saved before. Allow?";
        break;
    case OwnPath::Role::rules:
        text += ". It may leave files out of Tidewrack's own history: what an agent does to them could not be undone. "
                "Allow?";
        break;
    }
    return text;
}

bool isOrHolds(const std::string& target, const OwnPath& own, Extent extent) {
    const bool goesWhole = extent == Extent::moved || extent == Extent::removed;
    switch (own.role) {
    case OwnPath::Role::hooks:
        if (extent == Extent::rights) return false;
        break;
    case OwnPath::Role::history: break;
    case OwnPath::Role::rules: // where it goes with its folder, all the more is kept
        return extent != Extent::rights && lowercased(lastComponent(target)) == own.path;
    }
    return (goesWhole && isAtOrBelow(own.path, target)) || isAtOrBelow(target, own.path);
}

} // namespace

bool OwnPaths::lookAtText(const std::string& target, std::string_view shown, Extent extent) {
    for (const OwnPath& own : *paths_) {
        if (!isOrHolds(target, own, extent)) continue;
        question_ = questionOn(shown, own);
        return true;
    }
    return false;
}

void OwnPaths::look(const std::string& target, Extent extent, Links links) {
    if (question_ || !source_) return;
    if (!paths_) paths_ = source_();
    if (paths_->empty() || lookAtText(target, target, extent)) return;
    if (pathsMadeReal_ >= Budget::pathsMadeReal || target.find('\0') != std::string::npos) return;
    ++pathsMadeReal_;
    // A link that is written through, or named with a slash behind it, stands for what it leads to.
    const std::string real = extent == Extent::item || links == Links::followed ? realPath(target) : std::string();
    if (!real.empty() && real != target && lookAtText(real, target, extent)) return;
    const std::string place = realPlace(target);
    if (!place.empty() && place != target) (void)lookAtText(place, target, extent);
}

void OwnPaths::lookBelow(const std::string& folder, const std::function<bool(std::string_view)>& takes) {
    if (question_ || !source_) return;
    if (!paths_) paths_ = source_();
    const std::string real = paths_->empty() ? std::string() : realPath(folder);
    for (const OwnPath& own : *paths_) {
        if (question_ || own.role == OwnPath::Role::rules) continue;
        if (!isAtOrBelow(own.path, real.empty() ? folder : real)) continue;
        const bool isHistory = own.role == OwnPath::Role::history;
        const bool goes = isHistory ? std::any_of(storedFiles.begin(), storedFiles.end(),
                                                  [&](std::string_view name) { return takes(joined(own.path, name)); })
                                    : takes(own.path);
        if (goes) question_ = questionOn(own.path, own);
    }
}

void OwnPaths::lookAtCommand(std::span<const Word> arguments) {
    std::array<std::string_view, 2> words;
    std::size_t count = 0;
    bool plain = false; // behind "--"
    bool dryRun = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string_view text = arguments[index].text;
        if (!plain && isIn(explaining, text)) return;
        dryRun = dryRun || (!plain && text == "--dry-run");
        if (!plain && isIn(valueOptions, text))
            ++index;
        else if (text == "--" && !plain)
            plain = true;
        else if ((plain || !text.starts_with('-')) && count < words.size())
            words[count++] = text;
    }
    for (const OwnCommand& command : ownCommands) {
        if (question_ || command.name != words[0] || (!command.part.empty() && command.part != words[1])) continue;
        if (dryRun && command.dryRunShows) continue;
        question_ = command.question;
    }
}

bool removesPlugin(std::span<const Word> words) {
    constexpr std::array removing = {"uninstall"sv, "remove"sv, "rm"sv, "disable"sv};
    if (words.size() < 4 || !isIn(agentsWithPlugins, commandName(words.front()))) return false;
    const std::string_view kind = words[1].text;
    if (!kind.starts_with("plugin") && !kind.starts_with("extension")) return false;
    const auto removes = [&](const Word& word) { return isIn(removing, word.text); };
    const auto isOwn = [](const Word& word) {
        return std::string_view(word.text).substr(0, word.text.find('@')) == "tidewrack"sv;
    };
    return std::any_of(words.begin(), words.end(), removes) && std::any_of(words.begin(), words.end(), isOwn);
}

} // namespace tidewrack::shell
