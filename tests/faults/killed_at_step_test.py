"""Sessions, and the service, that are killed at every step; what must hold afterwards.

A step is a moment before or after something becomes known: a message to a server, one from it, a file of
the state (killed_at_step.cpp). Each is one run, so nothing is left to chance.
"""

import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

import notifications
from bus import PrivateBus
from handset import CONN, DMCLIENT, PLUGIN
from sessions import REFUSED, SECRETS, SUCCESS, DmServer, SessionTest, scenario

DMCLIENTD = os.environ["DMCLIENTD"]
KILLER = os.environ["KILLER"]
PATIENCE = 60  # seconds; what takes longer never happens
MOST_STEPS = 200
INTERVAL = 3600  # seconds
OFFICE, HOME, ROAMING = (f"{CONN}/{name}" for name in ("Office", "Home", "Roaming"))

KILLED = -signal.SIGKILL


def killed(program, step):
    """The environment in which a program is killed at a step."""
    return {"LD_PRELOAD": KILLER, "KUB_KILL_PROGRAM": program, "KUB_KILL_STEP": str(step)}


class KilledSession(SessionTest):
    """A server wants four things done, and asks again for what it was not told of."""

    def jobs(self):
        """What the server has yet to be told of, with the status that it gets where it is done."""
        done = self.handset.export()
        is_made = bool(done.get("Roaming", {}).get("gprs"))
        jobs = {
            f"Replace {OFFICE}/Addr": {"replace": OFFICE + "/Addr", "data": "new.example"},
            f"Replace {OFFICE}?prop=Title": {"replace": OFFICE + "?prop=Title", "data": "New"},
            f"Delete {HOME}": {"delete": HOME, "expect": 200 if done["Home"]["csd"] else 404}}
        for uri, members in ((ROAMING, {"format": "node"}),
                             (ROAMING + "/Bearer", {"format": "chr", "data": "GSM-GPRS"}),
                             (ROAMING + "/Addr", {"format": "chr", "data": "far.example"})):
            jobs[f"Add {uri}"] = {"add": uri, **members, "expect": 418 if is_made else 200}
        return {key: entry for key, entry in jobs.items() if key not in self.told}

    def played(self, kind, verify):
        jobs = list(self.jobs().values())
        packages = [{"commands": commands} for commands in (jobs[:2], jobs[2:]) if commands]
        if verify:
            packages.append({"commands": [
                {"get": [OFFICE + "/Addr", OFFICE + "?prop=Title", ROAMING + "/Addr", CONN],
                 "results": {OFFICE + "/Addr": r"new\.example", OFFICE + "?prop=Title": "New",
                             ROAMING + "/Addr": r"far\.example", CONN: "Office/PX1/Roaming"}}]})
        return scenario("profiles", client_auth=kind, server_auth=kind, packages=packages)

    def session(self, server, kind, step=None):
        """One more session; killed at a step if there is one. Returns its exit status."""
        server.begin_session(self.played(kind, verify=step is None))
        environment = self.handset.environment(**(killed("dmclient", step) if step else {}))
        result = subprocess.run([DMCLIENT, "--plugin", PLUGIN, "session", "Test", "--encoding",
                                 "wbxml" if kind == "hmac" else "xml"],
                                env=environment, capture_output=True, text=True, timeout=PATIENCE,
                                check=False)
        server.hear_out()
        self.said = result.stdout + result.stderr + "\n".join(server.session.lines)
        for line in server.session.lines:
            if line.rsplit(" ", 1)[-1] in ("200", "404", "418"):
                self.told.add(line.rsplit(" ", 1)[0])
        return result.returncode

    def check_told(self):
        """What the server was told is done, is done."""
        stored = self.handset.export()
        if f"Replace {OFFICE}/Addr" in self.told:
            self.assertEqual(stored["Office"]["gprs"]["address"], "new.example")
        if f"Delete {HOME}" in self.told:
            self.assertFalse(stored["Home"]["csd"])
        if f"Add {ROAMING}/Addr" in self.told:
            self.assertEqual(stored["Roaming"]["gprs"]["address"], "far.example")

    def check_recovery(self, server, kind, usual):
        before = server.session
        self.check_told()
        self.assertIn(self.session(server, kind), (SUCCESS, REFUSED), self.said)
        now = server.session
        self.assertEqual(now.report()["faults"], [], self.said)
        self.assertEqual(self.jobs(), {}, self.said)
        # A nonce that the other side has heard of is one that this side still has. By HMAC each message
        # uses one up.
        if kind == "md5":
            if before.server_nonce_is_agreed:
                self.assertEqual(now.server_challenges, 0, self.said)
            if before.client_nonce_is_heard:
                self.assertEqual(now.client_failures, 0, self.said)
        self.assertLessEqual(now.requests, usual + 1)

    def check_every_step(self, kind):
        untouched = tempfile.TemporaryDirectory()
        self.addCleanup(untouched.cleanup)
        state = os.path.join(untouched.name, "state")
        quiet = scenario("profiles", client_auth=kind, server_auth=kind, packages=[
            {"commands": [{"get": "./DevInfo/Man"}]}])
        with DmServer(quiet) as server:
            self.add_account(server.url, client_auth=kind, server_auth=kind)
            # From here on both sides have nonces, as far as that kind of proof leaves any.
            self.assertEqual(self.handset.dmclient("session", "Test").returncode, SUCCESS)
            shutil.copytree(self.handset.state, state)
            server.hear_out()
            first = server.session
            self.told = set()
            self.assertEqual(self.session(server, kind), SUCCESS, self.said)
            usual = server.session.requests
            for step in range(1, MOST_STEPS):
                self.last_session = f"\n-- after it was killed at step {step}"
                self.handset.copy_from(state)
                server.session = first
                self.told = set()
                status = self.session(server, kind, step)
                if status == SUCCESS:
                    break  # it has fewer steps
                self.assertEqual(status, KILLED, self.said)
                self.check_recovery(server, kind, usual)
        # Each message goes out and is answered; and files are kept.
        self.assertGreater(step, 3 * usual)
        self.assertLess(step, MOST_STEPS - 1)

    def test_by_md5(self):
        self.check_every_step("md5")

    def test_by_hmac(self):
        self.check_every_step("hmac")


