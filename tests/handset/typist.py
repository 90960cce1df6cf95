"""Somebody who types what a document has."""

import os
import pathlib
import re
import socket
import subprocess

from handset import DMCLIENT, Handset

TOP = pathlib.Path(__file__).resolve().parents[2]
# Where the documents have a server of their own, and what comes after the line that starts it.
PORT = "8080"
WAIT_FOR_SERVER = f"until (: >/dev/tcp/127.0.0.1/{PORT}) 2>/dev/null; do sleep 0.05; done"
# What is asked for and not shown: secrets.
TYPED = "OhBehave\n" * 2


def matches(output, shown):
    """Whether the output is what is shown, where a line "..." stands for any."""
    parts = [re.escape(part) for part in re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)]
    return re.fullmatch(r"(?:.*\n)*?".join(parts), output)


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return str(one.getsockname()[1])


class Typist:
    """Types on a handset that nobody has used, with the programs of the test at hand, in a folder that has
    the documents and the tests of the sources."""

    def __init__(self, test):
        self.handset = Handset(profiles=None)
        test.addCleanup(self.handset.close)
        self.folder = pathlib.Path(self.handset.home, "folder")
        self.folder.mkdir()
        for name in ("docs", "tests"):
            (self.folder / name).symlink_to(TOP / name)
        self.programs = [os.path.dirname(DMCLIENT)]
        self.port = free_port()

    def environment(self):
        return self.handset.environment(PATH=":".join([*self.programs, os.environ["PATH"]]),
                                        PYTHONDONTWRITEBYTECODE="1")

    def type(self, commands):
        """What the commands print, all of which have to succeed."""
        script = re.sub(r"&$", f"& {WAIT_FOR_SERVER}", commands, flags=re.MULTILINE)
        result = subprocess.run(["bash", "-ec", f"trap 'kill $(jobs -p) 2>/dev/null || :' EXIT\n"
                                 + script.replace(PORT, self.port)],
                                input=TYPED, cwd=self.folder, env=self.environment(), text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120, check=False)
        assert result.returncode == 0, f"{commands}exit status {result.returncode}\n{result.stdout}"
        return result.stdout

    def keep(self, name, text):
        (self.folder / name).write_text(text, encoding="utf-8")
