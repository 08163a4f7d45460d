# Completion of tarvex for bash. The command itself says what may stand at the end of a line. The line is split at blanks
# only: bash would split an address at its @.

_tarvex() {
    local line=${COMP_LINE:0:COMP_POINT} words current word there=
    local -a answer
    read -ra words <<<"$line"
    if [[ $line == *' ' ]]; then words+=(''); fi
    current=${words[-1]}
    COMPREPLY=()
    mapfile -t answer < <(tarvex __complete "${words[@]:1}" 2>/dev/null)

    case ${answer[0]-} in
        directories | files)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen "-${answer[0]:0:1}" -- "$current")
            return
            ;;
    esac
    # Where bash splits the word at an @, the part before it is on the line already.
    if [[ $COMP_WORDBREAKS == *@* && $current == *@* ]]; then there=${current%@*}@; fi
    for word in "${answer[@]:1}"; do
        word=${word%%$'\t'*}
        if [[ $word != "$current"* ]]; then continue; fi
        printf -v word %q "${word#"$there"}" # a name may hold special characters of the shell
        COMPREPLY+=("$word")
    done
}

complete -F _tarvex tarvex
