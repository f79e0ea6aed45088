#include "Timeline/TurnUndo.hpp"

#include "Engine/FolderBelow.hpp"
#include "Engine/SameContent.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <memory>
#include <set>

namespace tidewrack {

namespace {

using Type = TimelineRow::Type;
using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;

constexpr std::string_view live = "live:"; // before the path of a file in the project itself

// How a snapshot lists a file that is too large to be kept: it is the same while its size and time are.
std::string unkeptBlob(const Entry& entry) {
    return "big:" + std::to_string(entry.size) + ":" + std::to_string(entry.mtime);
}

Entry mergedEntry(const UndoAction& action, std::string_view blob) {
    Entry entry;
    entry.mode = action.mode;
    entry.size = static_cast<std::int64_t>(action.merged.size());
    entry.mtime =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    entry.blob = blob;
    return entry;
}

// The listing that a restore goes by.
struct Target {
    Manifest listing;
    std::set<std::string, std::less<>> scope;

    [[nodiscard]] Engine::Scope inScope() const {
        return [this](std::string_view path) { return scope.contains(path); };
    }
};

// `merged`: where the merged texts are kept, in the actions' order.
Target targetOf(const std::vector<UndoAction>& actions, const Manifest& now, const std::vector<std::string>& merged) {
    Target target;
    for (const UndoAction& action : actions)
        if (action.acts()) target.scope.insert(action.path);
    ManifestBuilder builder(now);
    std::uint32_t rank = 0;
    for (const auto& item : now.items()) {
        if (!target.scope.contains(item.path)) builder.add(item.path, item.entry, rank);
        ++rank;
    }
    auto blob = merged.begin();
    for (const UndoAction& action : actions) {
        if (action.kind == Kind::merge)
            builder.add(action.path, mergedEntry(action, *blob++));
        else if (action.acts() && action.wanted)
            builder.add(action.path, *action.wanted);
    }
    target.listing = builder.finish();
    return target;
}

// What a restore refuses, or refused, is left alone.
void fold(const std::vector<PathOutcome>& outcomes, std::vector<UndoAction>& actions,
          std::map<std::string, Obstacle, std::less<>>& obstacles) {
    for (const PathOutcome& outcome : outcomes)
        if (outcome.obstacle) obstacles.emplace(outcome.path, outcome.obstacle);
    for (UndoAction& action : actions) {
        if (!action.acts() || !obstacles.contains(action.path)) continue;
        action.kind = Kind::leave;
        action.reason = Reason::obstacle;
    }
    keepFoldersOfLeft(actions);
}

bool acts(const UndoAction& action) {
    return action.acts();
}

Engine::Scope actedOn(const std::vector<UndoAction>& actions) {
    std::set<std::string, std::less<>> paths;
    for (const UndoAction& action : actions)
        if (action.acts()) paths.insert(action.path);
    return [paths = std::move(paths)](std::string_view path) { return paths.contains(path); };
}

} // namespace

bool UndoResult::isComplete() const {
    const auto isLeft = [](const UndoneAction& each) { return each.action.isLeft(); };
    const auto failed = [](const PathOutcome& each) { return bool(each.obstacle); };
    return std::none_of(actions.begin(), actions.end(), isLeft) &&
           (!restored || std::none_of(restored->outcomes.begin(), restored->outcomes.end(), failed));
}

bool UndoResult::acts() const {
    return std::any_of(actions.begin(), actions.end(), [](const UndoneAction& each) { return each.action.acts(); });
}

TurnUndo::TurnUndo(const Engine& engine, const Project& project)
    : engine_(engine), project_(project), history_(engine.store.history(project)),
      records_(history_.snapshots(unread_)), notes_(readNotedEdits(history_.folder())),
      forgotten_(readForgotten(history_.folder())),
      timeline_(Timeline::of(project.root, records_, readLoggedHooks(engine.store), notes_.edits)) {
    for (TimelineRow& row : timeline_.rows)
        row.beginUnread = row.thinned && std::any_of(unread_.begin(), unread_.end(), [&](const UnreadRecord& each) {
                              return row.first < each.seq && each.seq < row.own.front();
                          });
    if (records_.empty() && !unread_.empty()) (void)history_.snapshot(unread_.back().seq); // throws
}

// Compared with the newest snapshot that can be read, which most of the folder is like.
Engine::Sides TurnUndo::sidesNow() const {
    for (auto record = records_.rbegin(); std::next(record) != records_.rend(); ++record) {
        try {
            return engine_.sides(project_, record->seq, std::nullopt);
        } catch (const TidewrackError& error) {
            if (error.kind() != TidewrackError::Kind::corrupt) throw;
        }
    }
    return engine_.sides(project_, records_.front().seq, std::nullopt);
}

// With what is too large to be kept as the safety snapshot would list it.
const Manifest& TurnUndo::present() const {
    if (present_) return *present_;
    Engine::Sides sides = sidesNow();
    present_ = std::move(sides.newer);
    unseen_ = std::move(sides.warnings);
    interrupted_ = engine_.foreseeInterrupted(project_);
    if (!interrupted_.remaining.empty()) present_ = withCleared(*present_, interrupted_);
    const std::int64_t largest = project_.maxFileSize.value_or(Project::defaultMaxFileSize);
    ManifestBuilder builder(*present_);
    std::uint32_t rank = 0;
    bool changed = false;
    for (const auto& item : present_->items()) {
        Entry entry = item.entry;
        std::string blob;
        if (entry.kind == EntryKind::file && entry.size > largest && entry.blob.starts_with(live)) {
            blob = unkeptBlob(entry);
            entry.blob = blob;
            changed = true;
        }
        builder.add(item.path, entry, rank++);
    }
    if (changed) present_ = builder.finish();
    return *present_;
}

UndoContents TurnUndo::contents(const Manifest& now) const {
    const auto isLive = [](const Entry& entry) { return entry.blob.starts_with(live); };
    const auto place = [this, isLive](const Entry& entry) {
        return isLive(entry) ? std::string(entry.blob.substr(live.size())) : history_.blobPath(entry.blob);
    };
    const auto isWhole = [place, isLive](const Entry& entry) {
        struct stat status {};
        return isLive(entry) || (::stat(place(entry).c_str(), &status) == 0 && status.st_size == entry.size);
    };
    const auto same = [place](const Entry& a, const Entry& b) {
        if (a.notKept() || b.notKept())
            return (a.notKept() ? std::string(a.blob) : unkeptBlob(a)) ==
                   (b.notKept() ? std::string(b.blob) : unkeptBlob(b));
        return a.kind == EntryKind::link ? sameLink(place(a), place(b)) : sameContent(place(a), place(b));
    };
    const auto read = [place, isWhole](const Entry& entry) {
        LineDiff::Content content = LineDiff::read(place(entry));
        // A copy that was cut short would take its missing lines out of the file.
        if (content.error == 0 && !isWhole(entry)) content.error = EIO;
        return content;
    };
    const auto unlisted = [this, &now](const std::string& folder) {
        std::string found;
        (void)visitNames(joined(project_.root, folder), [&](const char* name) {
            if (now.find(joined(folder, name)) != nullptr) return true;
            found = name;
            return false;
        });
        return found;
    };
    // Folders are opened one by one: none of them may lead elsewhere.
    struct Disk {
        Descriptor root;
        FolderBelow files{-1};
        std::deque<std::string> blobs{};
    };
    const auto disk = std::make_shared<Disk>();
    if (openFolder(project_.root, disk->root) == 0) disk->files = FolderBelow(disk->root.get());
    const auto unseen = [this, disk](const std::string& path) -> std::optional<Entry> {
        Attributes attributes;
        const int error = disk->files.attributes(path, attributes);
        if (error == ENOENT || error == ENOTDIR) return std::nullopt;
        Entry entry = error == 0 ? entryOf(attributes) : Entry();
        if (entry.kind != EntryKind::dir)
            entry.blob = disk->blobs.emplace_back(error == 0 ? std::string(live) + joined(project_.root, path) : "err");
        return entry;
    };
    return {same, read, isWhole, unlisted, unseen};
}

TurnUndo::Actions TurnUndo::plan(UndoSteps& steps, const Manifest& now, const Options& options) const {
    UndoOptions undo{options.later, nullptr,       engine_.nestedRoots(project_, engine_.store.projects()),
                     nullptr,       options.hunks, ::geteuid() == 0};
    if (auto rules = LeaveOutRules::of(project_); !rules.empty())
        undo.leavesOut = [rules = std::move(rules)](std::string_view path) { return rules.leavesOut(path, false); };
    if (!options.paths.empty())
        undo.scope = [&](std::string_view path) {
            return std::any_of(options.paths.begin(), options.paths.end(),
                               [&](const std::string& each) { return isAtOrBelow(path, each); });
        };
    if (steps.open) steps.steps[*steps.open].after = now;
    return planUndo(steps.steps, now, undo, contents(now));
}

UndoSteps TurnUndo::stepsOf(const UndoChoice& choice) const {
    return StepReader(history_, records_, unread_, notes_, forgotten_).read(choice.rows);
}

TurnUndo::Left TurnUndo::whatIsLeft(const UndoChoice& choice) const {
    UndoSteps steps = stepsOf(choice);
    const Actions actions = plan(steps, present(), {});
    const auto counts = [](const UndoAction& action) {
        return action.acts() || action.forcible || action.isForOthers();
    };
    if (std::any_of(actions.begin(), actions.end(), counts)) return Left::something;
    const auto isLeft = [](const UndoAction& action) { return action.isLeft(); };
    return std::any_of(actions.begin(), actions.end(), isLeft) ? Left::unkept : Left::nothing;
}

namespace {

std::string spanOf(const UndoChoice& choice) {
    const TimelineRow& oldest = choice.rows.back();
    return spanText(oldest.first, std::max(choice.rows.front().last, oldest.first));
}

std::string label(const UndoChoice& choice) {
    return (choice.by == "redo" ? "Before redoing " : "Before undoing ") + spanOf(choice);
}

} // namespace

UndoResult TurnUndo::run(const UndoChoice& choice, const Options& options) const {
    UndoResult result;
    if (choice.rows.empty()) return result;
    UndoSteps steps = stepsOf(choice);
    {
        Obstacles obstacles;
        Actions actions = plan(steps, present(), options);
        checkPaths(choice, steps, options);
        checkHunks(steps, present(), options);
        const std::vector<Warning> unseenYet = foresee(present(), actions, obstacles);
        if (options.dryRun || std::none_of(actions.begin(), actions.end(), acts)) { // nothing to do takes no snapshot
            result.actions = withCauses(std::move(actions), obstacles, choice, present());
            result.warnings = unseen_;
            if (!result.acts()) return result;
            result.warnings.insert(result.warnings.end(), unseenYet.begin(), unseenYet.end());
            result.interrupted = interruptedBeside(result.actions);
            return result;
        }
    }
    const ProjectLock lock(history_.lockPath());
    Engine::checkRoot(project_);
    SnapshotRequest request{"restore", label(choice), {}, {}, {}};
    request.reversal = choice.by;
    TakenSnapshot safety = engine_.safetySnapshot(lock, project_, request);
    Actions actions = plan(steps, safety.manifest, options);
    if (engine_.keepUnseen(lock, project_, actedOn(actions), safety)) actions = plan(steps, safety.manifest, options);
    checkHunks(steps, safety.manifest, options); // a turn that still runs may have made others of them
    bool whole = true;
    if (!options.paths.empty()) {
        Options all = options;
        all.paths.clear();
        whole = options.hunks.empty() && plan(steps, safety.manifest, all).size() == actions.size();
    }
    Obstacles obstacles;
    (void)foresee(safety.manifest, actions, obstacles);
    if (std::any_of(actions.begin(), actions.end(), acts)) // else the folder was changed just now
        act(lock, safety, choice, whole, actions, obstacles, result);
    result.actions = withCauses(std::move(actions), obstacles, choice, safety.manifest);
    return result;
}

// What comes back is not there for long where it is taken back at once.
std::vector<PathOutcome> TurnUndo::interruptedBeside(const std::vector<UndoneAction>& actions) const {
    std::set<std::string_view> acted;
    for (const UndoneAction& each : actions)
        if (each.action.acts()) acted.insert(each.action.path);
    std::vector<PathOutcome> outcomes = interrupted_.outcomes;
    std::erase_if(outcomes, [&](const PathOutcome& outcome) {
        return outcome.action == PathOutcome::Action::toGiveBack && acted.contains(outcome.path);
    });
    return outcomes;
}

// A slip of the hand must not read as if all were done already.
void TurnUndo::checkPaths(const UndoChoice& choice, const UndoSteps& steps, const Options& options) const {
    if (options.paths.empty()) return;
    std::set<std::string> changed;
    for (const UndoStep& step : steps.steps)
        for (std::string& path : changesWithFolderModes(step.before, step.after)) changed.insert(std::move(path));
    for (const std::string& path : options.paths) {
        const bool found = std::any_of(changed.begin(), changed.end(),
                                       [&](const std::string& each) { return isAtOrBelow(each, path); });
        if (!found) throw TidewrackError::refused(path + " isn't in what " + spanOf(choice) + " changed.");
    }
}

// Hunks have numbers only where one step alone changed the text.
void TurnUndo::checkHunks(const UndoSteps& steps, const Manifest& now, const Options& options) const {
    if (options.hunks.empty()) return;
    const std::string& path = options.paths.front();
    const UndoStep* only = nullptr;
    for (const UndoStep& step : steps.steps) {
        const Changes changes = Changes::between(step.before, step.after).within({path});
        if (changes.all().empty()) continue;
        if (only != nullptr || changes.modified != std::vector{path})
            throw TidewrackError::refused(
                only != nullptr ? path + " was changed in several pieces; it can be taken back as a whole."
                                : path + " was added or deleted; it can be taken back as a whole.");
        only = &step;
    }
    const auto refuse = [&](const char* what, const LineDiff::ChosenHunks::value_type& hunk) {
        throw TidewrackError::refused(path + what + std::to_string(hunk.first) + " there.");
    };
    if (only == nullptr) return refuse(" has no hunk ", *options.hunks.begin());
    const Entry& before = *only->before.find(path);
    const Entry& after = *only->after.find(path);
    const UndoContents contents = this->contents(now);
    const auto textOf = [&](const Entry& entry) -> std::optional<std::string> {
        if (entry.kind != EntryKind::file || !entry.isKept()) return std::nullopt;
        const LineDiff::Content content = contents.read(entry);
        if (content.tooLarge || content.error != 0 || !LineDiff::text(content.bytes)) return std::nullopt;
        return content.bytes;
    };
    const auto older = textOf(before);
    const auto newer = textOf(after);
    if (!older || !newer) throw TidewrackError::refused(path + " has no hunks: it is no text, too large or not kept.");
    const std::vector<LineDiff::Hunk> hunks = LineDiff::patchHunks(*older, *newer);
    if (const auto* other = LineDiff::firstOther(hunks, options.hunks))
        refuse(other->first > hunks.size() ? " has no hunk " : " has another hunk ", *other);
}

// The restore's own plan tells what it would refuse, and what it can't know yet.
std::vector<Warning> TurnUndo::foresee(const Manifest& now, Actions& actions, Obstacles& obstacles) const {
    if (std::none_of(actions.begin(), actions.end(), acts)) return {};
    const std::vector<std::string> unwritten(actions.size(), "merged");
    const Target target = targetOf(actions, now, unwritten);
    TakenSnapshot present;
    present.manifest = now;
    RestoreResult aim = engine_.aim(project_, {std::nullopt, target.listing}, target.inScope(), present, true);
    std::set<std::string_view> met;
    for (const PathOutcome& outcome : aim.outcomes) met.insert(outcome.path);
    for (const UndoAction& action : actions)
        if (action.acts() && !met.contains(action.path))
            obstacles.emplace(action.path, Obstacle{Obstacle::Reason::notInHistory});
    fold(aim.outcomes, actions, obstacles);
    return std::move(aim.safetyWarnings);
}

void TurnUndo::act(const ProjectLock& lock, TakenSnapshot& safety, const UndoChoice& choice, bool whole,
                   Actions& actions, Obstacles& obstacles, UndoResult& result) const {
    Reversal reversal{choice.by, {}, std::nullopt};
    for (const UndoAction& action : actions) whole = whole && !action.isLeft();
    for (const TimelineRow& row : choice.rows)
        for (const Stretch& stretch : openStretches(row))
            if (whole)
                reversal.tookBack.push_back(
                    {stretch.from, stretch.to == untilNow ? safety.result.meta.seq : stretch.to});
    std::vector<std::string> texts;
    for (const UndoAction& action : actions)
        if (action.kind == Kind::merge) texts.push_back(action.merged);
    const std::vector<std::string> blobs = engine_.keepTexts(lock, project_, texts, reversal);
    const Target target = targetOf(actions, safety.manifest, blobs);
    result.restored =
        engine_.apply(lock, project_, {std::nullopt, target.listing}, target.inScope(), safety, true, reversal);
    fold(result.restored->outcomes, actions, obstacles);
    std::erase_if(result.restored->outcomes, [&](const PathOutcome& outcome) { // it stands among the actions
        return outcome.obstacle && target.scope.contains(outcome.path);
    });
}

std::vector<UndoneAction> TurnUndo::withCauses(Actions actions, const Obstacles& obstacles, const UndoChoice& choice,
                                               const Manifest& now) const {
    std::vector<UndoneAction> result;
    std::set<std::size_t> wanted;
    for (UndoAction& action : actions) {
        action.wanted.reset(); // its listing goes
        if (!action.acts() && UndoAction::isLater(action.reason)) wanted.insert(result.size());
        UndoneAction undone{std::move(action), 0, std::nullopt, {}, {}};
        const auto obstacle = obstacles.find(undone.action.path);
        if (undone.action.reason == Reason::obstacle && obstacle != obstacles.end()) undone.obstacle = obstacle->second;
        result.push_back(std::move(undone));
    }
    const TimelineRow& newest = choice.rows.front();
    if (newest.isRunning()) return result; // there is nothing since
    try {
        findCauses(result, std::move(wanted), now, newest.last);
    } catch (const TidewrackError&) { // what was done is done; a damaged listing costs the cause
    }
    return result;
}

// From now back to the end of what is taken back.
void TurnUndo::findCauses(std::vector<UndoneAction>& actions, std::set<std::size_t> wanted, const Manifest& now,
                          std::int64_t oldest) const {
    const UndoContents contents = this->contents(now);
    const auto same = [&](const Entry* a, const Entry* b) {
        if (a == nullptr || b == nullptr) return a == b;
        if (!differs(*a, *b)) return !isFolderModeChange(*a, *b);
        return a->kind == b->kind && a->mode == b->mode && a->size == b->size && contents.same(*a, *b);
    };
    // Takes those out that differ between the two.
    const auto found = [&](const Manifest& older, const Manifest& newer, std::int64_t seq) {
        for (auto each = wanted.begin(); each != wanted.end();) {
            UndoneAction& action = actions[*each];
            const bool here = !same(older.find(action.action.path), newer.find(action.action.path));
            if (here) action.changedIn = seq;
            each = here ? wanted.erase(each) : std::next(each);
        }
    };
    if (wanted.empty()) return;
    Manifest newer = history_.manifest(records_.back());
    found(newer, now, 0);
    for (std::size_t at = records_.size(); !wanted.empty() && at-- > 1 && records_[at].seq > oldest;) {
        if (records_[at].manifestOf == records_[at - 1].manifestOf) continue;
        Manifest older = history_.manifest(records_[at - 1]);
        found(older, newer, records_[at].seq);
        newer = std::move(older);
    }
    for (UndoneAction& action : actions)
        if (action.changedIn != 0) nameTurn(action);
}

// The turn that was at work then, where it can be told.
void TurnUndo::nameTurn(UndoneAction& action) const {
    const auto rows = timeline_.rowsThatLedTo(action.changedIn, action.action.path, records_, notes_.edits);
    if (rows.size() != 1 || rows.front()->type != Type::turn) return;
    action.agent = rows.front()->agent;
    action.title = rows.front()->title;
}

} // namespace tidewrack
