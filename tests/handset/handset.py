"""A simulated handset of its own for a test: a private state directory and the programs on it."""

import json
import os
import shutil
import sqlite3
import subprocess
import tempfile
import unittest

import documented_files
import wbxmlcodec
import xmlcodec
from elements import order_fault

DMCLIENT = os.environ["DMCLIENT"]
NAPICTL = os.environ["NAPICTL"]
PLUGIN = os.environ["PLUGIN"]
# As the test preset of the sanitized build has it. AddressSanitizer takes terabytes of addresses: its
# programs run neither within a limit nor under valgrind.
SANITIZED = "ASAN_OPTIONS" in os.environ
DEVICE_ID = "urn:test:handset"
PROGRAMS = {"dmclient": [DMCLIENT, "--plugin", PLUGIN], "napictl": [NAPICTL]}

CONN = "./DevDetail/Ext/Conf/Conn/Profiles"
PROXY = "./DevDetail/Ext/Conf/IntProfs/Profiles"

SECRET = "s3cr3t-Pa55"

EMPTY_CSD = {"address": "", "authId": "", "authPassword": "", "dns1": "0.0.0.0", "dns2": "0.0.0.0",
             "linger": 0, "lineType": "ANALOG-MODEM", "speed": 0}
PROFILES = [
    {"name": "Office", "editable": True,
     "gprs": {"address": "internet", "authId": "user", "authPassword": SECRET, "dns1": "10.0.0.1",
              "dns2": "10.0.0.2", "linger": 30},
     "csd": {**EMPTY_CSD, "address": "+491720000", "lineType": "Isdn", "speed": 9600},
     "csd2": {**EMPTY_CSD, "address": "+491729999", "speed": 14400},
     "proxy1": {"address": "proxy.example", "port": 8080},
     "proxy2": {"address": "backup.example", "port": 3128}},
    {"name": "Ärzte & Co", "editable": False,
     "gprs": {"address": "apn.example", "authId": "", "authPassword": "", "dns1": "0.0.0.0",
              "dns2": "0.0.0.0", "linger": 0},
     "csd": {}, "csd2": {}, "proxy1": {}, "proxy2": {}},
    {"name": "Home", "editable": True, "gprs": {},
     "csd": {**EMPTY_CSD, "address": "+4930123", "speed": 4800},
     "csd2": {}, "proxy1": {}, "proxy2": {}},
]


def message_fault(message):
    """What breaks the DTD in the bytes of a message; None when nothing does."""
    codec = xmlcodec if message.startswith(b"<") else wbxmlcodec
    return order_fault(codec.decode(message))


class Handset:
    """A state directory with profiles; gone with the object."""

    def __init__(self, profiles=PROFILES, state=None):
        """Without profiles it is a handset that nobody has used: its state directory is not there. One
        with a state directory of the caller's has what is in it."""
        self._directory = tempfile.TemporaryDirectory()
        self.home = self._directory.name
        self.plugin = PLUGIN
        self.has_planted_files = bool(state)  # by the test, in the state directory
        self.state = state or os.path.join(self.home, "state")
        if profiles and not state:
            os.makedirs(self.client_file(""), mode=0o700)
            with open(self.client_file("device-id"), "w", encoding="ascii") as file:
                file.write(DEVICE_ID + "\n")
            self.add(profiles)

    def close(self):
        undocumented = [] if self.has_planted_files else documented_files.undocumented(self.state)
        self._directory.cleanup()
        assert not undocumented, f"no manual page has these files of the state directory: {undocumented}"

    def path(self, *names):
        return os.path.join(self.state, *names)

    def client_file(self, name):
        return self.path("client", name)

    def environment(self, **changes):
        environment = {key: value for key, value in os.environ.items()
                       if not key.startswith(("KUB_", "XDG_", "LC_"))}
        environment.update(HOME=self.home, LC_ALL="C.UTF-8", KUB_STATE_DIR=self.state)
        environment.update(changes)
        return environment

    def run(self, program, *arguments, stdin=None, prefix=(), **environment):
        """Runs "napictl" or "dmclient" after the words of the prefix; the result has returncode, and
        stdout and stderr as texts."""
        return subprocess.run([*prefix, *PROGRAMS[program], *arguments],
                              env=self.environment(**environment), input=stdin or "",
                              capture_output=True, timeout=120, check=False, encoding="utf-8")

    def dmclient(self, *arguments, stdin=None, plugin=None, **environment):
        """Runs dmclient; the result has returncode, stdout and stderr as bytes. A message that it
        prints has to be one that the DTD allows."""
        if isinstance(stdin, str):
            stdin = stdin.encode()
        result = subprocess.run([DMCLIENT, "--plugin", plugin or self.plugin, *arguments],
                                env=self.environment(**environment), input=stdin or b"",
                                capture_output=True, timeout=120, check=False)
        if (arguments[:1] == ("process",) and result.stdout
                and not {"--summary", "--json"} & set(arguments)):
            fault = message_fault(result.stdout)
            assert fault is None, fault
        return result

    def succeed(self, program, *arguments, stdin=None):
        """Runs a command that has to succeed; returns what it printed."""
        result = self.run(program, *arguments, stdin=stdin)
        if result.returncode != 0:
            raise AssertionError(f"{program} {arguments}: {result.stdout}{result.stderr}")
        return result.stdout

    def napictl(self, *arguments, stdin=None):
        """Runs a command of napictl that has to succeed; returns what it printed."""
        return self.succeed("napictl", *arguments, stdin=stdin)

    def add(self, profiles):
        self.napictl("import", "-", stdin=json.dumps(profiles))

    def profile(self, name):
        """A stored profile as napictl shows it to programs."""
        return json.loads(self.napictl("show", name, "--json", "--show-secrets"))

    def export(self):
        """Every stored profile by name."""
        exported = json.loads(self.napictl("export", "--show-secrets"))
        return {profile["name"]: profile for profile in exported}

    def rename_stored(self, name, new_name):
        """Renames a profile behind the client's back, as the tools of a connection manager do."""
        with sqlite3.connect(self.path("profiles.db")) as store:
            changed = store.execute("UPDATE profile SET name = ? WHERE name = ?", (new_name, name))
        store.close()
        assert changed.rowcount == 1, name

    def copy_from(self, state):
        """Replaces the state directory by a copy of another one."""
        shutil.rmtree(self.state, ignore_errors=True)
        shutil.copytree(state, self.state)


class Shell:
    """A client that stays mounted while a test does something beside it."""

    def __init__(self, handset):
        self._process = subprocess.Popen([*PROGRAMS["dmclient"], "shell"], env=handset.environment(),
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT, text=True, bufsize=1)

    def ask(self, command):
        """Sends a DM command and returns the lines up to the one with its status."""
        self._process.stdin.write(command + "\n")
        self._process.stdin.flush()
        lines = []
        while True:
            line = self._process.stdout.readline()
            assert line, f"the client ended after {command!r}: {lines}"
            lines.append(line.rstrip("\n"))
            if line.startswith(command.split()[0] + " ./"):
                return lines

    def is_running(self):
        return self._process.poll() is None

    def close(self):
        self._process.stdin.close()
        status = self._process.wait(60)
        self._process.stdout.close()
        return status


class HandsetTest(unittest.TestCase):
    """A test on a handset of its own."""

    PROFILES = PROFILES
    PLANTS_FILES = False  # in the state directory, which no manual page has

    def setUp(self):
        self.handset = Handset(self.PROFILES)
        self.handset.has_planted_files = self.PLANTS_FILES
        self.addCleanup(self.handset.close)
