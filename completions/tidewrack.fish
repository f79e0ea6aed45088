# Completion of tidewrack's commands, options, agents, snapshot numbers, vault entries and paths for fish.

# Snapshots or vault entries, from their JSON list, as lines: number or id, tab, label (kind when there is none) or
# command. Keys are sorted and pretty-printed, so the text stands before the number.
function __tidewrack_pairs
    awk '
        /^    "(command|kind|label)" : / {
            text = $0
            sub(/^[^:]*: "/, "", text)
            sub(/",?$/, "", text)
            gsub(/\\\\[nrt]/, " ", text)
            gsub(/\\\\/, "", text)
        }
        /^    "(id|seq)" : / {
            gsub(/[^0-9A-F-]/, "")
            print $0 "\t" text
        }'
end

# A word of the command line with the home folder in place of ~.
function __tidewrack_plain
    string replace -r '^~(?=/|$)' $HOME -- $argv[1]
end

# The words that are no options and no option's value, the program first.
function __tidewrack_words
    set -l skip no
    for word in (commandline -opc)
        if test $skip = yes
            set skip no
        else if contains -- $word --label --agent --session --turn --kind --project -n --home
            set skip yes
        else if not string match -q -- '--*' $word
            echo $word
        end
    end
end

# Whether the next word is number $argv[1] (1 is the first after the command) of one of the commands that follow.
function __tidewrack_at
    set -l words (__tidewrack_words)
    test (count $words) -eq (math $argv[1] + 1); and contains -- "$words[2]" $argv[2..]
end

function __tidewrack_of
    set -l words (__tidewrack_words)
    contains -- "$words[2]" $argv
end

function __tidewrack_snapshots
    set -l words (commandline -opc)
    set -l project
    if set -l at (contains -i -- --project $words)
        set project --project (__tidewrack_plain $words[(math $at + 1)])
    end
    set -l program (__tidewrack_plain $words[1])
    $program log --json -n 50 $project 2>/dev/null | __tidewrack_pairs
end

function __tidewrack_vault_entries
    set -l program (__tidewrack_plain (commandline -opc)[1])
    $program vault --json 2>/dev/null | __tidewrack_pairs
end

set -l first 'test (count (__tidewrack_words)) -eq 1'
set -l agents claude codex cursor gemini
complete -c tidewrack -f

complete -c tidewrack -n $first -a track -d 'start keeping history of a folder'
complete -c tidewrack -n $first -a untrack -d 'stop, and delete the history kept so far'
complete -c tidewrack -n $first -a projects -d 'list the tracked folders'
complete -c tidewrack -n $first -a snap -d 'take a snapshot now'
complete -c tidewrack -n $first -a log -d 'list the latest snapshots, newest first'
complete -c tidewrack -n $first -a diff -d 'what changed between two snapshots, or to now'
complete -c tidewrack -n $first -a restore -d 'put the folder, or some paths, back'
complete -c tidewrack -n $first -a undo -d 'take back what changed between a snapshot and the next'
complete -c tidewrack -n $first -a cat -d 'print a file as it was in a snapshot'
complete -c tidewrack -n $first -a pin -d 'keep a snapshot for ever'
complete -c tidewrack -n $first -a unpin -d 'keep a snapshot no longer'
complete -c tidewrack -n $first -a prune -d 'thin out old snapshots'
complete -c tidewrack -n $first -a hooks -d 'install hooks into the agents'
complete -c tidewrack -n $first -a hook -d 'answer one hook event (called by the agents)'
complete -c tidewrack -n $first -a vault -d 'list what was saved outside of projects'
complete -c tidewrack -n $first -a version -d 'print the version'
complete -c tidewrack -n $first -a help -d 'print a summary of the commands'

complete -c tidewrack -n '__tidewrack_at 1 track untrack' -a '(__fish_complete_directories)'
complete -c tidewrack -k -n '__tidewrack_at 1 diff restore undo cat pin unpin; or __tidewrack_at 2 diff' -a '(__tidewrack_snapshots)'
complete -c tidewrack -n '__tidewrack_at 2 cat; or begin; __tidewrack_of restore; and not __tidewrack_at 1 restore; end' -F
complete -c tidewrack -n '__tidewrack_at 1 hooks' -a 'status install uninstall print'
complete -c tidewrack -n '__tidewrack_at 2 hooks; and contains -- (__tidewrack_words)[3] install uninstall' -a "$agents all"
complete -c tidewrack -n '__tidewrack_at 2 hooks; and contains -- (__tidewrack_words)[3] print' -a "$agents"
complete -c tidewrack -n '__tidewrack_at 1 hook' -a "$agents"
complete -c tidewrack -n '__tidewrack_at 1 vault' -a restore -d 'put an entry back'
complete -c tidewrack -k -n '__tidewrack_at 2 vault' -a '(__tidewrack_vault_entries)'

complete -c tidewrack -n '__tidewrack_of track' -l force -d 'track a very broad or very large folder'
complete -c tidewrack -n "$first; or __tidewrack_of untrack snap log diff restore undo cat pin unpin prune" -l project -x -a '(__fish_complete_directories)' -d 'act on the project that contains this path'
complete -c tidewrack -n '__tidewrack_of track projects snap log diff restore undo prune hooks vault' -l json -d 'machine-readable output'
complete -c tidewrack -n '__tidewrack_of snap' -l label -x -d 'a text for it'
complete -c tidewrack -n '__tidewrack_of snap' -l agent -x -a "$agents" -d 'the agent'
complete -c tidewrack -n '__tidewrack_of snap' -l session -x -d 'the session'
complete -c tidewrack -n '__tidewrack_of snap' -l turn -x -d 'the turn'
complete -c tidewrack -n '__tidewrack_of snap' -l kind -x -d 'the kind'
complete -c tidewrack -n '__tidewrack_of log' -s n -x -d 'at most this many'
complete -c tidewrack -n '__tidewrack_of diff' -l patch -d 'line by line'
complete -c tidewrack -n '__tidewrack_of restore' -l keep-new -d 'leave what was added since'
complete -c tidewrack -n '__tidewrack_of prune' -l dry-run -d 'only tell how many would go'
complete -c tidewrack -n '__tidewrack_of hooks' -l home -x -a '(__fish_complete_directories)' -d 'the home folder whose agents are configured'
