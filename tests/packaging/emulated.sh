# shellcheck shell=sh
# Runs a command in the Debian system in the given folder, and programs for arm64 in it with qemu-user:
# emulated.sh FOLDER COMMAND [ARGUMENTS]. Needs namespaces of its own for users and mounts. Since Linux 6.7
# a user namespace has its own list of what runs which programs; the machine's list stays as it is.
set -e
cd "$1"
shift
mount --rbind /run run
mount -t binfmt_misc binfmt_misc proc/sys/fs/binfmt_misc
# The ELF header of executables for 64-bit ARM. Flag P passes argv[0] on to qemu. Flag F makes the kernel
# open qemu now, so that it finds it in every chroot.
magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
printf '%s' ":arm64:M::$magic:$mask:$PWD/usr/bin/qemu-aarch64-static:PF" >proc/sys/fs/binfmt_misc/register
exec chroot . "$@"
