#pragma once
// The folder that a line is in, those pushed, and those to go back to when parentheses close.

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tidewrack::shell {

// Cheap to copy, to come back to behind a subshell.
class Position {
  public:
    // `folder` is absolute.
    explicit Position(std::string folder) : folder_(std::move(folder)), previous_(folder_) {}

    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] const std::string& previous() const { return previous_; }
    // Where the line is in the other runs of a loop that changes folder.
    [[nodiscard]] const std::vector<std::string>& others() const { return others_; }

    // Changes to a folder within `depth` parentheses, in other runs of a loop to others. False, and nothing changed,
    // when its name is too long.
    bool enter(std::string folder, std::size_t depth, std::vector<std::string> others = {});
    // Goes back to the folder in which the closed parentheses began; `sharedDepth` parentheses still hold the next
    // command. True when that is another folder.
    bool leaveSubshells(std::size_t sharedDepth);

    // pushd without an argument swaps; popd goes back. False when nothing was pushed.
    void push() { push(folder_); }
    void push(std::string folder) { pushed_.push({0, std::move(folder), {}}); }
    [[nodiscard]] std::vector<std::string> pushed() const { return pushed_.folders(); }
    bool swap(std::size_t depth);
    bool pop(std::size_t depth);

    // Counts a change of folder; false when there were too many.
    bool mayChange();

  private:
    struct Place {
        std::size_t depth;
        std::string folder;
        std::vector<std::string> others;
    };

    // Copies share what they hold.
    class Stack {
      public:
        [[nodiscard]] std::size_t size() const { return size_; }
        [[nodiscard]] const Place& top() const { return last_->place; }
        [[nodiscard]] std::vector<std::string> folders() const;
        void push(Place place);
        void pop();

      private:
        struct Item {
            Place place;
            std::shared_ptr<const Item> below;
        };
        std::shared_ptr<const Item> last_;
        std::size_t size_ = 0;
    };

    std::string folder_;
    std::string previous_;
    std::vector<std::string> others_;
    Stack pushed_;
    Stack saved_;
    std::size_t changes_ = 0;
};

} // namespace tidewrack::shell
