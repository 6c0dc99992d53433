"""The source tree follows the include rules, and the checks find violations."""

import os

import pytest
import rules

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))


def test_the_tree_keeps_every_rule():
    assert "\n".join(rules.complaints(ROOT)) == ""


def test_the_tree_is_really_looked_at():
    sources = [path for path in rules.files(ROOT) if path.endswith((".h", ".cpp"))]
    assert "platform/connection.h" in sources
    assert len(sources) > 50


def test_no_reason_is_listed_for_a_file_that_is_short_or_gone():
    for path in rules.LONG_FILES:
        most = rules.HEADER_LINES if path.endswith(".h") else rules.SOURCE_LINES
        assert rules.text_of(ROOT, path).count("\n") > most


TREE = {
    "app/app_delegate.h": '#include "discovery/phone_discovery.h"\n#include "ui/window.h"\n',
    "app/main.cpp": '#include "app/app_delegate.h"\n#include "platform/linux/linux_network.h"\n',
    "discovery/phone_discovery.h": '#include "platform/dns_sd.h"\n',
    "platform/dns_sd.h": "#include <functional>\n",
    "platform/dispatch/pool.h": "#include <sys/epoll.h>\n",
    "platform/dnssd/dns_sd_center.h": '#include "platform/dns_sd.h"\n',
    "platform/dnssd/processes/engine.cpp": "#include <avahi-client/client.h>\n#include <poll.h>\n",
    "platform/linux/linux_network.h": '#include "platform/dnssd/dns_sd_center.h"\n',
    "platform/tcp/tcp.cpp": '#include "platform/dns_sd.h"\n#include <sys/socket.h>\n',
    "relay/session.h": '#include "platform/dns_sd.h"\n',
    "ui/window.h": '#include "platform/dns_sd.h"\n#include <QtWidgets/QLabel>\n',
    "tests/relay/session_test.cpp": '#include "relay/session.h"\n#include <gtest/gtest.h>\n',
}


def build(root, contents):
    for path, text in contents.items():
        os.makedirs(root / os.path.dirname(path), exist_ok=True)
        (root / path).write_text(text, encoding="utf-8")


def test_a_tree_in_order_gives_no_complaint(tmp_path):
    build(tmp_path, TREE)
    assert rules.complaints(tmp_path) == []


@pytest.mark.parametrize(
    "path, text, complaint",
    [
        ("platform/x.h", '#include "relay/session.h"', "platform/ may not include relay/session.h"),
        ("platform/x.h", '#include "platform/dnssd/dns_sd_center.h"', "platform/ may not include"),
        ("platform/x.h", "#include <asio.hpp>", "is of no kind"),
        ("platform/x.cpp", "#include <unistd.h>", "no system header here"),
        ("platform/x.cpp", "#ifdef __linux__\n#endif", "a switch on __linux__"),
        ("platform/tcp/x.h", '#include "platform/dnssd/processes/engine.cpp"', "may not include"),
        ("platform/dispatch/x.h", '#include "platform/tcp/tcp.cpp"', "may not include"),
        ("platform/dnssd/dns_sd_center.h", "#include <avahi-core/core.h>", "no Avahi header here"),
        ("platform/dnssd/x.cpp", "#include <QString>", "no Qt header here"),
        ("platform/new/x.h", '#include "platform/dns_sd.h"', "does not have"),
        ("relay/x.h", '#include "discovery/phone_discovery.h"', "relay/ may not include"),
        ("relay/x.cpp", '#include "platform/tcp/tcp.cpp"', "relay/ may not include"),
        ("relay/x.cpp", "#include <QObject>", "no Qt header here"),
        ("relay/x.cpp", "#  include  <netinet/in.h>", "no system header here"),
        ("discovery/x.h", '#include "app/app_delegate.h"', "discovery/ may not include"),
        ("app/x.cpp", '#include "platform/linux/linux_network.h"', "app/ may not include"),
        ("app/x.cpp", "#include <avahi-client/client.h>", "no Avahi header here"),
        ("app/x.cpp", "#if defined(Q_OS_LINUX)\n#endif", "a switch on Q_OS_LINUX"),
        ("ui/x.cpp", '#include "app/main.cpp"', "ui/ may not include app/main.cpp"),
        ("ui/x.cpp", '#include "window.h"', "is not written from the root"),
        ("ui/x.cpp", '#include "ui/gone.h"', "does not exist"),
        ("ui/x.cpp", '#include "app/app_delegate.h"', "ui/ may not include"),
        ("ui/x.cpp", "#include <boost/asio.hpp>", "is of no kind"),
        ("tests/relay/x.cpp", "#include <QObject>", "no Qt header here"),
        ("relay/x.h", "//\n" * 150, "151 lines are more than 150"),
        ("relay/x.cpp", "//\n" * 400, "401 lines are more than 400"),
        ("docs/x.md", "See spec" + ".md.", "docs/x.md:1: refers to a text"),
        ("app/x.cpp", "\n// As the sp" + "ecification says.", "app/x.cpp:2: refers to a text"),
        ("tests/x.py", "# Part" + " 3.2", "tests/x.py:1: refers to a text"),
        ("dev", "cat ../shared" + "/notes.md", "dev:1: refers to a text"),
    ],
    ids=lambda value: value if len(value) < 60 else "long",
)
def test_a_planted_fault_is_found(tmp_path, path, text, complaint):
    build(tmp_path, TREE | {path: text + "\n"})
    found = rules.complaints(tmp_path)
    assert len(found) == 1
    assert complaint in found[0]
