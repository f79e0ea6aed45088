#include "Timeline/TurnUndo.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <set>

namespace tidewrack {

namespace {

using Type = TimelineRow::Type;
using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;

constexpr std::string_view live = "live:"; // stands before the path of a file in the project itself

// What is open: a running turn goes on up to now.
constexpr std::int64_t untilNow = 0;

bool sameBytes(const std::string& one, const std::string& other) {
    const Descriptor a(::open(one.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    const Descriptor b(::open(other.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!a || !b) return false;
    std::array<char, 65536> mine{};
    std::array<char, 65536> theirs{};
    for (off_t at = 0;; at += static_cast<off_t>(mine.size())) {
        const ssize_t count = ::pread(a.get(), mine.data(), mine.size(), at);
        if (count < 0 || ::pread(b.get(), theirs.data(), theirs.size(), at) != count) return false;
        if (!std::equal(mine.begin(), mine.begin() + count, theirs.begin())) return false;
        if (count < static_cast<ssize_t>(mine.size())) return true;
    }
}

bool sameDestination(const std::string& one, const std::string& other) {
    std::array<char, 4097> mine{};
    std::array<char, 4097> theirs{};
    const ssize_t count = ::readlink(one.c_str(), mine.data(), mine.size());
    return count > 0 && ::readlink(other.c_str(), theirs.data(), theirs.size()) == count &&
           std::equal(mine.begin(), mine.begin() + count, theirs.begin());
}

std::string companyText(const TimelineRow::Company& company) {
    return (company.agent.empty() ? "another session" : company.agent) + " was at work here from #" +
           std::to_string(company.during.from) + " to #" + std::to_string(company.during.to);
}

bool isLater(Reason reason) {
    switch (reason) {
    case Reason::clash:
    case Reason::changed:
    case Reason::tooLarge:
    case Reason::deleted:
    case Reason::madeAnew: return true;
    case Reason::none:
    case Reason::company:
    case Reason::notKept: break;
    }
    return false;
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

} // namespace

bool UndoResult::isComplete() const {
    const auto isLeft = [](const UndoneAction& each) { return each.action.isLeft(); };
    const auto failed = [](const PathOutcome& each) { return bool(each.obstacle); };
    return std::none_of(actions.begin(), actions.end(), isLeft) &&
           (!restored || std::none_of(restored->outcomes.begin(), restored->outcomes.end(), failed));
}

std::vector<LoggedHook> readLoggedHooks(const Store& store) {
    std::string log;
    return readFile(store.home + "/hooks.log", log) == 0 ? loggedHooks(log) : std::vector<LoggedHook>();
}

namespace {

// The newest records of another project, back to the first one that is older than `since`.
std::vector<SnapshotMeta> recordsSince(const History& history, Date since) {
    std::vector<SnapshotMeta> records;
    const auto seqs = history.seqs();
    for (auto seq = seqs.rbegin(); seq != seqs.rend(); ++seq) {
        records.push_back(history.snapshot(*seq));
        if (records.back().created < since) break;
    }
    std::reverse(records.begin(), records.end());
    return records;
}

void addVaultEntries(const Store& store, const Project& project, std::vector<TimelineRow>& rows) {
    for (const VaultEntry& entry : Vault(store).entries()) {
        if (!entry.agent || !isAtOrBelow(Store::canonical(entry.cwd), project.root)) continue;
        TimelineRow* only = nullptr;
        int found = 0;
        for (TimelineRow& row : rows) {
            const bool during =
                row.began <= entry.created && (row.ended ? entry.created <= *row.ended : row.isRunning());
            if (row.type != Type::turn || row.agent != entry.agent || !during) continue;
            only = &row;
            ++found;
        }
        if (found == 1 && std::find(only->vault.begin(), only->vault.end(), entry.id) == only->vault.end())
            only->vault.push_back(entry.id);
    }
}

} // namespace

void addElsewhere(const Store& store, const Project& project, std::vector<TimelineRow>& rows) {
    std::optional<Date> since;
    for (const TimelineRow& row : rows)
        if (row.type == Type::turn && (!since || row.began < *since)) since = row.began;
    if (!since) return;
    addVaultEntries(store, project, rows);
    for (const Project& other : store.projects()) {
        if (other.id == project.id) continue;
        try {
            const Timeline there = Timeline::of(other.root, recordsSince(store.history(other), *since));
            for (TimelineRow& row : rows)
                if (std::any_of(there.rows.begin(), there.rows.end(),
                                [&](const auto& each) { return isSameTurn(row, each); }))
                    row.projects.push_back(other.root);
        } catch (const TidewrackError&) { // another project's damage is no reason to tell nothing of this one
        }
    }
}

TurnUndo::TurnUndo(const Engine& engine, const Project& project)
    : engine_(engine), project_(project), history_(engine.store.history(project)), records_(history_.snapshots()),
      timeline_(Timeline::of(project.root, records_, readLoggedHooks(engine.store))) {}

Changes::Counts TurnUndo::counts(const TimelineRow& row) const {
    if (row.counts) return *row.counts;
    Changes::Counts counts;
    for (const Stretch& stretch : row.stretches) {
        const bool open = row.isRunning() && &stretch == &row.stretches.back();
        const auto more =
            engine_.diff(project_, stretch.from, open ? std::nullopt : std::optional(stretch.to)).fileCounts();
        counts = {counts.added + more.added, counts.modified + more.modified, counts.deleted + more.deleted};
    }
    return counts;
}

UndoChoice TurnUndo::last() const {
    for (const TimelineRow& row : timeline_.rows)
        if (row.type == Type::turn && !row.undone && counts(row).sum() > 0) return {"undo", {row}};
    return {};
}

UndoChoice TurnUndo::turn(std::int64_t seq) const {
    (void)history_.snapshot(seq); // throws where there is none
    const TimelineRow* row = timeline_.turnAt(seq);
    if (row == nullptr)
        throw TidewrackError::refused("Snapshot #" + std::to_string(seq) +
                                      " belongs to no turn. `tidewrack timeline` lists the turns.");
    return {"undo", {*row}};
}

UndoChoice TurnUndo::session(const std::string& name) const {
    if (name.empty()) throw TidewrackError::refused("--session needs a value"); // a script's unset variable
    UndoChoice choice;
    std::set<std::string> names;
    bool exact = false;
    for (const TimelineRow& row : timeline_.rows) exact = exact || (row.type == Type::turn && row.session == name);
    for (const TimelineRow& row : timeline_.rows) {
        if (row.type != Type::turn || !row.session) continue;
        if (exact ? *row.session != name : !row.session->starts_with(name)) continue;
        names.insert(*row.session);
        if (!row.undone) choice.rows.push_back(row);
    }
    if (names.empty()) throw TidewrackError::refused("No turn of a session " + name + " here.");
    if (names.size() > 1)
        throw TidewrackError::refused(std::to_string(names.size()) + " sessions begin with " + name + ", among them " +
                                      *names.begin() + " and " + *names.rbegin() + ".");
    return choice;
}

UndoChoice TurnUndo::range(std::int64_t from, std::int64_t to) const {
    TimelineRow row;
    row.type = Type::outside;
    row.first = history_.snapshot(from).seq;
    row.last = history_.snapshot(to).seq;
    row.stretches.push_back({from, to});
    return {"undo", {row}};
}

UndoChoice TurnUndo::redo() const {
    for (const TimelineRow& row : timeline_.rows) {
        if ((row.type != Type::restore && row.type != Type::undo) || row.undone || row.stretches.empty()) continue;
        const bool isRedo = std::any_of(records_.begin(), records_.end(), [&](const SnapshotMeta& meta) {
            return meta.seq == row.last && meta.reversal == "redo";
        });
        if (!isRedo) return {"redo", {row}};
    }
    return {"redo", {}};
}

UndoChoice TurnUndo::sameTurns(const std::vector<TimelineRow>& rows) const {
    UndoChoice choice;
    for (const TimelineRow& row : timeline_.rows) {
        const auto isSame = [&](const TimelineRow& other) { return isSameTurn(row, other); };
        if (!row.undone && std::any_of(rows.begin(), rows.end(), isSame) && counts(row).sum() > 0)
            choice.rows.push_back(row);
    }
    return choice;
}

std::vector<Stretch> TurnUndo::stretches(const UndoChoice& choice) const {
    std::vector<Stretch> all;
    for (const TimelineRow& row : choice.rows) {
        all.insert(all.end(), row.stretches.rbegin(), row.stretches.rend());
        if (row.isRunning() && !row.stretches.empty()) all[all.size() - row.stretches.size()].to = untilNow;
    }
    return all;
}

std::vector<UndoStep> TurnUndo::steps(const UndoChoice& choice, const Manifest& now) const {
    std::vector<UndoStep> steps;
    const auto listing = [&](std::int64_t seq) {
        return seq == untilNow ? now : history_.manifest(history_.snapshot(seq));
    };
    const auto add = [&](const Stretch& stretch, const std::string& company) {
        steps.push_back({listing(stretch.from), listing(stretch.to), company});
    };
    for (const TimelineRow& row : choice.rows) {
        for (Stretch stretch : stretches({choice.by, {row}})) {
            auto company = row.company;
            std::sort(company.begin(), company.end(), [](const auto& a, const auto& b) {
                return std::pair(b.during.to, b.during.from) < std::pair(a.during.to, a.during.from);
            });
            // Newest first: what nobody else could have done, then what somebody could.
            for (const TimelineRow::Company& each : company) {
                const bool open = stretch.to == untilNow;
                if (each.during.from >= (open ? INT64_MAX : stretch.to) || each.during.to <= stretch.from) continue;
                if (open || each.during.to < stretch.to) add({each.during.to, stretch.to}, "");
                const Stretch shared{std::max(each.during.from, stretch.from),
                                     open ? each.during.to : std::min(each.during.to, stretch.to)};
                add(shared, companyText(each));
                stretch.to = shared.from;
                if (stretch.to <= stretch.from) break;
            }
            if (stretch.to == untilNow || stretch.to > stretch.from || row.type == Type::outside) add(stretch, "");
        }
    }
    return steps;
}

UndoContents TurnUndo::contents() const {
    const auto place = [this](const Entry& entry) {
        return entry.blob.starts_with(live) ? std::string(entry.blob.substr(live.size()))
                                            : history_.blobPath(entry.blob);
    };
    // A file that is too large to be kept is the same while its size and time are; one in the folder may be such.
    const auto unkept = [](const Entry& entry) {
        return entry.notKept() ? std::string(entry.blob)
                               : "big:" + std::to_string(entry.size) + ":" + std::to_string(entry.mtime);
    };
    return {[place, unkept](const Entry& a, const Entry& b) {
                if (a.notKept() || b.notKept()) return unkept(a) == unkept(b);
                return a.kind == EntryKind::link ? sameDestination(place(a), place(b)) : sameBytes(place(a), place(b));
            },
            [place](const Entry& entry) {
                LineDiff::Content content = LineDiff::read(place(entry));
                // A copy that was cut short would take its missing lines out of the file.
                const bool whole = content.tooLarge || content.bytes.size() == static_cast<std::size_t>(entry.size);
                if (!whole && !entry.blob.starts_with(live)) content.error = EIO;
                return content;
            }};
}

std::vector<UndoAction> TurnUndo::plan(const std::vector<UndoStep>& steps, const Manifest& now,
                                       const Options& options) const {
    UndoOptions undo{options.later, nullptr};
    if (!options.paths.empty())
        undo.scope = [&](std::string_view path) {
            return std::any_of(options.paths.begin(), options.paths.end(),
                               [&](const std::string& each) { return isAtOrBelow(path, each); });
        };
    return planUndo(steps, now, undo, contents());
}

std::string TurnUndo::label(const UndoChoice& choice) const {
    const TimelineRow& oldest = choice.rows.back();
    const std::string numbers =
        "#" + std::to_string(oldest.first) + "–#" + std::to_string(std::max(choice.rows.front().last, oldest.first));
    return "Before " + std::string(choice.by == "redo" ? "redoing " : "undoing ") + numbers;
}

UndoResult TurnUndo::run(const UndoChoice& choice, const Options& options) const {
    UndoResult result;
    if (choice.rows.empty()) return result;
    {
        // The newest snapshot is what most of the folder is compared with.
        const Manifest now = engine_.sides(project_, records_.back().seq, std::nullopt).newer;
        auto actions = plan(steps(choice, now), now, options);
        const bool acts = std::any_of(actions.begin(), actions.end(), [](const auto& each) { return each.acts(); });
        if (options.dryRun || !acts) { // nothing to do takes no snapshot
            result.actions = withCauses(std::move(actions), choice);
            return result;
        }
    }
    const ProjectLock lock(history_.lockPath());
    Engine::checkRoot(project_);
    SnapshotRequest request{"restore", label(choice), {}, {}, {}};
    request.reversal = choice.by;
    TakenSnapshot safety = engine_.safetySnapshot(lock, project_, request);
    const auto steps = this->steps(choice, safety.manifest);
    auto actions = plan(steps, safety.manifest, options);
    bool whole = true;
    for (const UndoAction& action : actions) whole = whole && !action.isLeft();
    if (whole && !options.paths.empty()) {
        Options all = options;
        all.paths.clear();
        whole = plan(steps, safety.manifest, all).size() == actions.size();
    }
    act(lock, safety, choice, whole, actions, result);
    result.actions = withCauses(std::move(actions), choice);
    return result;
}

void TurnUndo::act(const ProjectLock& lock, TakenSnapshot& safety, const UndoChoice& choice, bool whole,
                   std::vector<UndoAction>& actions, UndoResult& result) const {
    Reversal reversal{choice.by, {}, std::nullopt};
    if (whole)
        for (Stretch stretch : stretches(choice))
            reversal.tookBack.push_back({stretch.from, stretch.to == untilNow ? safety.result.meta.seq : stretch.to});
    std::vector<std::string> texts;
    for (const UndoAction& action : actions)
        if (action.kind == Kind::merge) texts.push_back(action.merged);
    const std::vector<std::string> blobs = engine_.keepTexts(lock, project_, texts, reversal);
    auto blob = blobs.begin();
    ManifestBuilder target;
    std::set<std::string, std::less<>> scope;
    for (const UndoAction& action : actions)
        if (action.acts()) scope.insert(action.path);
    for (const auto& item : safety.manifest.items())
        if (!scope.contains(item.path)) target.add(item.path, item.entry);
    for (const UndoAction& action : actions) {
        if (action.kind == Kind::merge)
            target.add(action.path, mergedEntry(action, *blob++));
        else if (action.acts() && action.wanted != nullptr)
            target.add(action.path, *action.wanted);
    }
    result.restored = engine_.apply(
        lock, project_, {std::nullopt, target.finish()}, [&](std::string_view path) { return scope.contains(path); },
        safety, true, reversal);
}

std::vector<UndoneAction> TurnUndo::withCauses(std::vector<UndoAction> actions, const UndoChoice& choice) const {
    std::vector<UndoneAction> result;
    std::set<std::size_t> wanted;
    for (UndoAction& action : actions) {
        action.wanted = nullptr; // its listing goes
        if (action.isLeft() && isLater(action.reason)) wanted.insert(result.size());
        result.push_back({std::move(action), 0, std::nullopt, {}});
    }
    // From the newest record back to the end of what is taken back.
    const std::int64_t oldest = choice.rows.front().isRunning() ? INT64_MAX : choice.rows.front().last;
    std::optional<Manifest> newer;
    for (std::size_t at = records_.size(); !wanted.empty() && at-- > 1 && records_[at].seq > oldest;) {
        if (records_[at].manifestOf == records_[at - 1].manifestOf) continue;
        if (!newer) newer = history_.manifest(records_[at]);
        const Manifest older = history_.manifest(records_[at - 1]);
        for (auto each = wanted.begin(); each != wanted.end();) {
            UndoneAction& action = result[*each];
            const Entry* before = older.find(action.action.path);
            const Entry* after = newer->find(action.action.path);
            const bool same = before == nullptr || after == nullptr ? before == after : !differs(*before, *after);
            if (same) {
                ++each;
                continue;
            }
            action.changedIn = records_[at].seq;
            for (const TimelineRow& row : timeline_.rows)
                for (const Stretch& stretch : row.stretches)
                    if (row.type == Type::turn && stretch.from < action.changedIn && action.changedIn <= stretch.to) {
                        action.agent = row.agent;
                        action.title = row.title;
                    }
            each = wanted.erase(each);
        }
        newer = older;
    }
    return result;
}

} // namespace tidewrack
