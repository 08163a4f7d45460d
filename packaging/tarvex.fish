# Completion of tarvex for fish. The command itself says what may stand at the end of a line.

function __tarvex_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l answer (tarvex __complete $words[2..-1] "$current" 2>/dev/null)
    switch "$answer[1]"
        case files
            __fish_complete_path "$current"
        case directories
            __fish_complete_directories "$current"
        case '*'
            string join \n -- $answer[2..-1]
    end
end

complete -c tarvex -f -a '(__tarvex_complete)'
