#include "Shell/Scripts.hpp"

#include "Shell/CommandRules.hpp"
#include "Shell/NameFilter.hpp"

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr auto none = std::string_view::npos;

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view lineAt(std::string_view text, std::size_t at) {
    return text.substr(at, text.find('\n', at) - at);
}

// The place behind the text that `end` closes, in which backslashes escape.
std::size_t behind(std::string_view text, std::size_t at, char end) {
    while (at < text.size() && text[at] != end) at += text[at] == '\\' ? 2U : 1U;
    return std::min(at + 1, text.size());
}

void addFile(std::string_view name, ScriptEffects& effects) {
    while (name.starts_with(' ')) name.remove_prefix(1);
    while (name.ends_with(' ') || name.ends_with(';')) name.remove_suffix(1);
    if (!name.empty() && !name.starts_with("/dev/")) effects.files.emplace_back(name);
}

// Reads a sed script command by command.
class SedScript {
  public:
    SedScript(std::string_view text, ScriptEffects& effects) : text_(text), effects_(effects) {}

    void read() {
        while (at_ < text_.size()) {
            skipAddress();
            if (at_ < text_.size()) takeCommand(text_[at_++]);
        }
    }

  private:
    void skipAddress() {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '/')
                at_ = behind(text_, at_ + 1, '/');
            else if (c == '\\' && at_ + 1 < text_.size())
                at_ = behind(text_, at_ + 2, text_[at_ + 1]);
            else if (isDigit(c) || " \t\n;{},$!~+IM"sv.find(c) != none)
                ++at_;
            else
                return;
        }
    }

    void skipLine() { at_ = std::min(text_.find('\n', at_), text_.size()); }

    void takeCommand(char command) {
        switch (command) {
        case 's': return takeReplacement();
        case 'y': return skipParts();
        case 'w':
        case 'W': addFile(lineAt(text_, at_), effects_); return skipLine();
        case 'e': effects_.unknown = true; return;
        case 'a':
        case 'i':
        case 'c':
        case 'r':
        case 'R':
        case '#': return skipLine();
        case 'b':
        case 't':
        case 'T':
        case ':': at_ = std::min(text_.find_first_of("\n;}", at_), text_.size()); return;
        default: return;
        }
    }

    void skipParts() {
        if (at_ >= text_.size()) return;
        const char end = text_[at_];
        at_ = behind(text_, behind(text_, at_ + 1, end), end);
    }

    void takeReplacement() {
        skipParts();
        for (; at_ < text_.size(); ++at_) {
            const char flag = text_[at_];
            if (flag == 'e') effects_.unknown = true;
            if (flag == 'w') {
                addFile(lineAt(text_, at_ + 1), effects_);
                return skipLine();
            }
            if (!isDigit(flag) && "gpiImMe"sv.find(flag) == none) return;
        }
    }

    std::string_view text_;
    ScriptEffects& effects_;
    std::size_t at_ = 0;
};

// Reads an awk program: print > FILE, print | COMMAND, COMMAND | getline, system(COMMAND).
class AwkProgram {
  public:
    AwkProgram(std::string_view text, ScriptEffects& effects) : text_(text), effects_(effects) {}

