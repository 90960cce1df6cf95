"""From a blank phone to a managed one, as ./demo --device shows it: short messages, a service, a real
NetworkManager."""

import os
import re
import subprocess
import unittest

from handset import DMCLIENT

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
PATIENCE = 240  # seconds


class DeviceStoryTest(unittest.TestCase):
    def test_a_blank_phone_is_set_up_and_managed_by_short_messages(self):
        shown = subprocess.run(
            ["./demo", "--device", "--verbose", "--prepared=" + os.path.dirname(DMCLIENT)],
            cwd=SOURCES, capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(shown.returncode, 0, shown.stdout + shown.stderr)
        said = shown.stdout
        # Of the access point, as nmcli has it: none, what the bootstrap message says, and what the
        # server has made of it.
        names = re.findall(r'^gsm\.apn: +"(\S+)"$', said, re.M)
        self.assertEqual(names, ["internet.example", "lte.example"], said)
        self.assertEqual(re.findall(r"^ipv4\.dns: +(\S+)$", said, re.M), ["--", "10.0.0.53"], said)
        self.assertEqual(said.count("everything was as expected"), 2, said)
        for secret in ("OhBehave", "ServerSecret"):
            self.assertNotIn(secret, said + shown.stderr)


if __name__ == "__main__":
    unittest.main()
