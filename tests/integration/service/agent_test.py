"""The user of a device whose sessions dmclientd holds, asked by a server."""

import signal
import unittest

from services import DMCLIENT, ServiceFixture
from sessions import SUCCESS, USAGE, DmServer, scenario
from terminal import Terminal


class AgentTest(ServiceFixture):
    def begin(self, *alerts):
        """A server that asks, the service, and an account of the server."""
        server = DmServer(scenario("questions", packages=[{"commands": list(alerts)}]))
        server.__enter__()
        self.addCleanup(server.__exit__)
        self.add_account(server.url)
        self.start_service()
        return server.session

    def terminal(self, *words):
        return Terminal(self, *words, program=[DMCLIENT],
                        environment={"DBUS_SYSTEM_BUS_ADDRESS": self.bus.address})

    def agent(self):
        terminal = self.terminal("agent")
        terminal.wait_for("servers may ask here")
        return terminal

    def hold(self):
        started = self.bus.start_session("Test")
        self.assertEqual(started.returncode, 0, started.stderr)

    def assert_held(self, session):
        self.wait_until(lambda: self.status()["LastResults"])
        self.assertEqual(self.status()["LastResults"][-1]["session"], "completed")
        self.assertEqual(session.report()["faults"], [])

    def test_all_kinds_of_questions_reach_the_agent(self):
        session = self.begin(
            {"alert": 1100, "items": ["", "Settings are being updated"]},
            {"alert": 1101, "items": ["", "Delete everything?"], "expect": 304},
            {"alert": 1101, "items": ["", "Go on?"], "expect": 200},
            {"alert": 1102, "items": ["MAXLEN=8&DR=Anna", "Your name?"], "answer": ["Anna"]},
            {"alert": 1102, "items": ["IT=N&ET=P", "Your PIN?"], "answer": ["4711"]},
            {"alert": 1103, "items": ["", "Which one?", "red", "blue"], "answer": ["2"]},
            {"alert": 1104, "items": ["", "Which ones?", "red", "blue", "green"],
             "answer": ["1", "3"]})
        agent = self.agent()
        self.hold()
        shown = agent.answer("yes or no: ", "no\n")
        self.assertIn("[server] Test: Settings are being updated\r\n", shown)
        self.assertIn("[server] Test: Delete everything?\r\n", shown)
        agent.answer("yes or no: ", "y\n")
        agent.answer("your answer [Anna]: ", "\n")
        agent.answer("your answer: ", "4711\n", hidden=True)
        after_pin = agent.answer("number: ", "2\n")
        self.assertNotIn("4711", after_pin)
        self.assertIn("[server] 1) red\r\n[server] 2) blue\r\n", after_pin)
        agent.answer("numbers: ", "1, 3\n")
        self.assert_held(session)

    def test_nobody_there_is_answered_as_the_protocol_has_it(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 406})
        self.hold()
        self.assert_held(session)

    def test_ctrl_d_cancels(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 214})
        agent = self.agent()
        self.hold()
        agent.answer("yes or no: ", "\x04")
        self.assert_held(session)

    def test_the_one_before_is_asked_when_the_last_one_dies(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 200})
        first = self.agent()
        second = self.agent()
        self.hold()
        second.wait_for("yes or no: ")
        second.process.kill()
        first.answer("yes or no: ", "yes\n")
        self.assert_held(session)

    def test_an_agent_that_dies_alone_leaves_nobody(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 406})
        agent = self.agent()
        self.hold()
        agent.wait_for("yes or no: ")
        agent.process.kill()
        self.assert_held(session)

    def test_an_agent_that_hangs_takes_no_more_than_the_servers_time(self):
        session = self.begin({"alert": 1101, "items": ["MAXDT=1", "Go on?"], "expect": 408})
        agent = self.agent()
        agent.process.send_signal(signal.SIGSTOP)
        self.addCleanup(agent.process.send_signal, signal.SIGCONT)
        self.hold()
        self.assert_held(session)

    def test_a_question_is_taken_back_with_its_session(self):
        self.begin({"alert": 1101, "items": ["", "Go on?"]})
        agent = self.agent()
        self.hold()
        agent.wait_for("yes or no: ")
        cancelled = self.bus.call("CancelSession", "string:Test")
        self.assertEqual(cancelled.returncode, 0, cancelled.stderr)
        self.wait_until(lambda: self.status()["LastResults"])
        # The terminal is free for the next question: this line is not its answer.
        agent.wait_for("\n")
        self.assertEqual(self.status()["State"], "idle")

    def test_the_session_of_a_terminal_asks_there(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 200})
        terminal = self.terminal("session", "Test")
        self.assertIn("[server] Test: Go on?", terminal.answer("yes or no: ", "yes\n"))
        status, screen = terminal.end()
        self.assertEqual(status, SUCCESS, screen)
        self.assert_held(session)

    def test_ctrl_c_ends_the_agent_and_its_question(self):
        session = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 214})
        agent = self.agent()
        self.hold()
        agent.wait_for("yes or no: ")
        agent.process.send_signal(signal.SIGINT)
        self.assertEqual(agent.end()[0], SUCCESS)
        self.assert_held(session)

    def test_without_a_terminal_there_is_nobody_to_ask(self):
        result = self.client("agent")
        self.assertEqual(result.returncode, USAGE)
        self.assertIn("not a terminal", result.stderr)

    def test_no_program_fills_the_service_with_agents(self):
        self.start_service()
        for number in range(20):
            self.bus.call("RegisterAgent", f"objpath:/agent/{number}")
        # Each was gone with its connection.
        registered = self.bus.call("RegisterAgent", "objpath:/agent")
        self.assertEqual(registered.returncode, 0, registered.stderr)


if __name__ == "__main__":
    unittest.main()
