# shellcheck shell=bash
# Sourced by ./dev: the command "soak".
# shellcheck disable=SC2154 # root and python are set by ./dev

# Runs traffic through the program in network namespaces; arguments: see tests/lan/soak.py.
run_soak() {
    case ${1:-} in
        -h | --help) ;;
        *)
            ensure_packages build run test
            build_quietly quillbox-helper
            ;;
    esac
    PYTHONDONTWRITEBYTECODE=1 in_namespaces release "$python" "$root/tests/lan/soak.py" "$@"
}
