# shellcheck shell=bash
# Sourced by ./dev: the command "release".
# shellcheck disable=SC2154 # root and python are set by ./dev

make_release() {
    local tag=${1:-} output
    if [ $# != 1 ]; then
        echo "usage: ./dev release TAG" >&2
        exit 2
    fi
    if ! git -C "$root" rev-parse --quiet --verify "refs/tags/$tag^{commit}" >/dev/null; then
        echo "./dev release: there is no tag \"$tag\"" >&2
        exit 2
    fi
    if [ "$(id -u)" != 0 ]; then
        echo "./dev release needs root: it makes a Debian system in build/" >&2
        exit 2
    fi
    output="$root/build/releases/$tag"
    if [ -n "$(ls -A "$output" 2>/dev/null)" ]; then
        echo "./dev release: $output is not empty" >&2
        exit 2
    fi
    mkdir -p "$output"
    ensure_packages build package cross
    in_namespaces release "$python" "$root/tools/release.py" "$tag" "$output"
    ls -l "$output"
}
