# shellcheck shell=bash
# Sourced by ./dev: the command "fuzz".
# shellcheck disable=SC2154 # root is set by ./dev

# Runs each harness for that many seconds. Inputs that reach new code are kept in build/fuzz/corpus,
# where the next run continues; inputs that fail are kept as fuzz/corpus/HARNESS/found-…, so that
# later tests replay them.
run_fuzz() {
    local seconds=${1:-60} folder="$root/build/fuzz" harness corpus fresh broken=()
    if ! [[ $seconds =~ ^[0-9]+$ ]]; then
        echo "./dev fuzz: \"$seconds\" is not a number of seconds" >&2
        exit 2
    fi
    ensure_packages build fuzz
    (cd "$root" && steady asan-ubsan cmake --preset fuzz >/dev/null)
    steady asan-ubsan cmake --build "$folder" --parallel "$(nproc)" --target fuzzers
    for corpus in "$root"/fuzz/corpus/*/; do
        harness=$(basename "$corpus")
        fresh="$folder/corpus/$harness"
        mkdir -p "$fresh"
        echo "---- $harness"
        # No leak detection: Qt's caches live as long as the process.
        if ! QT_QPA_PLATFORM=offscreen ASAN_OPTIONS=detect_leaks=0 \
            steady asan-ubsan "$folder/fuzz_$harness" -max_total_time="$seconds" -timeout=5 \
            -rss_limit_mb=2048 -max_len=8192 -print_final_stats=1 -verbosity=0 \
            -artifact_prefix="${corpus}found-" "$fresh" "$corpus"; then
            broken+=("$harness")
        fi
    done
    if [ "${#broken[@]}" -gt 0 ]; then
        echo "fuzz: failures in ${broken[*]}: see fuzz/corpus/*/found-*" >&2
        exit 1
    fi
    echo "fuzz: nothing found"
}
