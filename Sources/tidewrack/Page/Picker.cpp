#include "Page/Picker.hpp"

#include "Support/Dates.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <string_view>

namespace tidewrack::page {

namespace {

using nlohmann::json;

constexpr std::size_t longest = 1000; // characters of a line that are drawn

// A terminal must not obey what others chose.
std::string shown(const json& text) {
    return text.is_string() ? escapedControls(text.get<std::string>()) : std::string();
}

std::string numberText(const json& number) {
    return std::to_string(number.get<std::int64_t>());
}

// Of today the time, else the day.
std::string whenText(const json& began) {
    const auto date = began.is_string() ? parseIsoDate(began.get<std::string>()) : std::nullopt;
    if (!date) return "";
    const std::time_t then = std::chrono::system_clock::to_time_t(*date);
    const std::time_t today = std::chrono::system_clock::to_time_t(now());
    std::tm parts{};
    std::tm current{};
    (void)::localtime_r(&then, &parts);
    (void)::localtime_r(&today, &current);
    const bool isToday = parts.tm_year == current.tm_year && parts.tm_yday == current.tm_yday;
    char text[16];
    const std::size_t size = std::strftime(text, sizeof text, isToday ? "%H:%M" : "%d %b", &parts);
    return {text, size};
}

std::string countsText(const json& row) {
    std::string text;
    for (const auto& [name, sign] : {std::pair("added", '+'), {"modified", '~'}, {"deleted", '-'}})
        if (row[name] > 0) text += (text.empty() ? "" : " ") + std::string(1, sign) + numberText(row[name]);
    return text;
}

std::string titleText(const json& row) {
    std::string title = shown(row["title"]);
    if (!title.empty()) return title;
    const std::string type = row["type"];
    if (type == "turn") return "A turn without a prompt";
    if (type == "outside") return "Changes outside of turns";
    if (type == "manual") return "A snapshot by hand";
    return type == "undo" ? "An undo" : "A restore";
}

PickerRow rowOf(const json& row) {
    PickerRow result{.title = titleText(row),
                     .agent = row.contains("agent") ? shown(row["agent"]) : "",
                     .when = whenText(row["began"]),
                     .counts = countsText(row),
                     .words = {},
                     .first = numberText(row["first"]),
                     .last = numberText(row["last"]),
                     .commands = {},
                     .isTurn = row["type"] == "turn",
                     .isUndone = row["undone"] == true};
    std::string words = result.title + "\n" + result.agent;
    for (const json& each : row["commands"]) {
        const std::string verdict = shown(each.value("verdict", json()));
        result.commands.push_back((verdict.empty() ? "" : verdict + ": ") + shown(each["command"]));
        words += "\n" + result.commands.back();
    }
    result.words = lowercased(words);
    return result;
}

Values spanOf(const PickerRow& row) {
    if (row.isTurn) return {{"turn", row.first}};
    return {{"from", row.first}, {"to", row.last}};
}

json undoOf(const PickerRow& row) {
    json wish{{"act", "undo"}};
    for (const auto& [name, value] : spanOf(row)) wish[name] = std::stoull(value);
    return wish;
}

using Kind = PickerLine::Kind;

void addHunk(const json& hunk, std::size_t number, std::vector<PickerLine>& lines) {
    const json& begin = hunk["newBegin"] > 0 ? hunk["newBegin"] : hunk["oldBegin"];
    lines.push_back({Kind::heading, "Hunk " + std::to_string(number) + ", line " + numberText(begin), number});
    for (const json& one : hunk["lines"]) {
        std::string text = one;
        const Kind kind = text[0] == '+' ? Kind::added : text[0] == '-' ? Kind::removed : Kind::same;
        if (text.ends_with('\n')) text.pop_back();
        text = escapedControls(firstCharacters(text, longest), Tabs::kept);
        for (std::size_t at = 0; (at = text.find('\t', at)) != std::string::npos; at += 4) text.replace(at, 1, "    ");
        lines.push_back({kind, std::move(text), number});
    }
}

// What a dry run told, or what was done.
struct Told {
    std::vector<PickerLine> lines;
    std::size_t done = 0;
    std::size_t left = 0; // for a reason, or with a warning
};

Told toldOf(const json& result) {
    Told told;
    const auto warn = [&](const json& warning) {
        told.lines.push_back({Kind::heading, shown(warning)});
        ++told.left;
    };
    const json projects = result.value("projects", json::array());
    for (const json& project : projects) {
        if (projects.size() > 1) told.lines.push_back({Kind::heading, "in " + shown(project["root"]) + ":"});
        for (const json& each : project["actions"]) {
            const std::string what = each["action"];
            const std::string why = shown(each.value("reason", json()));
            const bool isLeft = what == "leave" || what == "keep";
            ++(isLeft ? told.left : told.done);
            told.lines.push_back({isLeft ? Kind::heading : Kind::same,
                                  what + "  " + shown(each["path"]) + (why.empty() ? "" : "  (" + why + ")")});
        }
        for (const json& warning : project["warnings"]) warn(warning);
    }
    for (const json& warning : result.value("warnings", json::array())) warn(warning);
    return told;
}

bool isMove(std::string_view key) {
    static constexpr std::string_view moves[] = {"home", "g", "end", "G", "down", "j", "pagedown", "up", "k", "pageup"};
    return std::find(std::begin(moves), std::end(moves), key) != std::end(moves);
}

} // namespace

std::optional<json> Picker::read(const char* name, const Values& values) {
    const auto command = reading(name, values);
    if (!command) return std::nullopt;
    const Ran ran = desk_.run(*command);
    auto document = parseJson(ran.out);
    if (!document)
        state_.message = escapedControls(ran.err);
    else
        state_.command = escapedControls(command->shown());
    return document;
}

void Picker::load() {
    const auto timeline = read("timeline", asked_);
    if (!timeline) return;
    const std::string chosen = chosenNumber();
    state_.rows.clear();
    for (const json& row : (*timeline)["rows"]) state_.rows.push_back(rowOf(row));
    filter(chosen);
}

std::string Picker::chosenNumber() const {
    const PickerRow* row = state_.chosen();
    return row == nullptr ? "" : row->first;
}

void Picker::settle() {
    if (!isRowRead_) showRow();
    if (!isFileRead_) showFile();
    isRowRead_ = isFileRead_ = true;
}

void Picker::filter(const std::string& chosen) {
    const std::string wanted = lowercased(state_.filter);
    state_.passing.clear();
    state_.row = 0;
    isRowRead_ = false;
    for (std::size_t at = 0; at < state_.rows.size(); ++at) {
        if (state_.rows[at].words.find(wanted) == std::string::npos) continue;
        if (state_.rows[at].first == chosen) state_.row = state_.passing.size();
        state_.passing.push_back(at);
    }
}

void Picker::showRow() {
    // After an act the same file may be there again.
    const std::string path = state_.file < state_.files.size() ? state_.files[state_.file].path : "";
    state_.files.clear();
    state_.file = 0;
    isFileRead_ = false;
    const PickerRow* row = state_.chosen();
    if (row == nullptr) return;
    const auto document = read(row->isTurn ? "show" : "changes", spanOf(*row));
    if (!document) return;
    const json& changes = row->isTurn ? (*document)["changes"] : *document;
    const std::vector<std::string> folders = changes["folders"];
    for (const auto& [name, mark] : {std::pair("deleted", '-'), {"modified", '~'}, {"added", '+'}})
        for (const std::string each : changes[name])
            if (!std::binary_search(folders.begin(), folders.end(), each)) {
                if (each == path) state_.file = state_.files.size();
                state_.files.push_back({mark, each});
            }
}

void Picker::showFile() {
    const std::size_t line = state_.line;
    state_.lines.clear();
    state_.line = 0;
    hunks_.clear();
    if (state_.files.empty()) return;
    Values values = spanOf(*state_.chosen());
    values["path"] = state_.files[state_.file].path;
    const auto document = read("lines", values);
    if (!document) return;
    const json& files = (*document)["files"];
    for (const json& file : files) {
        if (file.contains("note"))
            state_.lines.push_back({Kind::heading, "No lines to show: " + shown(file["note"]) + "."});
        std::size_t number = 0;
        for (const json& hunk : file["hunks"]) {
            addHunk(hunk, ++number, state_.lines);
            hunks_.push_back({{"number", number}, {"digest", hunk["digest"]}});
        }
    }
    if (state_.pane == Pane::lines && !state_.lines.empty()) state_.line = std::min(line, state_.lines.size() - 1);
    // Where it changed in several stretches, or is new or gone, no hunk can be named.
    if (files.size() != 1 || state_.files[state_.file].mark != '~')
        for (PickerLine& each : state_.lines) each.hunk = 0;
}

void Picker::move(const std::string& key, std::size_t page) {
    const bool ofRows = state_.pane == Pane::rows;
    const bool ofFiles = state_.pane == Pane::files;
    std::size_t& at = ofRows ? state_.row : ofFiles ? state_.file : state_.line;
    const std::size_t count = ofRows ? state_.passing.size() : ofFiles ? state_.files.size() : state_.lines.size();
    const std::size_t before = at;
    const std::size_t last = count == 0 ? 0 : count - 1;
    const std::size_t step = key == "pageup" || key == "pagedown" ? page : 1;
    if (key == "home" || key == "g")
        at = 0;
    else if (key == "end" || key == "G")
        at = last;
    else if (key == "down" || key == "j" || key == "pagedown")
        at = std::min(last, at + step);
    else if (key == "up" || key == "k" || key == "pageup")
        at -= std::min(at, step);
    if (at == before) return;
    if (ofRows) isRowRead_ = false;
    if (ofFiles) isFileRead_ = false;
}

void Picker::filterBy(const std::string& key) {
    const std::string chosen = chosenNumber();
    if (key == "enter" || key == "escape") {
        state_.isFiltering = false;
        if (key == "enter") return;
        state_.filter.clear();
    } else if (key == "backspace") {
        if (!state_.filter.empty()) state_.filter.pop_back();
        while (!isUtf8(state_.filter)) state_.filter.pop_back();
    } else if (characterCount(key) == 1) {
        state_.filter += key;
    } else {
        return;
    }
    filter(chosen);
}

void Picker::look(const std::string& title, const json& wish) {
    Preview preview{.title = title, .act = actOf(wish)};
    try {
        const Foreseen foreseen = desk_.foresee(preview.act);
        if (foreseen.told.is_discarded()) {
            state_.message = escapedControls(foreseen.dry.err);
            return;
        }
        Told told = toldOf(foreseen.told);
        preview.acts = told.done > 0;
        preview.lines.push_back({Kind::heading, escapedControls(preview.act.command.shown())});
        preview.lines.insert(preview.lines.end(), told.lines.begin(), told.lines.end());
        if (!preview.acts) preview.lines.push_back({Kind::heading, "There is nothing that this would do."});
        for (std::size_t at = 0; at < foreseen.hunks.size(); ++at)
            addHunk(foreseen.hunks[at], preview.act.hunks[at].number, preview.lines);
        preview.identity = foreseen.identity;
        state_.preview = std::move(preview);
    } catch (const OtherHunk& other) {
        state_.message = other.what();
    }
}

// Of what has the focus: the turn, the file, the hunk.
void Picker::lookAtUndo() {
    const PickerRow* row = state_.chosen();
    if (row == nullptr) return;
    json wish = undoOf(*row);
    std::string title = "Undo: " + row->title;
    if (state_.pane != Pane::rows && !state_.files.empty()) {
        const std::string& path = state_.files[state_.file].path;
        wish["paths"] = {path};
        title = "Undo " + escapedControls(path);
        if (state_.pane == Pane::lines && state_.hunk() > 0) {
            wish["hunks"] = json::array({hunks_[state_.hunk() - 1]});
            title = "Undo hunk " + std::to_string(state_.hunk()) + " of " + escapedControls(path);
        }
    }
    look(title, wish);
}

void Picker::answerPreview(const std::string& key, std::size_t page) {
    Preview& preview = *state_.preview;
    const std::size_t last = preview.lines.size() - 1;
    if (key == "y" && preview.acts) {
        const Preview chosen = std::move(preview);
        state_.preview.reset();
        carryOut(chosen);
    } else if (key == "n" || key == "q" || key == "escape" || (key == "enter" && !preview.acts)) {
        state_.preview.reset();
    } else if (key == "j" || key == "down") {
        preview.at = std::min(last, preview.at + 1);
    } else if (key == "k" || key == "up") {
        preview.at -= std::min<std::size_t>(preview.at, 1);
    } else if (key == "pagedown" || key == " ") {
        preview.at = std::min(last, preview.at + page);
    } else if (key == "pageup") {
        preview.at -= std::min(preview.at, page);
    }
}

void Picker::carryOut(const Preview& preview) {
    std::optional<Ran> ran;
    try {
        ran = desk_.carryOut(preview.act, preview.identity);
    } catch (const OtherHunk&) {
        ran.reset();
    }
    load();
    if (!ran) {
        state_.message = "More was changed meanwhile; nothing was done. Look at it again.";
        return;
    }
    const auto result = parseJson(ran->out);
    if (!result) {
        state_.message = escapedControls(ran->err);
        return;
    }
    Told told = toldOf(*result);
    const bool isRedo = preview.act.command.words[0] == "redo";
    state_.message = told.done == 0 ? "Nothing was done." : isRedo ? "Done." : "Done. To take this back: r";
    if (told.left > 0)
        state_.preview = Preview{.title = state_.message + " These were left alone:", .lines = std::move(told.lines)};
}

bool Picker::press(const std::string& key, std::size_t page) {
    if (!isMove(key)) settle(); // what the key is about
    state_.message.clear();
    const bool leavesRows = key == "escape" && state_.pane == Pane::rows;
    if (state_.preview) {
        answerPreview(key, page);
    } else if (state_.isFiltering || (leavesRows && !state_.filter.empty())) {
        filterBy(key);
    } else if (key == "q" || leavesRows) {
        return false;
    } else if (key == "escape" || key == "left") {
        state_.pane = state_.pane == Pane::lines ? Pane::files : Pane::rows;
    } else if (key == "tab" || key == "enter" || key == "right") {
        const bool wraps = key == "tab" && state_.pane == Pane::lines;
        state_.pane = wraps ? Pane::rows : state_.pane == Pane::rows ? Pane::files : Pane::lines;
    } else if (key == "/") {
        state_.isFiltering = true;
        state_.pane = Pane::rows;
    } else if (key == "u") {
        lookAtUndo();
    } else if (key == "r") {
        look("Take back the latest undo", {{"act", "redo"}});
    } else {
        move(key, page);
    }
    return true;
}

} // namespace tidewrack::page
