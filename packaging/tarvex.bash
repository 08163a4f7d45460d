# Completion of tarvex for bash. Commands and options come from the command's own --help, names from the tree. The line
# is split at blanks only: bash would split an address at its @.

_tarvex() {
    local line=${COMP_LINE:0:COMP_POINT} words word current previous i
    local -a command=() root=() choices=()
    read -ra words <<<"$line"
    current=
    if [[ $line != *' ' ]]; then
        current=${words[-1]}
        unset 'words[-1]'
    fi
    previous=${words[-1]}

    for ((i = 1; i < ${#words[@]}; ++i)); do
        word=${words[i]}
        case $word in
            --root) root=(--root "${words[++i]-}") ;;
            --root=*) root=("$word") ;;
            -*) ;;
            user | profile | forward | schedule | settings | rules | held | import)
                if ((${#command[@]} == 0)); then command=("$word"); fi
                ;;
            *)
                case ${#command[@]}:${command[0]-} in
                    0: | 1:user | 1:profile | 1:forward | 1:schedule | 1:settings | 1:held | 1:import) command+=("$word") ;;
                    1:rules) if [[ $word == show || $word == set ]]; then command+=("$word"); fi ;;
                esac
                ;;
        esac
    done

    local help
    help=$(tarvex "${command[@]}" --help 2>/dev/null) || return
    case $previous in
        --root | --rootpath)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        --*-file)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t choices < <(sed -nE 's/^  (-[a-z],)?(--[a-z0-9_-]+).*/\2/p' <<<"$help")
    elif grep -qE -- "^  (-[a-z],)?$previous on\|off" <<<"$help" && [[ $previous == -* ]]; then
        choices=(on off)
    elif grep -qE -- "^  (-[a-z],)?$previous [A-Z]" <<<"$help" && [[ $previous == -* ]]; then
        return # a value that only the caller knows
    elif [[ $help == *$'\nSubcommands:'* ]]; then
        mapfile -t choices < <(sed -nE '/^Subcommands:/,$s/^  ([a-z]+).*/\1/p' <<<"$help")
    else
        local kind
        for kind in user profile forward; do
            grep -qE "^  ${kind^^}( |$)" <<<"$help" || continue
            mapfile -t -O ${#choices[@]} choices < <(tarvex "${root[@]}" $kind list --json 2>/dev/null |
                sed -nE 's/^ *"(path|loginname|nickname|address)": "([^" \\]+)",?$/\2/p')
        done
        if [[ $help == *$'\n  DIR '* ]]; then
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
        fi
    fi

    # Where bash splits the word at an @, the part before it is on the line already.
    local there=
    if [[ $COMP_WORDBREAKS == *@* && $current == *@* ]]; then there=${current%@*}@; fi
    COMPREPLY=()
    for word in "${choices[@]}"; do
        if [[ $word != "$current"* ]]; then continue; fi
        printf -v word %q "${word#"$there"}" # a name may hold special characters of the shell
        COMPREPLY+=("$word")
    done
}

complete -F _tarvex tarvex
