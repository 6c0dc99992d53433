# shellcheck shell=bash
# Sourced by ./dev: namespaces, in which programs see a network, a /dev, a /run and a /tmp of their own.
# shellcheck disable=SC2154 # root is set by ./dev

# Sets `namespace_options` to what unshare(1) needs. The PID namespace ends all processes of a run
# that is interrupted with Ctrl-C.
set_namespace_options() {
    namespace_options=(--mount --pid --fork --kill-child --mount-proc)
    if [ "$(id -u)" != 0 ]; then namespace_options+=(--user --map-root-user); fi
}

# Prints why no namespaces can be created here, and the remedy; prints nothing if they can.
namespace_problem() {
    local namespace_options said
    set_namespace_options
    if said=$(in_private_world release --net -- true 2>&1); then return; fi
    if [ "$(id -u)" != 0 ]; then
        echo "no network namespaces: ordinary users may not create user namespaces here" \
            "(as root: sysctl kernel.unprivileged_userns_clone=1" \
            "kernel.apparmor_restrict_unprivileged_userns=0 user.max_user_namespaces=10000);" \
            "or run the tests as root"
    elif ! mountpoint --quiet /; then
        echo "no network namespaces: the root directory of this chroot is not a mount point" \
            "(outside of it: mount --bind DIRECTORY DIRECTORY, then chroot again)"
    elif ! setpriv --dump | grep -q '^Capability bounding set:.*\bsys_admin\b'; then
        echo "no network namespaces: this container has no CAP_SYS_ADMIN" \
            "(start it with --cap-add SYS_ADMIN --security-opt apparmor=unconfined)"
    else
        echo "no network namespaces: ${said##*$'\n'}"
    fi
}

# Runs a command in new namespaces: in_private_world PRESET [OPTIONS OF UNSHARE] -- COMMAND
in_private_world() {
    local preset=$1 options=() scratch code=0
    shift
    while [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    shift
    scratch=$(mktemp -d) || return
    steady "$preset" unshare "${namespace_options[@]}" "${options[@]}" -- \
        "$root/tools/private-world" "$root" "$scratch" "$@" || code=$?
    # Tests may leave folders that their owner cannot enter.
    chmod -R u+rwX "$scratch" 2>/dev/null || true
    rm -rf --one-file-system "$scratch" || true
    return "$code"
}

# Runs a command for a program of the preset given in new namespaces; fails with the reason where
# none can be created.
in_namespaces() {
    local preset=$1 problem namespace_options
    shift
    problem=$(namespace_problem)
    if [ -n "$problem" ]; then
        echo "$problem" >&2
        return 1
    fi
    set_namespace_options
    in_private_world "$preset" -- "$@"
}
