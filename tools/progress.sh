# shellcheck shell=bash
# Sourced by ./dev: long steps that print how far they are, and how long they take.

# Runs a command with its output in a log. If it takes longer than a moment, says what is going on:
# on a terminal as a counter in one line, elsewhere once at the beginning and once at the end. If the
# command fails, prints the log. READER is called with each line of output; it sets `state`, what the
# counter shows, and `note`, a line to print once.
#     with_progress "What is being done" LOG READER COMMAND [ARGUMENTS]
with_progress() {
    local what=$1 log=$2 reader=$3 code
    shift 3
    mkdir -p "$(dirname "$log")"
    # The command stays in the foreground, as Ctrl-C does not reach background processes.
    set +e
    "$@" 2>&1 </dev/null | tee "$log" | show_progress "$what" "$reader"
    code=${PIPESTATUS[0]}
    set -e
    if [ "$code" -ne 0 ]; then
        cat "$log" >&2
        echo "$what: failed; the output above is in $log" >&2
    fi
    return "$code"
}

show_progress() {
    local what=$1 reader=$2 line='' state='' note='' started=$SECONDS seconds code told=
    local packages=0 to_get='?' unpacked=0 set_up=0 # for read_apt
    while :; do
        code=0
        IFS= read -r -t 1 line || code=$?
        # Above 128 the second is over; other failures mean the end of the output.
        if [ "$code" -gt 0 ] && [ "$code" -le 128 ]; then break; fi
        "$reader" "$line"
        seconds=$((SECONDS - started))
        if [ "$seconds" -lt 1 ]; then continue; fi
        if [ -z "$told" ] && [ ! -t 2 ]; then echo "$what ..." >&2; fi
        told=yes
        if [ -t 2 ]; then printf '\r\033[K' >&2; fi
        if [ -n "$note" ]; then
            printf '%s\n' "$note" >&2
            note=
        fi
        if [ -t 2 ]; then printf '%s: %s%s s' "$what" "${state:+$state, }" "$seconds" >&2; fi
    done
    if [ -z "$told" ]; then return; fi
    if [ -t 2 ]; then printf '\r\033[K' >&2; fi
    echo "$what: $((SECONDS - started)) s" >&2
}

# What apt-get is doing.
read_apt() {
    local number='([0-9]+) newly installed' download='^Need to get (.*) of archives'
    local size='^After this operation, (.*) of additional'
    case $1 in
        *" newly installed"*)
            [[ $1 =~ $number ]] && packages=${BASH_REMATCH[1]}
            ;;
        "Need to get "*) [[ $1 =~ $download ]] && to_get=${BASH_REMATCH[1]} ;;
        "After this operation, "*)
            [[ $1 =~ $size ]] &&
                note="  $packages packages: $to_get to download, ${BASH_REMATCH[1]} on disk"
            ;;
        Get:*)
            [[ $1 =~ ^Get:([0-9]+) ]]
            state=downloading
            if [ "$packages" != 0 ]; then state="downloading ${BASH_REMATCH[1]} of $packages"; fi
            ;;
        "Unpacking "*) state="unpacking $((unpacked += 1)) of $packages" ;;
        "Setting up "*) state="setting up $((set_up += 1)) of $packages" ;;
    esac
    return 0
}

# How far ninja is: its lines begin with "[12/34] ".
read_ninja() {
    local steps='^\[([0-9]+)/([0-9]+)\]'
    if [[ $1 =~ $steps ]]; then state="step ${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"; fi
}
