# shellcheck shell=bash
# Sourced by ./dev: the command "package".
# shellcheck disable=SC2154 # root and python are set by ./dev

make_packages() {
    local output="$root/build/package" architecture=''
    case "$#:${1:-}" in
        0:) ;;
        2:--arch) architecture=$2 ;;
        *)
            echo "./dev package: the only option is --arch ARCHITECTURE" >&2
            exit 2
            ;;
    esac
    case $architecture in
        '' | "$(dpkg --print-architecture)")
            ensure_packages build package
            build release --target quillbox-helper
            "$root/tools/pack" "$root/build/release" "$output"
            ;;
        arm64)
            if [ "$(id -u)" != 0 ]; then
                echo "./dev package --arch needs root: it makes a Debian system in build/" >&2
                exit 2
            fi
            ensure_packages package cross
            in_namespaces release "$python" "$root/tools/cross.py" "$architecture" "$output"
            ;;
        *)
            echo "./dev package: cannot build for the architecture \"$architecture\"" >&2
            exit 2
            ;;
    esac
    lintian --allow-root --display-info --pedantic --fail-on pedantic,info,warning,error \
        "$output"/*.deb
    ls -l "$output"
}
