#include "Shell/Writers.hpp"

#include "Shell/NameFilter.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <iterator>
#include <vector>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Which operands are written, or replaced by something else.
enum class Written {
    none,
    all,
    first,
    last,
    second,   // and those behind it
    folder,   // the working folder, or the one that an option names: what is there may be overwritten
    urls,     // files of the working folder, named like what is fetched
    anything, // nobody knows which
};

// Lists hold a blank before and behind each word.
struct Writer {
    std::string_view name;
    Written written = Written::none;
    std::string_view letters{};  // short options that take a word
    std::string_view options{};  // long ones
    std::string_view outputs{};  // those of them whose word is a file or folder that is written
    std::string_view onlyWith{}; // operands are written only with one of these
    std::string_view notWith{};  // ... and with none of these
    std::string_view folder{};   // options whose word is the folder to work in
};

// Sorted by name, for the search.
constexpr Writer writers[] = {
    {"ar", Written::second, {}, {}, {}, {}, " t p tv pv "},
    {"as", Written::anything, "oI", {}, " -o "},
    {"bunzip2", Written::all, {}, {}, {}, {}, " -c --stdout -k --keep -t --test "},
    {"bzip2", Written::all, {}, {}, {}, {}, " -c --stdout -k --keep -t --test "},
    {"c++", Written::anything, "oDIULlxTu", {}, " -o "},
    {"cc", Written::anything, "oDIULlxTu", {}, " -o "},
    {"clang", Written::anything, "oDIULlxTu", {}, " -o "},
    {"clang++", Written::anything, "oDIULlxTu", {}, " -o "},
    {"clang-format", Written::all, {}, {}, {}, " -i ", {}},
    {"compress", Written::all, "b", {}, {}, {}, " -c "},
    {"convert", Written::last},
    {"csplit", Written::anything, "fbn", " --prefix "},
    {"curl",
     Written::urls,
     "AbcCdDeEFhHKmoPQrtTuUwxXyYz",
     " --output --cookie-jar --dump-header --trace --trace-ascii --stderr --header --data --data-raw --data-binary "
     "--request --user --url --form --user-agent --referer --max-time --connect-timeout --retry --cookie --proxy "
     "--write-out --output-dir --upload-file ",
     " -o -c -D --output --cookie-jar --dump-header --trace --trace-ascii --stderr ",
     " -O -J --remote-name ",
     {},
     " --output-dir "},
    {"ed", Written::all, "p", {}, {}, {}, {}},
    {"ex", Written::all, "cSTu", {}, {}, {}, " -R "},
    {"ffmpeg", Written::last, {}, {}, {}, " -y ", {}},
    {"g++", Written::anything, "oDIULlxTu", {}, " -o "},
    {"gcc", Written::anything, "oDIULlxTu", {}, " -o "},
    {"gofmt", Written::all, "r", {}, {}, " -w ", {}},
    {"gunzip", Written::all, "S", {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"gzip", Written::all, "S", {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"iconv", Written::none, "fto", " --from-code --to-code --output ", " -o --output "},
    {"ld", Written::anything, "oLlTu", {}, " -o "},
    {"lzma", Written::all, {}, {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"magick", Written::last},
    {"mogrify", Written::all},
    {"nvim", Written::all, "cSstTuw", " --cmd ", {}, {}, " -R "},
    {"objcopy", Written::last, "OIFBjRNKLGW"},
    {"openssl", Written::none, {}, {}, " -out -keyout -CAserial -writerand "},
    {"pandoc", Written::none, "fto", " --output --from --to ", " -o --output "},
    {"patch",
     Written::folder,
     "dipBoDFgrVYz",
     " --directory --input --strip --output --reject-file ",
     " -o --output ",
     {},
     " --dry-run ",
     " -d --directory "},
    {"pigz", Written::all, "Sp", {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"prename", Written::all, "e", {}, {}, {}, " -n --no-act "},
    {"prettier", Written::all, {}, {}, {}, " -w --write ", {}},
    {"rename", Written::all, "e", {}, {}, {}, " -n --no-act "},
    {"rustc", Written::anything, "oLlCWADF", " --out-dir --crate-type --edition --emit ", " -o "},
    {"scp", Written::last, "cDFiJloPSX"},
    {"setfacl", Written::all, "mxMX", " --modify --remove "},
    {"shuf", Written::none, "ino", " --input-range --head-count --output --random-source ", " -o --output "},
    {"sort", Written::none, "kotST", " --key --output --field-separator --buffer-size --temporary-directory ",
     " -o --output "},
    {"split", Written::anything},
    {"sponge", Written::all},
    {"sqlite3", Written::first, {}, " -cmd -init -separator -nullvalue ", {}, {}, " -readonly --readonly "},
    {"ssh-keygen", Written::none, "bCfFIKmNOPQRrstVwYz", {}, " -f ", {}, {}},
    {"strip", Written::all, "oRKNFIO", " --output-file --remove-section --keep-symbol ", " -o --output-file "},
    {"tar",
     Written::folder,
     "bfCgKNTVXIHL",
     " --file --directory --exclude --files-from --exclude-from --transform ",
     {},
     {},
     {},
     " -C --directory "},
    {"uncompress", Written::all, {}, {}, {}, {}, " -c "},
    {"uniq", Written::second, "fsw", " --skip-fields --skip-chars --check-chars "},
    {"unlzma", Written::all, {}, {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"unxz", Written::all, {}, {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"unzip", Written::folder, "dPx", {}, {}, {}, " -n -l -v -t -Z -p ", " -d "},
    {"vi", Written::all, "cSstTuw", " --cmd ", {}, {}, " -R "},
    {"vim", Written::all, "cSstTuw", " --cmd ", {}, {}, " -R "},
    {"wget",
     Written::none,
     "oaOPeiBtTwQURU",
     " --output-document --output-file --append-output --directory-prefix ",
     " -O -o -a --output-document --output-file --append-output ",
     {},
     {},
     " -P --directory-prefix "},
    {"xxd", Written::second, "clgso", {}, {}, {}, {}},
    {"xz", Written::all, "TCFM", {}, {}, {}, " -c --stdout -k --keep -t --test -l --list "},
    {"yq", Written::all, "e", {}, {}, " -i --inplace --in-place ", {}},
    {"zip", Written::first, "bnPtxi", {}, {}, {}, " -sf "}, // and the rest with -m
    {"zstd", Written::all, "oDT", {}, " -o ", " --rm ", {}},
};

static_assert(isSortedByName(writers));
constexpr NameIndex<Writer> writerIndex(writers);

// Standard output, or a file that keeps nothing.
bool isNowhere(const Word& word) {
    return word.text == "-"sv || word.text == "/dev/null"sv;
}

// One command, its arguments sorted into what it writes and what not.
class Writing {
    using Operands = std::span<const Word* const>;

  public:
    Writing(const Writer& writer, Words arguments, const std::string& cwd)
        : writer_(writer), arguments_(arguments), cwd_(cwd), folder_(cwd) {
        sortOut();
    }

    [[nodiscard]] bool isNothing() const;
    bool run(Effects& effects) const; // false when the arguments are not understood

  private:
    void sortOut();
    std::size_t takeOption(std::size_t index);
    void takeValue(std::string_view option, Word value);
    [[nodiscard]] bool takesOperands() const { return !disabled_ && (writer_.onlyWith.empty() || enabled_); }
    [[nodiscard]] Operands writtenOperands() const;
    bool writeOperands(Effects& effects) const;
    bool writeArchive(Effects& effects) const;
    void write(const Word& word, Effects& effects) const {
        if (!isNowhere(word)) effects.write(word, folder_);
    }

    const Writer& writer_;
    const Words arguments_;
    const std::string& cwd_;
    std::string folder_; // where it works
    std::vector<const Word*> operands_;
    std::vector<Word> outputs_;
    std::vector<Word> archives_;
    std::string modes_; // of tar: the letters of its options
    bool enabled_ = false;
    bool disabled_ = false;
};

bool Writing::isNothing() const {
    if (!std::all_of(outputs_.begin(), outputs_.end(), isNowhere)) return false;
    if (!takesOperands()) return true;
    if (writer_.name == "tar") return modes_.find('t') != modes_.npos && modes_.find('x') == modes_.npos;
    if (writer_.written == Written::folder || writer_.written == Written::anything) return false;
    const Operands written = writtenOperands();
    return std::all_of(written.begin(), written.end(), [](const Word* word) { return isNowhere(*word); });
}

bool Writing::run(Effects& effects) const {
    for (const Word& output : outputs_) write(output, effects);
    if (!takesOperands()) return true;
    return writer_.name == "tar" ? writeArchive(effects) : writeOperands(effects);
}

void Writing::sortOut() {
    for (std::size_t index = 0; index < arguments_.size(); ++index) {
        const std::string& text = arguments_[index].text;
        const bool isFirst = index == 0 && writer_.name == "tar"; // its first options may come without a dash
        if (text == "--") {
            for (const Word& word : arguments_.subspan(index + 1)) operands_.push_back(&word);
            return;
        }
        if (text.size() > 1 && (text[0] == '-' || isFirst))
            index += takeOption(index);
        else
            operands_.push_back(&arguments_[index]);
    }
}

// How many words behind an option are its own.
std::size_t Writing::takeOption(std::size_t index) {
    const std::string_view text = arguments_[index].text;
    const std::size_t equals = text.starts_with("--") ? text.find('=') : text.npos;
    const std::string_view name = text.substr(0, equals);
    enabled_ = enabled_ || listsWord(writer_.onlyWith, name);
    disabled_ = disabled_ || listsWord(writer_.notWith, name);
    const bool hasNext = index + 1 < arguments_.size();
    if (equals != text.npos) {
        Word value = arguments_[index];
        value.text.erase(0, equals + 1);
        takeValue(name, std::move(value));
        return 0;
    }
    // -out, --output: whole words
    if (listsWord(writer_.options, name) || listsWord(writer_.outputs, name)) {
        if (hasNext) takeValue(name, arguments_[index + 1]);
        return hasNext ? 1 : 0;
    }
    if (text == "-es" && writer_.name != "ed") return 0; // of vim: quietly, as ex
    if (text.starts_with("--")) {
        if (text == "--move") modes_ += 'm';
        if (text == "--extract" || text == "--get") modes_ += 'x';
        if (text == "--list") modes_ += 't';
        if (text == "--remove-files") modes_ += 'R';
        return 0;
    }
    std::size_t taken = 0;
    for (std::size_t at = text[0] == '-' ? 1 : 0; at < text.size(); ++at) {
        const std::string option = {'-', text[at]};
        modes_ += text[at];
        enabled_ = enabled_ || listsWord(writer_.onlyWith, option);
        disabled_ = disabled_ || listsWord(writer_.notWith, option);
        if (writer_.letters.find(text[at]) == text.npos) continue;
        const bool joined = at + 1 < text.size() && text[0] == '-';
        Word value = joined    ? arguments_[index]
                     : hasNext ? arguments_[std::min(index + 1 + taken, arguments_.size() - 1)]
                               : Word();
        if (joined)
            value.text.erase(0, at + 1);
        else
            ++taken;
        takeValue(option, std::move(value));
        if (joined) break;
    }
    return std::min(taken, arguments_.size() - index - 1);
}

void Writing::takeValue(std::string_view option, Word value) {
    if (listsWord(writer_.folder, option) && !value.unknown)
        folder_ = absolutePath(value.text, folder_);
    else if (listsWord(writer_.outputs, option))
        outputs_.push_back(std::move(value));
    else if (writer_.name == "tar" && (option == "-f" || option == "--file"))
        archives_.push_back(std::move(value));
}

Writing::Operands Writing::writtenOperands() const {
    const Operands all(operands_);
    switch (writer_.written) {
    case Written::none:
    case Written::folder:
    case Written::anything: return {};
    case Written::all:
    case Written::urls: return all;
    case Written::first:
        if (writer_.name == "zip" && modes_.find('m') != modes_.npos) return all;
        return all.first(std::min<std::size_t>(all.size(), 1));
    case Written::second: return all.subspan(std::min<std::size_t>(all.size(), 1));
    case Written::last: return all.size() > 1 ? all.last(1) : Operands();
    }
    return {};
}

bool Writing::writeOperands(Effects& effects) const {
    for (const Word* operand : writtenOperands()) {
        Word word = *operand;
        if (writer_.written == Written::urls) word.text = lastComponent(operand->text);
        write(word, effects);
    }
    if (writer_.written == Written::folder) effects.suspect(folder_);
    return writer_.written != Written::anything || !outputs_.empty();
}

// tar: what is unpacked may overwrite anything; what is packed may go.
bool Writing::writeArchive(Effects& effects) const {
    const auto has = [&](char letter) { return modes_.find(letter) != modes_.npos; };
    if (has('x')) {
        effects.suspect(folder_);
        return true;
    }
    for (const Word& archive : archives_)
        if (!has('t') && !isNowhere(archive)) effects.write(archive, cwd_);
    if (has('R'))
        for (const Word* operand : operands_) write(*operand, effects);
    return has('c') || has('r') || has('u') || has('A') || has('t');
}

} // namespace

bool isWriter(std::string_view name) {
    return writerIndex.find(name) != nullptr;
}

bool writesNothing(std::string_view name, Words arguments) {
    static const std::string anywhere = "/";
    const Writer* writer = writerIndex.find(name);
    return writer != nullptr && Writing(*writer, arguments, anywhere).isNothing();
}

bool examineWriter(Words words, const std::string& cwd, Effects& effects) {
    const Writer* writer = writerIndex.find(commandName(words.front()));
    return writer != nullptr && Writing(*writer, words.subspan(1), cwd).run(effects);
}

} // namespace tidewrack::shell
