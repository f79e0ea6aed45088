#include "Model/History.hpp"

#include "Engine/Forget.hpp"
#include "Engine/Tracking.hpp"
#include "Platform/Attributes.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Store/Forgotten.hpp"
#include "Support/Files.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace tidewrack::testing {

namespace {

constexpr std::int64_t sizeLimit = 70'000;

std::vector<std::string> listOf(const Paths& paths) {
    return {paths.begin(), paths.end()};
}

bool same(const Tree& a, const Tree& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.first == y.first && x.second.sameAttributes(y.second) && x.second.text == y.second.text;
    });
}

Changes::Counts countsOf(const SnapshotMeta& meta) {
    return {meta.added, meta.modified, meta.deleted};
}

// Without folders.
Changes::Counts countsOf(const Changes& changes) {
    const auto files = [&](const auto& paths) {
        return std::count_if(paths.begin(), paths.end(),
                             [&](const auto& path) { return !changes.folders.contains(path); });
    };
    return {files(changes.added), files(changes.modified), files(changes.deleted)};
}

std::string number(std::int64_t value) {
    return std::to_string(value);
}

bool isSize(const std::optional<std::int64_t>& size, const Node* node) {
    return node == nullptr ? !size : node->isFolder() || size == node->size;
}

// The warning is about this path.
bool isAbout(const std::string& warning, const std::string& path) {
    for (const std::string verb :
         {"couldn't restore ", "couldn't remove ", "couldn't create ", "skipped ", "kept ", "didn't replace "})
        for (const char* end : {": ", "/: "})
            if (warning.starts_with(verb + path + end)) return true;
    return false;
}

} // namespace

History::History(std::uint64_t seed)
    : engine_(world_.store()), chance_(seed),
      edits_(world_.projectPath(), world_.folder.at("outside"), sizeLimit, seed + 1) {
    const auto& f = world_.folder;
    f.write("outside/file", "not yours");
    f.link("outside/link", "file");
    f.write("outside/a/b", "nor this");
    outside_ = readTree(f.at("outside"), {});
    if (git(f.at("project"), "init -q")) (void)git(f.at("project"), "config core.excludesFile /dev/null");
    project_ = track(engine_.store, world_.projectPath(), false);
    project_.maxFileSize = sizeLimit;
    engine_.gitPatience = std::chrono::hours(1); // it does the work of many commands
}

void History::run(std::uint64_t steps) {
    for (std::uint64_t i = 0; i < steps; ++i) step();
    checkStore(false);
}

void History::step() {
    log_.emplace_back();
    const auto roll = chance_.below(100);
    if (safety_ && chance_.oneIn(2))
        backToSafety();
    else if (roll < 62 || snapshots_.empty()) {
        safety_.reset();
        for (auto edits = snapshots_.empty() ? 40 : 1 + chance_.below(4); edits > 0; --edits)
            log_.back() += edits_.edit(look()) + "; ";
        if (snapshots_.empty()) snap();
    } else if (roll < 74)
        snap();
    else if (roll < 84)
        restoreSome();
    else if (roll < 90)
        undo();
    else if (roll < 92)
        pin();
    else if (roll < 94)
        age();
    else if (roll < 96)
        prune();
    else if (roll < 97)
        nest();
    else if (roll < 98)
        forgetSome();
    else
        compare();
    require(same(readTree(world_.folder.at("outside"), {}), outside_), "nothing outside the project changes");
}

std::int64_t History::anySeq() {
    return std::next(snapshots_.begin(), static_cast<std::ptrdiff_t>(chance_.below(snapshots_.size())))->first;
}

// What a snapshot of this folder should list, and which contents it should take over from the one before.
History::Taken History::take(const Tree& disk) {
    const Known* latest = snapshots_.empty() ? nullptr : &snapshots_.rbegin()->second;
    const Tree previous = latest == nullptr ? Tree() : latest->tree;
    Taken taken;
    for (const auto& [path, node] : disk) {
        if (!node.listed) continue;
        Node& item = taken.walked[path] = node;
        const Node* before = find(previous, path);
        if (item.ignored) item.size = item.mtime = item.ctime = 0;
        if (item.isFolder() || item.ignored) continue;
        const bool isCopy = before != nullptr && before->isCopy(item);
        taken.recognises = taken.recognises || isCopy;
        if (item.kind == 'f' && item.size > sizeLimit)
            item.version = "big:" + number(item.size) + ":" + number(item.mtime);
        else
            item.version =
                isCopy || (before != nullptr && before->sameAttributes(item)) ? before->version : number(++versions_);
    }
    finish(taken, previous, latest);
    return taken;
}

