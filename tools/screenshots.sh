# shellcheck shell=bash
# Sourced by ./dev: the command "screenshots".
# shellcheck disable=SC2154 # root and python are set by ./dev

take_screenshots() {
    local log="$root/build/build.log"
    ensure_packages build run screenshots
    mkdir -p "$root/build"
    if ! build release --target quillbox-helper >"$log" 2>&1; then
        cat "$log" >&2
        exit 1
    fi
    PYTHONDONTWRITEBYTECODE=1 in_namespaces release \
        "$python" "$root/tools/screenshots.py" "$root/docs/screenshots" "$@"
}
