"""How many calls on the bus the programs make for each profile: that decides what they take on a device
with many. Counted at two numbers of profiles, so that what a program does once does not count."""

import collections
import json
import os
import queue
import subprocess
import threading
import unittest

from handset import CONN, PROXY, HandsetTest

FEW, MANY = 20, 60
# The daemon's own, and what is asked after the daemon has been silent for a while.
NOT_COUNTED = ("GetConnectionUnixUser", "GetConnectionUnixProcessID", "Get")
SECONDS = 60  # only guards against a monitor that hangs


class BusMonitor:
    """Lists the calls of all programs. Marks are calls of this one, which the monitor sees after all
    calls before them."""

    def __init__(self, environment):
        self.environment = environment
        self.marks = 0
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            ["dbus-monitor", "--system", "--profile", "type='method_call'"], env=environment,
            stdout=subprocess.PIPE, encoding="utf-8")
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        while True:  # until it listens
            try:
                self.calls_of(lambda: None, seconds=0.1)
                return
            except queue.Empty:
                pass

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.split())

    def stop(self):
        self.process.kill()
        self.reader.join()
        self.process.stdout.close()
        self.process.wait()

    def calls_of(self, action, seconds=SECONDS):
        """The methods that were called since the last mark and by the action, with how often."""
        action()
        self.marks += 1
        mark = f"Mark{self.marks}"
        subprocess.run(["dbus-send", "--system", "--type=method_call",
                        "--dest=org.freedesktop.DBus", "/", f"kub.test.{mark}"],
                       env=self.environment, check=True)
        calls = collections.Counter()
        while (line := self.lines.get(timeout=seconds))[-1] != mark:
            calls[line[-1]] += 1
        return calls


class CallCountTest(HandsetTest):
    PROFILES = []

    def setUp(self):
        self.assertIn("PRIVATE_NETWORKMANAGER", os.environ)
        super().setUp()
        self.nodes = 0
        self.monitor = BusMonitor(self.handset.environment())
        self.addCleanup(self.monitor.stop)

    def run_program(self, program, *arguments):
        result = self.handset.run(program, "--backend", "networkmanager", *arguments)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def file_of(self, profiles):
        path = os.path.join(self.handset.home, "profiles.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump([{"name": f"Operator {number}", "editable": True,
                        "gprs": {"address": "apn.example", "authId": "user", "authPassword": "secret",
                                 "dns1": "10.0.0.1", "dns2": "0.0.0.0", "linger": 30},
                        "csd": {}, "csd2": {}, "proxy1": {}, "proxy2": {}}
                       for number in range(profiles)], file)
        return path

    def mount_both_roots(self):
        self.nodes = len(self.run_program("dmclient", "get", CONN, PROXY).splitlines())

    def test_calls_for_each_profile(self):
        filled, mounted, deleted = [], [], []
        for profiles in (FEW, MANY):
            file = self.file_of(profiles)
            filled.append(self.monitor.calls_of(lambda: self.run_program("napictl", "import", file)))
            mounted.append(self.monitor.calls_of(self.mount_both_roots))
            self.assertEqual(self.nodes, 2 * profiles)
            names = [f"Operator {number}" for number in range(profiles)]
            deleted.append(self.monitor.calls_of(
                lambda: self.run_program("napictl", "delete", *names)))

        def more(counted):
            return {method: (counted[1][method] - counted[0][method]) / (MANY - FEW)
                    for method in counted[1] if counted[1][method] != counted[0][method]
                    and method not in NOT_COUNTED}

        self.assertEqual(more(filled), {"AddConnection2": 1})
        self.assertEqual(more(mounted), {"GetSettings": 1, "GetSecrets": 1})
        self.assertEqual(mounted[1]["ListConnections"], 4, "two for each root")
        self.assertEqual(more(deleted), {"GetSettings": 2, "Delete": 1}, "listed, and read again")


if __name__ == "__main__":
    unittest.main()
