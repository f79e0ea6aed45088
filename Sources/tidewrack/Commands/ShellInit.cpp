// What a person's own shell runs so that its risky commands are saved and asked about like an agent's.

#include "Commands/Commands.hpp"
#include "Commands/Hooks.hpp"
#include "Invocation.hpp"
#include "Reports/PathWords.hpp"

namespace tidewrack::commands {

namespace {

// Enter first calls a function that sees the line, and then ends the line as always. A line that is refused is taken
// away; the history keeps it.
constexpr std::string_view bashScript = R"(if [[ $- == *i* && ${BASH_VERSINFO[0]} -ge 4 ]]; then
    __tidewrack_enter() {
        [[ $READLINE_LINE == *[![:space:]]* && ${TIDEWRACK_SHELL-} != off && -x $__tidewrack_program ]] || return 0
        "$__tidewrack_program" _before -- "$READLINE_LINE"
        if (($? == 10 || $? == 130)); then
            history -s -- "$READLINE_LINE"
            READLINE_LINE=
            READLINE_POINT=0
        fi
    }
    for __tidewrack_map in emacs vi-insert vi-command; do
        bind -m "$__tidewrack_map" -x '"\C-x\C-]": __tidewrack_enter "$_"'
        bind -m "$__tidewrack_map" '"\C-x\C-^": accept-line'
        bind -m "$__tidewrack_map" '"\C-m": "\C-x\C-]\C-x\C-^"'
        bind -m "$__tidewrack_map" '"\C-j": "\C-x\C-]\C-x\C-^"'
    done
    unset __tidewrack_map
fi
)";

// The line stays to be edited where it is refused.
constexpr std::string_view zshScript = R"(if [[ -o interactive ]]; then
    __tidewrack_accept_line() {
        if [[ $BUFFER == *[^[:space:]]* && ${TIDEWRACK_SHELL-} != off && -x $__tidewrack_program ]]; then
            "$__tidewrack_program" _before -- "$PREBUFFER$BUFFER" </dev/tty
            if (($? == 10 || $? == 130)); then
                zle reset-prompt
                return 0
            fi
        fi
        zle .accept-line
    }
    zle -N accept-line __tidewrack_accept_line
fi
)";

// A line that Enter would only go on with is not looked at yet.
constexpr std::string_view fishScript = R"(if status is-interactive
    function __tidewrack_enter
        set -l line (commandline | string collect)
        commandline --is-valid
        set -l incomplete (test $status -eq 2; and echo yes)
        if test -z "$incomplete"; and string match -qr '\S' -- $line; and test "$TIDEWRACK_SHELL" != off
            test -x $__tidewrack_program; and $__tidewrack_program _before -- $line </dev/tty
            if contains $status 10 130
                commandline -f repaint
                return 0
            end
        end
        commandline -f execute
    end
    for mode in default insert
        bind -M $mode \r __tidewrack_enter
        bind -M $mode \n __tidewrack_enter
    end
end
)";

} // namespace

int shellInit(Invocation& call) {
    const std::string shell = call.args.word(0).value_or("");
    const std::string program = shellWord(installerFor(call).binary);
    const char* const comment = "# Saves what a command line may destroy before it runs, and asks where that is not "
                                "enough.\n# TIDEWRACK_SHELL=off switches it off.\n";
    if (shell == "bash" || shell == "zsh")
        call.print(comment + ("__tidewrack_program=" + program + "\n") +
                   std::string(shell == "bash" ? bashScript : zshScript));
    else if (shell == "fish")
        call.print(comment + ("set -g __tidewrack_program " + program + "\n") + std::string(fishScript));
    else
        throw CliError("usage: tidewrack shell-init bash|zsh|fish");
    return 0;
}

} // namespace tidewrack::commands
