"""The include rules between folders, and the checks that enforce them.

docs/architecture.md gives the reason for each rule.
"""

import os
import re

# What each folder may include. A folder means the files directly in it.
ARROWS = {
    # Whoever may include it may include its values.
    "platform": {"platform"},
    "platform/values": {"platform/values"},
    "platform/dispatch": {"platform"},
    "platform/netlink": {"platform", "platform/dispatch", "platform/posix"},
    "platform/dnssd": {"platform", "platform/dnssd/engine", "platform/dnssd/operations"},
    "platform/dnssd/engine": {
        "platform",
        "platform/dispatch",
        "platform/dnssd/dns_sd_error.h",
        "platform/posix",
    },
    "platform/dnssd/operations": {"platform", "platform/dnssd", "platform/dnssd/engine"},
    "platform/dnssd/avahi": {
        "platform",
        "platform/dnssd/dns_sd_error.h",
        "platform/dnssd/engine/messages.h",
    },
    # Programs of their own.
    "platform/dnssd/processes": {
        "platform",
        "platform/dnssd/avahi",
        "platform/dnssd/engine/child_process.h",
        "platform/dnssd/engine/message_codec.h",
        "platform/dnssd/engine/messages.h",
    },
    "platform/tcp": {
        "platform",
        "platform/dispatch",
        "platform/posix",
    },
    "platform/dial": {
        "platform",
        "platform/dispatch",
        "platform/tcp",
    },
    "platform/posix": {"platform"},
    "platform/x11": {"platform"},
    "platform/desktop/process": {"platform", "platform/posix"},
    "platform/desktop/presence": {"platform", "platform/posix", "platform/x11"},
    "platform/desktop/settings": {"platform", "platform/posix"},
    "platform/desktop/instances": {
        "platform",
        "platform/desktop/process/process.h",
        "platform/posix",
    },
    "platform/desktop/opening": {
        "platform",
        "platform/desktop/presence/activation_tokens.h",
        "platform/desktop/process",
        "platform/posix",
    },
    "platform/diagnosis": {"platform", "platform/posix", "platform/x11"},
    "platform/linux": {
        "platform",
        "platform/diagnosis",
        "platform/dial",
        "platform/dispatch",
        "platform/dnssd",
        "platform/dnssd/engine",
        "platform/netlink",
        "platform/posix",
    },
    "relay": {"platform"},
    "discovery": {"platform"},
    "ui": {"platform", "ui/look"},
    "ui/look": {"ui/look"},
    "control": {"platform", "ui/shown_text.h"},
    "doctor": {"platform", "discovery", "control", "ui/shown_text.h"},
    "app": {"platform", "relay", "discovery", "control", "ui", "ui/look"},
    "app/main.cpp": {
        "app",
        "platform",
        "platform/desktop/instances",
        "platform/desktop/opening",
        "platform/desktop/presence",
        "platform/desktop/process",
        "platform/desktop/settings",
        "platform/dispatch",
        "platform/dnssd",
        "platform/dnssd/engine",
        "platform/linux",
        "platform/netlink",
        "platform/tcp",
        "control",
        "discovery",
        "doctor",
    },
    # A separate executable that only uses DNS-SD.
    "demo": {
        "platform",
        "platform/dispatch",
        "platform/dnssd",
        "platform/dnssd/engine",
        "platform/netlink",
    },
}

# Kinds of external headers, and the files or folders (including subfolders) that may include them.
QT, AVAHI, SYSTEM, TEST = "Qt", "Avahi", "system", "GoogleTest"
OUTSIDE = {
    QT: {
        "app",
        "control",
        "doctor",
        "ui",
        "platform/desktop",
        "platform/diagnosis",
        "fuzz",
        "tests/app",
        "tests/control",
        "tests/doctor",
        "tests/ui",
        "tests/platform/desktop",
        "tests/platform/diagnosis",
        "tests/platform/linux",
    },
    AVAHI: {"platform/dnssd/avahi", "platform/dnssd/processes", "tests/platform/dnssd"},
    SYSTEM: {
        "platform/desktop",
        "platform/diagnosis",
        "platform/dial",
        "platform/dispatch",
        "platform/dnssd",
        "platform/linux",
        "platform/netlink",
        "platform/posix",
        "platform/tcp",
        "platform/x11",
        # Socket addresses are POSIX.
        "platform/values/socket_address.cpp",
        # getentropy is POSIX.
        "platform/values/uuid.cpp",
        "demo",
        "fuzz",
        "tests",
        "bench",
    },
    "utf8proc": {"platform/values/standard_error.cpp", "platform/values/text.cpp"},
    TEST: {"tests"},
}

