"""The executables are built with the usual hardening options."""

import re
import subprocess

import pytest
from rig.computer import ENGINES, PROGRAM


def told(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True, timeout=120).stdout


@pytest.mark.parametrize("program", [PROGRAM, *ENGINES])
@pytest.mark.parametrize(
    "option, expected",
    [
        ("-h", r"Type:\s+DYN \(Position-Independent Executable"),
        ("-d", r"\(FLAGS_1\)\s+Flags: .*PIE"),
        ("-d", r"\(FLAGS\)\s+BIND_NOW"),
        ("-l", r"GNU_RELRO\s"),
        ("-l", r"GNU_STACK\s.* RW "),
        ("-s", r"__stack_chk_fail"),
    ],
    ids=["position", "position flag", "binding", "relocations", "stack data", "stack protector"],
)
def test_the_executable_has(program, option, expected):
    assert re.search(expected, told("readelf", "-W", option, program))


def test_the_code_guards_its_jumps_and_probes_its_stack():
    """Checks the code: on Debian 12 the linker omits the control-flow protection property from the
    executable, as the C start files are built without it."""
    code = told("objdump", "--disassemble", "--no-show-raw-insn", PROGRAM)
    (main,) = re.findall(r"<main>:\n\s*[0-9a-f]+:\s*(\w+)", code)
    assert main == "endbr64"
    assert code.count("endbr64") > 1000
    # -fstack-clash-protection emits this probe for every page of a large stack frame.
    assert re.search(r"orq\s+\$0x0,(0x[0-9a-f]+)?\(%rsp\)", code)
