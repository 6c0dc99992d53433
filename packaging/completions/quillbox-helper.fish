# fish completion for quillbox-helper

set -l commands status open manage restart quit doctor
set -l before "not __fish_seen_subcommand_from $commands"

complete -c quillbox-helper -f
complete -c quillbox-helper -n $before -l hidden -d 'start without showing the window'
complete -c quillbox-helper -n $before -l this-computer-only -d 'keep the phone from other computers'
complete -c quillbox-helper -n $before -l dns-sd -x -a 'auto daemon embedded' -d 'who finds and announces services'
complete -c quillbox-helper -n $before -l verbose -a 'discovery engine advertising relay connection desktop' -d 'tell on standard error what it does'
complete -c quillbox-helper -n $before -l autostart -x -a 'on off' -d 'start at login, or not'
complete -c quillbox-helper -n $before -l version -d 'show the version and exit'
complete -c quillbox-helper -l help -d 'show help and exit'
complete -c quillbox-helper -n $before -a status -d 'tell the status of the running copy'
complete -c quillbox-helper -n $before -a open -d 'open the share of a phone'
complete -c quillbox-helper -n $before -a manage -d 'open the web management of a phone'
complete -c quillbox-helper -n $before -a restart -d 'restart the Finder service'
complete -c quillbox-helper -n $before -a quit -d 'end the program'
complete -c quillbox-helper -n $before -a doctor -d 'tell why a phone is not seen'
complete -c quillbox-helper -n '__fish_seen_subcommand_from status doctor' -l json -d 'as JSON'
