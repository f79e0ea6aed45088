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

// The place behind the text that `end` closes, in which backslashes escape; none where nothing closes it.
std::size_t behind(std::string_view text, std::size_t at, char end) {
    while (at < text.size() && text[at] != end) at += text[at] == '\\' ? 2U : 1U;
    return at < text.size() ? at + 1 : none;
}

// Where the brackets that begin at `at` end in a regular expression; none where they don't.
std::size_t endOfBrackets(std::string_view text, std::size_t at) {
    ++at;
    if (text.substr(at).starts_with('^')) ++at;
    if (text.substr(at).starts_with(']')) ++at; // which stands for itself there
    for (; at < text.size() && text[at] != ']'; ++at) {
        const char next = at + 1 < text.size() ? text[at + 1] : ' ';
        if (text[at] != '[' || ":.="sv.find(next) == none) continue;
        const char close[] = {next, ']'};
        at = text.find(std::string_view(close, 2), at + 2);
        if (at == none) return none;
        ++at;
    }
    return at < text.size() ? at : none;
}

// Like behind(), for a regular expression, whose brackets may hold its end.
std::size_t behindExpression(std::string_view text, std::size_t at, char end) {
    for (; at < text.size() && text[at] != end; ++at) {
        if (text[at] == '\\')
            ++at;
        else if (text[at] == '[')
            at = endOfBrackets(text, at);
        if (at == none) return none;
    }
    return at < text.size() ? at + 1 : none;
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
    // What does not end is not understood: whatever looks like a file that is written may be one.
    void goTo(std::size_t at) {
        if (at == none) {
            effects_.unknown = true;
            std::size_t name = text_.find("w ", at_);
            for (int count = 0; name != none && count < 8; ++count, name = text_.find("w ", name + 1))
                addFile(lineAt(text_, name + 1), effects_);
        }
        at_ = std::min(at, text_.size());
    }

    void skipAddress() {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '/')
                goTo(behindExpression(text_, at_ + 1, '/'));
            else if (c == '\\' && at_ + 1 < text_.size())
                goTo(behindExpression(text_, at_ + 2, text_[at_ + 1]));
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
        case 'y': return skipParts(behind);
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

    template <typename Skip>
    void skipParts(Skip behindFirst) {
        if (at_ >= text_.size()) return;
        const char end = text_[at_];
        const std::size_t second = behindFirst(text_, at_ + 1, end);
        goTo(second == none ? none : behind(text_, second, end));
    }

    void takeReplacement() {
        skipParts(behindExpression);
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
            before_ = isLetter(c) ? takeName() : takeOther(c);
        }
    }

  private:
    // What counts as the character before what follows: behind some names only an operand can stand.
    char takeName() {
        std::size_t end = at_;
        while (end < text_.size() && (isLetter(text_[end]) || isDigit(text_[end]))) ++end;
        const std::string_view name = text_.substr(at_, end - at_);
        if (name == "print" || name == "printf") {
            prints_ = true;
            depth_ = 0;
        }
        at_ = end - 1;
        if (name == "system" && end < text_.size()) takeText(text_.find_first_not_of(" (", end));
        return listsWord(" return print printf in case getline do else exit ", name) ? '(' : name.front();
    }

    // A text or expression that does not end is not understood.
    void goBehind(std::size_t end) {
        effects_.unknown = effects_.unknown || end == none;
        at_ = std::min(end, text_.size()) - 1;
    }

    char takeOther(char c) {
        takeSign(c);
        return c;
    }

    void takeSign(char c) {
        switch (c) {
        case '"':
            last_ = at_;
            goBehind(behind(text_, at_ + 1, '"'));
            return;
        case '/':
            if (before_ == 0 || "(,=!~&|{};?:<>*%^[\n"sv.find(before_) != none)
                goBehind(behindExpression(text_, at_ + 1, '/'));
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
        if (end == none) return {};
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

std::string_view restFrom(std::string_view line, std::size_t at) {
    return line.substr(std::min(at, line.size()));
}

// Takes the first command of a line for ed, ex or vim, and returns what is to be read behind it.
std::string_view takeEditorCommand(std::string_view line, ScriptEffects& effects) {
    constexpr auto harmless = " q qa qall q! qa! quit quit! x xa wq wqa wq! w wa w! up s d m t j p n a i c u k l set "
                              "syntax syn retab sort noh "
                              "redo undo bd bn "sv;
    line.remove_prefix(std::min(line.find_first_not_of(" \t:0123456789,.$%;'+-|"), line.size()));
    if (line.empty() || line[0] == '.') return {};
    if (line[0] == '/' || line[0] == '?') return restFrom(line, behind(line, 1, line[0]));
    if (line[0] == 'g' || line[0] == 'v') {
        const std::size_t begin = line.find_first_not_of("gv!");
        if (begin == none || isLetter(line[begin])) effects.unknown = true;
        return begin == none ? ""sv : restFrom(line, behind(line, begin + 1, line[begin]));
    }
    const bool replaces = line.size() > 1 && line[0] == 's' && !isLetter(line[1]) && line[1] != ' ';
    std::size_t parts = replaces ? behind(line, 2, line[1]) : 0;
    if (replaces && parts != none) parts = behind(line, parts, line[1]);
    const std::size_t end = std::min(line.find_first_of(" \t|"), line.size());
    const std::string_view name = line.substr(0, end);
    if (name == "argdo" || name == "bufdo") return line.substr(end);
    const std::size_t next = parts == none ? none : behind(line, parts, '|');
    const std::string_view after = restFrom(line, next);
    if (next != none) line = line.substr(0, next - 1);
    const std::string_view rest = line.substr(std::min(line.find_first_not_of(" \t", end), line.size()));
    const bool writes =
        name == "w" || name == "w!" || name == "W" || name.starts_with("wri") || name.starts_with("sav");
    const bool edits = name == "e" || name == "e!" || name == "edit" || name == "edit!";
    if (rest.starts_with('!') || line[0] == '!') effects.unknown = true;
    if (edits && rest.starts_with('+')) effects.unknown = true; // it runs a command
    if ((writes || edits) && !rest.starts_with('!'))
        addFile(rest, effects);
    else if (!replaces && !listsWord(harmless, name))
        effects.unknown = effects.unknown || name.size() > 1;
    return after;
}

// Text that ed appends is taken for commands too, which only saves more.
void readEditorLine(std::string_view line, ScriptEffects& effects) {
    while (!line.empty()) line = takeEditorCommand(line, effects);
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

// Whether the code gives a value to the name that stands at this place, which is no part of something else there.
bool isOwnName(std::string_view code, std::size_t at, std::string_view name) {
    if (at > 0 && code[at - 1] == '.') return false;
    for (std::size_t place = code.find(name); place != none; place = code.find(name, place + 1)) {
        const char before = place > 0 ? code[place - 1] : ' ';
        const std::size_t next = code.find_first_not_of(' ', place + name.size());
        if (isLetter(before) || isDigit(before) || before == '.' || next == none) continue;
        if (code[next] == '=' && code.substr(next + 1, 1) != "=") return true;
    }
    return false;
}

// Whether a JSON file is loaded here, which runs nothing.
bool isLoadedJson(std::string_view code, std::size_t at) {
    if (!code.substr(at).starts_with("require('") && !code.substr(at).starts_with("require(\"")) return false;
    const std::size_t end = behind(code, at + 9, code[at + 8]);
    return end != none && code.substr(0, end - 1).ends_with(".json") && code.substr(end).starts_with(')');
}

// Whether code names nothing but what the list holds and values of its own, opens no file to write, and imports none
// but these modules.
bool namesOnly(std::string_view code, std::string_view names, std::string_view modules = {}) {
    bool imports = false;
    for (std::size_t at = 0; at < code.size();) {
        const char c = code[at];
        if (c == '\'' || c == '"' || c == '`') {
            const std::size_t end = behind(code, at + 1, c);
            if (end == none) return false;
            const std::string_view text = code.substr(at + 1, end - at - 2);
            const bool isMode = text.size() < 4 && text.find_first_not_of("rwaxbt+") == none;
            if ((isMode && text.find_first_of("wax+") != none) || text.find_first_of("{\\") != none) return false;
            at = end;
        } else if (isLetter(c)) {
            std::size_t end = at;
            while (end < code.size() && (isLetter(code[end]) || isDigit(code[end]))) ++end;
            const std::string_view name = code.substr(at, end - at);
            const bool isNamed = listsWord(names, name) || (!imports && isOwnName(code, at, name));
            if (!isNamed && !isLoadedJson(code, at)) return false;
            const bool isModule = name != "import" && name != "from" && name != "as";
            if (imports && isModule && !listsWord(modules, name)) return false;
            // What stands behind "from json import" is no module.
            if (!isModule && name != "as") imports = name == "from" || !imports;
            at = end;
        } else {
            if (static_cast<unsigned char>(c) >= 0x80) return false;
            if (c == ';' || c == '\n') imports = false;
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
        std::size_t letter = isOption && !isLong ? text.find_first_of("efil", 1) : none;
        // Behind -i stands the ending of a copy; behind -l a number may.
        const bool takesNumber = text == "--line-length" || (letter != none && text[letter] == 'l');
        if (takesNumber && (isLong || letter + 1 == text.size()) && index + 1 < arguments.size())
            index += arguments[index + 1].text.find_first_not_of("0123456789") == none ? 1U : 0U;
        if (letter != none && (text[letter] == 'i' || text[letter] == 'l')) letter = none;
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
                     "stdin argv pi sqrt now today ",
                     " json sys math re platform datetime time ");
}

bool javaScriptOnlyPrints(std::string_view code) {
    return namesOnly(code, " console log JSON stringify parse process version versions env platform arch argv cwd Math "
                           "max min round floor sqrt PI Date now new toISOString node v8 null true false undefined "
                           "typeof Number String Object keys length join split map filter const let var ");
}

} // namespace tidewrack::shell
