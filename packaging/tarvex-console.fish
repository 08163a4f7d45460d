# Completion of tarvex-console for fish.

complete -c tarvex-console -f
complete -c tarvex-console -l root -x -a '(__fish_complete_directories)' -d 'Speak to the service of this data tree'
complete -c tarvex-console -l desk -r -F -d 'Speak to the service at this Unix socket'
complete -c tarvex-console -l listen -x -a 'unix: 127.0.0.1:' -d 'Where browsers or a reverse proxy connect'
complete -c tarvex-console -l group -x -a '(__fish_complete_groups)' -d 'Group that may connect to the Unix socket'
complete -c tarvex-console -l certificate -r -F -d 'File with the certificate'
complete -c tarvex-console -l key -r -F -d 'File with its key'
complete -c tarvex-console -l host -x -a '(__fish_print_hostnames)' -d 'Name in the addresses of this console'
complete -c tarvex-console -l trusted-proxies -x -d 'How many reverse proxies stand before it'
complete -c tarvex-console -s h -l help -d 'Print the help'
complete -c tarvex-console -l version -d 'Print the version'
