# shellcheck shell=bash
# Sourced by ./dev: the command "soak".
# shellcheck disable=SC2154 # root and python are set by ./dev

# Runs traffic through the program in network namespaces; arguments: see tests/lan/soak.py.
run_soak() {
    export PYTHONDONTWRITEBYTECODE=1
    case ${1:-} in -h | --help) exec "$python" "$root/tests/lan/soak.py" --help ;; esac
    ensure_packages build run test
    build_quietly quillbox-helper
    in_namespaces release "$python" "$root/tests/lan/soak.py" "$@"
}