    void read() {
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == ' ' || c == '\t') continue;
            if (isLetter(c))
                takeName();
            else
                takeOther(c);
            before_ = c;
        }
    }

  private:
    void takeName() {
        std::size_t end = at_;
        while (end < text_.size() && (isLetter(text_[end]) || isDigit(text_[end]))) ++end;
        const std::string_view name = text_.substr(at_, end - at_);
        if (name == "print" || name == "printf") {
            prints_ = true;
            depth_ = 0;
        }
        at_ = end - 1;
        if (name == "system" && end < text_.size()) takeText(text_.find_first_not_of(" (", end));
    }

    void takeOther(char c) {
        switch (c) {
        case '"':
            last_ = at_;
            at_ = behind(text_, at_ + 1, '"') - 1;
            return;
        case '/':
            if (before_ == 0 || "(,=!~&|{};\n"sv.find(before_) != none) at_ = behind(text_, at_ + 1, '/') - 1;
            return;
        case '#': at_ = std::min(text_.find('\n', at_), text_.size()) - 1; return;
        case '(': ++depth_; return;
        case ')': --depth_; return;
        case ';':
        case '\n':
        case '{':
        case '}': prints_ = false; return;
        case '>':
            if (prints_ && depth_ == 0) takeFile();
            return;
        case '|':
            if (text_.substr(at_ + 1).starts_with('|'))
                ++at_;
            else
                takePipe();
            return;
        case '@': effects_.unknown = true; return; // @include, @load, @name()
        default: return;
        }
    }

    // A text that is no part of a longer expression, without its quotes; none where there is no such text.
    [[nodiscard]] std::string_view textAt(std::size_t at) const {
        if (at >= text_.size() || text_[at] != '"') return {};
        const std::size_t end = behind(text_, at + 1, '"');
        const std::size_t next = text_.find_first_not_of(" \t", end);
        if (next != none && ";\n})|"sv.find(text_[next]) == none) return {};
        return text_.substr(at + 1, end - at - 2);
    }

    void takeFile() {
        if (text_.substr(at_ + 1).starts_with('>')) ++at_;
        const std::size_t at = text_.find_first_not_of(" \t", at_ + 1);
        const std::string_view name = textAt(at);
        if (name.empty()) effects_.unknown = true;
        addFile(name, effects_);
    }

    void takePipe() {
        const std::size_t next = text_.find_first_not_of(" \t&", at_ + 1);
        const bool reads = next != none && text_.substr(next).starts_with("getline");
        takeText(reads && before_ == '"' ? last_ : reads ? none : next);
    }

    void takeText(std::size_t at) {
        const std::string_view command = textAt(at);
        if (command.empty() || actOnText(command) != Act::nothing) effects_.unknown = true;
    }

    std::string_view text_;
    ScriptEffects& effects_;
    std::size_t at_ = 0;
    std::size_t last_ = 0; // where the last text began
    char before_ = 0;      // the character before, or the first one of the name before
    bool prints_ = false;
    int depth_ = 0; // of parentheses behind the print
};

// Commands of ed, ex and vim. Text that ed appends is taken for commands too, which only saves more.
void readEditorLine(std::string_view line, ScriptEffects& effects) {
    constexpr auto harmless = " q qa qall q! qa! quit quit! x xa wq wqa wq! w wa w! up s d m t j p n a i c u k l set "
                              "syntax syn retab sort noh "
                              "normal redo undo e edit bd bn argdo bufdo "sv;
    line.remove_prefix(std::min(line.find_first_not_of(" \t:0123456789,.$%;'+-"), line.size()));
    if (line.empty() || line[0] == '.') return;
    if (line[0] == '/' || line[0] == '?') return readEditorLine(line.substr(behind(line, 1, line[0])), effects);
    if (line[0] == 'g' || line[0] == 'v') {
        const std::size_t begin = line.find_first_not_of("gv!");
        if (begin == none || isLetter(line[begin])) effects.unknown = true;
        return begin == none ? void() : readEditorLine(line.substr(behind(line, begin + 1, line[begin])), effects);
    }
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    const std::string_view name = line.substr(0, end);
    const std::string_view rest = line.substr(std::min(line.find_first_not_of(" \t", end), line.size()));
    const bool writes =
        name == "w" || name == "w!" || name == "W" || name.starts_with("wri") || name.starts_with("sav");
    if (rest.starts_with('!') || line[0] == '!') effects.unknown = true;
    if (writes && !rest.starts_with('!'))
        addFile(rest, effects);
    else if (!listsWord(harmless, name) && !(name.size() > 1 && line[0] == 's' && !isLetter(line[1])))
        effects.unknown = effects.unknown || name.size() > 1;
}

