# shellcheck shell=bash
# Sourced by ./dev: the command "bench".
# shellcheck disable=SC2154 # root and python are set by ./dev

run_bench() {
    export PYTHONDONTWRITEBYTECODE=1
    case ${1:-} in -h | --help) exec "$python" "$root/bench/bench.py" --help ;; esac
    ensure_packages build run test bench
    build_quietly quillbox-helper quillbox-bench-load
    in_namespaces release "$python" "$root/bench/bench.py" "$@"
}
