# shellcheck shell=bash
# Sourced by ./dev: the commands "lint" and "format".
# shellcheck disable=SC2154 # root and python are set by ./dev

# The files of the project that match the patterns of git given, each ended by a NUL.
sources() {
    local file
    git -C "$root" ls-files -z --cached --others --exclude-standard -- "$@" |
        while IFS= read -r -d '' file; do
            if [ -f "$root/$file" ]; then printf '%s\0' "$root/$file"; fi
        done
}

format_sources() {
    sources '*.h' '*.cpp' | xargs -0r clang-format -i
}

lint_format() {
    sources '*.h' '*.cpp' | xargs -0r clang-format --dry-run -Werror
}

# Checks each file by itself, where a build joins several. Needs no build, because no header is
# generated.
lint_tidy() {
    (cd "$root" && cmake --preset release -B "$root/build/lint" \
        -DCMAKE_UNITY_BUILD=OFF >/dev/null)
    sources '*.cpp' | xargs -0r "$python" "$root/tools/tidy.py" "$root/build/lint"
}

# Data-flow analysis. False positives are suppressed in the source, with the reason.
lint_cppcheck() {
    sources '*.cpp' ':!tests' |
        xargs -0r cppcheck --enable=warning,performance,portability --std=c++20 --language=c++ \
            --quiet --inline-suppr --error-exitcode=1 -j "$(nproc)" -I "$root"
}

lint_shell() {
    {
        sources '*.sh' '*.bash'
        grep -lZIE -d skip '^#!.*\b(ba)?sh\b' -- "$root/dev" "$root"/.ci/* "$root"/tools/*
    } | sort -zu | xargs -0r shellcheck --external-sources --source-path="$root"
}

lint_python() {
    sources '*.py' | xargs -0r "$python" -m pyflakes
}

lint_architecture() {
    PYTHONDONTWRITEBYTECODE=1 "$python" -m pytest -c "$root/tests/pytest.ini" -q \
        "$root/tests/architecture"
}

run_lint() {
    local check code checks=("$@") failed=()
    if [ "${#checks[@]}" = 0 ]; then checks=(format shell python architecture cppcheck tidy); fi
    ensure_packages build lint
    for check in "${checks[@]}"; do
        if ! declare -F "lint_$check" >/dev/null; then
            echo "./dev lint: there is no check \"$check\"" >&2
            exit 2
        fi
        echo "---- $check"
        set +e
        (
            trap 'exit 130' INT
            set -euo pipefail
            "lint_$check"
        )
        code=$?
        set -e
        if [ "$code" -ne 0 ]; then failed+=("$check"); fi
    done
    if [ "${#failed[@]}" -gt 0 ]; then
        echo "lint: ${failed[*]} failed" >&2
        exit 1
    fi
    echo "lint: nothing to complain about"
}
