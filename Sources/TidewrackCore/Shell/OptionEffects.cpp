#include "Shell/OptionEffects.hpp"

#include "Shell/Expansion.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Options.hpp"
#include "Shell/Readers.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

namespace tidewrack::shell {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

namespace {

// How many bytes a size as truncate takes it is, such as 10K or 2MB; none where it is written in another way.
std::optional<std::int64_t> bytesOf(std::string_view size) {
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(size.data(), size.data() + size.size(), count);
    if (error != std::errc() || count < 0) return std::nullopt;
    const std::string_view unit = size.substr(static_cast<std::size_t>(end - size.data()));
    const std::size_t power = unit.empty() ? 0 : "KMGT"sv.find(unit.front()) + 1;
    const bool known = unit.size() < 2 || unit.substr(1) == "B"sv || unit.substr(1) == "iB"sv;
    if (!known || power > 4) return std::nullopt;
    for (std::size_t step = 0; step < power; ++step) {
        if (count > INT64_MAX / 1024) return std::nullopt;
        count *= unit.substr(1) == "B"sv ? 1000 : 1024;
    }
    return count;
}

// What perl does to files, and what runs or loads further code: each between blanks.
constexpr std::string_view actsOfPerl =
    " chmod chown dbmopen do ee eeg eval exec gee link open qx readpipe rename require rmdir symlink syscall sysopen "
    "system truncate unlink use utime ";

// Modules that neither change files nor run anything.
constexpr std::string_view harmlessModules =
    " constant feature integer open strict utf8 warnings Data::Dumper Digest::MD5 Digest::SHA Encode JSON::PP "
    "List::Util MIME::Base64 Scalar::Util Text::Wrap Time::HiRes Time::Local ";

// NAME, NAME=what it exports
bool isHarmlessModule(std::string_view text) {
    return listsWord(harmlessModules, text.substr(0, text.find_first_of("=; \t(")));
}

// Whether a perl program may do more than read and print: by the names in it, wherever they stand.
bool perlMayAct(std::string_view code) {
    for (const std::string_view sign : {"`"sv, "$^I"sv, "@ARGV"sv, "$ARGV["sv, "${^"sv})
        if (code.find(sign) != code.npos) return true;
    for (std::size_t at = 0; at < code.size();) {
        const std::size_t length = nameLength(code.substr(at));
        const std::string_view name = code.substr(at, length);
        std::string_view rest = code.substr(at + length);
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n"), rest.size()));
        const bool isVariable = at > 0 && "$%@"sv.find(code[at - 1]) != code.npos;
        const bool isBlock = name == "eval"sv && rest.starts_with('{');
        const bool isText = name == "do"sv && (rest.empty() || "\"'$(q"sv.find(rest[0]) == rest.npos); // or a block
        const bool isLoaded = name == "use"sv && nameLength(rest) > 0 && !isHarmlessModule(rest);
        const bool isHarmless = isVariable || isBlock || isText || (name == "use"sv && !isLoaded);
        if (length > 0 && !isHarmless && listsWord(actsOfPerl, name)) return true;
        at += std::max<std::size_t>(length, 1);
    }
    return false;
}

} // namespace

bool isRecursive(Words arguments) {
    for (const Word& word : arguments) {
        if (word.text == "--"sv) return false;
        const bool isLong = word.text.size() > 2 && "--recursive"sv.starts_with(word.text); // perhaps cut short
        if (isLong || (isShortCluster(word) && word.text.find_first_of("rR") != std::string::npos)) return true;
    }
    return false;
}

bool takesFolders(Words command) {
    const auto isRimraf = [](const Word& word) { return word.text == "rimraf"sv; };
    return isRecursive(command) || std::any_of(command.begin(), command.end(), isRimraf);
}

bool editsInPlace(Words arguments) {
    return std::any_of(arguments.begin(), arguments.end(), [](const Word& word) {
        // Behind -e, -f, -M and -I stands what they take.
        const std::size_t letter = isShortCluster(word) ? word.text.find_first_of("iefMmIF") : std::string::npos;
        const std::string_view name = std::string_view(word.text).substr(0, word.text.find('='));
        return (name.size() > 2 && "--in-place"sv.starts_with(name)) ||
               (letter != std::string::npos && word.text[letter] == 'i');
    });
}

bool leavesSize(std::string_view size, const std::string& path) {
    if (size.starts_with('+') || size.starts_with('>') || size.starts_with('%')) return true;
    struct stat status {};
    const auto bytes = bytesOf(size);
    return bytes && stat(path.c_str(), &status) == 0 && status.st_size <= *bytes;
}

bool keepsReadable(std::string_view mode) {
    if (mode.empty()) return false;
    if (mode.find_first_not_of("01234567") == mode.npos)
        return mode.size() > 2 && mode.size() < 6 && mode[mode.size() - 3] >= '4';
    while (!mode.empty()) {
        const std::string_view clause = mode.substr(0, mode.find(','));
        mode.remove_prefix(std::min(clause.size() + 1, mode.size()));
        const std::size_t sign = clause.find_first_of("+-=");
        if (sign == clause.npos || clause.substr(0, sign).find_first_not_of("ugoa") != clause.npos) return false;
        const std::string_view rights = clause.substr(sign + 1);
        if (rights.find_first_not_of("rwxXst") != rights.npos) return false;
        const bool isOwners = sign == 0 || clause.substr(0, sign).find_first_of("ua") != clause.npos;
        const bool reads = rights.find('r') != rights.npos;
        if (isOwners && ((clause[sign] == '-' && reads) || (clause[sign] == '=' && !reads))) return false;
    }
    return true;
}

bool printsOnly(Words arguments) {
    if (onlyTellsOfItself("perl", arguments)) return true;
    bool filters = false;
    bool checks = false;
    bool hasCode = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (!isShortCluster(arguments[index])) continue;
        const std::string_view text = arguments[index].text;
        const std::size_t at = std::min(text.find_first_of("eEMmIFdD", 1), text.size());
        const std::string_view flags = text.substr(0, at);
        filters = filters || flags.find_first_of("np") != text.npos;
        checks = checks || flags.find('c') != text.npos;
        if (at == text.size()) continue;
        const std::string_view value = text.substr(at + 1);
        if (text[at] == 'M' || text[at] == 'm') {
            if (!isHarmlessModule(value)) return false;
        } else if (text[at] == 'e' || text[at] == 'E') {
            hasCode = true;
            if (value.empty() && ++index == arguments.size()) return false;
            if (arguments[index].unknown || perlMayAct(value.empty() ? arguments[index].text : value)) return false;
        } else if (text[at] != 'F') {
            return false;
        }
    }
    return hasCode ? filters || checks : checks;
}

} // namespace tidewrack::shell