// The folder before a restore or undo, and the safety snapshot that it takes.
History::Taken History::takeSafety(Tree& before) {
    before = look();
    Taken safety = take(before);
    for (const auto& [path, node] : safety.walked) before[path].version = node.version;
    return safety;
}

// Without changes a snapshot shares the listing of the one before.
void History::finish(Taken& taken, const Tree& previous, const Known* shared) {
    taken.changes = changesBetween(previous, taken.walked);
    const bool shares = shared != nullptr && !taken.recognises && listTheSame(previous, taken.walked);
    SnapshotMeta& meta = taken.known.meta;
    meta.seq = ++highest_;
    meta.manifestOf = shares ? shared->meta.manifestOf : meta.seq;
    taken.known.tree = shares ? shared->tree : taken.walked;
    const auto isFile = [](const auto& item) { return !item.second.isFolder(); };
    meta.files = std::count_if(taken.walked.begin(), taken.walked.end(), isFile);
}

void History::record(const SnapshotMeta& meta, const Taken& taken, const std::string& kind, const std::string& label) {
    const SnapshotMeta& wanted = taken.known.meta;
    require(meta.seq == wanted.seq, "snapshot numbers go up by one", number(meta.seq));
    require(meta.kind == kind && meta.label == label, "a record tells what it was taken for", meta.kind);
    require(meta.manifestOf == wanted.manifestOf, "only a snapshot without changes shares a listing",
            number(meta.manifestOf));
    Known& known = snapshots_[meta.seq] = taken.known;
    known.meta = meta;
    checkSnapshot(known);
    require(meta.files == wanted.files, "a record counts its files", number(meta.files));
    require(countsOf(meta) == countsOf(taken.changes), "a record counts what changed");
}

void History::snap() {
    log_.back() += " snap";
    safety_.reset();
    const Tree disk = look();
    const Taken taken = take(disk);
    const std::string label = "step " + number(static_cast<std::int64_t>(log_.size()));
    const SnapshotResult result = engine_.snapshot(project_, {"manual", label, {}, {}, {}});
    const auto isOnRules = [](const Warning& warning) { return warning.kind == Warning::Kind::leftOutNow; };
    require(std::all_of(result.warnings.begin(), result.warnings.end(), isOnRules),
            "an undisturbed snapshot warns of nothing");
    require(result.changes == taken.changes, "a snapshot tells what changed");
    require(same(look(), disk), "a snapshot changes nothing");
    record(result.meta, taken, "manual", label);
    if (!pruneDue_) return;
    pruneDue_ = false;
    pruned(expectedToStay(snapshots_, now()));
}

Paths History::restore(std::int64_t to, bool whole, const std::vector<std::string>& paths, bool removeNew) {
    log_.back() = "restore " + number(to) + (removeNew ? "" : " keep-new");
    for (const std::string& path : paths) log_.back() += " '" + path + "'";
    Tree before;
    const Taken safety = takeSafety(before);
    const Tree target = snapshots_.at(to).tree;
    Paths listed;
    Paths unknown;
    for (const std::string& path : paths) {
        const std::string prefix = project_.root + "/";
        std::string clean = path.starts_with(prefix) ? path.substr(prefix.size()) : path;
        if (clean.ends_with('/')) clean.pop_back();
        listed.insert(clean);
        if (find(target, clean) == nullptr && find(safety.walked, clean) == nullptr) unknown.insert(clean);
    }
    const Scope scope = [&](const std::string& path) {
        for (std::string at = path; !at.empty(); at = parentPath(at))
            if (listed.contains(at)) return true;
        return whole;
    };
    std::optional<std::vector<std::string>> words;
    if (!whole) words = paths;
    const RestoreResult result = engine_.restore(project_, to, words, removeNew);
    record(result.safety, safety, "restore", "Before restoring #" + number(to));
    safety_ = {result.safety.seq, before};
    return applied(safety, {before, target, scope, nested_, removeNew}, result, unknown);
}

