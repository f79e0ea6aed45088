// Command lines: what the lexer cuts and what the guard judges.

#include "Fuzz/Fuzz.hpp"

#include "Shell/Braces.hpp"
#include "Shell/Effects.hpp"
#include "Shell/Guard.hpp"
#include "Shell/Lexer.hpp"

#include <algorithm>

using namespace tidewrack;
using namespace tidewrack::shell;
using fuzz::require;

namespace {

const Context& context() {
    static const Context where{
        "/nowhere/project", "/nowhere/home", {{"X", "value"}, {"EMPTY", ""}}, {"/nowhere/project"}};
    return where;
}

bool isSortedSet(const std::vector<std::string>& paths) {
    return std::adjacent_find(paths.begin(), paths.end(), [](const auto& a, const auto& b) { return a >= b; }) ==
           paths.end();
}

bool isNormalized(const std::string& path) {
    const std::string closed = path + "/";
    return path == "/" || (path.starts_with('/') && !path.ends_with('/') && closed.find("/../") == std::string::npos &&
                           closed.find("/./") == std::string::npos && path.find("//") == std::string::npos);
}

void checkCommand(const Command& command) {
    require(!command.words.empty() || !command.redirects.empty(), "no command is empty");
    require(command.sharedDepth <= command.depth, "a command shares no more parentheses than it stands in");
    for (const auto* list : {&command.words, &command.redirects})
        for (const Word& word : *list)
            require(word.plain <= word.text.size(), "the plain part of a word lies in the word");
    for (const BracedWord& braced : command.braced) {
        require(braced.index < command.words.size(), "a braced word is one of the words");
        const auto words = expandBraces(braced.source);
        require(!words || (!words->empty() && words->size() <= 1000), "brace lists are bounded");
    }
}

Parsed checkLexer(std::string_view command) {
    Parsed parsed = parse(command);
    Lexer lexer(command);
    Command next;
    std::size_t bytes = 0;
    for (const Command& one : parsed.program.commands) {
        checkCommand(one);
        for (const Word& word : one.words) bytes += word.text.size();
        require(lexer.next(next) && next == one, "one by one the commands are the same");
    }
    require(!lexer.next(next) && lexer.opaque() == parsed.opaque, "one by one the line ends in the same way");
    require(bytes <= 5 * command.size(), "words hold no more than the line, but for marks of a few bytes");
    return parsed;
}

void checkDecision(std::string_view command, const Decision& decision) {
    require(isSortedSet(decision.targets) && isSortedSet(decision.opaqueDirs) && isSortedSet(decision.followed) &&
                isSortedSet(decision.removed) && isSortedSet(decision.thinned),
            "lists are sorted and hold each path once");
    for (const auto* part : {&decision.followed, &decision.removed, &decision.thinned})
        require(std::includes(decision.targets.begin(), decision.targets.end(), part->begin(), part->end()),
                "what is followed, removed or thinned is a target");
    require(decision.opaque == !decision.opaqueDirs.empty(), "an opaque line names the folders where it is opaque");
    bool refused = false;
    for (const std::string& target : decision.targets) {
        require(isNormalized(target), "targets are normalized");
        require(!target.starts_with("/dev/"), "devices are no targets");
        refused = refused || catastrophic(target, context().home);
    }
    const auto kind = decision.verdict.kind;
    require(!refused || kind == Verdict::Kind::deny, "a catastrophe is refused");
    require((kind == Verdict::Kind::allow) == decision.verdict.reason.empty(), "a question or refusal has its reason");
    require(kind == Verdict::Kind::allow || !decision.targets.empty() || command.find("tidewrack") != command.npos,
            "only what has targets is stopped");
    // Patterns are matched against a disk that others change.
    if (command.find_first_of("*?[") == command.npos)
        require(analyze(command, context()) == decision, "the same line is judged in the same way");
}

// A command behind a line end is seen whatever stands in the line before, unless that line leaves a quote open or
// makes the whole opaque.
void checkNothingIsHidden(std::string_view line) {
    if (line.find_first_of("'\"\\<$`") != line.npos) return;
    const Decision decision = analyze(std::string(line) + " \nrm -rf /victim ~", context());
    require(decision.targets.size() > 9'000 ||
                std::binary_search(decision.targets.begin(), decision.targets.end(), "/victim"),
            "no line hides the next");
    require(decision.verdict.kind == Verdict::Kind::deny, "no line makes the next harmless");
}

} // namespace

FUZZ_TARGET(shell) {
    const Parsed parsed = checkLexer(input);
    const Decision decision = analyze(input, context());
    checkDecision(input, decision);
    require(decision.opaque || !parsed.opaque, "what the lexer cannot follow the guard cannot either");
    checkNothingIsHidden(input);
}
