#include "Timeline/Timeline.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace tidewrack {

namespace {

using Type = TimelineRow::Type;
using End = TimelineRow::End;

// A turn while its records are being collected, which are named by their places in the list.
struct Draft {
    std::vector<std::size_t> own;
    std::size_t next; // the record with which the session's next turn begins
    std::size_t end;  // of all its stretches, once they are known
};

bool isAgents(const SnapshotMeta& meta) {
    return meta.kind == "prompt" || meta.kind == "tool" || meta.kind == "stop";
}

// The end of a task that an agent left running reaches its hooks as a prompt, which nobody typed.
bool isFinishedTask(const SnapshotMeta& meta) {
    const std::string label = meta.label.value_or("");
    return meta.kind == "prompt" && (label.starts_with("<task-notification>") || label == "Background task finished");
}

// Agents without a session's name have one session each.
std::string sessionOf(const SnapshotMeta& meta) {
    return meta.agent.value_or("") + '\n' + meta.session.value_or("");
}

class Grouping {
  public:
    Grouping(const std::string& root, const std::vector<SnapshotMeta>& records, const std::vector<LoggedHook>& hooks)
        : root_(root), records_(records), steps_(records.size()) {
        for (const LoggedHook& hook : hooks)
            for (const auto& [seq, project] : hook.snapshots)
                if (project == root_) hooks_.emplace(seq, &hook);
    }

