#include "Timeline/Timeline.hpp"

#include "Support/Paths.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <utility>

namespace tidewrack {

namespace {

using Type = TimelineRow::Type;
using End = TimelineRow::End;

// A turn whose records are being collected. Records are named by their places in the list.
struct Draft {
    std::vector<std::size_t> own;
    std::size_t next; // the record with which the session's next turn begins
    std::size_t end;  // of all its stretches, once they are known
};

// An agent that was cut off tells nobody. As long as this after its last sign of life it may be at work.
constexpr std::chrono::hours longestSilence{1};

// The log of the hooks is written when a hook ends, with whole seconds.
constexpr std::chrono::minutes longestHook{1};

bool isAgents(const SnapshotMeta& meta) {
    return meta.kind == "prompt" || meta.kind == "tool" || meta.kind == "stop";
}

// The end of a task that an agent left running reaches its hooks as a prompt, which nobody typed.
// Records of earlier versions tell by their label alone.
bool isFinishedTask(const SnapshotMeta& meta) {
    if (meta.kind != "prompt") return false;
    const std::string label = meta.label.value_or("");
    return meta.background.value_or(label.starts_with("<task-notification>") || label == "Background task finished");
}

// Agents without a session's name have one session each.
std::string sessionOf(const SnapshotMeta& meta) {
    return meta.agent.value_or("") + '\n' + meta.session.value_or("");
}
std::string sessionOf(const NotedEdit& edit) {
    return edit.agent + '\n' + edit.session.value_or("");
}

class Grouping {
  public:
    Grouping(const std::string& root, const std::vector<SnapshotMeta>& records, const std::vector<LoggedHook>& hooks,
             const std::vector<NotedEdit>& edits)
        : records_(records), steps_(records.size()) {
        const std::string logged = loggedText(root);
        for (const LoggedHook& hook : hooks)
            for (const auto& [seq, project] : hook.snapshots)
                if (project == logged) hooks_.emplace(seq, &hook);
        for (const NotedEdit& edit : edits) edits_[sessionOf(edit)].push_back(edit.time);
    }

    Timeline run() {
        for (at_ = 0; at_ < records_.size(); ++at_)
            if (isAgents(records_[at_])) addToTurn();
        for (Draft& draft : drafts_) // the end of a turn that did nothing here is none of this project's
            if (std::any_of(draft.own.begin(), draft.own.end(), [&](auto own) { return record(own).kind != "stop"; }) ||
                isThinned(draft))
                addTurn(draft);
        for (at_ = 0; at_ < records_.size(); ++at_) addOther();
        for (std::size_t step = 0; step + 1 < records_.size(); ++step) addOutside(step);
        findCompany();
        markUndone();
        std::stable_sort(rows_.begin(), rows_.end(), [](const TimelineRow& a, const TimelineRow& b) {
            return std::pair(b.last, b.first) < std::pair(a.last, a.first);
        });
        return {std::move(rows_)};
    }

  private:
    // What lies between a record and the next one, or between the newest one and now.
    struct Step {
        std::vector<std::size_t> turns;    // at work, as places among the rows
        std::vector<std::size_t> possible; // whose end was not seen, and which may have been at work
    };

    // --- Which records make a turn ---

    [[nodiscard]] const SnapshotMeta& record(std::size_t at) const { return records_[at]; }
    [[nodiscard]] bool hasStopped(const Draft& draft) const { return record(draft.own.back()).kind == "stop"; }
    // Known to be the same, or to be another one; without identifiers neither.
    [[nodiscard]] bool hasTurn(const Draft& draft, const SnapshotMeta& meta, bool same) const {
        const auto& turn = record(draft.own.front()).turn;
        return turn && meta.turn && (turn == meta.turn) == same;
    }

    void addToTurn() {
        const SnapshotMeta& meta = records_[at_];
        auto& turns = sessions_[sessionOf(meta)];
        Draft* draft = turns.empty() ? nullptr : &drafts_[turns.back()];
        const bool prompt = meta.kind == "prompt" && !(draft != nullptr && isFinishedTask(meta));
        bool belongs = draft != nullptr;
        if (belongs && !isFinishedTask(meta)) {
            belongs = prompt || hasStopped(*draft) ? hasTurn(*draft, meta, true) : !hasTurn(*draft, meta, false);
            if (!prompt && isTaskTurn(*draft, meta)) belongs = true;
        }
        if (!belongs && meta.kind == "stop") // the end of an earlier turn may come late
            for (auto each = turns.rbegin(); each != turns.rend() && !belongs; ++each)
                if ((belongs = hasTurn(drafts_[*each], meta, true))) draft = &drafts_[*each];
        if (belongs) {
            draft->own.push_back(at_);
            return;
        }
        if (draft != nullptr && draft->next == records_.size()) draft->next = at_;
        turns.push_back(drafts_.size());
        drafts_.push_back({{at_}, records_.size(), 0});
    }

