"""An Exec that is answered 202, runs after the session, and is told of in the next one."""

import json
import os
import signal
import subprocess
import time
import unittest

import session as server_sessions
from bus import PrivateBus
from handset import DMCLIENT
from late_exec import LateExecFixture, run
from sessions import KINDS, REFUSED, SESSION_FAILED, SUCCESS, DmServer

DMCLIENTD = os.environ["DMCLIENTD"]
PATIENCE = 60  # seconds; what takes longer never happens


def later(number, data="go", correlator="7", expect=202):
    return {"exec": run(number), "data": data, "correlator": correlator, "expect": expect}


class LateExecTest(LateExecFixture):
    def test_it_runs_after_the_session_and_the_next_one_tells_of_it_once(self):
        status, lines, report = self.session(later(1, "now"))
        self.assertEqual((status, report["faults"]), (SUCCESS, []))
        self.assertEqual(lines[0], f"Exec {run(1)}: 202 Accepted for Processing")
        self.assertEqual(lines[1], f"Exec {run(1)}: 200 OK")
        self.assertNotIn("1226", self.trace)
        self.assertEqual(self.calls(), ["Run1 now"])
        self.assertEqual(self.kept(), [(run(1), "ended", 200)])
        self.session()
        self.assert_result("<Data>200</Data>", "<Mark>informational</Mark>",
                           "<Correlator>7</Correlator>", f"<LocURI>{run(1)}</LocURI>")
        self.assertEqual(self.kept(), [])
        self.session()
        self.assertNotIn("1226", self.trace)
        self.assertEqual(self.calls(), ["Run1 now"])

    def test_it_is_kept_before_it_is_answered_and_runs_with_what_the_server_sent(self):
        for encoding in ("xml", "wbxml"):
            self.session(later(2, "a <b> & c"), encoding=encoding)
            self.assertEqual(self.calls()[-1], "Run2 a <b> & c")
            self.session()

    def test_without_a_correlator_it_is_run_at_once(self):
        _, lines, report = self.session({"exec": run(1), "data": "go"})
        self.assertEqual(report["faults"], [])
        self.assertEqual(lines[0], f"Exec {run(1)}: 200 OK")
        self.assertEqual((self.calls(), self.kept()), (["Run1 go"], []))

    def test_a_node_that_has_not_ended_is_not_executed_again(self):
        status, lines, report = self.session(
            later(1), later(1, correlator="8", expect=403), later(2, correlator="9"),
            {"exec": run(1), "expect": 403})
        self.assertEqual((status, report["faults"]), (REFUSED, []))
        self.assertIn("another Exec of ./Vendor/Busy/Run1 has not ended yet", lines[1])
        self.assertEqual(self.calls(), ["Run1 go", "Run2 go"])

    def test_a_failure_is_told_too(self):
        self.session(later(1, "fail"))
        self.session()
        self.assert_result("<Data>500</Data>", "<Mark>warning</Mark>")
        self.assertEqual(self.kept(), [])

    def test_a_result_is_kept_until_the_server_takes_it(self):
        self.session(later(1))
        status, _, _ = self.session(misbehave=["http_error"], client_gives_up=True)
        self.assertEqual(status, SESSION_FAILED)
        self.assertEqual(self.kept(), [(run(1), "ended", 200)])
        _, _, report = self.session()
        self.assertEqual(report["lines"].count("alert 1226"), 1)
        self.assertEqual(self.kept(), [])

    def test_a_server_that_first_asks_who_is_there_is_told_again(self):
        self.session(later(1))
        self.handset.dmclient("account", "set", "Test", "client-auth=md5", "client-nonce=")
        _, _, report = self.session(client_auth="md5")
        self.assertEqual(report["faults"], [])
        self.assertTrue(report["client_accepted"])
        self.assertEqual(self.trace.count("<Data>1226</Data>"), 2)
        self.assertEqual(self.kept(), [])

    def test_a_server_that_proves_itself_takes_it_whatever_it_has_to_do(self):
        for kind in KINDS:
            for commands in ((), ({"get": "./DevInfo/Man"},)):
                with self.subTest(proof=kind, commands=len(commands)):
                    self.session(later(1))
                    fields = (f"client-auth={kind}", f"server-auth={kind}", "client-nonce=",
                              "server-nonce=")
                    self.handset.dmclient("account", "set", "Test", *fields)
                    _, _, report = self.session(*commands, client_auth=kind, server_auth=kind)
                    self.assertEqual(report["faults"], [])
                    if commands:
                        self.assertTrue(report["server_accepted"])
                    self.assertEqual(self.kept(), [])
                    self.handset.dmclient("account", "set", "Test", "client-auth=none",
                                          "server-auth=none")

    # ---- Killed at each step ---------------------------------------------------------------------

    def test_killed_before_it_begins_it_is_run_after_the_next_session(self):
        with DmServer(self.asking(later(1), misbehave=[])) as server:
            server.session.scenario["packages"].append({"commands": [{"get": "./DevInfo/Man"}],
                                                        "misbehave": ["slow=5"]})
            self.add_account(server.url)
            process = self.start("--plugins", self.folder, "session", "Test",
                                 program=(DMCLIENT,), environment={"BUSY_LOG": self.log},
                                 stdout=subprocess.DEVNULL)
            end = time.monotonic() + PATIENCE
            while not self.kept():
                self.assertLess(time.monotonic(), end, "nothing is kept")
                time.sleep(0.01)
            process.kill()
            process.wait()
        self.assertEqual((self.kept(), self.calls()), ([(run(1), "accepted", 200)], []))
        self.session()
        self.assertNotIn("1226", self.trace)
        self.assertEqual(self.calls(), ["Run1 go"])
        self.session()
        self.assert_result("<Data>200</Data>")
        self.assertEqual(self.calls(), ["Run1 go"])

    def test_killed_while_it_runs_it_is_not_run_again_and_told_as_broken_off(self):
        status, _, _ = self.session(later(1, "be killed"), later(2, correlator="8"))
        self.assertEqual(status, -signal.SIGKILL)
        self.assertEqual(self.kept(), [(run(1), "begun", 200), (run(2), "accepted", 200)])
        self.session()
        self.assert_result("<Data>500</Data>", "<Mark>critical</Mark>",
                           "<Correlator>7</Correlator>")
        self.assertEqual(self.calls(), ["Run1 be killed", "Run2 go"])
        self.assertEqual(self.kept(), [(run(2), "ended", 200)])

    # ---- Whose it is -----------------------------------------------------------------------------

    def test_another_server_is_told_nothing(self):
        self.session(later(1))
        self.handset.dmclient("account", "set", "Test", "server-id=other.example")
        self.session(server_id="other.example")
        self.assertNotIn("1226", self.trace)
        self.assertEqual(self.kept(), [])

    def test_a_server_without_an_account_has_it_run_at_once(self):
        with DmServer(self.asking(later(1, expect=200))) as server:
            self.handset.dmclient("--plugins", self.folder, "session", server.url,
                                  BUSY_LOG=self.log)
            self.assertEqual(server.session.report()["faults"], [])
        self.assertEqual((self.calls(), self.kept()), (["Run1 go"], []))

    def test_a_damaged_file_is_told_and_left_as_it_is(self):
        with open(self.file, "w", encoding="utf-8") as file:
            os.chmod(self.file, 0o600)
            file.write("{")
        _, lines, report = self.session(later(1, expect=500), {"get": "./DevInfo/Man"})
        self.assertEqual(report["faults"], [])
        self.assertIn("late-operations.json: byte 1: unterminated object", "\n".join(lines))
        with open(self.file, encoding="utf-8") as file:
            self.assertEqual(file.read(), "{")


