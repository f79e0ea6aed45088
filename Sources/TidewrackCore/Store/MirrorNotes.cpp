#include "Store/MirrorNotes.hpp"

#include "Store/ProjectLock.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/JsonFields.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <random>

namespace tidewrack {

namespace {

std::string newStoreID() {
    std::random_device random;
    std::array<std::uint8_t, 16> bytes{};
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return hexText(bytes);
}

// A folder on a volume that is not mounted now is still known.
bool mayBeMirror(const std::string& folder) {
    return exists(mirrorNotePath(folder)) || !exists(folder);
}

} // namespace

std::string mirrorNotePath(std::string_view folder) {
    return joined(folder, "mirror.json");
}

std::string knownMirrorsPath(std::string_view storeHome) {
    return joined(storeHome, "mirrors.json");
}

MirrorNote readMirrorNote(std::string_view folder) {
    const std::string path = mirrorNotePath(folder);
    std::string text;
    if (const int error = readFile(path, text)) throw TidewrackError::io("read", path, error);
    const JsonFields fields(std::string_view(text), path);
    MirrorNote note{fields.text("of"), {}, fields.texts("vault")};
    for (const JsonFields& project : fields.objects("projects"))
        note.projects[project.text("id")] = {project.text("created"), project.integer("newest")};
    return note;
}

void writeMirrorNote(std::string_view folder, const MirrorNote& note) {
    nlohmann::json projects = nlohmann::json::array();
    for (const auto& [id, project] : note.projects)
        if (project != MirroredProject())
            projects.push_back({{"id", id}, {"created", project.created}, {"newest", project.newest}});
    writeFileAtomically(mirrorNotePath(folder),
                        compactJson({{"of", note.of}, {"projects", projects}, {"vault", note.vault}}));
}

KnownMirrors readKnownMirrors(std::string_view storeHome) {
    const std::string path = knownMirrorsPath(storeHome);
    std::string text;
    const int error = readFile(path, text);
    if (error == ENOENT) return {};
    if (error != 0) throw TidewrackError::io("read", path, error);
    const JsonFields fields(std::string_view(text), path);
    return {fields.text("id"), fields.texts("folders")};
}

std::string enterMirror(std::string_view storeHome, const std::string& folder) {
    const ProjectLock lock(joined(storeHome, "settings.lock"));
    KnownMirrors known = readKnownMirrors(storeHome);
    const KnownMirrors before = known;
    if (known.id.empty()) known.id = newStoreID();
    std::erase_if(known.folders, [&](const std::string& each) { return each != folder && !mayBeMirror(each); });
    const bool isKnown = std::find(known.folders.begin(), known.folders.end(), folder) != known.folders.end();
    if (!isKnown && isUtf8(folder)) known.folders.push_back(folder); // no JSON text holds another one
    if (known.id != before.id || known.folders != before.folders)
        writeFileAtomically(knownMirrorsPath(storeHome), compactJson({{"id", known.id}, {"folders", known.folders}}));
    return known.id;
}

std::vector<std::string> mirrorsOrNone(std::string_view storeHome) {
    try {
        return readKnownMirrors(storeHome).folders;
    } catch (const TidewrackError&) { // the store itself is protected all the same
        return {};
    }
}

} // namespace tidewrack
