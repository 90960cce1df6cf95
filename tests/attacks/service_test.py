"""What another user of the device may try with dmclientd, by the policy that is installed."""

import os
import subprocess
import time
import unittest

from bus import SERVICE, PrivateBus
from handset import HandsetTest

DMCLIENTD = os.environ["DMCLIENTD"]
OTHER_USER = 65534
SECRET = "OhBehave"
DENIED = "org.freedesktop.DBus.Error.AccessDenied"


@unittest.skipUnless(os.geteuid() == 0, "needs root, to act as a second user")
class OtherUserTest(HandsetTest):
    def setUp(self):
        super().setUp()
        self.bus = PrivateBus(guarded=True)
        self.addCleanup(self.bus.close)
        added = self.handset.dmclient(
            "account", "add", "Test", "address=http://127.0.0.1:1/", "server-id=dm.example",
            "client-auth=md5", "client-name=me", f"client-secret={SECRET}", "client-nonce=bm9uY2U=")
        self.assertEqual(added.returncode, 0, added.stderr)
        self.service = subprocess.Popen(
            [DMCLIENTD],
            env=self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address),
            stderr=subprocess.DEVNULL)
        self.addCleanup(self.service.wait)
        self.addCleanup(self.service.terminate)  # ends its session, which would outlive it
        end = time.monotonic() + 60
        while self.bus.get("State").returncode != 0:
            self.assertLess(time.monotonic(), end, "the service does not start")
            time.sleep(0.02)

    def other(self, action, *arguments, **options):
        return action(*arguments, user=OTHER_USER, group=OTHER_USER, extra_groups=[], **options)

    def assert_denied(self, result):
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertIn(DENIED, result.stderr)

    def test_starts_and_cancels_no_session(self):
        # With options of another type than the method's: nobody looks at them before.
        self.assert_denied(self.other(self.bus.call, "StartSession", "string:Test",
                                      "dict:string:string:"))
        self.assert_denied(self.other(self.bus.call, "CancelSession", "string:Test"))
        self.assertNotIn("dict entry", self.bus.get("LastResults").stdout)
        self.assertEqual(self.bus.start_session("Test").returncode, 0, "its owner does")

    def test_is_not_asked_in_place_of_the_user(self):
        self.assert_denied(self.other(self.bus.call, "RegisterAgent", "objpath:/agent"))

    def test_changes_no_property(self):
        self.assert_denied(self.other(
            self.bus.call, "Set", f"string:{SERVICE}", "string:Online", "variant:boolean:false",
            interface="org.freedesktop.DBus.Properties"))

    def test_is_not_the_service(self):
        request = ["dbus-send", f"--bus={self.bus.address}", "--print-reply",
                   "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                   "org.freedesktop.DBus.RequestName", f"string:{SERVICE}", "uint32:0"]
        self.assert_denied(subprocess.run(request, user=OTHER_USER, group=OTHER_USER,
                                          extra_groups=[], capture_output=True, text=True,
                                          check=False))

    def test_sees_the_state_and_no_secret(self):
        seen = self.other(self.bus.call, "GetAll", f"string:{SERVICE}",
                          interface="org.freedesktop.DBus.Properties")
        self.assertEqual(seen.returncode, 0, seen.stderr)
        self.assertIn('"Test"', seen.stdout)
        for secret in (SECRET, "nonce", "bm9uY2U"):
            self.assertNotIn(secret, seen.stdout)

    def test_a_call_that_makes_no_sense_is_refused(self):
        for arguments in (["string:Test"], ["uint32:5"], ["string:Test", "dict:string:string:"]):
            with self.subTest(arguments=arguments):
                self.assertNotEqual(self.bus.call("StartSession", *arguments).returncode, 0)
        for account in ("Nobody", "", "../Test", "x" * 100_000):
            with self.subTest(account=account[:40]):
                self.assertIn("no account", self.bus.start_session(account).stderr)
        self.assertRegex(self.bus.get("State").stdout, r'"(idle|offline)"')


if __name__ == "__main__":
    unittest.main()
