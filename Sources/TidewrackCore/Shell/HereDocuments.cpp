#include "Shell/HereDocuments.hpp"

#include "Shell/Budget.hpp"
#include "Shell/Expansion.hpp"
#include "Shell/Lexer.hpp"

#include <algorithm>
#include <utility>

namespace tidewrack::shell {

namespace {

// The end of the line at `at`; quoted line ends do not count.
std::size_t lineEnd(std::string_view text, std::size_t at) {
    char quote = 0;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\\' && quote != '\'')
            ++at;
        else if (quote == 0 && c == '\n')
            return at;
        else if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '\'' || c == '"'))
            quote = c;
    }
    return text.size();
}

} // namespace

std::optional<HereDocuments::Body> HereDocuments::find(std::string_view text, std::size_t at,
                                                       std::string_view delimiter, bool stripTabs, bool mayEndText,
                                                       std::size_t& searched) {
    if (++inLine_ > Budget::hereDocumentsPerLine || searched > Budget::searchedBytes) return std::nullopt;
    const std::size_t first = next_ > 0 ? next_ : std::min(lineEnd(text, at) + 1, text.size());
    searched += first - at;
    for (std::size_t begin = first; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string_view line = text.substr(begin, end - begin);
        if (stripTabs) line.remove_prefix(std::min(line.find_first_not_of('\t'), line.size()));
        searched += end - begin + 1;
        if (line == delimiter) {
            next_ = std::min(end + 1, text.size());
            return Body{first, begin};
        }
        begin = end + 1;
    }
    if (mayEndText) next_ = text.size();
    return mayEndText ? std::optional(Body{first, text.size()}) : std::nullopt;
}

std::size_t HereDocuments::behindBodies(std::size_t at) {
    inLine_ = 0;
    return std::max(at, std::exchange(next_, 0));
}

void Lexer::takeHereDocument() {
    const bool stripTabs = standsAt(at_, '-');
    if (stripTabs) ++at_;
    skipBlanks();
    const std::size_t begin = at_;
    const std::string delimiter = skipWord();
    if (delimiter.empty()) return markOpaque();
    const bool literal = text_.substr(begin, at_ - begin).find_first_of("'\"\\") != std::string_view::npos;
    // Where nothing else can be meant, such as 1<<2, shells take all that follows when the end isn't there.
    const bool isPlain = nesting_ == 0 && depth_ == 0 && (delimiter.front() | 0x20) >= 'a' &&
                         (delimiter.front() | 0x20) <= 'z' && nameLength(delimiter) == delimiter.size();
    const auto body =
        hereDocuments_.find(text_.substr(0, end_), at_, delimiter, stripTabs, isPlain, spent_->searchedBytes);
    if (!body) return markOpaque();
    takeBody(*body, literal);
}

// The text is the command's, not the line's: an apostrophe in its prose opens no quotes, and none of it is run here
// but what it holds in "$( )" or backquotes.
void Lexer::takeBody(const HereDocuments::Body& body, bool literal) {
    const std::size_t resumeAt = std::exchange(at_, body.begin);
    const std::size_t end = std::exchange(end_, body.end);
    beginWord();
    word_.quoted = started_ = true;
    if (literal) {
        append(text_.substr(at_, end_ - at_));
    } else {
        word_.expands = true;
        takeQuotedText(false);
    }
    role_ = Role::inputText;
    flush();
    at_ = resumeAt;
    end_ = end;
}

} // namespace tidewrack::shell
