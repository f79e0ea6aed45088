#include "Engine/UnreadFolders.hpp"

#include "Platform/Attributes.hpp"

#include <cerrno>
#include <set>

namespace tidewrack {

namespace {

bool mayNotBeRead(const Walker::Unread& place) {
    return place.error == EACCES;
}

std::string inFolder(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

class Keeping {
  public:
    Keeping(const Manifest& earlier, const Manifest& walked) : earlier_(earlier), walked_(walked), builder_(walked) {
        for (std::uint32_t rank = 0; rank < walked.items().size(); ++rank)
            builder_.add(walked.items()[rank].path, walked.items()[rank].entry, rank);
    }

    // What was directly in the folder and did not come out this time, with everything below it. What did come out was
    // read on its own account.
    Kept keepMissingIn(const std::string& folder) {
        const Entry* before = earlier_.find(folder);
        if (before == nullptr || before->kind != EntryKind::dir || before->isIgnoredFolder()) return Kept::nothing;
        std::set<std::string_view> missing;
        const std::string below = folder + "/";
        const auto earlier = earlier_.beginningWith(below);
        for (const Manifest::Item& item : earlier) {
            const std::string_view name = item.path.substr(below.size());
            if (name.find('/') == std::string_view::npos && walked_.find(item.path) == nullptr) missing.insert(name);
        }
        for (const Manifest::Item& item : earlier) {
            const std::string_view rest = item.path.substr(below.size());
            if (missing.contains(rest.substr(0, rest.find('/')))) keep(item);
        }
        return Kept::all;
    }

    // Whether something is known of the place.
    bool keepAtAndBelow(const std::string& place) {
        for (const Manifest::Item& item : earlier_.beginningWith(place))
            if (item.path.size() == place.size() || item.path[place.size()] == '/') keep(item);
        return earlier_.find(place) != nullptr;
    }

    Kept keep(const Walker::Unread& place) {
        if (mayNotBeRead(place)) return Kept::nothing;
        if (place.entries.empty()) return keepMissingIn(place.folder);
        const auto known = std::count_if(place.entries.begin(), place.entries.end(), [&](const std::string& name) {
            return keepAtAndBelow(inFolder(place.folder, name));
        });
        if (known == 0) return Kept::nothing;
        return static_cast<std::size_t>(known) == place.entries.size() ? Kept::all : Kept::partly;
    }

    [[nodiscard]] Manifest finish() { return builder_.finish(); }

  private:
    void keep(const Manifest::Item& item) {
        if (walked_.find(item.path) == nullptr) builder_.add(item.path, item.entry);
    }

    const Manifest& earlier_;
    const Manifest& walked_;
    ManifestBuilder builder_;
};

} // namespace

std::vector<Kept> keepUnread(const std::vector<Walker::Unread>& unread, const Manifest& earlier, Manifest& listing) {
    std::vector<Kept> kept;
    if (unread.empty()) return kept;
    Keeping keeping(earlier, listing);
    for (const Walker::Unread& place : unread) kept.push_back(keeping.keep(place));
    listing = keeping.finish();
    return kept;
}

const Manifest& NewestListing::get() {
    if (!looked_) {
        looked_ = true;
        const auto seqs = history_.seqs();
        for (auto seq = seqs.rbegin(); seq != seqs.rend() && *seq > seq_; ++seq) {
            try {
                newer_ = history_.manifest(history_.snapshot(*seq));
                seq_ = *seq;
                break;
            } catch (const std::exception&) { // the one before it may do
            }
        }
    }
    return newer_ ? *newer_ : known_;
}

std::vector<Warning> addUnseen(const Unseen& unseen, NewestListing& newest, const UnseenBy& by, Manifest& listing) {
    std::vector<Warning> warnings;
    if (unseen.places.empty() && unseen.git == GitOutcome::answered) return warnings;
    const auto kept = keepUnread(unseen.places, newest.get(), listing);
    Warning warning;
    warning.source = newest.seq();
    warning.isPrevious = by.isSnapshot && warning.source == by.previous;
    warning.isOfSnapshot = by.isSnapshot;
    if (unseen.git != GitOutcome::answered) {
        warning.kind = unseen.git == GitOutcome::late ? Warning::Kind::gitLate : Warning::Kind::gitFailed;
        warnings.push_back(warning);
    }
    warning.kind = Warning::Kind::unread;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const Walker::Unread& place = unseen.places[i];
        warning.path = place.folder;
        warning.failure = KeepFailure::system(place.error);
        warning.entries = place.entries;
        warning.kept = kept[i];
        warnings.push_back(warning);
    }
    return warnings;
}

} // namespace tidewrack