// Checks the folder, the report and the snapshot recorded afterwards, once a restore or undo is done.
Paths History::applied(const Taken& safety, const RestoreTask& task, const RestoreResult& result,
                       const Paths& unknown) {
    const RestoreOutcome outcome = expectedRestore(task);
    const Tree after = look();
    checkFolder(outcome, after);
    using Action = PathOutcome::Action;
    const auto reported = [&](Action action) { return pathsOf(result.outcomes, action); };
    require(reported(Action::restored) == listOf(outcome.restored), "a report names what was restored");
    require(reported(Action::removed) == listOf(outcome.removed), "a report names what was removed");
    const auto filesOf = [](const Paths& paths, const Tree& tree) {
        return std::count_if(paths.begin(), paths.end(), [&](const auto& path) { return !tree.at(path).isFolder(); });
    };
    const auto counted = [&](Action action) {
        return static_cast<std::ptrdiff_t>(filesAmong(result.outcomes, action));
    };
    require(counted(Action::restored) == filesOf(outcome.restored, task.target) &&
                counted(Action::removed) == filesOf(outcome.removed, task.before),
            "a report counts files");
    RestoreResult ofPaths = result; // what an undo says of pruned snapshots is about none
    ofPaths.prunedUpTo.reset();
    checkWarnings(warningTexts(ofPaths), outcome.warned, unknown);
    done_["restored"] += outcome.restored.size();
    done_["removed"] += outcome.removed.size();
    done_["warned"] += outcome.warned.size();
    Taken taken;
    for (const auto& [path, wanted] : outcome.after) {
        if (!wanted.listed) continue;
        Node& node = taken.walked[path] = after.at(path);
        node.listed = true;
        node.version = wanted.version;
        node.ignored = wanted.ignored;
        if (node.isFolder()) node.mtime = wanted.mtime;
        if (node.ignored) node.size = node.mtime = node.ctime = 0;
    }
    finish(taken, safety.walked, &snapshots_.at(result.safety.seq));
    const std::string label = "After" + result.safety.label.value_or("").substr(6);
    record(history().latest().value(), taken, "restored", label);
    checkNow(taken.known.meta.seq);
    return outcome.warned;
}

void History::checkFolder(const RestoreOutcome& outcome, const Tree& after) const {
    for (const auto& [path, node] : after)
        require(outcome.after.contains(path), "nothing is there that should go", path);
    for (const auto& [path, wanted] : outcome.after) {
        const Node* node = find(after, path);
        require(node != nullptr, "nothing is lost", path);
        require(node->kind == wanted.kind && node->text == wanted.text, "contents come back or stay", path);
        require(node->mode == wanted.mode, "modes come back or stay", path);
        const bool anyTime = node->isFolder() && outcome.disturbed.contains(path) && !outcome.finished.contains(path);
        require(anyTime || node->mtime == wanted.mtime, "times come back or stay", path);
        require(wanted.ino == 0 || node->ino == wanted.ino, "what is not restored is not touched", path);
    }
}

void History::checkWarnings(std::vector<std::string> warnings, const Paths& warned, const Paths& unknown) const {
    const auto drop = [&](const std::string& path, const auto& fits) {
        const auto rest = std::remove_if(warnings.begin(), warnings.end(), fits);
        require(rest != warnings.end(), "what could not be done has a warning", path);
        warnings.erase(rest, warnings.end());
    };
    for (const std::string& path : warned) drop(path, [&](const auto& warning) { return isAbout(warning, path); });
    for (const std::string& path : unknown)
        drop(path, [&](const auto& warning) { return warning.starts_with(path + " isn't in snapshot #"); });
    // What the owner's rules leave out is told once, by whichever snapshot comes first.
    std::erase_if(warnings, [](const auto& each) { return each.find(" left out from now on; ") != each.npos; });
    require(warnings.empty(), "nothing else has a warning", warnings.empty() ? "" : warnings.front());
}

void History::restoreSome() {
    const std::int64_t to = anySeq();
    if (chance_.oneIn(2)) {
        restore(to, true, {}, !chance_.oneIn(4));
        return;
    }
    const Tree now = look();
    std::vector<std::string> paths;
    for (auto count = 1 + chance_.below(3); count > 0; --count) {
        std::string path = chance_.pathIn(chance_.oneIn(2) ? now : snapshots_.at(to).tree,
                                          [](const auto& each, const auto&) { return each != ".git"; });
        if (path.empty()) path = "never/there";
        if (chance_.oneIn(4)) path += '/';
        paths.push_back(chance_.oneIn(4) ? project_.root + "/" + path : path);
    }
    restore(to, false, paths, !chance_.oneIn(4));
}

// Restoring the safety snapshot brings back exactly what was there, except for paths with a warning: what was brought
// back may be ignored again, by rules that were brought back, too.
void History::backToSafety() {
    const Safety safety = *safety_;
    const Tree between = look();
    const Paths warned = restore(safety.seq, true, {}, true);
    safety_.reset();
    const Tree after = look();
    for (const auto& [path, was] : safety.before) {
        const Node* is = find(after, path);
        if (hasAtOrAbove(warned, path)) continue;
        require(is != nullptr && is->kind == was.kind && is->text == was.text && is->mode == was.mode,
                "the safety snapshot brings back what was", path);
        require(was.isFolder() || is->mtime == was.mtime, "the safety snapshot brings back times", path);
    }
    for (const auto& [path, is] : after)
        require(!is.listed || is.ignored || leavesOut(between, path) || safety.before.contains(path) ||
                    hasAtOrBelow(warned, path) || hasAtOrAbove(warned, path) || hasAtOrAbove(nested_, path),
                "the safety snapshot takes away what came", path);
}

