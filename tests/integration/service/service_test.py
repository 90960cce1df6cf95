"""dmclientd on a bus of its own, and dmclient beside it."""

import json
import os
import select
import signal
import socket
import subprocess
import time
import unittest

from services import DMCLIENT, DMCLIENTD, PATIENCE, ServiceFixture
from sessions import PLUGIN, SESSION_FAILED, SUCCESS, UNUSABLE


class ServiceTest(ServiceFixture):
    def test_without_a_service_there_is_nothing_to_tell(self):
        for command in ("status", "monitor"):
            result = self.client(command)
            self.assertEqual((result.returncode, result.stderr),
                             (UNUSABLE, f"dmclient: {command}: dmclientd does not run\n"))

    def test_a_bus_that_says_nothing_holds_no_session_up(self):
        path = os.path.join(self.handset.home, "silent")
        with socket.socket(socket.AF_UNIX) as silent:
            silent.bind(path)
            silent.listen()
            server = self.serve()
            start = time.monotonic()
            session = subprocess.run(
                [DMCLIENT, "session", "Test"], capture_output=True, text=True, timeout=PATIENCE,
                env=self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={path},guid=1"),
                check=False)
            self.assertEqual(session.returncode, SUCCESS, session.stderr)
            self.assertLess(time.monotonic() - start, PATIENCE / 2)
            self.assertEqual(server.session.report()["faults"], [])
            silent.settimeout(0)
            silent.accept()[0].close()  # it was asked

    def test_a_session_is_held_by_the_service_that_runs(self):
        server = self.serve()
        self.start_service()
        result = self.client("session", "Test", "--json")
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        told = json.loads(result.stdout)
        self.assertEqual((told["account"], told["cause"], told["session"]),
                         ("Test", "user", "completed"))
        self.assertGreater(told["commands"], 0)
        self.assertTrue(server.session.report()["lines"])
        last = self.status()["LastResults"][-1]
        self.assertEqual({**last, "session": told["session"]}, told)
        result = self.client("session", "Test")
        self.assertRegex(result.stdout, r"\ASession completed \(messages \d+, commands \d+, ")

    def test_a_session_that_fails_says_why_and_the_service_goes_on(self):
        self.add_account("http://127.0.0.1:1/")
        self.start_service()
        result = self.client("session", "Test")
        self.assertEqual(result.returncode, SESSION_FAILED)
        self.assertIn("Session failed: http://127.0.0.1:1/: Connection refused", result.stdout)
        self.assertEqual(self.status()["State"], "idle")

    def test_a_session_with_options_of_its_own_is_held_by_who_asks_for_it(self):
        self.serve()
        self.start_service()
        result = self.client("session", "Test", "--encoding", "wbxml", "--plugin", PLUGIN)
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        self.assertEqual(self.status()["LastResults"], [])

    def test_between_sessions_the_device_is_free(self):
        self.serve()
        self.start_service()
        self.assertEqual(self.client("session", "Test").returncode, SUCCESS)
        self.assertEqual(self.client("get", "./DevInfo/DmV").stdout, "1.2\n")

    def test_a_busy_device_is_said_to_be_busy(self):
        self.serve()
        self.start_service()
        shell = self.start("shell", stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(shell.wait)
        self.addCleanup(shell.stdout.close)
        shell.stdin.write(b"get ./DevInfo/DmV\n")
        shell.stdin.flush()
        self.assertTrue(shell.stdout.readline())
        result = self.client("session", "Test", "--json")
        shell.stdin.close()
        self.assertEqual(result.returncode, UNUSABLE, result.stderr)
        self.assertEqual(json.loads(result.stdout)["session"], "busy")

    def test_ctrl_c_ends_a_session_that_the_service_holds(self):
        # Nobody answers there, and nobody refuses either.
        with socket.socket() as silent:
            silent.bind(("127.0.0.1", 0))
            silent.listen()
            self.add_account(f"http://127.0.0.1:{silent.getsockname()[1]}/")
            self.start_service()
            session = self.start_client("session", "Test", "--json")
            self.wait_until(lambda: self.status()["State"] == "session")
            session.send_signal(signal.SIGINT)
            output, problems = session.communicate(timeout=PATIENCE)
            self.assertEqual(session.returncode, SESSION_FAILED, problems)
            self.assertEqual(json.loads(output)["session"], "aborted")
            self.assertEqual(self.status()["State"], "idle")

    def test_monitor_prints_what_happens_until_it_is_interrupted(self):
        self.serve()
        self.start_service()
        monitor = self.start_client("monitor", "--json")
        # It listens when it has heard something.
        file = monitor.stdout.fileno()
        self.wait_until(lambda: self.client("session", "Test").returncode == SUCCESS
                        and select.select([file], [], [], 0)[0])
        self.assertEqual(self.client("session", "Test").returncode, SUCCESS)
        monitor.send_signal(signal.SIGINT)
        output, problems = monitor.communicate(timeout=PATIENCE)
        self.assertEqual(monitor.returncode, SUCCESS, problems)
        events = [json.loads(line) for line in output.splitlines()]
        status = [event for event in events if event["event"] == "status"]
        self.assertIn({"event": "status", "state": "session", "account": "Test"}, status)
        self.assertIn({"event": "status", "state": "idle", "account": ""}, status)
        end = next(event for event in events if event["event"] == "session")
        self.assertEqual((end["account"], end["session"]), ("Test", "completed"))

    def test_an_account_that_gets_an_interval_is_polled(self):
        server = self.serve()
        self.start_service()
        # When the session begins, the client that has changed the account is over with the device.
        set_interval = self.client("account", "set", "Test", "polling-interval=3600",
                                   "polling-first-delay=1")
        self.assertEqual(set_interval.returncode, SUCCESS, set_interval.stderr)
        result = self.wait_until(lambda: self.status()["LastResults"])[-1]
        self.assertEqual((result["cause"], result["session"]), ("schedule", "completed"))
        self.assertTrue(server.session.report()["lines"])
        [account] = self.status()["Accounts"]
        self.assertGreater(account["next"], result["ended"] + 3000 * 1000)
        self.assertRegex(self.client("status").stdout, r"Test  next session .*, every 3600 s\n")

    def test_polls_that_a_server_has_nothing_for_are_no_failures(self):
        for kind in ("md5", "hmac"):
            with self.subTest(proof=kind):
                server = self.serve(client_auth=kind, server_auth=kind, packages=[])
                if not self.service:
                    self.start_service()
                self.assertEqual(self.client("session", "Test").returncode, SUCCESS)
                server.begin_session(server.session.scenario)
                seen = len(self.status()["LastResults"])
                self.client("account", "set", "Test", "polling-interval=3600",
                            "polling-first-delay=1")
                [result] = self.wait_until(lambda: self.status()["LastResults"][seen:])
                self.assertEqual((result["cause"], result["session"]), ("schedule", "completed"),
                                 result)
                [account] = self.status()["Accounts"]
                self.assertGreater(account["next"], result["ended"] + 3000 * 1000)
                self.client("account", "remove", "Test")

    def test_it_ends_in_good_order_and_knows_afterwards_what_was(self):
        self.add_account("http://127.0.0.1:1/")
        self.start_service()
        self.assertEqual(self.client("session", "Test").returncode, SESSION_FAILED)
        before = self.status()["LastResults"]
        monitor = self.start_client("monitor")
        self.service.terminate()
        self.assertEqual(self.service.wait(PATIENCE), 0, self.service.stderr.read())
        _, problems = monitor.communicate(timeout=PATIENCE)
        self.assertEqual(monitor.returncode, UNUSABLE)
        self.assertIn("dmclientd", problems)
        self.start_service()
        self.assertEqual(self.status()["LastResults"], before)

    def session_of_service(self, *options):
        """What the client says of a session of a service with these options."""
        self.serve("profiles")
        self.start_service(*options)
        return self.client("session", "Test").stdout

    def test_sessions_are_held_with_the_plugin_that_the_service_was_told(self):
        self.assertIn("refused 12", self.session_of_service("--plugin", "/nowhere/plugin.so"))

    def test_sessions_are_held_with_the_plugins_that_the_service_was_told(self):
        self.assertIn("described in /nowhere", self.session_of_service("--plugins", "/nowhere"))

    def test_sessions_are_held_with_the_store_that_the_service_was_told(self):
        self.assertIn("refused 12", self.session_of_service("--backend", "networkmanager"))

    def test_it_serves_one_device_and_is_asked_about_no_other(self):
        self.start_service()
        result = self.client("status", "--state", self.handset.path("other"))
        self.assertEqual(result.returncode, UNUSABLE)
        self.assertIn(f"dmclientd serves the state directory {self.handset.state}, not ",
                      result.stderr)
        second = subprocess.run([DMCLIENTD], env=self.environment(), capture_output=True, text=True,
                                timeout=PATIENCE, check=False)
        self.assertEqual((second.returncode, second.stderr),
                         (UNUSABLE, "dmclientd: another dmclientd serves the state directory "
                                    f"{self.handset.state}\n"))

    def test_what_it_is_linked_with_is_small(self):
        lines = subprocess.run(["readelf", "-dW", DMCLIENTD], capture_output=True, text=True,
                               check=True).stdout
        needed = {line.split("[")[1].split("]")[0].split(".so")[0]
                  for line in lines.splitlines() if "(NEEDED)" in line}
        self.assertLessEqual(needed, {"libQt6Core", "libQt6DBus", "libstdc++", "libgcc_s", "libm",
                                      "libc", "ld-linux-x86-64", "ld-linux-aarch64"})


if __name__ == "__main__":
    unittest.main()
