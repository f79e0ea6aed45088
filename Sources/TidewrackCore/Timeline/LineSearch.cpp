#include "Timeline/LineSearch.hpp"

#include "Changes/LineDiff.hpp"
#include "Engine/ListingSteps.hpp"
#include "Support/Errors.hpp"
#include "Support/Text.hpp"
#include "Timeline/StepReader.hpp"

#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t linesTold = 20; // of one file
constexpr std::string_view live = "live:";

// A stretch of a row, with the manifests of both its ends; that of a running turn ends with the folder.
struct Part {
    std::size_t row = 0;
    Stretch stretch;
    std::int64_t older = 0;
    std::int64_t newer = 0;
};

class Needle {
  public:
    explicit Needle(std::string_view text) : text_(text), anyCase_(lowercased(text) == text) {}
    [[nodiscard]] bool isIn(std::string_view text) const {
        return (anyCase_ ? lowercased(text) : std::string(text)).find(text_) != std::string::npos;
    }

  private:
    std::string text_;
    bool anyCase_;
};

class Search {
  public:
    Search(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records,
           std::string_view text)
        : engine_(engine), project_(project), history_(engine.store.history(project)), records_(records),
          needle_(text) {}

    LineFindings through(std::span<const TimelineRow> rows) {
        const std::vector<Part> parts = partsOf(rows);
        ListingReader reader(history_, orderOf(parts));
        for (const Part& part : parts) {
            std::vector<FoundLines> found;
            if (part.stretch.to == untilNow) {
                found = untilToday(part);
            } else {
                const auto newer = listing(reader, part.newer, part.stretch.to);
                const auto older = listing(reader, part.older, part.stretch.from);
                if (newer && older) found = between(part, *older, *newer);
            }
            if (found.empty()) continue;
            if (result_.rows.empty() || row_ != part.row) result_.rows.push_back({rows[part.row], {}});
            row_ = part.row;
            auto& files = result_.rows.back().files;
            files.insert(files.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
        }
        return std::move(result_);
    }

  private:
    using Listing = std::shared_ptr<const TextBuffer>;

    // Those in which something may have changed.
    std::vector<Part> partsOf(std::span<const TimelineRow> rows) {
        std::vector<Part> parts;
        for (std::size_t row = 0; row < rows.size(); ++row) {
            if (rows[row].counts && rows[row].counts->sum() == 0) continue;
            for (const Stretch& stretch : openStretches(rows[row])) {
                Part part{row, stretch, 0, 0};
                try {
                    part.older = manifestOf(stretch.from);
                    if (stretch.to != untilNow) part.newer = manifestOf(stretch.to);
                } catch (const TidewrackError& error) {
                    warn(Warning::Kind::listingUnread, stretch.from, error);
                    continue;
                }
                if (part.older != part.newer) parts.push_back(part);
            }
        }
        return parts;
    }

    [[nodiscard]] std::int64_t manifestOf(std::int64_t seq) const {
        const auto record = firstFrom(records_, seq);
        if (record != records_.end() && record->seq == seq) return record->manifestOf;
        return history_.snapshot(seq).manifestOf; // throws
    }

    // As `listing` asks for them.
    static std::vector<std::int64_t> orderOf(const std::vector<Part>& parts) {
        std::vector<std::int64_t> order;
        const auto add = [&](std::int64_t manifest) {
            if (order.empty() || order.back() != manifest) order.push_back(manifest);
        };
        for (const Part& part : parts) {
            if (part.stretch.to == untilNow) continue;
            add(part.newer);
            add(part.older);
        }
        return order;
    }

    // Null where it can't be read, which is told once.
    Listing listing(ListingReader& reader, std::int64_t manifest, std::int64_t seq) {
        if (manifest == manifest_) return listing_;
        manifest_ = manifest;
        listing_ = nullptr;
        try {
            listing_ = std::make_shared<const TextBuffer>(reader.next());
        } catch (const TidewrackError& error) {
            warn(Warning::Kind::listingUnread, seq, error);
        }
        return listing_;
    }

    std::vector<FoundLines> untilToday(const Part& part) {
        try {
            const Engine::Sides sides = engine_.sides(project_, part.stretch.from, std::nullopt);
            return between(part, sides.older, sides.newer);
        } catch (const TidewrackError& error) {
            warn(Warning::Kind::notCompared, part.stretch.from, error);
            return {};
        }
    }

    std::vector<FoundLines> between(const Part& part, const TextBuffer& older, const TextBuffer& newer) {
        try {
            const ListingDifference difference = differenceOf(older.text(), newer.text());
            return between(part, difference.older, difference.newer);
        } catch (const TidewrackError& error) {
            warn(Warning::Kind::listingUnread, part.stretch.to, error);
            return {};
        }
    }

    std::vector<FoundLines> between(const Part& part, const Manifest& older, const Manifest& newer) {
        std::vector<FoundLines> found;
        for (const std::string& path : Changes::between(older, newer).all()) {
            const Entry* before = older.find(path);
            const Entry* after = newer.find(path);
            // Most versions lack the text, and are never compared.
            if (!holds(before) && !holds(after)) continue;
            FoundLines lines = linesOf(before, after);
            if (lines.count == 0) continue;
            lines.path = path;
            lines.during = part.stretch;
            found.push_back(std::move(lines));
        }
        return found;
    }

    // Each kept content is read once for that: it is one row's state before and another's state after.
    bool holds(const Entry* entry) {
        if (entry == nullptr || entry->kind != EntryKind::file || !entry->isKept()) return false;
        const auto look = [&] {
            const auto text = textOf(entry);
            return text && needle_.isIn(*text);
        };
        if (entry->blob.starts_with(live)) return look();
        const auto known = holds_.find(entry->blob);
        return known != holds_.end() ? known->second : holds_.emplace(entry->blob, look()).first->second;
    }

    // None for what is no text, too large to be compared or can't be read; empty for what is not there.
    [[nodiscard]] std::optional<std::string> textOf(const Entry* entry) const {
        if (entry == nullptr || entry->kind == EntryKind::dir) return std::string();
        if (entry->kind != EntryKind::file || !entry->isKept()) return std::nullopt;
        LineDiff::Content content =
            LineDiff::read(entry->blob.starts_with(live) ? std::string(entry->blob.substr(live.size()))
                                                         : history_.blobPath(entry->blob));
        if (content.tooLarge || content.error != 0 || !LineDiff::text(content.bytes)) return std::nullopt;
        return std::move(content.bytes);
    }

    [[nodiscard]] FoundLines linesOf(const Entry* before, const Entry* after) const {
        FoundLines found;
        const auto older = textOf(before);
        const auto newer = textOf(after);
        if (!older || !newer) return found;
        const LineDiff::Result result =
            LineDiff::diffLines(LineDiff::wholeLines(*older), LineDiff::wholeLines(*newer), 0);
        for (const LineDiff::Hunk& hunk : result.hunks) {
            for (const LineDiff::Line& line : hunk.lines) {
                if (line.kind == LineDiff::Line::Kind::context || !needle_.isIn(line.text)) continue;
                if (++found.count > linesTold) continue;
                found.lines.push_back((line.kind == LineDiff::Line::Kind::added ? "+" : "-") + line.text);
            }
        }
        return found;
    }

    void warn(Warning::Kind kind, std::int64_t seq, const TidewrackError& error) {
        result_.warnings.push_back({.kind = kind, .source = seq, .detail = error.what()});
    }

    const Engine& engine_;
    const Project& project_;
    const History history_;
    const std::vector<SnapshotMeta>& records_;
    Needle needle_;
    LineFindings result_;
    std::size_t row_ = 0;       // of the latest finding
    std::int64_t manifest_ = 0; // whose text is at hand
    Listing listing_;
    std::map<std::string, bool, std::less<>> holds_; // by blob
};

} // namespace

LineFindings findLines(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records,
                       std::span<const TimelineRow> rows, std::string_view text) {
    return Search(engine, project, records, text).through(rows);
}

} // namespace tidewrack