    // What an agent does about a finished task has the identifier of the task's message.
    [[nodiscard]] bool isTaskTurn(const Draft& draft, const SnapshotMeta& meta) const {
        return std::any_of(draft.own.begin(), draft.own.end(), [&](std::size_t own) {
            return isFinishedTask(record(own)) && record(own).turn == meta.turn && !hasStopped(draft);
        });
    }

    // --- Rows ---

    // The turn's first snapshot as its end tells, where that one is pruned.
    [[nodiscard]] std::optional<std::int64_t> lostBegin(const Draft& draft) const {
        const auto& end = record(draft.own.back()).end;
        if (!end || !end->began || *end->began >= record(draft.own.front()).seq) return std::nullopt;
        return record(placeOf(*end->began)).seq == *end->began ? std::nullopt : end->began;
    }

    // Whether the turn's beginning is pruned. Older records do not tell when a turn began: where a number is missing
    // before an end that is all there is of it, something was pruned.
    [[nodiscard]] bool isThinned(const Draft& draft) const {
        const std::size_t at = draft.own.front();
        const SnapshotMeta& first = record(at);
        if (first.kind == "stop" && !first.end) return at > 0 && record(at - 1).seq + 1 < first.seq;
        return lostBegin(draft).has_value();
    }

    // The record with the state before the turn, as near as there is one.
    [[nodiscard]] std::size_t beginOf(const Draft& draft) const {
        if (!isThinned(draft)) return draft.own.front();
        const auto began = lostBegin(draft);
        const std::size_t first = began ? placeOf(*began) : draft.own.front();
        return first > 0 ? first - 1 : first;
    }

    void addTurn(Draft& draft) {
        const SnapshotMeta& begin = record(draft.own.front());
        TimelineRow row;
        row.first = record(beginOf(draft)).seq;
        row.thinned = isThinned(draft);
        row.beginLost = row.thinned && lostBegin(draft) != row.first + 1;
        row.agent = begin.agent;
        row.session = begin.session;
        row.turn = begin.turn;
        row.prompted = begin.kind == "prompt";
        row.began = begin.created;
        row.seen = record(draft.own.back()).created;
        if (draft.next < records_.size()) row.next = record(draft.next).created;
        if (row.prompted)
            row.title = begin.label.value_or("");
        else if (const auto& end = record(draft.own.back()).end)
            row.title = end->title.value_or("");
        setEnd(draft, row);
        for (const std::size_t own : draft.own) {
            row.own.push_back(record(own).seq);
            const auto& end = record(own).end;
            if (end && end->alone && end->began) row.alone.push_back({*end->began, record(own).seq});
            addCommands(record(own), row);
        }
        addSteps(draft, row);
        if (row.isRunning() && (row.stretches.empty() || row.stretches.back().to != row.last))
            row.stretches.push_back({row.last, row.last});
        addPossibleSteps(draft, row);
        setCounts(row);
        rows_.push_back(std::move(row));
    }

    void setEnd(Draft& draft, TimelineRow& row) const {
        const SnapshotMeta& newest = record(draft.own.back());
        if (newest.kind == "stop") {
            draft.end = std::min(draft.own.back(), draft.next);
            const bool interrupted = newest.end ? newest.end->interrupted : newest.label == "Interrupted";
            row.end = interrupted ? End::interrupted : End::stop;
            row.ended = newest.created;
        } else {
            draft.end = endNotSeen(draft);
            row.end = draft.end == records_.size() ? End::running : End::unknown;
            if (row.isRunning()) --draft.end;
        }
        row.last = record(draft.end).seq;
    }

    // The next record that is not its own; the late end of the session's earlier turn is no sign that this one is over.
    [[nodiscard]] std::size_t endNotSeen(const Draft& draft) const {
        const std::string session = sessionOf(record(draft.own.front()));
        std::size_t at = draft.own.back() + 1;
        while (at < records_.size() && at != draft.next && isAgents(record(at)) && sessionOf(record(at)) == session)
            ++at;
        return at;
    }

