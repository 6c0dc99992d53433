# shellcheck shell=sh
# Runs in a host of the test network: starts the service manager of an ordinary user, as a login does,
# with its own cgroups and the program installed in /usr/local; then executes the lines of standard
# input as that user. The remaining arguments are a command that starts another one with limits.
set -e
cgroup=$1 installed=$2 home=$3
if mkdir "$cgroup" 2>/dev/null; then
    echo $$ >"$cgroup/cgroup.procs"
    exec unshare --cgroup -- sh "$0" "$@"
fi
shift 3
umount --recursive --lazy /sys/fs/cgroup
mount -t cgroup2 cgroup2 /sys/fs/cgroup
mkdir /sys/fs/cgroup/user
chown -R 4711:4711 /sys/fs/cgroup/user
echo $$ >/sys/fs/cgroup/user/cgroup.procs

mount -t tmpfs -o mode=755 tmpfs /usr/local
for folder in bin lib libexec share; do cp -r "$installed/$folder" /usr/local; done

{
    cat /etc/passwd
    echo "somebody:x:4711:4711::$home:/bin/sh"
} >/run/passwd
mount --bind /run/passwd /etc/passwd
# The system's service manager creates these at boot.
mkdir -p /run/systemd/system /run/systemd/unit-root /run/systemd/mount-rootfs /run/user/4711
chmod 700 /run/user/4711
chown -R 4711:4711 /run/user/4711 "$home"
exec "$@" setpriv --reuid 4711 --regid 4711 --clear-groups env -i HOME="$home" USER=somebody \
    PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin XDG_RUNTIME_DIR=/run/user/4711 sh -c '
    cd
    /usr/lib/systemd/systemd --user --log-target=null &
    echo ready
    exec sh'
