# shellcheck shell=bash
# Sourced by ./dev: the commands "lint" and "format".
# shellcheck disable=SC2154 # root and python are set by ./dev

# Our files with one of the endings given, one a line.
sources() {
    git -C "$root" ls-files --cached --others --exclude-standard -- "$@" |
        while read -r file; do
            if [ -f "$root/$file" ]; then echo "$root/$file"; fi
        done
}

format_sources() {
    sources '*.h' '*.cpp' | xargs -r clang-format -i
}

lint_format() {
    sources '*.h' '*.cpp' | xargs -r clang-format --dry-run -Werror
}

# Each file is checked as the text that it is, also where a build joins several. It needs no build: no
# header of ours is generated.
lint_tidy() {
    (cd "$root" && cmake --preset release -B "$root/build/lint" \
        -DCMAKE_UNITY_BUILD=OFF >/dev/null)
    sources '*.cpp' | xargs -r "$python" "$root/tools/tidy.py" "$root/build/lint"
}

# What a static analyser sees that follows values; findings that are none are suppressed where they
# stand, with the reason.
lint_cppcheck() {
    sources '*.cpp' | grep -v "^$root/tests/" |
        xargs -r cppcheck --enable=warning,performance,portability --std=c++20 --language=c++ \
            --quiet --inline-suppr --error-exitcode=1 -j "$(nproc)" -I "$root"
}

lint_shell() {
    {
        sources '*.sh' '*.bash'
        grep -lIE '^#!.*\b(ba)?sh\b' -- "$root/dev" "$root"/.ci/* "$root"/tools/*
    } | sort -u | xargs -r shellcheck --external-sources --source-path="$root"
}

lint_python() {
    sources '*.py' | xargs -r "$python" -m pyflakes
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