void History::undo() {
    const std::int64_t from = anySeq();
    log_.back() = "undo " + number(from);
    Tree before;
    const Taken safety = takeSafety(before);
    const Tree target = snapshots_.at(from).tree;
    const auto next = snapshots_.upper_bound(from);
    const std::int64_t to = next == snapshots_.end() ? 0 : next->first;
    const Tree& until = to == 0 ? safety.walked : next->second.tree;
    const Changes changes = changesBetween(target, until, true);
    Paths turn;
    const auto isShown = [](const Node& node) { return node.listed && node.isFolder() && !node.ignored; };
    for (const auto& [path, then] : target)
        if (const Node* later = find(until, path); later != nullptr && isShown(then) && isShown(*later))
            if (then.mode != later->mode) turn.insert(path);
    for (const auto* list : {&changes.added, &changes.modified, &changes.deleted})
        turn.insert(list->begin(), list->end());
    std::erase_if(
        turn, [&](const std::string& path) { return leavesOut(until, path) && rulesLeaveOut(project_.root, path); });
    const RestoreResult result = engine_.undo(project_, from);
    require(result.nothingInScope == turn.empty(), "an undo of nothing says so");
    require(result.prunedUpTo == (to > from + 1 ? std::optional(to) : std::nullopt),
            "an undo tells of pruned snapshots");
    record(result.safety, safety, "restore", "Before undoing #" + number(from));
    const Scope scope = [&](const std::string& path) { return turn.contains(path); };
    applied(safety, {before, target, scope, nested_, true}, result, {});
    safety_ = {result.safety.seq, before};
}

void History::pin() {
    Known& known = snapshots_.at(anySeq());
    known.meta.pinned = !known.meta.pinned;
    log_.back() = (known.meta.pinned ? "pin " : "unpin ") + number(known.meta.seq);
    engine_.setPinned(project_, known.meta.seq, known.meta.pinned);
    checkStore(false);
}

// Time passes: all snapshots become older.
void History::age() {
    const std::chrono::minutes shifts[] = {std::chrono::minutes(10), std::chrono::hours(5), std::chrono::hours(40),
                                           std::chrono::hours(24 * 4)};
    const auto shift = chance_.of(shifts);
    log_.back() = "age " + number(shift.count()) + " minutes";
    const ProjectLock lock(history().lockPath());
    for (auto& [seq, known] : snapshots_) {
        known.meta.created -= shift;
        history().writeSnapshot(lock, known.meta);
    }
    const std::string marker = history().folder() + "/last-prune";
    (void)setModificationTime(AT_FDCWD, marker.c_str(), 0);
    pruneDue_ = true;
}

void History::prune() {
    const std::chrono::hours shifts[] = {std::chrono::hours(0), std::chrono::hours(0), std::chrono::hours(49),
                                         std::chrono::hours(200), std::chrono::hours(24 * 31)};
    const Date when = now() + chance_.of(shifts);
    log_.back() = "prune " + isoText(when);
    const auto stay = expectedToStay(snapshots_, when);
    std::vector<std::int64_t> go;
    for (const auto& [seq, known] : snapshots_)
        if (!stay.contains(seq)) go.push_back(seq);
    const Tree disk = look();
    const std::size_t contents = keptContents().size();
    const PruneResult would = engine_.prune(project_, when, true);
    checkStore(false);
    const PruneResult did = engine_.prune(project_, when, false);
    require(did.removedSnapshots == go && would.removedSnapshots == go, "retention keeps what its ages say");
    pruned(stay);
    // A number comes again where age took the newest; not one of a snapshot that was forgotten.
    highest_ =
        std::max(snapshots_.empty() ? 0 : snapshots_.rbegin()->first, readForgotten(history().folder()).highest());
    const auto gone = static_cast<std::int64_t>(contents - keptContents().size());
    done_["pruned"] += contents - keptContents().size();
    require(did.removedBlobs == gone && would.removedBlobs == gone, "a prune counts the contents it removes");
    require(same(look(), disk), "a prune does not touch the project");
}