void readDatabaseLine(std::string_view line, ScriptEffects& effects) {
    constexpr std::array writing = {".output "sv, ".once "sv, ".save "sv, ".backup "sv,
                                    ".clone "sv,  ".log "sv,  ".trace "sv};
    constexpr std::array running = {".sh"sv, ".sy"sv,   ".read"sv,   ".excel"sv, ".ar"sv,
                                    ".cd"sv, ".edit"sv, ".import"sv, ".load"sv};
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const auto begins = [&](std::string_view name) { return line.starts_with(name); };
    std::string lower(line);
    for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    for (const std::string_view call : {"writefile("sv, "attach"sv, "vacuum into"sv, "edit("sv, "load_extension("sv})
        if (lower.find(call) != none) effects.unknown = true;
    if (std::any_of(running.begin(), running.end(), begins)) effects.unknown = true;
    if (std::any_of(writing.begin(), writing.end(), begins)) addFile(line.substr(line.rfind(' ')), effects);
}

// Whether code names nothing but what the list holds, and opens no file to write.
bool namesOnly(std::string_view code, std::string_view names) {
    for (std::size_t at = 0; at < code.size();) {
        const char c = code[at];
        if (c == '\'' || c == '"' || c == '`') {
            const std::size_t end = behind(code, at + 1, c);
            const std::string_view text = code.substr(at + 1, end - at - 2);
            const bool isMode = text.size() < 4 && text.find_first_not_of("rwaxbt+") == none;
            if ((isMode && text.find_first_of("wax+") != none) || text.find('{') != none) return false;
            at = end;
        } else if (isLetter(c)) {
            std::size_t end = at;
            while (end < code.size() && (isLetter(code[end]) || isDigit(code[end]))) ++end;
            if (!listsWord(names, code.substr(at, end - at))) return false;
            at = end;
        } else {
            if (static_cast<unsigned char>(c) >= 0x80) return false;
            ++at;
        }
    }
    return true;
}

} // namespace

ScriptEffects sedEffects(std::span<const Word> arguments) {
    ScriptEffects effects;
    bool hasScript = false;
    const Word* first = nullptr;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string_view text = arguments[index].text;
        const bool isOption = text.size() > 1 && text[0] == '-';
        const bool isLong = isOption && text[1] == '-';
        const std::size_t letter = isOption && !isLong ? text.find_first_of("ef", 1) : none;
        if (!isOption && first == nullptr) first = &arguments[index];
        if ((letter != none && text[letter] == 'f') || text.starts_with("--file")) effects.unknown = true;
        if (letter == none && !text.starts_with("--expression")) continue;
        hasScript = true;
        const std::size_t value = isLong ? text.find('=') : letter;
        if (value != none && value + 1 < text.size())
            SedScript(text.substr(value + 1), effects).read();
        else if (++index < arguments.size())
            SedScript(arguments[index].text, effects).read();
    }
    if (!hasScript && first != nullptr) SedScript(first->text, effects).read();
    return effects;
}

void readScript(Language language, std::string_view text, ScriptEffects& effects) {
    if (language == Language::awk) return AwkProgram(text, effects).read();
    for (std::size_t at = 0; at < text.size(); at += lineAt(text, at).size() + 1) {
        if (language == Language::editor)
            readEditorLine(lineAt(text, at), effects);
        else
            readDatabaseLine(lineAt(text, at), effects);
    }
}

bool pythonOnlyPrints(std::string_view code) {
    return namesOnly(code,
                     " print import from as json sys math re platform datetime time len str int float sum min max "
                     "sorted range list dict set tuple round abs repr enumerate zip for in if else and or not is "
                     "None True False version version_info executable path prefix load loads dumps indent open "
                     "read readlines splitlines strip split join keys values items get format upper lower "
                     "stdin argv pi sqrt now today ");
}

bool javaScriptOnlyPrints(std::string_view code) {
    return namesOnly(code, " console log JSON stringify parse process version versions env platform arch argv cwd Math "
                           "max min round floor sqrt PI Date now new toISOString node v8 null true false undefined "
                           "typeof Number String Object keys length join split map filter ");
}

} // namespace tidewrack::shell
