"""A simulated handset of its own for a test: a private state directory and the programs on it."""

import json
import os
import subprocess
import sys
import tempfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "dmserver"))

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
    """State directory with the profiles above; gone with the object."""

    def __init__(self, profiles=None):
        self._directory = tempfile.TemporaryDirectory()
        self.home = self._directory.name
        self.state = os.path.join(self.home, "state")
        os.makedirs(os.path.join(self.state, "client"), mode=0o700)
        with open(self.client_file("device-id"), "w", encoding="ascii") as file:
            file.write(DEVICE_ID + "\n")
        profiles = PROFILES if profiles is None else profiles
        if profiles:
            self.napictl("import", "-", stdin=json.dumps(profiles))

    def close(self):
        self._directory.cleanup()

    def client_file(self, name):
        return os.path.join(self.state, "client", name)

    def environment(self, **changes):
        environment = {key: value for key, value in os.environ.items()
                       if not key.startswith(("KUB_", "XDG_", "LC_"))}
        environment.update(HOME=self.home, LC_ALL="C.UTF-8", KUB_STATE_DIR=self.state, **changes)
        return environment

    def dmclient(self, *arguments, stdin=None, plugin=PLUGIN, **environment):
        """Runs dmclient; the result has returncode, stdout and stderr as bytes. A message that it
        prints has to be one that the DTD allows."""
        if isinstance(stdin, str):
            stdin = stdin.encode()
        result = subprocess.run([DMCLIENT, "--plugin", plugin, *arguments],
                                env=self.environment(**environment), input=stdin or b"",
                                capture_output=True, timeout=120, check=False)
        if arguments[:1] == ("process",) and result.stdout:
            fault = message_fault(result.stdout)
            assert fault is None, fault
        return result

    def napictl(self, *arguments, stdin=None):
        """Runs a command of napictl that has to succeed; returns what it printed."""
        result = subprocess.run([NAPICTL, *arguments], env=self.environment(), input=stdin,
                                capture_output=True, timeout=120, check=False, encoding="utf-8")
        if result.returncode != 0:
            raise AssertionError(f"napictl {arguments}: {result.stderr}")
        return result.stdout

    def profile(self, name):
        """A stored profile as napictl shows it to programs."""
        return json.loads(self.napictl("show", name, "--json", "--show-secrets"))
