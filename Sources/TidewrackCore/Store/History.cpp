#include "Store/History.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <future>
#include <iterator>
#include <span>

namespace tidewrack {

std::optional<std::int64_t> parseSeq(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

namespace {

// The number in the name of a snapshot's record; none for other files.
std::optional<std::int64_t> recordNumber(std::string_view name) {
    constexpr std::string_view ending = ".json";
    return name.ends_with(ending) ? parseSeq(name.substr(0, name.size() - ending.size())) : std::nullopt;
}

} // namespace

std::vector<std::int64_t> History::seqs() const {
    std::vector<std::int64_t> result;
    forEachName(snapshotsFolder(), [&](std::string_view name) {
        if (const auto seq = recordNumber(name)) result.push_back(*seq);
    });
    std::sort(result.begin(), result.end());
    return result;
}

std::optional<std::int64_t> History::newestSeq() const {
    std::optional<std::int64_t> newest;
    forEachName(snapshotsFolder(),
                [&](std::string_view name) { newest = std::max(newest, recordNumber(name)); }); // none is the least
    return newest;
}

std::optional<SnapshotMeta> History::latest() const {
    const auto newest = newestSeq();
    return newest ? std::optional(snapshot(*newest)) : std::nullopt;
}

namespace {

struct Records {
    std::vector<SnapshotMeta> read;
    std::vector<UnreadRecord> unread;
};

// The records among these files of the folder. Unless they are collected, one that does not decode is thrown.
Records readRecords(const std::string& folder, std::span<const std::string> names, bool collects) {
    Records result;
    for (const std::string& name : names) {
        const auto seq = recordNumber(name);
        if (!seq) continue;
        const auto leave = [&](const std::string& reason) { result.unread.push_back({*seq, reason}); };
        std::string text;
        const std::string path = folder + "/" + name;
        if (const int error = readFile(path, text)) {
            if (error != ENOENT) leave("can't read " + path + ": " + errorText(error));
            continue;
        }
        try {
            SnapshotMeta meta = decodeSnapshotMeta(text, path);
            if (collects && meta.seq != seq)
                leave(TidewrackError::corrupt(path + " is the record of #" + std::to_string(meta.seq)).what());
            else
                result.read.push_back(std::move(meta));
        } catch (const TidewrackError& error) {
            if (!collects) throw;
            leave(error.what());
        }
    }
    return result;
}

} // namespace

std::vector<SnapshotMeta> History::snapshots() const {
    return readAll(nullptr);
}

std::vector<SnapshotMeta> History::snapshots(std::vector<UnreadRecord>& unread) const {
    return readAll(&unread);
}

std::vector<SnapshotMeta> History::readAll(std::vector<UnreadRecord>* unread) const {
    constexpr std::size_t namesForTwo = 256; // reading and decoding so many takes longer than starting a thread
    const std::string folder = snapshotsFolder();
    const auto names = listFolder(folder);
    const std::span all(names);
    const std::size_t half = all.size() < namesForTwo ? 0 : all.size() / 2;
    // Without a thread this half is read at get().
    auto others = std::async(half == 0 ? std::launch::deferred : std::launch::async | std::launch::deferred,
                             [&] { return readRecords(folder, all.subspan(0, half), unread != nullptr); });
    Records result = readRecords(folder, all.subspan(half), unread != nullptr);
    Records rest = others.get();
    std::move(rest.read.begin(), rest.read.end(), std::back_inserter(result.read));
    const auto bySeq = [](const auto& a, const auto& b) { return a.seq < b.seq; };
    std::sort(result.read.begin(), result.read.end(), bySeq);
    if (unread == nullptr) return std::move(result.read);
    *unread = std::move(result.unread);
    std::move(rest.unread.begin(), rest.unread.end(), std::back_inserter(*unread));
    std::sort(unread->begin(), unread->end(), bySeq);
    return std::move(result.read);
}

SnapshotMeta History::snapshot(std::int64_t seq) const {
    const std::string path = metaPath(seq);
    std::string text;
    const int error = readFile(path, text);
    if (error == ENOENT) throw TidewrackError::noSnapshot(seq);
    if (error != 0) throw TidewrackError::io("read", path, error);
    return decodeSnapshotMeta(text, path);
}

Manifest History::manifest(const SnapshotMeta& meta) const {
    TextBuffer text = manifestText(meta.manifestOf);
    try {
        return Manifest::decodeText(std::move(text));
    } catch (const TidewrackError& error) {
        throw error.in(placeOf(meta.manifestOf));
    }
}

TextBuffer History::manifestText(std::int64_t seq) const {
    const std::string path = manifestPath(seq);
    std::string bytes;
    const int error = readFile(path, bytes);
    if (error == ENOENT) throw TidewrackError::corrupt("missing manifest for #" + std::to_string(seq));
    if (error != 0) throw TidewrackError::io("read", path, error);
    try {
        return Manifest::decompressed(bytes);
    } catch (const TidewrackError& damage) {
        throw damage.in(placeOf(seq));
    }
}

std::string History::manifestFault(std::int64_t seq) const {
    const Descriptor file(::open(manifestPath(seq).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file && errno == ENOENT) return TidewrackError::corrupt("missing manifest for #" + std::to_string(seq)).what();
    std::string end(Manifest::endMarker.size(), '\0');
    const off_t size = file ? ::lseek(file.get(), 0, SEEK_END) : -1;
    const auto length = static_cast<off_t>(end.size());
    if (size < 0 || (size >= length && ::pread(file.get(), end.data(), end.size(), size - length) != length))
        return "can't read " + manifestPath(seq) + ": " + errorText(errno);
    return end == Manifest::endMarker ? "" : TidewrackError::corrupt(placeOf(seq) + ", is cut short").what();
}

std::string History::placeOf(std::int64_t seq) const {
    return manifestPath(seq) + ", the listing of #" + std::to_string(seq);
}

std::int64_t History::highestLeftover() const {
    std::int64_t highest = 0;
    for (const char* folder : {"/manifests", "/blobs"}) {
        forEachName(folder_ + folder, [&](std::string_view name) {
            if (name.ends_with(".mf")) name.remove_suffix(3);
            highest = std::max(highest, parseSeq(name).value_or(0));
        });
    }
    return highest;
}

void History::writeSnapshot(const ProjectLock&, const SnapshotMeta& meta) const {
    writeFileAtomically(metaPath(meta.seq), compactJson(toJson(meta)));
}

void History::writeUnchangedSnapshot(const ProjectLock&, const SnapshotMeta& meta) const {
    writeFileSoon(metaPath(meta.seq), compactJson(toJson(meta)));
}

void History::bringNamesToDisk(const ProjectLock&) const {
    const std::string folder = snapshotsFolder();
    Descriptor open;
    int error = openFolder(folder, open);
    if (error == 0 && (!sharesVolume() || !keepsOrder(open.get()))) error = flushNames(open.get());
    if (error != 0) throw TidewrackError::io("flush", folder, error);
}

void History::bringRecordsToDisk(const ProjectLock&) const {
    const std::string folder = snapshotsFolder();
    Descriptor open;
    int error = openFolder(folder, open);
    // The whole volume: the content of an unchanged snapshot's record has not been waited for yet.
    if (error == 0) error = flushVolume(open.get());
    if (error != 0) throw TidewrackError::io("flush", folder, error);
}

void History::writeManifest(const ProjectLock&, std::int64_t seq, const Manifest& manifest,
                            const PendingWrites& contents) const {
    writeFileAfter(contents, manifestPath(seq), manifest.encoded());
}

void History::changeProject(const ProjectLock&, const std::function<void(Project&)>& change) const {
    std::string text;
    if (const int error = readFile(recordPath(), text)) throw TidewrackError::io("read", recordPath(), error);
    const Project before = decodeProject(text, recordPath());
    Project project = before;
    change(project);
    if (project == before) return;
    nlohmann::json object = nlohmann::json::parse(text);
    const nlohmann::json known = toJson(before);
    for (const auto& [key, value] : known.items()) object.erase(key);
    object.update(toJson(project));
    writeFileAtomically(recordPath(), compactJson(object));
}

void History::markUnfinished(const ProjectLock&, std::int64_t seq) const {
    // Failures are passed over: the leftovers then wait for a prune that looks at everything.
    const Descriptor file(
        ::open(manifestPath(seq).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
}

std::string History::metaPath(std::int64_t seq) const {
    return snapshotsFolder() + "/" + std::to_string(seq) + ".json";
}

std::string History::manifestPath(std::int64_t seq) const {
    return manifestsFolder() + "/" + std::to_string(seq) + ".mf";
}

std::string History::blobPath(std::string_view blob) const {
    return blobsFolder() + "/" + std::string(blob);
}

bool History::sharesVolume() const {
    Attributes ofRoot;
    Attributes ofHistory;
    return attributesAt(AT_FDCWD, root_.c_str(), ofRoot) != 0 ||
           attributesAt(AT_FDCWD, folder_.c_str(), ofHistory) != 0 || ofRoot.device == ofHistory.device;
}

} // namespace tidewrack
