"""An upload that a test can pause part of the way."""

from .phone import smb_command

MEBIBYTE = 1 << 20


class Upload:
    """smbclient on a computer, sending a file piece by piece as the test calls `send`."""

    def __init__(self, computer, port, source):
        self.source = open(source, "rb")
        self.client = computer.start(
            smb_command(computer.address4, port, "put - big"), stdin=True
        )

    def send(self, mebibytes):
        for _ in range(mebibytes):
            self._pass_on(self.source.read(MEBIBYTE))

    def finish(self):
        """Sends the rest and waits until the client has exited with 0."""
        while block := self.source.read(MEBIBYTE):
            self._pass_on(block)
        self.client.process.stdin.close()
        self.source.close()
        assert self.client.wait(120) == 0, self.client.output()

    def _pass_on(self, block):
        try:
            self.client.process.stdin.write(block)
        except BrokenPipeError:
            code = self.client.wait(10)
            raise AssertionError(
                f"smbclient ended with {code} during the upload; output:\n{self.client.output()}"
            ) from None
