#compdef tarvex-console
# Completion of tarvex-console for zsh.

_arguments \
    '--root[speak to the service of this data tree]:directory:_files -/' \
    '--desk[speak to the service at this Unix socket]:socket:_files' \
    '--listen[where browsers or a reverse proxy connect]:place:(unix\: 127.0.0.1\:)' \
    '--group[group that may connect to the Unix socket]:group:_groups' \
    '--certificate[file with the certificate]:file:_files' \
    '--key[file with its key]:file:_files' \
    '*--host[name in the addresses of this console]:name:_hosts' \
    '--trusted-proxies[how many reverse proxies stand before it]:number:' \
    '(-h --help)'{-h,--help}'[print the help]' \
    '--version[print the version]'
