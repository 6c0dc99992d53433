"""Samba's SMB test suites give the same results through a relay as without one."""

import re

import pytest
from rig.phone import PASSWORD
from test_automatic import appear

QUICK = "connect getinfo lock read rw sharemode".split()
OTHERS = "charset credits deny dir ea ioctl mkdir rename setinfo streams tcon winattr".split()
VERDICT = re.compile(r"^(success|failure|error|skip): (\S+)", re.MULTILINE)


def verdicts(host, address, port, suite):
    done = host.run(
        *["smbtorture", f"//{address}/NAS", "-p", str(port), "-U", f"nas%{PASSWORD}"],
        # Its scratch folder is otherwise made in the current folder.
        *["--option=torture:progress=no", "--seed=1", f"--basedir={host.folder}", f"smb2.{suite}"],
        timeout=120,
        check=False,
    )
    return VERDICT.findall(done.stdout)


@pytest.mark.parametrize(
    "suite", [*QUICK, *(pytest.param(x, marks=pytest.mark.long) for x in OTHERS)]
)
def test_a_suite_of_smb_tests_comes_to_the_same_verdicts(bare_computer, onlooker, phone, suite):
    helper = bare_computer.helper()
    found = appear(phone, helper, onlooker)

    direct = verdicts(bare_computer, phone.address4, phone.port, suite)
    relayed = verdicts(bare_computer, bare_computer.address4, found["port"], suite)

    assert direct != []
    assert relayed == direct
