#pragma once
// What the picker in the terminal shows, and what its keys do. How it is drawn is PickerView's.

#include "Page/Acts.hpp"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack::page {

enum class Pane { rows, files, lines };

struct PickerRow { // of the timeline
    std::string title, agent, when;
    std::string counts; // "+1 ~2 -3"
    std::string words;  // what a filter looks through, in lower case
    std::string first, last;
    std::vector<std::string> commands; // with their verdicts
    bool isTurn = false;
    bool isUndone = false;
};

struct PickerFile {
    char mark = '~'; // or + and -
    std::string path;
};

struct PickerLine {
    enum class Kind { heading, same, added, removed };

    Kind kind = Kind::same;
    std::string text;
    std::size_t hunk = 0; // the number of its hunk, from 1; 0: of none
};

// What would be done, or why not all of it was done.
struct Preview {
    std::string title;
    std::vector<PickerLine> lines;
    std::size_t at = 0; // the first line in sight
    bool acts = false;  // else there is nothing to say yes to
    Act act;
    std::string identity;
};

struct PickerState {
    std::vector<PickerRow> rows;
    std::vector<std::size_t> passing; // the rows that the filter lets through, by index
    std::vector<PickerFile> files;    // of the chosen row
    std::vector<PickerLine> lines;    // of the chosen file
    std::size_t row = 0;              // in `passing`
    std::size_t file = 0;
    std::size_t line = 0;
    Pane pane = Pane::rows;
    std::string filter;
    bool isFiltering = false; // letters go to the filter
    std::optional<Preview> preview;
    std::string message;
    std::string command; // what prints the same as is shown of the row

    // None where no row passes.
    [[nodiscard]] const PickerRow* chosen() const { return passing.empty() ? nullptr : &rows[passing[row]]; }
    [[nodiscard]] std::size_t hunk() const { return line < lines.size() ? lines[line].hunk : 0; }
};

class Picker {
  public:
    // `asked`: which rows of the timeline, as the page asks for them.
    Picker(Desk desk, Values asked) : desk_(std::move(desk)), asked_(std::move(asked)) {}

    // Reads the timeline; where that goes wrong the message tells. The newest row is chosen.
    void load();
    // Reads what belongs to the chosen row and file. Of those that keys only pass over, nothing is read.
    void settle();
    // A key by its letter, or by name: up, down, left, right, enter, escape, tab, backspace, home, end, pageup,
    // pagedown. `page`: how many lines one of the last two moves. False: it is to end.
    bool press(const std::string& key, std::size_t page);

    [[nodiscard]] const PickerState& state() const { return state_; }
    [[nodiscard]] const std::string& root() const { return desk_.root; }

  private:
    [[nodiscard]] std::optional<nlohmann::json> read(const char* name, const Values& values);
    [[nodiscard]] std::string chosenNumber() const; // the row's first; empty where none is chosen
    // Stays on that row where it passes, else begins at the newest.
    void filter(const std::string& chosen);
    void showRow();
    void showFile();
    void move(const std::string& key, std::size_t page);
    void filterBy(const std::string& key);
    void answerPreview(const std::string& key, std::size_t page);
    void look(const std::string& title, const nlohmann::json& wish);
    void carryOut(const Preview& preview);
    void lookAtUndo();

    Desk desk_;
    Values asked_;
    PickerState state_;
    std::vector<nlohmann::json> hunks_; // of the chosen file, as a wish names them
    bool isRowRead_ = true;
    bool isFileRead_ = true;
};

} // namespace tidewrack::page
