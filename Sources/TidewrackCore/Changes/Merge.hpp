#pragma once
// Two changed versions of one text made into one, line by line.

#include <string>
#include <string_view>

namespace tidewrack {

struct Merge {
    enum class Kind {
        clean,    // `text` has the changes of both sides
        clash,    // both sides changed the same lines, or added other lines at the same place
        binary,   // one of the three is not text
        tooLarge, // one of the three is over LineDiff::sizeLimit
    };
    Kind kind = Kind::clean;
    std::string text; // for Kind::clean only
    bool operator==(const Merge&) const = default;

    // What changed from `base` to `one` and from `base` to `other`, in one text. Swapping the two sides changes
    // nothing.
    //
    // A change that both sides made is made once. Stretches that only touch are no clash: when one side changes a line
    // and the other the line below it, or adds lines between them, their order is certain. (Many merge programs take
    // that for a clash.) Where both sides and the base have as many lines they are compared line by line. Line ends
    // belong to their lines: a carriage return or a missing final line feed is a change.
    [[nodiscard]] static Merge of(std::string_view base, std::string_view one, std::string_view other);
};

} // namespace tidewrack
