# shellcheck shell=bash
# Sourced by ./dev: the command "screenshots".
# shellcheck disable=SC2154 # root and python are set by ./dev

take_screenshots() {
    ensure_packages build run screenshots
    build_quietly quillbox-helper
    PYTHONDONTWRITEBYTECODE=1 in_namespaces release \
        "$python" "$root/tools/screenshots.py" "$root/docs/screenshots" "$@"
}