    // The steps from its beginning to its end, without restores, and without those between an end and a later record
    // of its own where something else was recorded in between.
    void addSteps(const Draft& draft, TimelineRow& row) {
        std::size_t own = 0;
        for (std::size_t step = beginOf(draft); step < draft.end; ++step) {
            while (own + 1 < draft.own.size() && draft.own[own + 1] <= step) ++own;
            const bool waits =
                draft.own[own] <= step && record(draft.own[own]).kind == "stop" && own + 1 < draft.own.size();
            if ((waits && draft.own[own + 1] != draft.own[own] + 1) || isReversal(step)) continue;
            steps_[step].turns.push_back(rows_.size());
            const Stretch stretch{record(step).seq, record(step + 1).seq};
            join(stretch, row.stretches);
            if (waits) join(stretch, row.waits);
        }
        if (row.isRunning()) steps_[draft.end].turns.push_back(rows_.size());
    }

    static void join(const Stretch& stretch, std::vector<Stretch>& all) {
        if (!all.empty() && all.back().to == stretch.from)
            all.back().to = stretch.to;
        else
            all.push_back(stretch);
    }

    // Where no end was seen, the steps after the row's: the turn may go on while others record.
    void addPossibleSteps(const Draft& draft, const TimelineRow& row) {
        if (row.end != End::unknown) return;
        const Date silent = lastSign(draft) + longestSilence;
        for (std::size_t step = draft.end; step < std::min(draft.next, records_.size()); ++step)
            if (!isReversal(step) && record(step).created <= silent) steps_[step].possible.push_back(rows_.size());
    }

    [[nodiscard]] Date lastSign(const Draft& draft) const {
        Date sign = record(draft.own.back()).created;
        const auto edits = edits_.find(sessionOf(record(draft.own.front())));
        if (edits == edits_.end()) return sign;
        for (const Date edit : edits->second)
            if (draft.next == records_.size() || edit < record(draft.next).created) sign = std::max(sign, edit);
        return sign;
    }

    [[nodiscard]] bool isReversal(std::size_t step) const {
        return record(step).kind == "restore" && step + 1 < records_.size() && record(step + 1).kind == "restored";
    }

    // The command that a snapshot was taken for, which its label has at greater length than the log; and those for
    // which the log names the snapshot because nothing had changed since. A project that is tracked anew counts from 1
    // again, so that older lines mean other snapshots.
    void addCommands(const SnapshotMeta& meta, TimelineRow& row) const {
        constexpr std::string_view before = "Before: ";
        std::vector<const LoggedHook*> hooks;
        for (auto [each, end] = hooks_.equal_range(meta.seq); each != end; ++each)
            if (each->second->agent == row.agent && meta.created <= each->second->time + longestHook)
                hooks.push_back(each->second);
        if (meta.kind == "tool") {
            TimelineRow::Command command{meta.seq, meta.label.value_or(""), "", meta.created};
            if (command.command.starts_with(before)) command.command.erase(0, before.size());
            if (!hooks.empty()) command.verdict = hooks.front()->verdict;
            row.commands.push_back(std::move(command));
        }
        for (const LoggedHook* hook : hooks) {
            row.vault.insert(row.vault.end(), hook->vault.begin(), hook->vault.end());
            if (meta.kind != "tool" || hook != hooks.front())
                row.commands.push_back({meta.seq, hook->command, hook->verdict, hook->time});
        }
    }

    // Snapshots by hand, restores and undos.
    void addOther() {
        const SnapshotMeta& meta = records_[at_];
        const bool after = meta.kind == "restored";
        if (isAgents(meta) || (after && at_ > 0 && isReversal(at_ - 1))) return;
        const bool pair = isReversal(at_);
        const SnapshotMeta& last = pair ? record(at_ + 1) : meta;
        TimelineRow row;
        row.type = meta.kind != "restore" && !after              ? Type::manual
                   : last.reversal && last.reversal != "restore" ? Type::undo
                                                                 : Type::restore;
        row.first = meta.seq;
        row.last = last.seq;
        row.agent = meta.agent;
        row.session = meta.session;
        row.turn = meta.turn;
        row.title = last.label.value_or("");
        row.tookBack = last.tookBack;
        row.redo = last.reversal == "redo";
        row.began = row.seen = meta.created;
        row.ended = last.created;
        if (meta.kind == "restore" && !pair) {
            row.end = End::unknown;
            row.ended.reset();
        }
        row.counts.emplace();
        if (pair) {
            row.stretches.push_back({row.first, row.last});
            setCounts(row);
        }
        rows_.push_back(std::move(row));
    }