# Beside the service's program it is what the service takes for dmclient.
HELD_SESSION = """#!/bin/sh
echo "$*" >>"$0.held"
echo '{"session": "completed", "reason": "", "messages": 1, "commands": 1, "refused": 0, "differences": 0}'
"""


class KilledService(SessionTest):
    """It is to hold a session that is due and two that a server asks for."""

    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.program = shutil.copy(DMCLIENTD, folder.name)
        session = os.path.join(folder.name, "dmclient")
        with open(session, "w", encoding="ascii") as file:
            file.write(HELD_SESSION)
        os.chmod(session, 0o755)
        self.held_file = session + ".held"
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        self.add_account("https://dm.example/", server_auth="md5")
        self.untouched = os.path.join(folder.name, "state")
        shutil.copytree(self.handset.state, self.untouched)
        self.handset.dmclient("account", "set", "Test", f"polling-interval={INTERVAL}",
                              "polling-first-delay=0")
        self.polled_accounts = shutil.copy(self.handset.client_file("accounts.json"), folder.name)
        self.sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.sender.close)

    def start(self, step=None):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("127.0.0.1", 0))
            self.port = other.getsockname()[1]
        environment = self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address,
                                               **(killed("dmclientd", step) if step else {}))
        self.service = subprocess.Popen([self.program, "--notification-port", str(self.port)],
                                        env=environment, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.service.stderr.close)
        self.addCleanup(self.service.wait)
        self.addCleanup(self.service.kill)

    def begin_polling(self):
        """The account gets an interval, so that a session is due at once. At a start it would be due
        some seconds later, when the connection has settled."""
        aside = shutil.copy(self.polled_accounts, self.handset.client_file("accounts.json.set"))
        os.rename(aside, self.handset.client_file("accounts.json"))

    def happens(self, condition):
        """Waits for it; false when the service is dead before."""
        end = time.monotonic() + PATIENCE
        while not condition():
            if self.service.poll() is not None:
                return False
            self.assertLess(time.monotonic(), end, "it does not happen")
            time.sleep(0.005)
        return True

    def notify(self, session_id):
        package = notifications.package0(b"dm.example", SECRETS["server-secret"].encode(),
                                         notifications.ZERO_TEXT, session_id)
        self.sender.sendto(notifications.push(package), ("127.0.0.1", self.port))

    def held(self, session_id=None):
        """How many sessions were begun, of a notification or of the schedule."""
        if not os.path.exists(self.held_file):
            return 0
        with open(self.held_file, encoding="ascii") as file:
            lines = file.read().splitlines()
        return sum(f"--notified {session_id} " in line if session_id else "--notified" not in line
                   for line in lines)

    def results(self):
        """What the service would tell of the sessions that were."""
        file = self.handset.path("service", "results.json")
        if not os.path.exists(file):
            return []
        with open(file, encoding="utf-8") as stream:
            return json.load(stream)["results"]

    def work(self, step):
        """A service that is killed at a step.
        Returns whether it was, before it came to its end in good order."""
        self.start(step)
        if self.happens(self.is_on_the_bus):
            self.begin_polling()
        if self.happens(lambda: len(self.results()) == 1):
            self.notify(7)
        if self.happens(lambda: len(self.results()) == 2):
            self.service.terminate()
        status = self.service.wait(PATIENCE)
        self.assertIn(status, (0, KILLED), self.service.stderr.read())
        return status == KILLED

    def status(self):
        result = self.handset.dmclient("status", "--json",
                                       DBUS_SYSTEM_BUS_ADDRESS=self.bus.address)
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        return json.loads(result.stdout)

    def check_next_session(self):
        """The account's next session is an interval away."""
        [account] = self.status()["Accounts"]
        self.assertLess(abs(account["next"] / 1000 - INTERVAL - time.time()), INTERVAL / 5)

    def is_on_the_bus(self):
        return self.bus.get("State").returncode == 0

    def check_recovery(self):
        before = self.results()
        self.begin_polling()
        self.start()
        self.assertTrue(self.happens(self.is_on_the_bus))
        # A session that it knows to be held is not due again.
        if before:
            self.check_next_session()
        # A notification that was obeyed is not obeyed again.
        self.notify(7)
        self.notify(8)
        self.assertTrue(self.happens(lambda: any(entry["cause"] == "notification"
                                                 for entry in self.results()[len(before):])
                                     and self.held(8)))
        self.check_next_session()
        self.service.terminate()
        _, said = self.service.communicate(timeout=PATIENCE)
        self.assertEqual(self.service.returncode, 0, said)
        self.assertNotRegex(said, r"cannot|\.json")
        self.assertEqual(self.held(8), 1)
        self.assertLessEqual(self.held(7), 1)
        self.assertEqual(self.results()[:len(before)], before)
        self.assertLessEqual(self.held(), 1)

    def test_each_time_it_goes_on_where_it_was(self):
        for step in range(1, MOST_STEPS):
            self.last_session = f"\n-- after it was killed at step {step}"
            self.handset.copy_from(self.untouched)
            if os.path.exists(self.held_file):
                os.remove(self.held_file)
            if not self.work(step):
                break  # it has fewer steps
            self.check_recovery()
        # Each of the two sessions is kept in two files, and the notification in one.
        self.assertGreater(step, 2 * (2 * 2 + 1))
        self.assertLess(step, MOST_STEPS - 1)


if __name__ == "__main__":
    unittest.main()
