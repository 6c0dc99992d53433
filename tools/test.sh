# shellcheck shell=bash
# Sourced by ./dev: the command "test".
# shellcheck disable=SC2154 # root and python are set by ./dev

# Another folder for the runs of ./dev test --matrix, which must not overwrite each other's.
results="${QUILLBOX_RESULTS:-$root/build/results}"
broken=()

# Runs a step to its end, in a subshell that stops at its first error. A step that fails without
# naming a failed test counts as a failure itself.
step() {
    local name=$1 code
    shift
    echo "---- $name"
    set +e
    (
        set -e
        "$@"
    )
    code=$?
    set -e
    if [ "$code" -ne 0 ] &&
        ! grep -rqsE '<(failure|error)[ >/]|status="fail"' "$results/$name.xml" "$results/$name"; then
        broken+=("$name")
    fi
    return "$code"
}

joined() {
    local separator=$1 first=$2
    shift 2
    printf '%s' "$first" "${@/#/$separator}"
}

# Whether few enough tests failed for a second try. Networks, DNS-SD engines and desktops keep their
# own time while everything runs side by side on this computer: what fails then is tried once more,
# alone, and listed as unstable where it passes. Many failures are no accident.
is_worth_another_try() {
    local name=$1 failed
    failed=$(grep -cE '<(failure|error)[ >/]' "$results/$name.xml" 2>/dev/null) || true
    [ "${failed:-0}" -ge 1 ] && [ "$failed" -le 5 ]
}

# How many tests run side by side. They wait for networks and engines more than they compute, unless a
# sanitizer slows them down.
at_once() {
    if [ "$1" = release ]; then echo $(($(nproc) * 2)); else nproc; fi
}

# CTest on one preset; further arguments are CTest's own.
unit_tests() {
    local preset=$1
    shift
    local name="$preset unit tests" more=("$@") code=0
    if [ "${#filters[@]}" -gt 0 ]; then
        more+=(--tests-regex "$(joined '|' "${filters[@]}")" --no-tests=ignore)
    fi
    call_ctest --parallel "$(at_once "$preset")" --output-junit "$results/$name.xml" "${more[@]}" || code=$?
    if [ "$code" -eq 0 ] || ! is_worth_another_try "$name"; then return "$code"; fi
    echo "---- $name, second try"
    call_ctest --rerun-failed --output-junit "$results/$name.again.xml" "${more[@]}"
}

# Unit tests have a network without interfaces but loopback.
call_ctest() {
    cd "$root"
    if [ -n "$QUILLBOX_NO_NAMESPACES" ]; then
        steady "$preset" ctest --preset "$preset" "$@"
    else
        # shellcheck disable=SC2016 # for the inner shell
        in_private_world "$preset" --net -- \
            sh -c 'ip link set lo up && exec ctest "$@"' sh --preset "$preset" "$@"
    fi
}

# pytest, for a program of the preset given; the second argument names the results.
python_tests() {
    local preset=$1 name=$2
    shift 2
    local more=("$@") code=0
    if [ "${#filters[@]}" -gt 0 ]; then more+=(-k "$(joined ' or ' "${filters[@]}")"); fi
    call_pytest --durations=5 --junit-xml="$results/$name.xml" --numprocesses "$(at_once "$preset")" \
        "${more[@]}" || code=$?
    # 5: no test has a name that the filters select.
    if [ "$code" = 5 ] && [ "${#filters[@]}" -gt 0 ]; then code=0; fi
    if [ "$code" -eq 0 ] || ! is_worth_another_try "$name"; then return "$code"; fi
    echo "---- $name, second try"
    call_pytest --last-failed --junit-xml="$results/$name.again.xml" "${more[@]}"
}

