# shellcheck shell=sh
# Runs in a host of the test network: starts the services that a desktop needs in the Debian system in
# the given folder, then executes the lines of standard input as an ordinary user of that system.
set -e
cd "$1"
mount --rbind /run run
mount -t proc proc proc
mount --bind /dev dev
chroot . dbus-uuidgen --ensure
chroot . dbus-daemon --system --nofork --nopidfile &
until [ -S run/dbus/system_bus_socket ]; do sleep 0.1; done
chroot . avahi-daemon --no-rlimits >&2 &
until chroot . avahi-daemon --check; do sleep 0.1; done
mkdir -p run/user
mkdir -m 700 run/user/4711
chroot . chown 4711:4711 /run/user/4711
exec chroot . setpriv --reuid 4711 --regid 4711 --clear-groups env -i HOME=/home/somebody \
    XDG_RUNTIME_DIR=/run/user/4711 PATH=/usr/bin:/bin DISPLAY=:1 LC_ALL=C.UTF-8 dbus-run-session -- sh -c '
    cd
    Xvfb :1 -nolisten tcp -displayfd 3 3>display 2>/dev/null &
    until [ -s display ]; do sleep 0.1; done
    echo ready
    exec sh'
