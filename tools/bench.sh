# shellcheck shell=bash
# Sourced by ./dev: the command "bench".
# shellcheck disable=SC2154 # root and python are set by ./dev

run_bench() {
    local log="$root/build/build.log"
    ensure_packages build run test bench
    mkdir -p "$root/build"
    if ! build release --target quillbox-helper quillbox-bench-load >"$log" 2>&1; then
        cat "$log" >&2
        exit 1
    fi
    PYTHONDONTWRITEBYTECODE=1 in_namespaces release "$python" "$root/bench/bench.py" "$@"
}
