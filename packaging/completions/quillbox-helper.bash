# shellcheck shell=bash
# bash completion for quillbox-helper

_quillbox_helper() {
    local typed=${COMP_LINE:0:COMP_POINT} current=${COMP_WORDS[COMP_CWORD]}
    local word command="" words prefix=""
    typed=${typed##* }
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            status | open | manage | restart | quit | doctor)
                command=$word
                break
                ;;
        esac
    done
    case $command:$typed in
        :--dns-sd=*) words="auto daemon embedded" ;;
        :--verbose=*) words="discovery engine advertising relay connection desktop" ;;
        :--autostart=* | :--this-computer-only=*) words="on off" ;;
        :*) words="--hidden --dns-sd= --this-computer-only --this-computer-only= --verbose --verbose= --autostart= --help --version status open manage restart quit doctor" ;;
        status:* | doctor:*) words="--json --help" ;;
        *) words="--help" ;;
    esac
    # Where "=" separates words, bash keeps the text before it.
    if [[ $typed == --*=* ]]; then
        if [[ $current == --*=* ]]; then prefix=${typed%%=*}=; fi
        current=${typed#*=}
    fi
    mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$words" -- "$current")
    if [[ ${COMPREPLY[0]-} == --*= ]]; then compopt -o nospace 2>/dev/null; fi
}

complete -F _quillbox_helper quillbox-helper
