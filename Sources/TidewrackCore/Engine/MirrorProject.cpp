#include "Engine/MirrorProject.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Store/ProjectLock.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>

namespace tidewrack {

namespace {

using Way = MirrorFiles::Way;
using Other = MirrorFiles::Other;

std::string historyOf(const std::string& home, const std::string& id) {
    return joined(home, "projects/" + id);
}

// The names that `to` has and `from` has not, without temporary ones.
std::vector<std::string> missingIn(const std::string& from, const std::string& to) {
    auto there = listFolder(to);
    if (there.empty()) return there;
    auto names = listFolder(from);
    std::sort(names.begin(), names.end());
    std::erase_if(there, [&](const std::string& name) {
        return name.starts_with(temporaryPrefix) || std::binary_search(names.begin(), names.end(), name);
    });
    return there;
}

bool isOwnPart(const std::string& name) {
    return name == "snapshots" || name == "manifests" || name == "blobs" || name == "lock";
}

} // namespace

std::vector<std::string> projectsIn(const std::string& home) {
    auto names = listFolder(joined(home, "projects"));
    std::erase_if(names, [&](const std::string& name) {
        return name.starts_with(temporaryPrefix) || !isFolder(historyOf(home, name));
    });
    std::sort(names.begin(), names.end());
    return names;
}

void removeMissing(MirrorFiles& files, const std::string& from, const std::string& to) {
    for (const std::string& name : missingIn(from, to)) files.remove(joined(to, name));
    for (const std::string& name : listFolder(to))
        if (isFolder(joined(to, name)) && !isLink(joined(to, name)))
            removeMissing(files, joined(from, name), joined(to, name));
}

MirrorProject::MirrorProject(const std::string& home, const std::string& folder, const std::string& id, const Run& run)
    : id_(id), from_(historyOf(home, id), {}), to_(historyOf(folder, id), {}), run_(run),
      noted_(run.note.projects[id]) {}

std::vector<std::int64_t> MirrorProject::ownSnapshots() const {
    auto seqs = to_.seqs();
    std::erase_if(seqs, [&](std::int64_t seq) { return seq <= noted_.newest; });
    return seqs;
}

std::string MirrorProject::createdOf(const History& history) const {
    std::string text;
    try {
        if (readFile(history.recordPath(), text) == 0)
            return isoText(decodeProject(text, history.recordPath()).created);
    } catch (const TidewrackError&) { // taken for the one that was mirrored
    }
    return noted_.created;
}

void MirrorProject::refuseOwn() const {
    if (const auto own = ownSnapshots(); !own.empty())
        throw TidewrackError::refused(to_.folder() + " has a snapshot of its own, #" + std::to_string(own.front()) +
                                      ", and was left as it is.");
}

void MirrorProject::bring() {
    const std::string created = createdOf(from_);
    if (!noted_.created.empty() && created != noted_.created) removeAll(); // another history of the same folder
    std::optional<ProjectLock> mirrorsLock;
    if (!run_.dryRun) {
        run_.files.makeFolder(to_.folder());
        mirrorsLock.emplace(to_.lockPath());
        refuseOwn();
    }
    (void)run_.files.takeFault(); // what went wrong with others is not this one's
    complete_ = to_.newestSeq().value_or(0);
    noted_.created = created;
    announce();
    bringContents(false);
    {
        std::optional<ProjectLock> lock;
        if (!run_.dryRun) lock.emplace(from_.lockPath());
        announce();
        bringContents(true);
        bringListings();
        readRecords();
    }
    if (const std::string fault = run_.files.takeFault(); !fault.empty())
        throw TidewrackError::io(fault + "; no new snapshot of projects/" + id_ + " is in the mirror");
    writeRecords();
    removeRecords();
    removeRest();
}

// A mirror that stands in for the store numbers its own snapshots above what it was about to get, however that ended.
void MirrorProject::announce() {
    const std::int64_t newest = from_.newestSeq().value_or(0);
    if (run_.dryRun || newest <= complete_) return;
    for (const std::string& part : {to_.snapshotsFolder(), to_.manifestsFolder(), to_.blobsFolder()})
        run_.files.makeFolder(part);
    const std::string mark = to_.manifestPath(newest);
    const Descriptor file(::open(mark.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!file && errno != EEXIST) throw TidewrackError::io("write", mark, errno);
    if (noted_.newest >= newest) return;
    noted_.newest = newest;
    writeMirrorNote(parentOf(parentOf(to_.folder())), run_.note);
}

// First without the store's lock what recorded snapshots have kept, then under it what came or went meanwhile.
void MirrorProject::bringContents(bool all) {
    const std::int64_t newest = from_.newestSeq().value_or(0);
    auto names = listFolder(from_.blobsFolder());
    if (all) {
        auto gone = missingIn(from_.blobsFolder(), to_.blobsFolder());
        names.insert(names.end(), gone.begin(), gone.end());
    }
    for (const std::string& name : names) {
        if (name.starts_with(temporaryPrefix)) continue;
        if (all || parseSeq(name).value_or(INT64_MAX) <= newest) compareContents(name, all);
    }
}

void MirrorProject::compareContents(const std::string& name, bool all) {
    const std::string from = joined(from_.blobsFolder(), name);
    const std::string to = joined(to_.blobsFolder(), name);
    Attributes seen;
    (void)attributesAt(AT_FDCWD, from.c_str(), seen);
    const auto known = contents_.find(name);
    if (all && known != contents_.end() && known->second.seen == seen) return;
    const Other other = parseSeq(name).value_or(INT64_MAX) <= complete_ ? Other::left : Other::replaced;
    if (seen.kind == Attributes::Kind::file || seen.kind == Attributes::Kind::link)
        run_.files.bring(from, to, Way::shared, other);
    else
        run_.files.bringFolder(from, to, Way::shared, other);
    contents_[name] = {seen, missingIn(from, to)};
}

void MirrorProject::bringListings() {
    run_.files.bringFolder(from_.manifestsFolder(), to_.manifestsFolder(), Way::shared, Other::replaced);
    run_.files.bringFolder(from_.folder(), to_.folder(), Way::copied, Other::replaced, [](const std::string& name) {
        return isOwnPart(name) || name == "project.json"; // which is a record
    });
    oldListings_ = missingIn(from_.manifestsFolder(), to_.manifestsFolder());
}

void MirrorProject::readRecords() {
    const auto read = [&](const std::string& from, const std::string& to, const std::string& name, bool isProject) {
        Attributes here;
        Attributes there;
        if (attributesAt(AT_FDCWD, from.c_str(), here) != 0) return;
        const bool isNew = attributesAt(AT_FDCWD, to.c_str(), there) != 0;
        if (!isNew && MirrorFiles::isSame(here, there)) return;
        std::string text;
        const int error = readFile(from, text);
        if (error != 0 && isProject && isNew) throw TidewrackError::io("read", from, error); // no use without it
        if (error != 0)
            run_.files.warnings.push_back(TidewrackError::io("read", from, error).what());
        else
            records_.push_back({name, std::move(text), here.mtime, isNew && !isProject});
    };
    read(from_.recordPath(), to_.recordPath(), "project.json", true);
    for (const std::string& name : listFolder(from_.snapshotsFolder())) {
        if (name.starts_with(temporaryPrefix)) continue;
        ++snapshots;
        read(joined(from_.snapshotsFolder(), name), joined(to_.snapshotsFolder(), name), "snapshots/" + name, false);
    }
    oldRecords_ = missingIn(from_.snapshotsFolder(), to_.snapshotsFolder());
}

void MirrorProject::writeRecords() {
    for (const Record& record : records_) {
        run_.files.write(joined(to_.folder(), record.name), record.text, record.mtime);
        added += record.isNew ? 1 : 0;
    }
    run_.files.flush();
}

void MirrorProject::removeRecords() {
    for (const std::string& name : oldRecords_) run_.files.remove(joined(to_.snapshotsFolder(), name));
    removed += static_cast<std::int64_t>(oldRecords_.size());
}

// A listing without a record tells that contents may be left that nothing names, so listings go last.
void MirrorProject::removeRest() {
    const bool contentsGo =
        std::any_of(contents_.begin(), contents_.end(), [](const auto& each) { return !each.second.missing.empty(); });
    if (contentsGo || !oldListings_.empty()) run_.files.flush();
    for (const auto& [name, compared] : contents_) {
        const std::string folder = joined(to_.blobsFolder(), name);
        for (const std::string& content : compared.missing) run_.files.remove(joined(folder, content));
        if (!run_.dryRun && !compared.missing.empty()) (void)::rmdir(folder.c_str()); // stays while something is in it
    }
    for (const std::string& name : oldListings_) run_.files.remove(joined(to_.manifestsFolder(), name));
    if (!run_.dryRun)
        for (const std::string& folder : {to_.folder(), to_.snapshotsFolder(), to_.manifestsFolder()})
            removeLeftovers(folder);
    for (const std::string& name : missingIn(from_.folder(), to_.folder()))
        if (!isOwnPart(name)) run_.files.remove(joined(to_.folder(), name));
}

void MirrorProject::removeAll() {
    removed += static_cast<std::int64_t>(to_.seqs().size());
    // Under another name it is no history any more, and goes in any order.
    const std::string gone = joined(parentOf(to_.folder()), temporaryName());
    if (run_.dryRun) {
        run_.files.remove(to_.folder());
        to_ = History(gone, {});
    } else if (exists(to_.folder())) {
        const ProjectLock lock(to_.lockPath());
        refuseOwn();
        if (const int error = moveFile(to_.folder(), gone)) throw TidewrackError::io("remove", to_.folder(), error);
        run_.files.remove(gone);
    }
    noted_ = {};
}

} // namespace tidewrack
