# shellcheck shell=bash
# Sourced by ./dev: the command "test".
# shellcheck disable=SC2154 # root and python are set by ./dev

# Each run that ./dev test --matrix starts has a folder of its own in it.
results="$root/build/results"
case ${QUILLBOX_RESULTS:-} in "$results"/*) results=$QUILLBOX_RESULTS ;; esac

# Runs a step to its end, in a subshell that stops at its first error, and sets `code` to its exit
# status. A step that fails without reporting a failed test counts as a failure itself. It must not
# be called in a condition, where bash ignores `set -e` in the subshell too.
step() {
    local name=$1 start=$SECONDS
    shift
    echo "---- $name"
    set +e
    (
        trap 'exit 130' INT
        set -e
        "$@"
    )
    code=$?
    set -e
    echo "---- $name: $((SECONDS - start)) s"
    if [ "$code" -ne 0 ] && ! has_failures "$name"; then echo "$name" >>"$results/broken"; fi
}

# Whether a step has reported failed tests, or broken steps of its own.
has_failures() {
    [ -e "$results/$1/broken" ] || [ "$(failures_in "$results/$1.xml" "$results/$1")" != 0 ]
}

failures_in() {
    { grep -rhsoE '<(failure|error)[ >/]' "$@" || true; } | wc -l
}

joined() {
    local separator=$1 first=$2
    shift 2
    printf '%s' "$first" "${@/#/$separator}"
}

# Whether few enough tests failed for a second try. Tests with real timing may fail while others run
# beside them. Up to five of them run again, and are listed as unstable if they pass; more failures
# have another cause.
is_worth_another_try() {
    local failed
    failed=$(failures_in "$results/$1.xml")
    [ "$failed" -ge 1 ] && [ "$failed" -le 5 ]
}

# How many tests run at once on each processor. They wait for timers, networks and engines most of the
# time. With more, network tests of the release build miss their limits, which are three times as long
# under a sanitizer.
at_once() {
    case $1 in
        "release network tests" | "long network tests") echo $(($(nproc) * 3)) ;;
        *) echo $(($(nproc) * 4)) ;;
    esac
}

# The unit tests of one preset; further arguments are those of unit_tests.py.
unit_tests() {
    local preset=$1
    shift
    local name="$preset unit tests" more=("$@") code=0
    if [ "${#filters[@]}" -gt 0 ]; then more+=(--filter "$(joined '|' "${filters[@]}")"); fi
    call_unit_tests "$name" --jobs "$(at_once "$name")" "${more[@]}" || code=$?
    # 1: tests have failed.
    if [ "$code" != 1 ] || ! is_worth_another_try "$name"; then return "$code"; fi
    echo "---- $name, second try"
    call_unit_tests "$name.again" --jobs 1 --again "$results/$name.xml" "${more[@]}"
}

# As root, unit tests have files and a network of their own. Others would be root in these namespaces,
# and some tests are about what ordinary users may do.
call_unit_tests() {
    local name=$1 runner
    shift
    runner=("$python" "$root/tools/unit_tests.py" "$root/build/$preset" "$results/$name.xml" "$@")
    if [ -n "$QUILLBOX_NO_NAMESPACES" ] || [ "$(id -u)" != 0 ]; then
        steady "$preset" "${runner[@]}"
    else
        # shellcheck disable=SC2016 # for the inner shell
        in_private_world "$preset" --net -- \
            sh -c 'ip link set lo up && exec "$@"' sh "${runner[@]}"
    fi
}

# pytest, for a program of the preset given; the second argument names the results.
python_tests() {
    local preset=$1 name=$2
    shift 2
    local more=("$@") code=0
    if [ "${#filters[@]}" -gt 0 ]; then more+=(-k "$(joined ' or ' "${filters[@]}")"); fi
    call_pytest --durations=5 --junit-xml="$results/$name.xml" --numprocesses "$(at_once "$name")" \
        "${more[@]}" || code=$?
    # 5: no test has a name that the filters select.
    if [ "$code" = 5 ] && [ "${#filters[@]}" -gt 0 ]; then code=0; fi
    # 1: tests have failed.
    if [ "$code" != 1 ] || ! is_worth_another_try "$name"; then return "$code"; fi
    echo "---- $name, second try"
    call_pytest --last-failed --junit-xml="$results/$name.again.xml" "${more[@]}"
}

# Each network test makes its own network.
call_pytest() {
    local pytest=("$python" -m pytest -c "$root/tests/pytest.ini" --rootdir="$root/tests" "$@")
    # Every process of the run reads all tests, which takes seconds unless they are compiled. A folder
    # that nothing may be written to would have Python's own library compiled each time, too.
    export PYTHONPYCACHEPREFIX="$root/build/pytest/bytecode"
    unset PYTHONDONTWRITEBYTECODE
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
    export LSAN_OPTIONS="suppressions='$folder/lsan.supp':print_suppressions=0"
    export TSAN_OPTIONS="suppressions='$folder/tsan.supp':halt_on_error=1:second_deadlock_stack=1"
    # How much longer a test may wait for a program that was built with sanitizers.
    export QUILLBOX_SLOWDOWN=3
}

plain_tests() {
    step "release build" build release
    if [ "$code" != 0 ]; then return; fi
    step "release unit tests" unit_tests release
    step "release network tests" python_tests release "release network tests" \
        -m "not long and not desktops$deselected" --dns-sd="$engines" "$root/tests"
}

sanitizer_tests() {
    sanitizer_options
    step "asan-ubsan build" build asan-ubsan
    if [ "$code" = 0 ]; then
        step "asan-ubsan unit tests" unit_tests asan-ubsan
        export QUILLBOX_HELPER="$root/build/asan-ubsan/quillbox-helper"
        step "asan-ubsan network tests" python_tests asan-ubsan "asan-ubsan network tests" \
            -m "not long" "$root/tests/lan" "$root/tests/window"
    fi
    step "tsan build" build tsan --target tests_for_tsan
    if [ "$code" = 0 ]; then
        # These need a message bus, whose libraries are not built for this.
        step "tsan unit tests" unit_tests tsan --without-label no-tsan \
            --without '^(diagnosis\.BusProbes|linux\.Examination)\.'
    fi
}

# Runs the tests again that may differ under the conditions of tools/elsewhere: "user", "container" or
# "chroot".
tests_as() {
    local row=$1 scratch code=0
    mkdir -p "$results/$row"
    scratch=$(mktemp -d)
    # shellcheck disable=SC2064 # the folder of now; it holds a copy of the checkout
    trap "rm -rf --one-file-system '$scratch'" EXIT
    chmod 755 "$scratch"
    QUILLBOX_RESULTS="$results/$row" unshare --mount -- \
        "$root/tools/elsewhere" "$row" "$root" "$scratch" "$root/dev" test --row "${filters[@]}"
}

matrix_tests() {
    local row
    for row in "$@"; do step "$row" tests_as "$row"; done
}

long_tests() {
    step "release build" build release
    if [ "$code" != 0 ]; then return; fi
    step "long network tests" python_tests release "long network tests" -m long \
        --dns-sd="$engines" "$root/tests"
}

# They run one after the other, because they measure how long desktops take.
desktop_tests() {
    step "release build" build release --target quillbox-helper
    if [ "$code" != 0 ]; then return; fi
    step "desktop tests" python_tests release "desktop tests" --numprocesses 0 "$root/tests/desktops"
    if [ "$code" != 0 ]; then return; fi
    "$python" "$root/tests/desktops/page.py" "$root/tests/desktops/findings" "$root/docs/desktops.md"
}

run_tests() {
    local what=plain lists=(build run test) word engines=mixed may_change_conditions='' deselected=''
    filters=()
    case ${1:-} in
        --sanitizers | --long | --matrix | --row | --desktops | --all)
            what=${1#--}
            shift
            ;;
    esac
    for word in "$@"; do
        if [ "${word#-}" != "$word" ]; then
            echo "./dev test: unknown option \"$word\"" >&2
            exit 2
        fi
    done
    filters=("$@")
    if [[ $what != plain && $what != row ]]; then lists+=(package-tests); fi

    QUILLBOX_NO_NAMESPACES=$(namespace_problem)
    export QUILLBOX_NO_NAMESPACES
    set_namespace_options
    if [ "$(id -u)" = 0 ] && [ -z "$QUILLBOX_NO_NAMESPACES" ]; then may_change_conditions=yes; fi
    if [[ $what = matrix || $what = desktops ]] && [ -z "$may_change_conditions" ]; then
        echo "./dev test --$what needs root and namespaces. $QUILLBOX_NO_NAMESPACES" >&2
        exit 2
    fi
    # Otherwise only tests about the engines run with each of them.
    if [[ $what = all || $what = long ]]; then engines=both; fi
    # Warnings are errors on the build server only, and in the presets of developers.
    if [ "$what" = all ]; then export QUILLBOX_WARNING_AS_ERROR=ON; fi

    mkdir -p "$results"
    find "$results" -mindepth 1 -delete # it may be a mount point
    step "packages" ensure_packages "${lists[@]}"
    if [ "$code" = 0 ]; then
        case $what in
            plain) plain_tests ;;
            row)
                # What others show as root, they show for everybody.
                deselected=" and not any_user"
                plain_tests
                ;;
            sanitizers) sanitizer_tests ;;
            long) long_tests ;;
            desktops) desktop_tests ;;
            matrix)
                plain_tests
                matrix_tests user container chroot
                ;;
            all)
                plain_tests
                if [ -n "$may_change_conditions" ]; then
                    matrix_tests user container
                else
                    echo "---- user, container: left out, as they need root and namespaces"
                fi
                sanitizer_tests
                ;;
        esac
    fi
    echo "---- summary"
    "${python}" "$root/tools/results.py" "$results"
}
