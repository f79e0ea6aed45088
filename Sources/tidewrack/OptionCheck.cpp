#include "OptionCheck.hpp"

#include "Likeness.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::string_view dryRun = "--dry-run";
// "-n" is what other tools call a dry run.
constexpr std::string_view dryRunLikes[] = {"dryrun",  "dry",    "n",         "simulate", "preview",
                                            "pretend", "whatif", "justprint", "noact"};

bool looksLikeDryRun(std::string_view option) {
    std::string letters;
    for (const char c : option.substr(0, option.find('=')))
        if (c != '-' && c != '_') letters += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return std::find(std::begin(dryRunLikes), std::end(dryRunLikes), letters) != std::end(dryRunLikes);
}

class Check {
  public:
    Check(const Command& command, Args& args, const MayBePath& mayBePath)
        : command_(command), args_(args), mayBePath_(mayBePath) {}

    std::vector<std::string> warnings() {
        for (const std::string& flag : args_.flags) checkFlag(flag);
        for (const auto& [option, value] : args_.values)
            if (!knows(option)) unknown(option);
        checkWords();
        return std::move(warnings_);
    }

  private:
    [[nodiscard]] bool knows(std::string_view option) const {
        return command_.option(option) != nullptr || isGlobalOption(option);
    }

    [[nodiscard]] bool refusesUnknown() const {
        return command_.effect == Effect::opens || command_.effect == Effect::removesForGood;
    }

    void checkFlag(const std::string& flag) {
        if (knows(flag)) return;
        const std::string name = flag.substr(0, flag.find('='));
        if (command_.effect != Effect::adds && knows(name) && !looksLikeDryRun(name))
            throw CliError(name + " takes no value" + unchanged());
        unknown(flag);
    }

    void unknown(const std::string& option) {
        const std::string sentence = std::string(command_.name) + " has no option " + option;
        const std::string name = option.substr(0, option.find('='));
        if (looksLikeDryRun(option) || isMistyped(name, dryRun))
            throw CliError(sentence + (command_.option(dryRun) != nullptr ? didYouMean(dryRun) : "") + unchanged());
        if (command_.effect == Effect::adds) return;
        if (const std::string_view meant = meantBy(name); !meant.empty())
            throw CliError(sentence + didYouMean(meant) + unchanged());
        if (refusesUnknown()) throw CliError(sentence + unchanged());
        warnings_.push_back(sentence + "; ignored");
    }

    // Of a short name two other letters leave too little to tell what was meant: "--wat" is no "--last".
    [[nodiscard]] static bool looksLike(std::string_view name, std::string_view option) {
        constexpr std::size_t shortest = 8; // with its two dashes: from six letters on
        const auto letters = mistypedLetters(name, option);
        return letters && (*letters == 1 || option.size() >= shortest);
    }

    // The option of the command that a mistyped one looks like; empty for none.
    [[nodiscard]] std::string_view meantBy(std::string_view name) const {
        const bool dashLost = name.size() > 2 && !name.starts_with("--"); // "-keep-new"
        for (const auto options : {command_.options, globalOptions()})
            for (const Option& option : options)
                if ((name.starts_with("--") || (dashLost && option.name.starts_with("--"))) &&
                    looksLike(name, option.name))
                    return option.name;
        return {};
    }

    // "-" stands for standard output, and what has a digit is a number.
    [[nodiscard]] bool isUnknownOption(const std::string& word) const {
        return command_.effect != Effect::adds && word.size() > 1 && (word[1] < '0' || word[1] > '9') &&
               !mayBePath_(word);
    }

    void checkWords() {
        for (std::size_t i = 0; i < args_.positional.size();) {
            const std::string word = args_.positional[i];
            const bool option = word.starts_with('-') && i < args_.plainFrom;
            if (option && looksLikeDryRun(word)) unknown(word);
            if (option && isUnknownOption(word)) {
                unknown(word);
                args_.remove(i);
                continue;
            }
            ++i;
            if (i <= command_.mostWords || command_.effect == Effect::adds) continue;
            const std::string sentence = std::string(command_.name) + " has no use for the word " + word;
            if (refusesUnknown()) throw CliError(sentence + unchanged());
            warnings_.push_back(sentence + "; ignored");
        }
    }

    static std::string didYouMean(std::string_view option) { return " (did you mean " + std::string(option) + "?)"; }
    static std::string unchanged() { return "; nothing was changed"; }

    const Command& command_;
    Args& args_;
    const MayBePath& mayBePath_;
    std::vector<std::string> warnings_;
};

} // namespace

std::vector<std::string> misunderstood(const Command& command, Args& args, const MayBePath& mayBePath) {
    if (command.effect == Effect::harmless) return {};
    return Check(command, args, mayBePath).warnings();
}

} // namespace tidewrack
