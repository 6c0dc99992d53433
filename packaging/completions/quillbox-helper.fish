# fish completion for quillbox-helper

set -l commands status open manage restart quit doctor
set -l before "not __fish_seen_subcommand_from $commands"

complete -c quillbox-helper -f
complete -c quillbox-helper -n $before -l hidden -d 'start without showing the window'
complete -c quillbox-helper -n $before -l this-computer-only -a 'on off' -d 'do not let other computers see or reach the phone'
complete -c quillbox-helper -n $before -l dns-sd -x -a 'auto daemon embedded' -d 'DNS-SD engine'
complete -c quillbox-helper -n $before -l verbose -a 'discovery engine advertising relay connection desktop' -d 'log to standard error'
complete -c quillbox-helper -n $before -l autostart -x -a 'on off' -d 'start at login or not'
complete -c quillbox-helper -n $before -l version -d 'show the version and exit'
complete -c quillbox-helper -s h -l help -d 'show help and exit'
complete -c quillbox-helper -n $before -a status -d 'print the status of the running instance'
complete -c quillbox-helper -n $before -a open -d 'open the share of a phone'
complete -c quillbox-helper -n $before -a manage -d 'open the web management of a phone'
complete -c quillbox-helper -n $before -a restart -d 'restart the Finder service'
complete -c quillbox-helper -n $before -a quit -d 'quit the program'
complete -c quillbox-helper -n $before -a doctor -d 'check why a phone does not appear'
complete -c quillbox-helper -n '__fish_seen_subcommand_from status doctor' -l json -d 'print JSON'
