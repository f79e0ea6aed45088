# Completion of tidewrack's commands, options, agents, snapshot numbers, vault entries and paths for bash, version 4 or
# later. The one that macOS brings along is older: there this does nothing.
((BASH_VERSINFO[0] >= 4)) || return 0

# Snapshots or vault entries, from their JSON list, as lines: number or id, tab, label (kind when there is none) or
# command. Keys are sorted and pretty-printed, so the text stands before the number.
_tidewrack_pairs() {
    awk '
        /^    "(command|kind|label)" : / {
            text = $0
            sub(/^[^:]*: "/, "", text)
            sub(/",?$/, "", text)
            gsub(/\\[nrt]/, " ", text)
            gsub(/\\/, "", text)
        }
        /^    "(id|seq)" : / {
            gsub(/[^0-9A-F-]/, "")
            print $0 "\t" text
        }'
}

# A word of the command line as the program would get it: without its quotes, the home folder in place of ~. Nothing in
# it is run.
_tidewrack_plain() {
    local word=$1 plain="" quote="" char i
    case $word in
        \~ | \~/*)
            plain=$HOME
            word=${word:1}
            ;;
    esac
    for ((i = 0; i < ${#word}; i++)); do
        char=${word:i:1}
        if [[ $char == "\\" && $quote != "'" ]]; then
            ((++i))
            plain+=${word:i:1}
        elif [[ -z $quote && $char == [\'\"] ]]; then
            quote=$char
        elif [[ $char == "$quote" ]]; then
            quote=""
        else
            plain+=$char
        fi
    done
    printf '%s' "$plain"
}

# Offers what the lines on standard input begin with; when several fit, with the text behind it.
_tidewrack_offer() {
    local id text
    local -a fits=()
    while IFS=$'\t' read -r id text; do
        [[ $id == "$1"* ]] && fits+=("$id  (${text:0:60})")
    done
    if ((${#fits[@]} == 1)); then
        COMPREPLY=("${fits[0]%%  (*}")
    else
        COMPREPLY=("${fits[@]}")
        compopt -o nosort 2>/dev/null
    fi
}

_tidewrack_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_tidewrack_paths() {
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

_tidewrack() {
    local program word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local agents="claude codex cursor gemini" command="" sub="" count=0 i
    local -a project=()
    COMPREPLY=()
    program=$(_tidewrack_plain "${COMP_WORDS[0]}")

    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --project)
                ((++i))
                project=(--project "$(_tidewrack_plain "${COMP_WORDS[i]}")")
                ;;
            --label | --agent | --session | --turn | --kind | -n | --home) ((++i)) ;;
            --*) ;;
            *)
                case $((count++)) in
                    0) command=${COMP_WORDS[i]} ;;
                    1) sub=${COMP_WORDS[i]} ;;
                esac
                ;;
        esac
    done

    case $before in
        --project | --home) _tidewrack_paths -d "$word"; return ;;
        --agent) _tidewrack_words "$agents" "$word"; return ;;
        --label | --session | --turn | --kind | -n) return ;;
    esac

    if [[ $word == -* ]]; then
        local options="--project"
        case $command in
            "") options="--help --version --project" ;;
            track) options="--force --json" ;;
            projects | vault) options="--json" ;;
            snap) options+=" --json --label --agent --session --turn --kind" ;;
            log) options+=" --json -n" ;;
            diff) options+=" --json --patch" ;;
            restore) options+=" --json --keep-new" ;;
            undo) options+=" --json" ;;
            prune) options+=" --json --dry-run" ;;
            hooks) options="--json --home" ;;
            cat | pin | unpin | untrack) ;;
            *) options="" ;;
        esac
        _tidewrack_words "$options" "$word"
        return
    fi

    case $command:$count in
        :*) _tidewrack_words "track untrack projects snap log diff restore undo cat pin unpin prune hooks hook vault version help" "$word" ;;
        track:1 | untrack:1) _tidewrack_paths -d "$word" ;;
        diff:[12] | restore:1 | undo:1 | cat:1 | pin:1 | unpin:1)
            _tidewrack_offer "$word" < <("$program" log --json -n 50 "${project[@]}" 2>/dev/null |
                _tidewrack_pairs)
            ;;
        restore:* | cat:2) _tidewrack_paths -f "$word" ;;
        hooks:1) _tidewrack_words "status install uninstall print" "$word" ;;
        hooks:2)
            case $sub in
                install | uninstall) _tidewrack_words "$agents all" "$word" ;;
                print) _tidewrack_words "$agents" "$word" ;;
            esac
            ;;
        hook:1) _tidewrack_words "$agents" "$word" ;;
        vault:1) _tidewrack_words "restore" "$word" ;;
        vault:2)
            _tidewrack_offer "$word" < <("$program" vault --json 2>/dev/null | _tidewrack_pairs)
            ;;
    esac
}

complete -F _tidewrack tidewrack
