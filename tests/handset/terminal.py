"""A program of the handset on a terminal of its own."""

import os
import pty
import select
import termios
import time

LIMIT = 60  # seconds for one answer of the program


class Terminal:
    """dmclient on a terminal of its own."""

    def __init__(self, test, *words, environment=None, **options):
        self.master, slave = pty.openpty()
        self.process = test.start(*words, environment={"TERM": "xterm", **(environment or {})},
                                  stdin=slave, stdout=slave, stderr=slave, **options)
        os.close(slave)
        test.addCleanup(os.close, self.master)
        self.screen = ""

    def wait_for(self, text):
        """Reads until the text has come; what stood before it is dropped."""
        while text not in self.screen:
            if not self.read():
                raise AssertionError(f"no {text!r} in {self.screen!r}")
        before, self.screen = self.screen.split(text, 1)
        return before

    def read(self):
        ready, _, _ = select.select([self.master], [], [], LIMIT)
        try:
            data = os.read(self.master, 4096) if ready else b""
        except OSError:  # the program has closed the terminal
            data = b""
        self.screen += data.decode("utf-8", "replace")
        return bool(data)

    def answer(self, prompt, text, hidden=False):
        before = self.wait_for(prompt)
        while hidden and termios.tcgetattr(self.master)[3] & termios.ECHO:
            time.sleep(0.01)  # the prompt may show before the echo is off
        self.type(text.encode())
        return before

    def type(self, data):
        os.write(self.master, data)

    def end(self):
        while self.read():
            pass
        return self.process.wait(LIMIT), self.screen
