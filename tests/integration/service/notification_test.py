"""dmclientd, whom servers ask for sessions over UDP, and others for whatever they like."""

import signal
import socket
import subprocess
import unittest

import notifications
from notifications import INFORMATIVE, INTERACTIVE, ZERO_TEXT
from scripted_agent import ScriptedAgent
from services import DMCLIENT, DMCLIENTD, HAS_JOURNAL, PATIENCE, ServiceFixture
from sessions import PLUGIN, SECRETS, DmServer, scenario
from terminal import Terminal

SERVER = b"dm.example"
SECRET = SECRETS["server-secret"].encode()


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
        other.bind(("127.0.0.1", 0))
        return other.getsockname()[1]


class NotificationTest(ServiceFixture):
    def setUp(self):
        super().setUp()
        self.port = free_port()
        self.sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.sender.close)
        zeros = ZERO_TEXT.decode()
        self.server = self.serve("several_messages", client_auth="md5", server_auth="md5",
                                 client_nonce=zeros, server_nonce=zeros)
        result = self.client("account", "set", "Test", "client-auth=md5", "server-auth=md5")
        self.assertEqual(result.returncode, 0, result.stderr)

    def send(self, *messages):
        for message in messages:
            self.sender.sendto(message, ("127.0.0.1", self.port))

    def genuine(self, session_id, **fields):
        return notifications.push(
            notifications.package0(SERVER, SECRET, ZERO_TEXT, session_id, **fields))

    def results(self):
        return self.status()["LastResults"]

    def said(self):
        """What the service wrote until now; it is ended."""
        self.service.terminate()
        self.service.wait(PATIENCE)
        return self.service.stderr.read().decode()

    def test_a_notification_of_the_server_is_followed_by_its_session(self):
        self.start_service("--notification-port", str(self.port))
        self.send(self.genuine(0x4D2))
        self.wait_until(self.results)
        [result] = self.results()
        self.assertEqual((result["account"], result["cause"], result["session"]),
                         ("Test", "notification", "completed"), result)
        self.assertEqual(self.server.session.session_id, "4D2")
        self.assertEqual(self.server.session.report()["faults"], [])

    def test_whoever_does_not_know_the_secret_gets_no_session(self):
        self.start_service("--notification-port", str(self.port))
        genuine = self.genuine(7)
        forged = notifications.push(
            notifications.package0(SERVER, b"guessed", ZERO_TEXT, 7))
        stranger = notifications.push(
            notifications.package0(b"other.example", SECRET, ZERO_TEXT, 7))
        bare = genuine[len(notifications.PUSH_HEADER):]
        self.send(b"", b"\0", forged, stranger, bare, genuine + b"v", b"x" * 60000,
                  *(genuine[:size] for size in range(1, len(genuine))))
        self.send(self.genuine(8, ui_mode=INTERACTIVE))
        for _ in range(20):
            self.send(*[forged] * 50)
            self.status()  # it answers others meanwhile
        self.send(genuine)
        self.wait_until(self.results)
        self.send(*[genuine] * 20)
        self.assertEqual(self.server.session.session_id, "7")
        [result] = self.results()
        self.assertEqual(result["session"], "completed", result)
        said = self.said()
        self.assertLessEqual(said.count("not obeyed"), 2, said)
        if not HAS_JOURNAL:
            self.assertIn("a notification is not obeyed: ", said)

    def agent(self):
        terminal = Terminal(self, "agent", program=[DMCLIENT],
                            environment={"DBUS_SYSTEM_BUS_ADDRESS": self.bus.address})
        terminal.wait_for("servers may ask here")
        return terminal

    def test_the_user_who_is_to_be_asked_allows_the_session(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        shown = agent.answer("yes or no: ", "yes\n")
        self.assertIn("[server] Test: The server wants a session with this device.", shown)
        self.wait_until(self.results)
        self.assertEqual(self.server.session.session_id, "7")

    def test_the_user_who_is_to_be_asked_refuses_once_and_for_all(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        agent.answer("yes or no: ", "no\n")
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        self.send(self.genuine(8))
        self.wait_until(self.results)
        self.assertEqual(self.server.session.session_id, "8")
        self.assertEqual(len(self.results()), 1)
        agent.process.send_signal(signal.SIGINT)
        self.assertNotIn("Is it allowed", agent.end()[1])

    def test_a_question_that_found_nobody_can_be_sent_again(self):
        self.start_service("--notification-port", str(self.port))
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        self.status()
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        agent.answer("yes or no: ", "yes\n")
        self.wait_until(self.results)

    def test_an_agent_that_dies_with_the_question_leaves_no_session(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        agent.wait_for("yes or no: ")
        agent.process.kill()
        self.wait_until(lambda: self.send(self.genuine(8)) or self.results())
        self.assertEqual(self.server.session.session_id, "8")
        self.assertEqual(len(self.results()), 1)

    def test_the_question_outlives_the_session_of_somebody_else(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        agent.wait_for("yes or no: ")
        self.send(self.genuine(8))
        self.wait_until(self.results)
        agent.type(b"yes\n")
        self.wait_until(lambda: len(self.results()) == 2)

    def test_the_user_is_told_of_a_session_and_not_asked(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.agent()
        self.send(self.genuine(7, ui_mode=INFORMATIVE))
        agent.wait_for("[server] Test: The server begins a session with this device.")
        self.wait_until(self.results)
        self.assertEqual(self.server.session.session_id, "7")

    def scripted_agent(self):
        agent = ScriptedAgent(self.bus.address)
        self.addCleanup(agent.close)
        return agent

    def test_a_text_that_is_shown_for_ever_keeps_nobody_from_being_asked(self):
        self.start_service("--notification-port", str(self.port))
        agent = self.scripted_agent()
        for number in (7, 8):
            self.send(self.genuine(number, ui_mode=INFORMATIVE))
            self.assertEqual(agent.question().get_member(), "Display")
            self.wait_until(lambda: len(self.results()) == number - 6)
        self.send(self.genuine(9, ui_mode=INTERACTIVE))
        agent.reply(agent.question(), "b", True)
        self.wait_until(lambda: len(self.results()) == 3)
        self.assertEqual(self.server.session.session_id, "7")
        self.assertEqual(agent.cancelled, 2)

    def test_a_question_that_gives_way_to_a_sessions_is_told(self):
        asking = DmServer(scenario("questions", packages=[
            {"commands": [{"alert": 1101, "items": ["", "Go on?"]}]}]))
        asking.__enter__()
        self.addCleanup(asking.__exit__, None, None, None)
        added = self.client("account", "add", "Asking", f"address={asking.url}",
                            "server-id=asking.example", "client-auth=none", "server-auth=none")
        self.assertEqual(added.returncode, 0, added.stderr)
        self.start_service("--notification-port", str(self.port))
        agent = self.scripted_agent()
        self.send(self.genuine(7, ui_mode=INTERACTIVE))
        allowed = agent.question()
        self.assertEqual(self.bus.start_session("Asking").returncode, 0)
        question = agent.question()
        agent.reply(allowed, "b", True)
        agent.reply(question, "b", True)
        self.wait_until(self.results)
        [result] = self.results()
        self.assertEqual((result["account"], result["session"]), ("Asking", "completed"), result)
        self.assertEqual(agent.cancelled, 1)
        said = self.said()
        if not HAS_JOURNAL:
            self.assertIn("the user, asked for a session of the account Test: cancelled", said)

    def test_a_repetition_is_none_after_a_restart_either(self):
        self.start_service("--notification-port", str(self.port))
        self.send(self.genuine(7))
        self.wait_until(self.results)
        self.said()
        requests = self.server.session.requests
        self.start_service("--notification-port", str(self.port))
        self.send(self.genuine(7))
        # What comes after it has been looked at when this one is told of.
        self.send(self.genuine(9))
        self.wait_until(lambda: len(self.results()) == 2)
        self.assertGreater(self.server.session.requests, requests)
        self.assertEqual(len(self.results()), 2)
        self.assertEqual(self.server.session.session_id, "7")

    def test_nobody_listens_unasked(self):
        self.start_service()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("0.0.0.0", 2948))

    def test_a_port_that_cannot_be_had_is_named(self):
        with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as other:
            other.bind(("::", self.port))
            self.assert_unusable(str(self.port), 3, f"port {self.port}: ")

    def test_what_is_no_port_is_wrong_usage(self):
        for word in ("0", "65536", "-1", "x", ""):
            self.assert_unusable(word, 2, "--notification-port wants")

    def assert_unusable(self, word, status, reason):
        result = subprocess.run([DMCLIENTD, "--plugin", PLUGIN, "--notification-port=" + word],
                                env=self.environment(), capture_output=True, text=True,
                                timeout=PATIENCE, check=False)
        self.assertEqual(result.returncode, status, result.stderr)
        if not HAS_JOURNAL:
            self.assertIn(reason, result.stderr)


if __name__ == "__main__":
    unittest.main()
