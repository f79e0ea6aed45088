#include "Reports/PatchReport.hpp"

#include <unistd.h>

namespace tidewrack {

namespace {

constexpr std::string_view live = "live:";

std::optional<std::string> linkDestination(const std::string& path) {
    std::string destination(65536, '\0');
    const ssize_t length = ::readlink(path.c_str(), destination.data(), destination.size());
    if (length < 0) return std::nullopt;
    destination.resize(static_cast<std::size_t>(length));
    return destination;
}

} // namespace

std::optional<PatchSide> sideOf(const Store& store, const Project& project, const Entry* entry) {
    if (entry == nullptr || entry->kind == EntryKind::dir) return std::nullopt;
    PatchSide side;
    side.mode = entry->mode;
    if (const auto reason = entry->notKeptReason()) {
        side.notKeptReason = *reason;
        return side;
    }
    std::string path = entry->blob.starts_with(live) ? std::string(entry->blob.substr(live.size()))
                                                     : store.history(project).blobPath(entry->blob);
    if (entry->kind == EntryKind::file) {
        side.content = std::move(path);
        return side;
    }
    side.kind = PatchSide::Kind::link;
    side.content = linkDestination(path);
    if (!side.content) side.notKeptReason = "it can't be read";
    return side;
}

void writePatch(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes,
                const Look& look, const std::function<void(const std::string&)>& write) {
    for (const std::string& path : changes.all()) {
        const PatchFile file{path, sideOf(store, project, sides.older.find(path)),
                             sideOf(store, project, sides.newer.find(path))};
        if (file.before || file.after)
            write(patchText(file, look.colour ? Colours::on : Colours::off,
                            look.terminal ? Controls::escaped : Controls::kept));
    }
}

} // namespace tidewrack