KINDS = (
    (QT, re.compile(r"Q[A-Za-z]+(/.*)?$")),
    (AVAHI, re.compile(r"avahi-\w+/")),
    (TEST, re.compile(r"g(test|mock)/")),
    ("utf8proc", re.compile(r"utf8proc\.h$")),
    (SYSTEM, re.compile(r"([a-z_]+/)*[a-z0-9_-]+\.h$")),
    ("standard", re.compile(r"[a-z_0-9]+$")),
)

HEADER_LINES = 150
SOURCE_LINES = 400
LONG_FILES = {  # path: the reason for its length
    "app/app_delegate.h": "the one wide class: every control and every user action of the program",
    "platform/dnssd/engine/messages.h": "one list of plain values, of a few lines each",
}

SOURCE_FOLDERS = (
    *("app", "bench", "control", "demo", "discovery", "doctor", "fuzz", "platform", "relay"),
    *("tests", "ui"),
)
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.MULTILINE)
SYSTEM_SWITCH = re.compile(
    r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b.*\b"
    r"(__linux__|linux|__unix__|__APPLE__|__FreeBSD__|__OpenBSD__|_WIN32|_WIN64|__ANDROID__|Q_OS_\w+)\b",
    re.MULTILINE,
)

# No file may refer to a document that is not in this repository. The words are split here so that
# this file passes the check.
FOREIGN_WORDS = re.compile(
    "|".join(
        (
            r"\bspec" + r"\.md\b",
            r"\bthe" + r" spec(ification)?\b",
            r"\bParts?" + r" [1-9]\.[0-9]\b",
            r"\bshared" + r"/\w+\.md\b",
        )
    )
)
TEXTS = (".h", ".cpp", ".py", ".sh", ".md", ".txt", ".cmake", ".json", ".ini", ".supp", "")
SKIPPED = {".git", ".cache", "build", "corpus", "__pycache__"}


def folder_of(path):
    return os.path.dirname(path)


def below(path, places):
    """Whether `path` is one of `places` or lies in one of them, at any depth."""
    return any(path == place or path.startswith(place + "/") for place in places)


def files(root):
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(set(folders) - SKIPPED)
        for name in sorted(names):
            path = os.path.relpath(os.path.join(folder, name), root)
            yield path.replace(os.sep, "/")


def text_of(root, path):
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as file:
        return file.read()


def check_own(root, path, target):
    """What is wrong with an include of one of the program's headers, or None."""
    if target.split("/")[0] not in SOURCE_FOLDERS:
        return f'"{target}" is not written from the root of the project'
    if not os.path.exists(os.path.join(root, target)):
        return f'"{target}" does not exist'
    if path.startswith(("tests/", "bench/", "fuzz/")) or folder_of(target) == folder_of(path):
        return None
    allowed = ARROWS.get(path, ARROWS.get(folder_of(path)))
    if allowed is None:
        return f"{folder_of(path)}/ is a folder that the table of arrows does not have"
    if "platform" in allowed:
        allowed = allowed | {"platform/values"}
    if target not in allowed and folder_of(target) not in allowed:
        return f"{folder_of(path)}/ may not include {target}"
    return None


def check_outside(path, target):
    """What is wrong with an include in angle brackets, or None."""
    kind = next((name for name, pattern in KINDS if pattern.match(target)), None)
    if kind is None:
        return f"<{target}> is of no kind that the table has"
    if kind == "standard":
        return None
    if not below(path, OUTSIDE[kind]):
        return f"no {kind} header here: <{target}>"
    return None


def check_source(root, path):
    text = text_of(root, path)
    for bracket, target in INCLUDE.findall(text):
        wrong = check_own(root, path, target) if bracket == '"' else check_outside(path, target)
        if wrong:
            yield wrong
    if not (path.startswith("platform/") and path.count("/") > 1):
        for system in SYSTEM_SWITCH.findall(text):
            yield f"a switch on {system} belongs below platform/"
    most = HEADER_LINES if path.endswith(".h") else SOURCE_LINES
    lines = text.count("\n")
    if lines > most and path not in LONG_FILES and not path.startswith(("tests/", "bench/")):
        yield f"{lines} lines are more than {most}, and no reason is listed"


def complaints(root):
    """Everything in the tree at `root` that breaks a rule, as "path: what"."""
    found = []
    for path in files(root):
        if path.split("/")[0] in SOURCE_FOLDERS and path.endswith((".h", ".cpp")):
            found += [f"{path}: {wrong}" for wrong in check_source(root, path)]
        if os.path.splitext(path)[1] in TEXTS:
            for number, line in enumerate(text_of(root, path).splitlines(), 1):
                if FOREIGN_WORDS.search(line):
                    found.append(f"{path}:{number}: refers to a text that is not in this repository")
    return found
