#include "Shell/Writers.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Scripts.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <iterator>
#include <optional>
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
    std::string_view letters{};            // short options that take a word
    WordList options{};                    // long ones
    WordList outputs{};                    // those of them whose word is a file or folder that is written
    WordList onlyWith{};                   // operands are written only with one of these
    WordList notWith{};                    // ... and with none of these
    WordList folder{};                     // options whose word is the folder to work in
    std::optional<Language> language = {}; // of the texts that it follows
};

// Sorted by name, for the search.
constexpr Writer writers[] = {
    {"ar", Written::second, {}, {}, {}, {}, " t p tv pv "},
    {"as", Written::anything, "oI", {}, " -o -MD "},
    {"awk", Written::none, "FvfiEle", {}, {}, {}, {}, {}, Language::awk},
    {"bunzip2", Written::all, {}, {}, {}, {}, " -c --stdout -t --test "},
    {"bzip2", Written::all, {}, {}, {}, {}, " -c --stdout -t --test "},
    {"c++", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"cc", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"clang", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"clang++", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"clang-format", Written::all, {}, {}, {}, " -i ", {}},
    {"compress", Written::all, "b", {}, {}, {}, " -c "},
    {"convert", Written::last},
    {"csplit", Written::anything, "fbn", " --prefix "},
    {"curl",
     Written::urls,
     "AbcCdDeEFhHKmoPQrtTuUwxXyYz",
     " --output --cookie-jar --dump-header --trace --trace-ascii --stderr --header --data --data-raw --data-binary "
     "--request --user --url --form --user-agent --referer --max-time --connect-timeout --retry --cookie --proxy "
     "--write-out --output-dir --upload-file --config --libcurl --etag-save --hsts --alt-svc ",
     " -o -c -D --output --cookie-jar --dump-header --trace --trace-ascii --stderr --libcurl --etag-save --hsts "
     "--alt-svc ",
     " -O -J --remote-name --remote-name-all ",
     {},
     " --output-dir "},
    {"ed", Written::all, "p", {}, {}, {}, {}, {}, Language::editor},
    {"ex", Written::all, "cSTu", " --cmd ", {}, {}, " -R ", {}, Language::editor},
    {"ffmpeg", Written::last, {}, {}, {}, " -y ", {}},
    {"g++", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"gawk", Written::none, "FvfiEle", {}, {}, {}, {}, {}, Language::awk},
    {"gcc", Written::anything, "oDIULlxTu", {}, " -o -MF "},
    {"gofmt", Written::all, "r", {}, {}, " -w ", {}},
    {"gunzip", Written::all, "S", {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"gzip", Written::all, "S", {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"iconv", Written::none, "fto", " --from-code --to-code --output ", " -o --output "},
    {"ld", Written::anything, "oLlTu", {}, " -o -Map --Map --dependency-file "},
    {"lzma", Written::all, {}, {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"magick", Written::last},
    {"mawk", Written::none, "FvfiEle", {}, {}, {}, {}, {}, Language::awk},
    {"mogrify", Written::all},
    {"nvim", Written::all, "cStTuw", " --cmd ", {}, {}, " -R ", {}, Language::editor},
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
    {"pigz", Written::all, "Sp", {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"prename", Written::all, "e", {}, {}, {}, " -n --no-act "},
    {"prettier", Written::all, {}, {}, {}, " -w --write ", {}},
    {"rename", Written::all, "e", {}, {}, {}, " -n --no-act "},
    {"rustc", Written::anything, "oLlCWADF", " --out-dir --crate-type --edition --emit ", " -o "},
    {"scp", Written::last, "cDFiJloPSX"},
    {"setfacl", Written::all, "mxMX", " --modify --remove "},
    {"shuf", Written::none, "ino", " --input-range --head-count --output --random-source ", " -o --output "},
    {"sort", Written::none, "kotST", " --key --output --field-separator --buffer-size --temporary-directory ",
     " -o --output "},
    {"split", Written::anything, "abClnt"},
    {"sponge", Written::all},
    {"sqlite3",
     Written::first,
     {},
     " -cmd -init -separator -nullvalue --cmd --init ",
     {},
     {},
     " -readonly --readonly ",
     {},
     Language::database},
    {"ssh-keygen", Written::none, "bCfFIKmNOPQRrstVwYz", {}, " -f ", {}, {}},
    {"strip", Written::all, "oRKNFIO", " --output-file --remove-section --keep-symbol ", " -o --output-file "},
    {"tar",
     Written::folder,
     "bfCgKNTVXIHL",
     " --file --directory --exclude --files-from --exclude-from --transform --to-command --checkpoint-action "
     "--use-compress-program --index-file --info-script --new-volume-script ",
     " --index-file ",
     {},
     {},
     " -C --directory "},
    {"uncompress", Written::all, {}, {}, {}, {}, " -c "},
    {"uniq", Written::second, "fsw", " --skip-fields --skip-chars --check-chars "},
    {"unlzma", Written::all, {}, {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"unxz", Written::all, {}, {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"unzip", Written::folder, "dPx", {}, {}, {}, " -n -l -v -t -Z -p ", " -d "},
    {"vi", Written::all, "cStTuw", " --cmd ", {}, {}, " -R ", {}, Language::editor},
    {"vim", Written::all, "cStTuw", " --cmd ", {}, {}, " -R ", {}, Language::editor},
    {"wget",
     Written::none,
     "oaOPeiBtTwQURU",
     " --output-document --output-file --append-output --directory-prefix ",
     " -O -o -a --output-document --output-file --append-output ",
     {},
     {},
     " -P --directory-prefix "},
    {"xxd", Written::second, "clgso", {}, {}, {}, {}},
    {"xz", Written::all, "TCFM", {}, {}, {}, " -c --stdout -t --test -l --list "},
    {"yq", Written::all, "e", {}, {}, " -i --inplace --in-place ", {}},
    {"zip", Written::first, "bnPtxi", {}, {}, {}, " -sf "}, // and the rest with -m
    {"zstd", Written::all, "oDT", {}, " -o ", {}, " -c --stdout -t --test -l --list "},
};

// What compressors make of a name, and leave of it.
struct Packing {
    std::string_view name;
    std::string_view ending;
};

constexpr Packing packings[] = {
    {"bunzip2", ".bz2"}, {"bzip2", ".bz2"}, {"compress", ".Z"}, {"gunzip", ".gz"},
    {"gzip", ".gz"},     {"lzma", ".lzma"}, {"pigz", ".gz"},    {"uncompress", ".Z"},
    {"unlzma", ".lzma"}, {"unxz", ".xz"},   {"xz", ".xz"},      {"zstd", ".zst"},
};

static_assert(isSortedByName(writers));
constexpr NameIndex<Writer> writerIndex(writers);

// Whether the word of an option is a program, or a file of commands that are not known.
bool runsProgram(const Writer& writer, std::string_view option, std::string_view value) {
    if (writer.language) return option == "-S" || option == "-init" || option == "--init";
    if (writer.name == "curl") return option == "-K" || option == "--config";
    if (writer.name != "tar") return false;
    if (option == "-I" || option == "--use-compress-program") return value.find(' ') != value.npos;
    return option == "-F" || option == "--info-script" || option == "--new-volume-script" || option == "--to-command" ||
           (option == "--checkpoint-action" && value.starts_with("exec"));
}

// Standard output, or a file that keeps nothing.
bool isNowhere(const Word& word) {
    return word.text == "-"sv || word.text == "/dev/null"sv || word.text == ":memory:"sv;
}

// One command, its arguments sorted into what it writes and what not.
class Writing {
    using Operands = std::span<const Word* const>;

  public:
    Writing(const Writer& writer, Words arguments, const std::string& cwd)
        : writer_(writer), arguments_(arguments), cwd_(cwd), folder_(cwd) {
        sortOut();
        const auto* const packing = std::find_if(std::begin(packings), std::end(packings),
                                                 [&](const Packing& one) { return one.name == writer_.name; });
        if (packing != std::end(packings)) packing_ = packing;
        if (writer_.name == "split" && operands_.size() > 1) prefix_ = operands_[1]->text;
        if (writer.language) readScripts();
    }

    [[nodiscard]] bool isNothing() const;
    bool run(Effects& effects) const; // false when the arguments are not understood

  private:
    void sortOut();
    std::size_t takeOption(std::size_t index);
    std::size_t takeAwkOption(std::size_t index);
    void readScripts();
    void takeValue(std::string_view option, Word value);
    [[nodiscard]] bool keepsOperands() const;
    void writePacked(Effects& effects) const;
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
    ScriptEffects scripts_; // what the texts do that it follows
    std::string modes_;     // of tar: the letters of its options
    const Packing* packing_ = nullptr;
    std::optional<std::string> prefix_; // of the files that split and csplit make
    bool hasScript_ = false;
    bool runs_ = false; // another program
    bool enabled_ = false;
    bool disabled_ = false;
};

bool Writing::isNothing() const {
    if (!std::all_of(outputs_.begin(), outputs_.end(), isNowhere) || !scripts_.none() || runs_) return false;
    if (!takesOperands()) return true;
    if (writer_.name == "tar") return modes_.find('t') != modes_.npos && modes_.find('x') == modes_.npos;
    if (packing_ != nullptr) return operands_.empty();
    if (writer_.written == Written::folder || writer_.written == Written::anything) return false;
    const Operands written = writtenOperands();
    return std::all_of(written.begin(), written.end(), [](const Word* word) { return isNowhere(*word); });
}

bool Writing::run(Effects& effects) const {
    for (const Word& output : outputs_) write(output, effects);
    for (const std::string& file : scripts_.files) {
        Word word;
        word.text = file;
        write(word, effects);
    }
    if (scripts_.unknown || runs_) effects.suspect(cwd_);
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
        if ((text.size() > 1 && text[0] == '-') || isFirst)
            index += writer_.language == Language::awk ? takeAwkOption(index) : takeOption(index);
        else
            operands_.push_back(&arguments_[index]);
    }
}

// awk takes the first operand for its program, editors what is behind a "+", sqlite3 all but the first one.
void Writing::readScripts() {
    const auto isScript = [&](const Word* word) {
        if (writer_.language == Language::awk) return !hasScript_ && word == operands_.front();
        return writer_.language == Language::database ? word != operands_.front() : word->text.starts_with('+');
    };
    for (const Word* word : operands_) {
        if (!isScript(word)) continue;
        const std::string_view text = word->text;
        readScript(*writer_.language, text.substr(text.starts_with('+') ? 1 : 0), scripts_);
    }
}

// Files are written only by -o, -d and -p, to which their names are joined; -i, -f, -E and -l read further programs.
std::size_t Writing::takeAwkOption(std::size_t index) {
    const std::string_view text = arguments_[index].text;
    const char letter = text[1];
    if (text.starts_with("--")) {
        for (const std::string_view name : {"--pretty-print"sv, "--dump-variables"sv, "--profile"sv, "--debug"sv})
            runs_ = runs_ || text.starts_with(name);
        for (const std::string_view name : {"--file"sv, "--include"sv, "--exec"sv, "--load"sv, "--source"sv})
            hasScript_ = runs_ = runs_ || text.starts_with(name);
        return text.starts_with("--assign") || text.starts_with("--field") ? text.find('=') == text.npos : 0;
    }
    if (letter == 'o' || letter == 'd' || letter == 'p') {
        Word file = arguments_[index];
        file.text.erase(0, 2);
        if (file.text.empty()) runs_ = true;
        if (!file.text.empty()) outputs_.push_back(std::move(file));
        return 0;
    }
    if (writer_.letters.find(letter) == writer_.letters.npos) return 0;
    const bool joined = text.size() > 2;
    const std::size_t taken = !joined && index + 1 < arguments_.size() ? 1 : 0;
    if (letter == 'e') readScript(Language::awk, joined ? text.substr(2) : arguments_[index + taken].text, scripts_);
    if (letter != 'F' && letter != 'v') hasScript_ = true;
    if (letter != 'F' && letter != 'v' && letter != 'e') runs_ = true;
    return taken;
}

// How many words behind an option are its own.
std::size_t Writing::takeOption(std::size_t index) {
    const std::string_view text = arguments_[index].text;
    std::size_t equals = text.find('=');
    if (!text.starts_with("--") && !writer_.outputs.holds(text.substr(0, equals))) equals = text.npos;
    const std::string_view name = text.substr(0, equals);
    enabled_ = enabled_ || writer_.onlyWith.holds(name);
    disabled_ = disabled_ || writer_.notWith.holds(name);
    const bool hasNext = index + 1 < arguments_.size();
    if (equals != text.npos) {
        Word value = arguments_[index];
        value.text.erase(0, equals + 1);
        takeValue(name, std::move(value));
        return 0;
    }
    // -out, --output: whole words
    const bool isLetter = text.size() == 2 && writer_.letters.find(text[1]) != text.npos; // which is looked up below
    if (!isLetter && (writer_.options.holds(name) || writer_.outputs.holds(name))) {
        if (hasNext) takeValue(name, arguments_[index + 1]);
        return hasNext ? 1 : 0;
    }
    if (text == "-es" && writer_.name != "ed") return 0; // of vim: quietly, as ex
    if (text.starts_with("--")) {
        if (text == "--move") modes_ += 'm';
        if (text == "--extract" || text == "--get") modes_ += 'x';
        if (text == "--list") modes_ += 't';
        if (text == "--remove-files" || text == "--rm") modes_ += 'R';
        if (text == "--keep") modes_ += 'k';
        return 0;
    }
    std::size_t taken = 0;
    for (std::size_t at = text[0] == '-' ? 1 : 0; at < text.size(); ++at) {
        const std::string option = {'-', text[at]};
        modes_ += text[at];
        enabled_ = enabled_ || writer_.onlyWith.holds(option);
        disabled_ = disabled_ || writer_.notWith.holds(option);
        if (writer_.written == Written::anything && at > 1) break; // whose options are no clusters
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
    if (writer_.name == "csplit" && (option == "-f" || option == "--prefix")) prefix_ = value.text;
    if (writer_.folder.holds(option) && !value.unknown && folder_.size() <= Budget::folderLength)
        folder_ = absolutePath(value.text, folder_);
    else if (writer_.outputs.holds(option))
        outputs_.push_back(std::move(value));
    else if (writer_.name == "tar" && (option == "-f" || option == "--file"))
        archives_.push_back(std::move(value));
    else if (option == "-c" || option == "--cmd" || option == "-cmd") {
        if (writer_.language) readScript(*writer_.language, value.text, scripts_);
    } else if (runsProgram(writer_, option, value.text))
        runs_ = true;
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

// Whether a compressor leaves the files that it is given.
bool Writing::keepsOperands() const {
    if (packing_ == nullptr) return false;
    return writer_.name == "zstd" ? modes_.find('R') == modes_.npos : modes_.find('k') != modes_.npos;
}

// a.txt.gz of a.txt, and a.txt of a.txt.gz.
void Writing::writePacked(Effects& effects) const {
    if (packing_ == nullptr) return;
    for (const Word* operand : operands_) {
        Word word = *operand;
        if (word.text.ends_with(packing_->ending))
            word.text.resize(word.text.size() - packing_->ending.size());
        else
            word.text += packing_->ending;
        write(word, effects);
    }
}

bool Writing::writeOperands(Effects& effects) const {
    writePacked(effects);
    if (keepsOperands()) return true;
    if (writer_.written == Written::anything && prefix_) effects.opaque(parentOf(absolutePath(*prefix_, folder_)));
    if (writer_.name == "ar" && !operands_.empty() && operands_.front()->text.find('x') != std::string::npos)
        effects.suspect(folder_);
    for (const Word* operand : writtenOperands()) {
        Word word = *operand;
        // What the new name is, only the program knows; something else may have it.
        if (writer_.name.ends_with("rename")) effects.opaque(parentOf(absolutePath(word.text, folder_)));
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

bool readsScript(std::string_view name) {
    const Writer* writer = writerIndex.find(name);
    return writer != nullptr && writer->language && writer->language != Language::awk;
}

bool examineInput(std::string_view name, const std::optional<std::string>& text, const std::string& cwd,
                  Effects& effects) {
    const Writer* writer = writerIndex.find(name);
    if (!readsScript(name) || !text) return false;
    ScriptEffects scripts;
    readScript(*writer->language, *text, scripts);
    for (const std::string& file : scripts.files) {
        Word word;
        word.text = file;
        effects.write(word, cwd);
    }
    return !scripts.unknown;
}

bool examineWriter(Words words, const std::string& cwd, Effects& effects) {
    const Writer* writer = writerIndex.find(commandName(words.front()));
    if (writer == nullptr) return false;
    const Writing writing(*writer, words.subspan(1), cwd);
    return writing.isNothing() || writing.run(effects);
}

} // namespace tidewrack::shell