class SessionsInTurn:
    """Stands for the one session of a server: each scenario is one more."""

    def __init__(self, url, *played):
        self._url = url
        self._left = list(played)
        self.sessions = []

    def receive(self, *message):
        if not self.sessions or self.sessions[-1].is_over:
            self.sessions.append(server_sessions.Session(self._left.pop(0), self._url))
        return self.sessions[-1].receive(*message)


class LateExecServiceTest(LateExecFixture):
    def setUp(self):
        super().setUp()
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        self.server = DmServer(self.asking())
        self.server.__enter__()
        self.addCleanup(self.server.__exit__, None, None, None)
        self.add_account(self.server.url)

    def serve(self, *played):
        self.server.session = SessionsInTurn(self.server.url, *played)

    def start_service(self):
        environment = self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address,
                                               BUSY_LOG=self.log)
        service = subprocess.Popen([DMCLIENTD, "--plugins", self.folder], env=environment,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(service.wait)
        self.addCleanup(service.kill)
        self.wait_until(lambda: self.client("status").returncode == SUCCESS)

    def client(self, *words):
        return subprocess.run([DMCLIENT, *words], capture_output=True, timeout=PATIENCE, check=False,
                              env=self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address))

    def wait_until(self, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, "it does not happen")
            time.sleep(0.02)

    def causes(self):
        try:
            with open(self.handset.path("service", "results.json"), encoding="utf-8") as file:
                return [result["cause"] for result in json.load(file)["results"]]
        except FileNotFoundError:
            return []

    def test_the_service_has_the_server_told_at_once(self):
        self.serve(self.asking(later(1)), self.asking())
        self.start_service()
        self.client("session", "Test")
        self.wait_until(lambda: len(self.causes()) == 2)
        self.assertEqual(self.causes(), ["user", "operation"])
        self.assertEqual(self.server.session.sessions[1].lines.count("alert 1226"), 1)
        self.assertEqual(self.kept(), [])

    def test_what_an_earlier_service_has_left_is_told_when_it_is_online(self):
        self.session(later(1))
        self.handset.dmclient("account", "set", "Test", f"address={self.server.url}")
        self.serve(self.asking())
        self.start_service()
        self.wait_until(lambda: self.causes() == ["operation"])
        self.assertEqual(self.kept(), [])

    def test_a_crash_of_an_operation_is_told_and_the_service_goes_on(self):
        self.serve(self.asking(later(1, "be killed")), self.asking())
        self.start_service()
        self.client("session", "Test")
        self.wait_until(lambda: len(self.causes()) == 2)
        self.assertEqual(self.calls(), ["Run1 be killed"])
        self.assertEqual(self.kept(), [])


if __name__ == "__main__":
    unittest.main()