    void addOutside(std::size_t step) {
        const SnapshotMeta& before = record(step);
        const SnapshotMeta& after = record(step + 1);
        if (!steps_[step].turns.empty() || isReversal(step) || before.manifestOf == after.manifestOf) return;
        TimelineRow row;
        row.type = Type::outside;
        row.first = before.seq;
        row.last = after.seq;
        row.began = before.created;
        row.ended = after.created;
        row.stretches.push_back({row.first, row.last});
        setCounts(row);
        if (row.counts && row.counts->sum() == 0) return; // folders alone
        rows_.push_back(std::move(row));
    }

    // Where one record at most found something changed, its own counts are those of the whole.
    void setCounts(TimelineRow& row) const {
        if (row.isRunning()) return;
        Changes::Counts counts;
        int changed = 0;
        for (const Stretch& stretch : row.stretches) {
            for (auto at = placeOf(stretch.from); record(at).seq < stretch.to; ++at) {
                const SnapshotMeta& meta = record(at + 1);
                if (meta.manifestOf == record(at).manifestOf) continue;
                if (meta.seq != record(at).seq + 1) return; // some in between were pruned
                counts = {meta.added, meta.modified, meta.deleted};
                ++changed;
            }
        }
        if (changed > 1) return;
        row.counts = counts;
        row.foldersAlone = changed == 1 && counts.sum() == 0;
    }

    [[nodiscard]] std::size_t placeOf(std::int64_t seq) const {
        return static_cast<std::size_t>(firstFrom(records_, seq) - records_.begin());
    }

    // --- How rows relate to each other ---

    void findCompany() {
        for (std::size_t step = 0; step < records_.size(); ++step) {
            const std::int64_t to = step + 1 < records_.size() ? record(step + 1).seq : untilNow;
            for (const std::size_t one : steps_[step].turns) {
                for (const std::size_t other : steps_[step].turns)
                    if (one != other) meet(one, other, {record(step).seq, to}, true);
                for (const std::size_t other : steps_[step].possible) meet(one, other, {record(step).seq, to}, false);
            }
        }
    }

    void meet(std::size_t one, std::size_t other, const Stretch& during, bool seen) {
        const auto latest = meetings_.find({one, other});
        auto& company = rows_[one].company;
        if (latest != meetings_.end()) {
            TimelineRow::Company& before = company[latest->second];
            if (before.seen == seen && before.during.to == during.from) {
                before.during.to = during.to;
                return;
            }
        }
        meetings_[{one, other}] = company.size();
        const TimelineRow& row = rows_[other];
        company.push_back({row.agent.value_or(""), row.session.value_or(""), row.title, during, seen});
    }

    // Newest first: what was taken back by something that was taken back itself counts no more.
    void markUndone() {
        std::vector<Stretch> taken;
        const auto isTaken = [&](const Stretch& stretch) {
            return std::any_of(taken.begin(), taken.end(),
                               [&](const Stretch& each) { return each.from <= stretch.from && stretch.to <= each.to; });
        };
        for (std::size_t at = records_.size(); at-- > 0;) {
            const SnapshotMeta& meta = records_[at];
            // The safety snapshot before it may have been pruned.
            const std::int64_t before = at > 0 && isReversal(at - 1) ? record(at - 1).seq : meta.seq - 1;
            if (meta.tookBack.empty() || isTaken({before, meta.seq})) continue;
            taken.insert(taken.end(), meta.tookBack.begin(), meta.tookBack.end());
        }
        if (taken.empty()) return;
        for (TimelineRow& row : rows_)
            row.undone = !row.isRunning() && !row.stretches.empty() &&
                         std::all_of(row.stretches.begin(), row.stretches.end(), isTaken);
    }

