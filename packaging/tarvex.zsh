#compdef tarvex
# Completion of tarvex for zsh. The command itself says what may stand at the end of a line.

local -a answer choices
local line
answer=("${(@f)$(tarvex __complete "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}")
case $answer[1] in
    files) _files ;;
    directories) _files -/ ;;
    *)
        for line in "${(@)answer[2,-1]}"; do
            choices+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}")
        done
        _describe tarvex choices
        ;;
esac