# Each network test makes its own network.
call_pytest() {
    local pytest=("$python" -m pytest -c "$root/tests/pytest.ini" --rootdir="$root/tests" "$@")
    export PYTHONDONTWRITEBYTECODE=1
    if [ -n "$QUILLBOX_NO_NAMESPACES" ]; then
        steady "$preset" "${pytest[@]}"
    else
        in_private_world "$preset" -- "${pytest[@]}"
    fi
}

sanitizer_options() {
    local folder="$root/tests/sanitizers"
    export ASAN_OPTIONS="detect_stack_use_after_return=1:check_initialization_order=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export LSAN_OPTIONS="suppressions=$folder/lsan.supp:print_suppressions=0"
    export TSAN_OPTIONS="suppressions=$folder/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
    # How much longer a test may wait for a program that was built with sanitizers.
    export QUILLBOX_SLOWDOWN=3
}

plain_tests() {
    step "release build" build release || return 0
    step "release unit tests" unit_tests release || true
    step "release network tests" python_tests release "release network tests" \
        -m "not long" "$root/tests" || true
}

sanitizer_tests() {
    sanitizer_options
    if step "asan-ubsan build" build asan-ubsan; then
        step "asan-ubsan unit tests" unit_tests asan-ubsan || true
        export QUILLBOX_HELPER="$root/build/asan-ubsan/quillbox-helper"
        step "asan-ubsan network tests" python_tests asan-ubsan "asan-ubsan network tests" \
            -m "not long" "$root/tests/lan" "$root/tests/window" || true
    fi
    if step "tsan build" build tsan; then
        # The tests with the label need a desktop, whose libraries are not built for this.
        step "tsan unit tests" unit_tests tsan --label-exclude desktop || true
    fi
}

# The tests of the release build once more under conditions that others have, given as the first
# argument: "user", "container" or "chroot".
tests_as() {
    local row=$1 scratch code=0
    shift
    if [ "$(id -u)" != 0 ]; then
        echo "Only root can run the tests of \"$row\"." >&2
        return 1
    fi
    mkdir -p "$results/$row"
    scratch=$(mktemp -d)
    chmod 755 "$scratch"
    QUILLBOX_RESULTS="$results/$row" unshare --mount -- \
        "$root/tools/elsewhere" "$row" "$root" "$scratch" "$root/dev" test "${filters[@]}" || code=$?
    rm -rf --one-file-system "$scratch"
    return "$code"
}

matrix_tests() {
    local row
    for row in "$@"; do step "$row" tests_as "$row" || true; done
}

long_tests() {
    step "release build" build release || return 0
    step "long network tests" python_tests release "long network tests" -m long "$root/tests" || true
}

run_tests() {
    local what=plain lists=(build run test)
    filters=()
    case ${1:-} in
        --sanitizers | --long | --matrix | --all)
            what=${1#--}
            shift
            ;;
        -*)
            echo "./dev test: unknown option \"$1\"" >&2
            exit 2
            ;;
    esac
    filters=("$@")
    mkdir -p "$results"
    find "$results" -mindepth 1 -delete # it may be a mount point
    QUILLBOX_NO_NAMESPACES=$(namespace_problem)
    export QUILLBOX_NO_NAMESPACES
    set_namespace_options
    # What the build server accepts has no warning; others get the program all the same.
    # shellcheck disable=SC2034 # read by ./dev
    if [ "$what" = all ]; then configure_options=(-DCMAKE_COMPILE_WARNING_AS_ERROR=ON); fi
    if [ "$what" != plain ]; then lists+=(package-tests); fi
    if step "packages" ensure_packages "${lists[@]}"; then
        case $what in
            plain) plain_tests ;;
            sanitizers) sanitizer_tests ;;
            long) long_tests ;;
            matrix)
                plain_tests
                matrix_tests user container chroot
                ;;
            all)
                plain_tests
                matrix_tests user container
                sanitizer_tests
                ;;
        esac
    fi
    echo "---- summary"
    "${python}" "$root/tools/results.py" "$results" "${broken[@]/#/--broken=}"
}
