#pragma once
// Here-documents, the texts in the lines below a command: where they begin and end.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack::shell {

class HereDocuments {
  public:
    struct Body {
        std::size_t begin;
        std::size_t end;
    };

    // The body of the document announced at `at` in the text; none when its end is not there, unless the end of the
    // text ends it too. Several that are announced in one line follow each other. Adds to `searched` how many bytes
    // were looked at, and finds nothing once they are too many.
    [[nodiscard]] std::optional<Body> find(std::string_view text, std::size_t at, std::string_view delimiter,
                                           bool stripTabs, bool mayEndText, std::size_t& searched);

    // The place behind the line end at `at` and behind the bodies of all documents announced before it.
    [[nodiscard]] std::size_t behindBodies(std::size_t at);

  private:
    std::size_t next_ = 0; // where the next body of this line begins; 0 when none has been announced in it
    std::size_t inLine_ = 0;
};

} // namespace tidewrack::shell