void History::pruned(const std::set<std::int64_t>& stay) {
    std::erase_if(snapshots_, [&](const auto& item) { return !stay.contains(item.first); });
    if (safety_ && !snapshots_.contains(safety_->seq)) safety_.reset();
    checkStore(true);
}

void History::forgetSome() {
    ForgetChoice choice;
    std::set<std::int64_t> stay;
    for (auto count = 1 + chance_.below(3); count > 0; --count) choice.seqs.push_back(anySeq());
    if (chance_.oneIn(4)) choice.seqs.push_back(snapshots_.rbegin()->first);
    for (const auto& [seq, known] : snapshots_)
        if (std::find(choice.seqs.begin(), choice.seqs.end(), seq) == choice.seqs.end()) stay.insert(seq);
    log_.back() = "forget";
    for (const std::int64_t seq : choice.seqs) log_.back() += " " + number(seq);
    const Tree disk = look();
    const std::size_t contents = keptContents().size();
    const ForgetResult would = forget(engine_, project_, choice, Engine::Acting::dryRun);
    checkStore(false);
    const ForgetResult did = forget(engine_, project_, choice, Engine::Acting::forReal);
    require(did == would, "a dry run tells what is forgotten");
    pruned(stay);
    const std::size_t gone = contents - keptContents().size();
    done_["forgotten"] += gone;
    require(did.contents == static_cast<std::int64_t>(gone), "a forget counts the contents it removes");
    require(same(look(), disk), "a forget does not touch the project");
}

// A folder becomes a project of its own, or is none any longer.
void History::nest() {
    safety_.reset();
    if (!nested_.empty() && chance_.oneIn(2)) {
        const std::string path = *nested_.begin();
        log_.back() = "untrack " + path;
        for (const Project& project : engine_.store.projects())
            if (project.root == project_.root + "/" + path) engine_.store.untrack(project);
        nested_.erase(path);
        return;
    }
    const std::string path = chance_.pathIn(
        look(), [](const auto& each, const auto& node) { return node.listed && node.isFolder() && isUtf8(each); });
    log_.back() = "track " + path;
    if (path.empty()) return;
    (void)track(engine_.store, project_.root + "/" + path, false);
    nested_.insert(path);
}

// Differences and single contents, of two snapshots or of one and the folder as it is.
void History::compare() {
    const std::int64_t from = anySeq();
    const bool live = chance_.oneIn(2);
    const std::optional<std::int64_t> to = live ? std::nullopt : std::optional(anySeq());
    log_.back() = "compare " + number(from) + " " + number(to.value_or(0));
    const Tree& older = snapshots_.at(from).tree;
    const Tree newer = live ? nowSince(older) : snapshots_.at(*to).tree;
    const Changes changes = changesBetween(older, newer);
    require(engine_.diff(project_, from, to) == changes, "diff tells what changed");
    const auto check = [](const std::optional<std::string>& content, const Node* node, const std::string& path) {
        std::string text;
        const bool kept = node != nullptr && node->kind == 'f' && !node->notKept();
        require(content.has_value() == kept, "a change has the contents that are kept", path);
        require(!kept || (readFile(*content, text) == 0 && text == node->text), "a change has its contents", path);
    };
    std::size_t files = 0;
    for (const FileChange& change : engine_.fileChanges(project_, from, to)) {
        using Status = FileChange::Status;
        const Node* before = find(older, change.path);
        const Node* after = find(newer, change.path);
        check(change.oldContent, before, change.path);
        check(change.newContent, after, change.path);
        const auto status = before == nullptr ? Status::added : after == nullptr ? Status::deleted : Status::modified;
        require(change.status == status && isSize(change.oldSize, before) && isSize(change.newSize, after),
                "a change tells its kind and sizes", change.path);
        ++files;
    }
    require(static_cast<std::int64_t>(files) == countsOf(changes).sum(), "every file's change is told once");
    for (const auto& [path, node] : older)
        if (!node.notKept()) check(engine_.contentPath(project_, from, path), &node, path);
}

// What is listed now, with the versions of what has not changed since.
Tree History::nowSince(const Tree& older) const {
    Tree now = look();
    std::erase_if(now, [](const auto& item) { return !item.second.listed; });
    for (auto& [path, node] : now) {
        const Node* before = find(older, path);
        if (node.isFolder() || node.ignored) continue;
        node.version = before != nullptr && before->sameAttributes(node) ? before->version : "?";
    }
    return now;
}

void History::checkNow(std::int64_t seq) {
    const Tree& older = snapshots_.at(seq).tree;
    require(engine_.diff(project_, seq, std::nullopt) == changesBetween(older, nowSince(older)),
            "diff tells what is other now");
}

} // namespace tidewrack::testing
