# Completion of tidewrack's commands, options, agents, snapshot numbers, vault entries and paths for fish. What may follow
# is asked of the program.

# A word of the command line with the home folder in place of ~.
function __tidewrack_plain
    string replace -r '^~(?=/|$)' $HOME -- $argv[1]
end

function __tidewrack_offered
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l typed
    for word in $words[2..]
        set -a typed (__tidewrack_plain $word)
    end
    if test -n "$current"
        # The last word's quotes are still open.
        set -l unquoted (string unescape -- $current; or string replace -r '^[\'"]' '' -- $current)
        set -a typed (__tidewrack_plain $unquoted)
    else
        set -a typed ''
    end
    set -l program (__tidewrack_plain $words[1])
    $program _complete -- $typed 2>/dev/null | while read -l line
        switch $line
            case :paths
                complete -C "'' $current"
            case :folders
                __fish_complete_directories $current
            case '*'
                echo $line
        end
    end
end

complete -c tidewrack -f -k -a '(__tidewrack_offered)'
