# shellcheck shell=bash
# Sourced by ./dev: installs missing packages of packages.txt.
# shellcheck disable=SC2154 # root is set by ./dev

packages_file="$root/tools/packages.txt"

# The names of the packages of the lists given.
packages_of() {
    local list
    for list in "$@"; do
        awk -v list="$list" '$1 == list { print $2 }' "$packages_file"
    done
}

# Changes when the lists change and when any package is installed or removed.
packages_state() {
    { cat "$packages_file" "$root/tools/packages.sh"; stat -c '%Y %s' /var/lib/dpkg/status; } |
        sha256sum
}

missing_packages() {
    local wanted
    mapfile -t wanted < <(packages_of "$@")
    {
        dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null || true
    } | awk -v wanted="${wanted[*]}" '
        $1 == "installed" { there[$2] = 1 }
        END {
            count = split(wanted, names, " ")
            for (i = 1; i <= count; i++) if (!(names[i] in there)) print names[i]
        }' | sort -u
}

# On a system without apt-get: the commands that must be there, for the lists given.
missing_commands() {
    local list command
    for list in "$@"; do
        case $list in
            build) set -- g++ cmake ninja pkg-config ;;
            test) set -- unshare nsenter ip dbus-daemon avahi-daemon avahi-browse smbd smbclient smbtorture ;;
            package-tests) set -- dh lintian mandoc zsh fish debootstrap flatpak-builder appstreamcli rpmbuild \
                rpmlint makepkg ;;
            bench) set -- haproxy nginx socat Xvfb openbox ;;
            package) set -- dh lintian xz ;;
            cross) set -- debootstrap ;;
            lint) set -- clang-format clang-tidy cppcheck shellcheck ;;
            *) set -- ;;
        esac
        for command in "$@"; do
            PATH="$PATH:/usr/sbin:/sbin" command -v "$command" >/dev/null || echo "$command"
        done
    done
}

# Installs what is missing of the lists given.
ensure_packages() {
    local stamp state list missing=()
    stamp="$root/build/.packages-$(IFS=- && echo "$*")"
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        mapfile -t missing < <(missing_commands "$@")
        if [ "${#missing[@]}" = 0 ]; then return; fi
        {
            echo "This system has no apt-get, so ./dev cannot install what is missing:"
            printf '    %s\n' "${missing[@]}"
            echo "These are the packages as Debian calls them; install their counterparts:"
            for list in "$@"; do sed -n "s/^$list /    /p" "$packages_file"; done
        } >&2
        exit 1
    fi
    state=$(packages_state)
    if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$state" ]; then return; fi

    mapfile -t missing < <(missing_packages "$@")
    if [ "${#missing[@]}" -gt 0 ]; then
        local install=("$root/tools/install-packages" "${missing[@]}")
        if [ "$(id -u)" != 0 ]; then
            echo "These packages have to be installed: ${missing[*]}" >&2
            if ! command -v sudo >/dev/null; then
                echo "Neither root nor sudo. As root: apt-get install --no-install-recommends" \
                    "${missing[*]}" >&2
                exit 1
            fi
            sudo --validate || return # asks for the password before the counter starts
            install=(sudo "${install[@]}")
        fi
        with_progress "Installing packages" "$root/build/packages.log" read_apt "${install[@]}" ||
            return
    fi
    mkdir -p "$root/build"
    packages_state >"$stamp"
}
