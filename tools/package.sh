# shellcheck shell=bash
# Sourced by ./dev: the command "package".
# shellcheck disable=SC2154 # root is set by ./dev

make_packages() {
    local output="$root/build/package"
    ensure_packages build package
    build release --target quillbox-helper
    "$root/tools/pack" "$root/build/release" "$output"
    lintian --allow-root --display-info --pedantic --fail-on pedantic,info,warning,error \
        "$output"/*.deb
    ls -l "$output"
}
