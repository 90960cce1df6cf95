"""What dmclientd takes of memory, and that it takes no more the longer it runs."""

import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from bus import PrivateBus
from handset import HandsetTest

DMCLIENTD = os.environ["DMCLIENTD"]
SESSIONS = 1000
PATIENCE = 60  # seconds; what takes longer never happens
MOST = 10 * 1024  # KiB; with what only the start needs it would be 12.5 MiB

# Beside the service's program it is what the service takes for dmclient.
SESSION = """#!/bin/sh
echo '{"session": "completed", "reason": "", "messages": 1, "commands": 1, "refused": 0, "differences": 0}'
printf x >>"$0.count"
"""


class MemoryTest(HandsetTest):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        program = shutil.copy(DMCLIENTD, folder.name)
        session = os.path.join(folder.name, "dmclient")
        with open(session, "w", encoding="ascii") as file:
            file.write(SESSION)
        os.chmod(session, 0o755)
        self.count = session + ".count"
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        added = self.handset.dmclient("account", "add", "Test", "address=https://dm.example/",
                                      "server-id=x")
        self.assertEqual(added.returncode, 0, added.stderr)
        environment = self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address)
        self.service = subprocess.Popen([program], env=environment, stderr=subprocess.DEVNULL)
        self.addCleanup(self.service.wait)
        self.addCleanup(self.service.kill)
        self.wait_until(lambda: self.bus.get("State").returncode == 0)

    def wait_until(self, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, "it does not happen")
            time.sleep(0.001)

    def memory(self, kind):
        """Of the service, in KiB."""
        with open(f"/proc/{self.service.pid}/status", encoding="ascii") as file:
            return int(re.search(rf"^{kind}:\s+(\d+) kB$", file.read(), re.MULTILINE)[1])

    def hold_sessions(self, number):
        held = self.held()
        for _ in range(number):
            started = self.bus.start_session("Test")
            self.assertEqual(started.returncode, 0, started.stderr)
            held += 1
            self.wait_until(lambda: self.held() >= held)

    def held(self):
        return os.path.getsize(self.count) if os.path.exists(self.count) else 0

    def test_what_only_the_start_needed_is_given_back(self):
        self.assertLess(self.memory("VmRSS"), MOST)

    def test_a_thousand_sessions_leave_nothing_behind(self):
        self.hold_sessions(SESSIONS // 5)
        before = self.memory("RssAnon")
        self.hold_sessions(SESSIONS - SESSIONS // 5)
        self.assertLess(self.memory("RssAnon") - before, 256, "KiB more than before")
        self.assertLess(self.memory("VmRSS"), MOST)
        files = os.listdir(f"/proc/{self.service.pid}/fd")
        self.assertLess(len(files), 40)


if __name__ == "__main__":
    unittest.main()