    Timeline run() {
        for (at_ = 0; at_ < records_.size(); ++at_)
            if (isAgents(records_[at_])) addToTurn();
        for (Draft& draft : drafts_) addTurn(draft);
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
    // What lies between a record and the next one.
    struct Step {
        bool reversal = false;
        std::vector<std::size_t> turns; // at work, as places among the drafts
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

    // What an agent does about a finished task bears the identifier of the task's message.
    [[nodiscard]] bool isTaskTurn(const Draft& draft, const SnapshotMeta& meta) const {
        return std::any_of(draft.own.begin(), draft.own.end(), [&](std::size_t own) {
            return isFinishedTask(record(own)) && record(own).turn == meta.turn && !hasStopped(draft);
        });
    }

    // --- Rows ---

    void addTurn(Draft& draft) {
        const SnapshotMeta& begin = record(draft.own.front());
        TimelineRow row;
        row.first = row.last = begin.seq;
        row.agent = begin.agent;
        row.session = begin.session;
        row.turn = begin.turn;
        row.began = begin.created;
        if (begin.kind == "prompt") row.title = begin.label.value_or("");
        setEnd(draft, row);
        for (const std::size_t own : draft.own) {
            row.own.push_back(record(own).seq);
            if (record(own).kind == "tool") row.commands.push_back(command(record(own)));
        }
        for (const TimelineRow::Command& each : row.commands) addVault(each.seq, row);
        for (const std::size_t step : stepsOf(draft)) {
            steps_[step].turns.push_back(rows_.size());
            const Stretch stretch{record(step).seq, record(step + 1).seq};
            if (!row.stretches.empty() && row.stretches.back().to == stretch.from)
                row.stretches.back().to = stretch.to;
            else
                row.stretches.push_back(stretch);
        }
        if (row.isRunning() && (row.stretches.empty() || row.stretches.back().to != row.last))
            row.stretches.push_back({row.last, row.last});
        setCounts(row);
        rows_.push_back(std::move(row));
    }

    void setEnd(Draft& draft, TimelineRow& row) const {
        const SnapshotMeta& newest = record(draft.own.back());
        draft.end = std::min(draft.own.back(), draft.next);
        if (newest.kind == "stop") {
            row.end = newest.label == "Interrupted" ? End::interrupted : End::stop;
            row.ended = newest.created;
        } else if (draft.own.back() + 1 == records_.size()) {
            row.end = End::running;
        } else {
            row.end = End::unknown;
            ++draft.end;
        }
        row.last = record(draft.end).seq;
    }

    // The steps from its beginning to its end, without restores, and without those between an end and a later record
    // of its own where something else was recorded in between.
    [[nodiscard]] std::vector<std::size_t> stepsOf(const Draft& draft) const {
        std::vector<std::size_t> steps;
        std::size_t own = 0;
        for (std::size_t step = draft.own.front(); step < draft.end; ++step) {
            while (own + 1 < draft.own.size() && draft.own[own + 1] <= step) ++own;
            const bool stopped = record(draft.own[own]).kind == "stop";
            const bool gap = stopped && own + 1 < draft.own.size() && draft.own[own + 1] != draft.own[own] + 1;
            if (!gap && !isReversal(step)) steps.push_back(step);
        }
        return steps;
    }

    [[nodiscard]] bool isReversal(std::size_t step) const {
        return record(step).kind == "restore" && step + 1 < records_.size() && record(step + 1).kind == "restored";
    }

    [[nodiscard]] TimelineRow::Command command(const SnapshotMeta& meta) const {
        constexpr std::string_view before = "Before: ";
        TimelineRow::Command command{meta.seq, meta.label.value_or(""), "", meta.created};
        if (command.command.starts_with(before)) command.command.erase(0, before.size());
        const auto hook = hooks_.find(meta.seq);
        if (hook != hooks_.end()) command.verdict = hook->second->verdict;
        return command;
    }

    void addVault(std::int64_t seq, TimelineRow& row) const {
        const auto hook = hooks_.find(seq);
        if (hook != hooks_.end())
            row.vault.insert(row.vault.end(), hook->second->vault.begin(), hook->second->vault.end());
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
        row.began = meta.created;
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
        if (changed <= 1) row.counts = counts;
    }

    [[nodiscard]] std::size_t placeOf(std::int64_t seq) const {
        const auto found = std::lower_bound(records_.begin(), records_.end(), seq,
                                            [](const SnapshotMeta& meta, std::int64_t n) { return meta.seq < n; });
        return static_cast<std::size_t>(found - records_.begin());
    }

    // --- What rows have to do with each other ---

    void findCompany() {
        std::map<std::pair<std::size_t, std::size_t>, Stretch> meetings;
        for (std::size_t step = 0; step + 1 < records_.size(); ++step) {
            for (const std::size_t one : steps_[step].turns) {
                for (const std::size_t other : steps_[step].turns) {
                    if (one == other) continue;
                    auto& during = meetings.try_emplace({one, other}, Stretch{record(step).seq, 0}).first->second;
                    during.to = record(step + 1).seq;
                }
            }
        }
        for (const auto& [pair, during] : meetings) {
            const TimelineRow& other = rows_[pair.second];
            rows_[pair.first].company.push_back(
                {other.agent.value_or(""), other.session.value_or(""), other.title, during});
        }
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
            if (meta.tookBack.empty() || at == 0 || !isReversal(at - 1)) continue;
            if (isTaken({record(at - 1).seq, meta.seq})) continue;
            taken.insert(taken.end(), meta.tookBack.begin(), meta.tookBack.end());
        }
        if (taken.empty()) return;
        for (TimelineRow& row : rows_)
            row.undone = !row.isRunning() && !row.stretches.empty() &&
                         std::all_of(row.stretches.begin(), row.stretches.end(), isTaken);
    }

    const std::string& root_;
    const std::vector<SnapshotMeta>& records_;
    std::map<std::int64_t, const LoggedHook*> hooks_; // by the number of the snapshot taken before the command
    std::vector<Draft> drafts_;
    std::map<std::string, std::vector<std::size_t>> sessions_;
    std::vector<Step> steps_;
    std::vector<TimelineRow> rows_;
    std::size_t at_ = 0;
};

} // namespace

Timeline Timeline::of(const std::string& root, const std::vector<SnapshotMeta>& records,
                      const std::vector<LoggedHook>& hooks) {
    return Grouping(root, records, hooks).run();
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

bool isSameTurn(const TimelineRow& one, const TimelineRow& other) {
    if (one.type != Type::turn || other.type != Type::turn) return false;
    if (one.agent != other.agent || one.session != other.session || !one.session) return false;
    if (one.turn && other.turn) return one.turn == other.turn;
    const auto endsBefore = [](const TimelineRow& a, const TimelineRow& b) { return a.ended && *a.ended < b.began; };
    return !endsBefore(one, other) && !endsBefore(other, one);
}

} // namespace tidewrack