    const std::vector<SnapshotMeta>& records_;
    std::multimap<std::int64_t, const LoggedHook*> hooks_; // by the number of the snapshot before the command
    std::map<std::string, std::vector<Date>> edits_;       // by session
    std::vector<Draft> drafts_;
    std::map<std::string, std::vector<std::size_t>> sessions_;
    std::vector<Step> steps_;
    std::vector<TimelineRow> rows_;
    std::map<std::pair<std::size_t, std::size_t>, std::size_t> meetings_; // the latest of two rows, in the first's list
    std::size_t at_ = 0;
};

} // namespace

Timeline Timeline::of(const std::string& root, const std::vector<SnapshotMeta>& records,
                      const std::vector<LoggedHook>& hooks, const std::vector<NotedEdit>& edits) {
    return Grouping(root, records, hooks, edits).run();
}

const TimelineRow* Timeline::turnAt(std::int64_t seq) const {
    const TimelineRow* during = nullptr;
    for (const TimelineRow& row : rows) {
        if (row.type != Type::turn) continue;
        if (std::binary_search(row.own.begin(), row.own.end(), seq)) return &row;
        const bool within = row.first < seq && (seq <= row.last || row.isRunning());
        if (during == nullptr && within) during = &row;
    }
    return during;
}

const TimelineRow* Timeline::newestTurn() const {
    const auto found = std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.type == Type::turn; });
    return found == rows.end() ? nullptr : &*found;
}

std::vector<const TimelineRow*> Timeline::rowsThatLedTo(std::int64_t seq, std::string_view path,
                                                        const std::vector<SnapshotMeta>& records,
                                                        const std::vector<NotedEdit>& edits) const {
    std::vector<const TimelineRow*> turns;
    std::vector<const TimelineRow*> others;
    for (const TimelineRow& row : rows)
        for (const Stretch& stretch : row.stretches)
            if (stretch.from < seq && seq <= stretch.to) (row.type == Type::turn ? turns : others).push_back(&row);
    if (turns.size() < 2) return turns.empty() ? others : turns;
    const auto at = firstFrom(records, seq);
    if (at == records.begin() || at == records.end()) return turns;
    const auto named = [&](const TimelineRow* row) {
        return std::any_of(edits.begin(), edits.end(), [&](const NotedEdit& edit) {
            return edit.agent == row->agent && edit.session == row->session && isBehind(edit, *std::prev(at)) &&
                   isBefore(edit, *at) && (isAtOrBelow(path, edit.path) || isAtOrBelow(edit.path, path));
        });
    };
    std::vector<const TimelineRow*> whose;
    std::copy_if(turns.begin(), turns.end(), std::back_inserter(whose), named);
    return whose.empty() ? turns : whose;
}

std::string spanText(std::int64_t first, std::int64_t last) {
    const std::string text = "#" + std::to_string(first);
    return first == last ? text : text + "–#" + std::to_string(last);
}

std::vector<SnapshotMeta>::const_iterator firstFrom(const std::vector<SnapshotMeta>& records, std::int64_t seq) {
    return std::lower_bound(records.begin(), records.end(), seq,
                            [](const SnapshotMeta& meta, std::int64_t n) { return meta.seq < n; });
}

Date endOf(const SnapshotMeta& meta) {
    return meta.created + std::chrono::ceil<std::chrono::seconds>(std::chrono::milliseconds(meta.durationMs));
}

bool isBehind(const NotedEdit& edit, const SnapshotMeta& meta) {
    return edit.after ? meta.seq <= *edit.after : meta.created <= edit.time;
}

bool isBefore(const NotedEdit& edit, const SnapshotMeta& meta) {
    return edit.after ? *edit.after < meta.seq : edit.time <= endOf(meta);
}

bool isSameTurn(const TimelineRow& one, const TimelineRow& other) {
    if (one.type != Type::turn || other.type != Type::turn) return false;
    if (one.agent != other.agent || one.session != other.session || !one.session) return false;
    if (one.turn && other.turn) return one.turn == other.turn;
    // Without identifiers the times tell: what began after the prompt, and before the turn's end or the next prompt.
    const auto holds = [](const TimelineRow& prompt, const TimelineRow& work) {
        if (work.began < prompt.began || (prompt.ended && *prompt.ended < work.began)) return false;
        return !prompt.next || work.began < *prompt.next;
    };
    if (one.prompted || other.prompted)
        return one.prompted != other.prompted && (one.prompted ? holds(one, other) : holds(other, one));
    const auto endsBefore = [](const TimelineRow& a, const TimelineRow& b) {
        return a.ended.value_or(a.seen) < b.began;
    };
    return !endsBefore(one, other) && !endsBefore(other, one);
}

} // namespace tidewrack
