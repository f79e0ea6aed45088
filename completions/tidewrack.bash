# Completion of tidewrack's commands, options, agents, snapshot numbers, vault entries and paths for bash, version 4 or
# later. The one that macOS brings along is older: there this does nothing. What may follow is asked of the program.
((BASH_VERSINFO[0] >= 4)) || return 0

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

_tidewrack() {
    local word=${COMP_WORDS[COMP_CWORD]} program id text i
    local -a typed=() fits=() ids=()
    COMPREPLY=()
    program=$(_tidewrack_plain "${COMP_WORDS[0]}")
    for ((i = 1; i <= COMP_CWORD; i++)); do typed+=("$(_tidewrack_plain "${COMP_WORDS[i]}")"); done
    while IFS=$'\t' read -r id text; do
        case $id in
            :paths | :folders)
                compopt -o filenames
                [[ $id == :paths ]] && i=-f || i=-d
                mapfile -t COMPREPLY < <(compgen "$i" -- "$word")
                ;;
            [0-9]*) # a number says nothing by itself
                ids+=("$id")
                fits+=("$id  ($text)")
                ;;
            *)
                [[ $word == [\'\"]* ]] || printf -v id %q "$id" # a name is one word, whatever is in it
                COMPREPLY+=("$id")
                ;;
        esac
    done < <("$program" _complete -- "${typed[@]}" 2>/dev/null)
    if ((${#ids[@]} == 1)); then
        COMPREPLY+=("${ids[0]}")
    elif ((${#ids[@]} > 1)); then
        COMPREPLY+=("${fits[@]}")
        compopt -o nosort 2>/dev/null
    elif [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == */ && $word != [\'\"]* ]]; then
        compopt -o nospace # what is in the folder may follow
    elif [[ $word == \"*\"* || $word == \'*\'* ]]; then
        COMPREPLY=() # bash replaces only what stands behind the closed quotes
    fi
}

complete -F _tidewrack tidewrack
