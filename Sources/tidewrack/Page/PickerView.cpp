#include "Page/PickerView.hpp"

#include "Support/Text.hpp"

#include <ftxui/component/component.hpp>
#include <ftxui/component/event.hpp>
#include <ftxui/component/screen_interactive.hpp>
#include <ftxui/dom/elements.hpp>
#include <ftxui/screen/terminal.hpp>

#include <algorithm>
#include <cstdlib>

namespace tidewrack::page {

namespace {

using ftxui::color;
using ftxui::Color;
using ftxui::Element;
using ftxui::Elements;
using ftxui::text;

constexpr std::size_t narrow = 90; // columns; below it one side is drawn at a time
constexpr std::size_t low = 18;    // lines; below it the files or the lines are drawn
constexpr std::size_t mostFilesSeen = 8;
constexpr std::size_t frame = 3; // lines at the top and at the bottom

struct Size {
    std::size_t columns, lines;
};

Size terminalSize() {
    const auto size = ftxui::Terminal::Size();
    return {static_cast<std::size_t>(std::max(size.dimx, 20)), static_cast<std::size_t>(std::max(size.dimy, 8))};
}

// Only the elements in sight are made: thousands cost no more than a screenful.
template <typename Draw>
Element window(std::size_t count, std::size_t at, std::size_t height, const Draw& draw) {
    const std::size_t first = at < height / 2 ? 0 : std::min(at - height / 2, count > height ? count - height : 0);
    Elements elements;
    for (std::size_t each = first; each < std::min(count, first + height); ++each) elements.push_back(draw(each));
    return ftxui::vbox(std::move(elements));
}

Element marked(Element element, bool isChosen, bool hasFocus) {
    if (!isChosen) return element;
    return hasFocus ? std::move(element) | ftxui::inverted : std::move(element) | ftxui::bold;
}

Element rowsPane(const PickerState& state, std::size_t height) {
    return window(state.passing.size(), state.row, height, [&](std::size_t each) {
        const PickerRow& row = state.rows[state.passing[each]];
        Element title = text(row.title) | ftxui::flex_shrink;
        if (row.isUndone) title = std::move(title) | ftxui::strikethrough;
        Element line = ftxui::hbox({text(row.when + " ") | ftxui::dim, text(row.agent.empty() ? "" : row.agent + " "),
                                    std::move(title), ftxui::filler(), text(" " + row.counts + " ")});
        return marked(std::move(line), each == state.row, state.pane == Pane::rows);
    });
}

Element markText(char mark) {
    const Color tint = mark == '+' ? Color::Green : mark == '-' ? Color::Red : Color::Yellow;
    return text(std::string(1, mark) + " ") | color(tint);
}

Element lineElement(const PickerLine& line) {
    using Kind = PickerLine::Kind;
    switch (line.kind) {
    case Kind::heading: return text(line.text) | ftxui::dim;
    case Kind::added: return text(line.text) | color(Color::Green);
    case Kind::removed: return text(line.text) | color(Color::Red);
    case Kind::same: break;
    }
    return text(line.text);
}

Element filesWindow(const PickerState& state, std::size_t height) {
    if (state.files.empty()) return text("No file changed.") | ftxui::dim;
    return window(state.files.size(), state.file, height, [&](std::size_t each) {
        const PickerFile& file = state.files[each];
        return marked(ftxui::hbox({markText(file.mark), text(escapedControls(file.path))}), each == state.file,
                      state.pane == Pane::files);
    });
}

Element linesWindow(const PickerState& state, std::size_t height) {
    return window(state.lines.size(), state.line, height, [&](std::size_t each) {
        return marked(lineElement(state.lines[each]), each == state.line, state.pane == Pane::lines);
    });
}

Element chosenPane(const PickerState& state, std::size_t height) {
    const PickerRow* row = state.chosen();
    if (row == nullptr) return text("No row has that.") | ftxui::dim;
    if (height < low) { // what the keys are about, alone
        const bool ofLines = state.pane == Pane::lines && !state.files.empty();
        return ftxui::vbox({text(ofLines ? escapedControls(state.files[state.file].path) : row->title) | ftxui::bold,
                            ofLines ? linesWindow(state, height - 1) : filesWindow(state, height - 1)});
    }
    Elements all{text(row->title) | ftxui::bold,
                 text(state.command + (row->isUndone ? "   taken back" : "")) | ftxui::dim};
    for (const std::string& command : row->commands)
        if (all.size() < 6) all.push_back(text("$ " + command));
    all.push_back(ftxui::separatorLight());
    const std::size_t files = std::clamp<std::size_t>(state.files.size(), 1, mostFilesSeen);
    all.push_back(filesWindow(state, files));
    all.push_back(ftxui::separatorLight());
    const std::size_t used = all.size() - 1 + files;
    all.push_back(linesWindow(state, height > used ? height - used : 1));
    return ftxui::vbox(std::move(all));
}

Element keysLine(const PickerState& state, bool isNarrow) {
    if (state.preview) return text(state.preview->acts ? " y do it   n leave it   j k scroll" : " n back   j k scroll");
    if (state.isFiltering) return text(" Words: " + state.filter + "▏ Enter keeps them, Esc drops them");
    const std::string what = state.pane == Pane::rows    ? "turn"
                             : state.pane == Pane::files ? "file"
                             : state.hunk() > 0          ? "hunk"
                                                         : "file";
    if (isNarrow) return text(" Enter read  Esc back  q end  u undo " + what + "  r redo  / filter") | ftxui::dim;
    return text(" j k move   Enter read   Esc back   u undo this " + what + "   r redo   / filter   q end") |
           ftxui::dim;
}

Element previewBox(const Preview& preview, std::size_t height) {
    Elements lines{text(preview.title) | ftxui::bold};
    const std::size_t room = height > 5 ? height - 5 : 1; // without frame, title and the rest's number
    const std::size_t end = std::min(preview.lines.size(), preview.at + room);
    for (std::size_t at = preview.at; at < end; ++at) lines.push_back(lineElement(preview.lines[at]));
    if (end < preview.lines.size())
        lines.push_back(text("… " + std::to_string(preview.lines.size() - end) + " more lines: j") | ftxui::dim);
    return ftxui::vbox(std::move(lines)) | ftxui::border | ftxui::clear_under | ftxui::center;
}

Element drawn(const Picker& picker) {
    const PickerState& state = picker.state();
    const Size size = terminalSize();
    const std::size_t height = size.lines - frame;
    Element body;
    const bool isNarrow = size.columns < narrow;
    if (isNarrow)
        body = state.pane == Pane::rows ? rowsPane(state, height) : chosenPane(state, height);
    else
        body = ftxui::hbox(
            {rowsPane(state, height) | ftxui::size(ftxui::WIDTH, ftxui::EQUAL, static_cast<int>(size.columns * 2 / 5)),
             ftxui::separatorLight(), text(" "), chosenPane(state, height) | ftxui::flex});
    const std::string filter = state.filter.empty() ? "" : " with \"" + state.filter + "\"";
    Element page = ftxui::vbox(
        {ftxui::hbox(
             {text(" Tidewrack ") | ftxui::bold, text(escapedControls(picker.root())),
              text("  " + countText(static_cast<std::int64_t>(state.passing.size()), "row") + filter) | ftxui::dim}),
         std::move(body) | ftxui::flex, text(" " + state.message) | ftxui::bold, keysLine(state, isNarrow)});
    return state.preview ? ftxui::dbox({std::move(page), previewBox(*state.preview, size.lines)}) : page;
}

std::string keyOf(const ftxui::Event& event) {
    using ftxui::Event;
    static const std::pair<Event, const char*> named[] = {
        {Event::ArrowUp, "up"},       {Event::ArrowDown, "down"},
        {Event::Return, "enter"},     {Event::Escape, "escape"},
        {Event::Tab, "tab"},          {Event::ArrowLeft, "left"},
        {Event::ArrowRight, "right"}, {Event::Backspace, "backspace"},
        {Event::Home, "home"},        {Event::End, "end"},
        {Event::PageUp, "pageup"},    {Event::PageDown, "pagedown"},
    };
    for (const auto& [known, name] : named)
        if (event == known) return name;
    if (event.input() == "\x1b\x1b") return "escape"; // pressed twice at once
    return event.is_character() ? event.character() : "";
}

} // namespace

void showPicker(Picker& picker) {
    if (const char* none = std::getenv("NO_COLOR"); none != nullptr && *none != '\0')
        ftxui::Terminal::SetColorSupport(ftxui::Terminal::Color::Palette1);
    auto screen = ftxui::ScreenInteractive::Fullscreen();
    screen.TrackMouse(false);
    const auto page = ftxui::Renderer([&] {
        picker.settle();
        return drawn(picker);
    });
    const auto keys = ftxui::CatchEvent(page, [&](const ftxui::Event& event) {
        const std::string key = keyOf(event);
        if (key.empty()) return false;
        if (!picker.press(key, terminalSize().lines - frame)) screen.Exit();
        return true;
    });
    picker.load();
    screen.Loop(keys);
}

} // namespace tidewrack::page
