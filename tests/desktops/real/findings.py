"""What a test saw on a desktop: an answer to each question of the table in docs/desktops.md."""

import contextlib
import json
import os

HERE = os.path.dirname(os.path.abspath(__file__))
FOLDER = os.path.join(HERE, "..", "findings")


class Answer:
    """The body of `Findings.answer` may set `text` (what to show instead of "yes"), `seconds` (how long
    it took) and `note`."""

    def __init__(self):
        self.text = None
        self.seconds = None
        self.note = None


class Findings:
    """The answers for one desktop of one release. They are kept in a file each, so that a run of a
    few tests changes only their answers."""

    def __init__(self, kind, release, desktop, versions):
        """`kind` is a table of page.py; `versions` are pairs of a package and
        its version, the desktop's own first."""
        self.desktop = desktop
        self.release = release
        name = f"{release}-{desktop.lower().replace(' ', '-')}.json"
        self._path = os.path.join(FOLDER, name)
        self._data = {"kind": kind, "release": release, "desktop": desktop, "answers": {}}
        self._data["versions"] = versions

    @contextlib.contextmanager
    def answer(self, question):
        """Records "yes" if the body succeeds, and "no" with the reason if an assertion fails in it."""
        answer = Answer()
        try:
            yield answer
        except AssertionError as error:
            self._record(question, "no", str(error).split("\n")[0][:200])
            raise
        self._record(question, answer.text or "yes", answer.note, answer.seconds)

    def cannot(self, question, reason):
        """Records that the desktop itself cannot do this, or that it cannot be tried here."""
        self._record(question, "not possible", reason)

    def _record(self, question, answer, note=None, seconds=None):
        entry = {"answer": answer}
        if note is not None:
            entry["note"] = note
        if seconds is not None:
            entry["seconds"] = round(seconds, 1)
        os.makedirs(FOLDER, exist_ok=True)
        # Read again each time: other test runs may have added answers.
        with contextlib.suppress(FileNotFoundError), open(self._path, encoding="utf-8") as file:
            self._data["answers"] = json.load(file)["answers"]
        self._data["answers"][question] = entry
        with open(self._path, "w", encoding="utf-8") as file:
            json.dump(self._data, file, indent=1, ensure_ascii=False, sort_keys=True)
            file.write("\n")
