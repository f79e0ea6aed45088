#include "Vault/RestoreMark.hpp"

#include "Engine/SafeReplace.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string_view>

namespace tidewrack {

namespace {

constexpr std::string_view marks = "restore"; // before a name that tells the process

// Another thread of this process may be at work, too.
bool isOfAnEndedProcess(std::string_view name) {
    if (!name.starts_with(marks)) return false;
    name.remove_prefix(marks.size());
    const std::string ours = std::string(temporaryPrefix) + std::to_string(::getpid()) + "-";
    return isLeftover(name) && !name.starts_with(ours);
}

// Whether nothing is left to be cleared. A name given back is added to `back`.
bool clear(const std::string& mark, std::vector<std::string>& back) {
    std::string text;
    if (readFile(mark, text) != 0) return false;
    std::istringstream lines(text);
    std::string part[4];
    for (std::string& each : part) {
        std::getline(lines, each);
        each = Manifest::unescape(each);
    }
    const auto& [folder, temporary, name, aside] = part;
    // One that a power cut took tells nothing. Nothing else is ever removed.
    if (!folder.starts_with('/') || !temporary.starts_with(temporaryPrefix) || temporary.find('/') != temporary.npos)
        return true;
    Descriptor root;
    Descriptor open;
    int error = openFolder("/", root);
    if (error == 0) error = openFolderBelow(root.get(), std::string_view(folder).substr(1), open);
    if (error != 0) return error == ENOENT || error == ENOTDIR || error == ELOOP; // it is another folder by now
    Attributes there;
    bool bothNames = false;
    if (!aside.empty() && attributesAt(open.get(), aside.c_str(), there) == 0) {
        error = giveName({open.get(), aside.c_str()}, {open.get(), name.c_str()}, bothNames);
        if (error == 0) back.push_back(joined(folder, name));
        if (error != 0 && error != EEXIST) return false;
    }
    error = removeTree({open.get(), temporary.c_str()});
    return error == 0 || error == ENOENT;
}

} // namespace

RestoreMark::RestoreMark(const std::string& vault) : path_(joined(vault, std::string(marks) + temporaryName())) {}

RestoreMark::~RestoreMark() {
    if (!isLeft_) (void)::unlink(path_.c_str());
}

void RestoreMark::write(const std::string& folder, const std::string& temporary, const std::string& name,
                        const std::string& aside) const {
    std::string text;
    for (const std::string* part : {&folder, &temporary, &name, &aside}) text += Manifest::escape(*part) + "\n";
    try {
        writeFileAtomically(path_, text);
    } catch (const TidewrackError&) { // only what a kill leaves would not be known
    }
}

std::vector<std::string> clearCutShort(const std::string& vault) {
    std::vector<std::string> back;
    try {
        for (const std::string& name : listFolder(vault)) {
            if (!isOfAnEndedProcess(name)) continue;
            const std::string mark = joined(vault, name);
            if (clear(mark, back)) (void)::unlink(mark.c_str());
        }
    } catch (const TidewrackError&) { // a vault that can't be listed is told by what asks for its entries
    }
    return back;
}

} // namespace tidewrack
