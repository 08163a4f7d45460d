# Completion of tarvex-console for bash.

_tarvex_console() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    case $before in
        --root) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
        --desk | --certificate | --key) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
        --group) mapfile -t COMPREPLY < <(compgen -g -- "$current") ;;
        --host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current") ;;
        --listen) mapfile -t COMPREPLY < <(compgen -W 'unix: 127.0.0.1:' -- "$current") ;;
        *) mapfile -t COMPREPLY < <(compgen -W '--root --desk --listen --group --certificate --key --host
            --trusted-proxies --help --version' -- "$current") ;;
    esac
}

complete -o filenames -F _tarvex_console tarvex-console
