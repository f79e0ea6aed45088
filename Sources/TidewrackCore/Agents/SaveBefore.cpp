#include "Agents/SaveBefore.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Deadline.hpp"
#include "Store/EditLog.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::size_t commandLabelLength = 200;

bool isFile(const std::string& path) {
    Attributes attributes;
    return attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 && attributes.kind == Attributes::Kind::file;
}

bool isIn(const std::vector<std::string>& sorted, const std::string& path) {
    return std::binary_search(sorted.begin(), sorted.end(), path);
}

void add(const Project& project, std::vector<Project>& to) {
    const auto isSame = [&](const Project& other) { return other.id == project.id; };
    if (std::none_of(to.begin(), to.end(), isSame)) to.push_back(project);
}

class Saving {
  public:
    Saving(HookContext& context, const std::string& command, const shell::Decision& decision)
        : context_(context), command_(command), decision_(decision) {}

    SavedBefore run() {
        sortOut();
        const Deadline deadline = context_.share(4, 5); // leaves time for the vault
        for (const Project& project : projects_) snapshot(project, deadline, false);
        for (const Project& project : guessed_) snapshot(project, deadline, true);
        if (!outside_.empty()) copyOutside(outside_);
        if (!guessedOutside_.empty()) copyOutside(guessedOutside_);
        return std::move(saved_);
    }

  private:
    void snapshot(const Project& project, const Deadline& deadline, bool onlyChanges) {
        try {
            if (passed(deadline)) return skip(project);
            const std::string label = "Before: " + oneLine(command_, commandLabelLength);
            SnapshotRequest request = context_.request("tool", label, deadline);
            request.onlyChanges = onlyChanges;
            const SnapshotResult result = context_.handler.engine.snapshot(project, request);
            saved_.notes.push_back(HookContext::noteOn(result, project));
            if (result.late > 0)
                notSnapshotted("there was no time for " + std::to_string(result.late) + " of the files in it");
        } catch (const std::exception& error) {
            if (passed(deadline)) return skip(project); // its lock was held all the time
            failed(error);
        }
    }

    void skip(const Project& project) {
        saved_.notes.push_back("skipped " + project.root);
        notSnapshotted("there was no time left");
    }

    void failed(const std::exception& error) {
        saved_.failures.emplace_back(error.what());
        notSnapshotted(error.what());
    }

    void notSnapshotted(std::string reason) {
        if (!saved_.notSnapshotted) saved_.notSnapshotted = std::move(reason);
    }

    void copyOutside(const std::vector<std::string>& paths) {
        try {
            const VaultSaved saved = context_.handler.vault.save({.paths = paths,
                                                                  .command = command_,
                                                                  .agent = std::string(rawValue(context_.agent)),
                                                                  .cwd = context_.event.cwd,
                                                                  .session = context_.event.session,
                                                                  .turn = context_.event.turn,
                                                                  .deadline = context_.whole()});
            if (saved.entry) saved_.notes.push_back(noteOn(*saved.entry));
        } catch (const std::exception& error) {
            saved_.failures.emplace_back(error.what());
        }
    }

    // --- What the command may touch, by where it is kept safe ---

    void sortOut() {
        for (const std::string& target : decision_.targets) attempt([&] { sortOut(target); });
        for (const std::string& folder : decision_.opaqueDirs) attempt([&] { addHolder(folder); });
        for (const std::string& folder : decision_.suspected) attempt([&] { guess(folder); });
        for (const std::string& path : decision_.mentioned)
            attempt([&] {
                if (!guess(path) && !isIn(decision_.targets, path)) guessedOutside_.push_back(path);
            });
        std::sort(outside_.begin(), outside_.end());
        outside_.erase(std::unique(outside_.begin(), outside_.end()), outside_.end());
    }

    template <typename Action>
    void attempt(Action action) {
        try {
            action();
        } catch (const std::exception& error) {
            failed(error);
        }
    }

    void sortOut(const std::string& target) {
        const std::string place = Store::canonicalPlace(target);
        const std::string end = Store::canonical(target);
        const bool isLink = end != place;
        note(place);
        if (isLink) note(end);
        if (!addHolder(isLink ? std::string(parentOf(place)) : place)) outside_.push_back(target);
        // A link may be removed, or written through.
        const bool follows = !isLink || isFile(end) || isIn(decision_.followed, target);
        if (isLink && !addHolder(end) && follows) outside_.push_back(end);
        for (const Project& project : context_.projects()) {
            if (!isAtOrBelow(project.root, end) || !isFolder(project.root)) continue;
            add(project, projects_);
            // Nobody was asked about a project unknown when the guard judged, and its snapshot lacks git's store.
            if (follows && context_.isUnjudged(project) && isIn(decision_.removed, target))
                outside_.push_back(isLink ? end : target);
        }
    }

    // The command's target as the turn's, in its project's "edits.log", where file tools are noted as well.
    void note(const std::string& path) {
        if (context_.event.kind != HookEvent::Kind::shell) return;
        const auto project = Store::projectContaining(std::string(parentOf(path)), context_.projects());
        if (!project || path.size() <= project->root.size()) return;
        noteEdit(context_.handler.store.history(*project).folder(),
                 {now(), std::string(rawValue(context_.agent)), context_.event.session, context_.event.turn,
                  path.substr(project->root.size() + (project->root == "/" ? 0 : 1))});
    }

    // A guess is worth a snapshot only where something changed since the last one.
    // False when there is no project.
    bool guess(const std::string& path) {
        const auto holder = context_.projectFor(path);
        const auto isHolder = [&](const Project& project) { return project.id == holder->id; };
        if (holder && std::none_of(projects_.begin(), projects_.end(), isHolder)) add(*holder, guessed_);
        return holder.has_value();
    }

    // Adds the project that `path` lies in. False when there is none.
    bool addHolder(const std::string& path) {
        const auto holder = context_.projectFor(path);
        if (holder) add(*holder, projects_);
        return holder.has_value();
    }

    HookContext& context_;
    const std::string& command_;
    const shell::Decision& decision_;
    std::vector<Project> projects_;
    std::vector<Project> guessed_; // in which something may change, by a guess
    std::vector<std::string> outside_;
    std::vector<std::string> guessedOutside_;
    SavedBefore saved_;
};

} // namespace

SavedBefore saveBefore(HookContext& context, const std::string& command, const shell::Decision& decision) {
    return Saving(context, command, decision).run();
}

} // namespace tidewrack
