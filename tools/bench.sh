# shellcheck shell=bash
# Sourced by ./dev: the command "bench".
# shellcheck disable=SC2154 # root and python are set by ./dev

run_bench() {
    ensure_packages build run test bench
    build_quietly quillbox-helper quillbox-bench-load
    PYTHONDONTWRITEBYTECODE=1 in_namespaces release "$python" "$root/bench/bench.py" "$@"
}
