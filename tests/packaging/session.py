"""A user's shell in a host of the test network."""

import os

HERE = os.path.dirname(os.path.abspath(__file__))
NAMESPACES = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "--"]


class Session:
    """A script that prints "ready" and then executes the lines of its standard input. Everything that it
    started ends with it."""

    def __init__(self, host, script, *arguments):
        command = ["sh", os.path.join(HERE, script), *arguments]
        self._shell = host.start(NAMESPACES + command, stdin=True)
        self._shell.wait_line(lambda line: line.text == "ready", 60, what=script)

    def ask(self, command):
        """The exit status and the output of a command."""
        since = self._shell.mark()
        self._shell.write(f"{{ {command}; }} 2>&1; echo \"--- $?\"\n")
        end = self._shell.wait_line(lambda x: x.text.startswith("--- "), 60, since, command)
        lines = self._shell.lines[since:]
        return int(end.text[4:]), "\n".join(x.text for x in lines[: lines.index(end)])

    def told(self, command):
        code, output = self.ask(command)
        assert code == 0, f"{command}: {code}\n{output}"
        return output

    def end(self):
        self._shell.end()
