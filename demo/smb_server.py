"""Samba's smbd as the file server of a simulated phone: a share NAS for the user nas.

All of its files are in one folder. The network tests use it, too.
"""

import os
import signal
import subprocess

PORT = 4445

CONFIGURATION = """[global]
 smb ports = {port}
 server role = standalone server
 security = user
 username map = {folder}/users
 passdb backend = tdbsam:{folder}/passdb.tdb
 private dir = {folder}
 lock directory = {folder}/lock
 state directory = {folder}/state
 cache directory = {folder}/cache
 ncalrpc dir = {folder}/ncalrpc
 pid directory = {folder}
 log file = {folder}/log
 disable netbios = yes
 multicast dns register = no
 load printers = no
 printing = bsd
 disable spoolss = yes
 smb encrypt = off
 server signing = disabled
[NAS]
 path = {share}
 read only = no
"""


# For smbd on the loopback interface only. The mask keeps smbd from taking the address for the name
# of a network; it has no other effect.
THIS_COMPUTER_ONLY = """ interfaces = lo {address}/8
 bind interfaces only = yes
"""


def may_set_groups():
    """Whether this process may change its groups, which smbd does for each user."""
    try:
        os.setgroups(os.getgroups())
    except OSError:
        return False
    return True


def environment(base=None):
    """The environment for smbd and smbpasswd. Without root, or as the root of a user namespace that
    forbids setgroups(2), uid_wrapper emulates the calls that they would fail at."""
    result = dict(os.environ if base is None else base)
    # smbd is in a folder that is not in the PATH of ordinary users.
    result["PATH"] = result.get("PATH", os.defpath) + ":/usr/sbin"
    if not may_set_groups():
        result |= {"LD_PRELOAD": "libuid_wrapper.so", "UID_WRAPPER": "1", "UID_WRAPPER_ROOT": "1"}
    return result


def write_configuration(folder, share, port=PORT, only_on=None, guests=False):
    """Returns the path of the configuration file. With the loopback address `only_on`, smbd listens
    on that address and on the loopback interface's own, and nowhere else. With `guests`, the share
    opens without a login too."""
    smb = os.path.join(folder, "smb")
    for part in ("lock", "state", "cache", "ncalrpc"):
        os.makedirs(os.path.join(smb, part), exist_ok=True)
    with open(os.path.join(smb, "users"), "w", encoding="utf-8") as file:
        file.write("root = nas\n")
    path = os.path.join(smb, "smb.conf")
    with open(path, "w", encoding="utf-8") as file:
        text = CONFIGURATION
        if only_on:
            text = text.replace("[NAS]\n", THIS_COMPUTER_ONLY + "[NAS]\n")
        if guests:
            text = text.replace("[NAS]\n", " map to guest = Bad User\n[NAS]\n guest ok = yes\n")
        file.write(text.format(folder=smb, port=port, share=share, address=only_on))
    return path


def password_command(configuration):
    """The command that sets the user's password; it reads the password twice."""
    return ["smbpasswd", "-c", configuration, "-s", "-a", "root"]


def server_command(configuration):
    options = ["--foreground", "--no-process-group", "--debug-stdout", "-d3"]
    return ["smbd", *options, "-s", configuration]


def prepare(folder, share, password, port=PORT, only_on=None):
    """Writes the files of the server; returns its command and environment."""
    configuration = write_configuration(folder, share, port, only_on)
    variables = environment()
    subprocess.run(
        password_command(configuration),
        input=f"{password}\n{password}\n".encode(),
        env=variables,
        check=True,
        capture_output=True,
    )
    return server_command(configuration), variables


def end_helpers(folder):
    """Ends the separate processes that smbd starts and does not end: those whose command line names
    the configuration file in this folder."""
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/cmdline", "rb") as file:
                arguments = os.fsdecode(file.read()).split("\0")
            if any(x.startswith(f"--configfile={folder}/") for x in arguments):
                os.kill(int(entry), signal.SIGTERM)
        except OSError:
            continue
