"""The user at a terminal, asked by a server."""

import itertools
import re
import signal
import unittest

from sessions import (ENCODINGS, KINDS, REFUSED, SESSION_FAILED, SUCCESS, DmServer, SessionTest,
                      scenario)
from terminal import Terminal


class TerminalTest(SessionTest):
    def ask(self, *alerts, **changes):
        server = DmServer(scenario("questions", packages=[{"commands": list(alerts)}], **changes))
        server.__enter__()
        self.addCleanup(server.__exit__)
        return Terminal(self, "session", server.url), server.session

    def test_all_questions_of_a_session(self):
        for encoding, kind in itertools.product(ENCODINGS, KINDS):
            with self.subTest(encoding=encoding, proof=kind):
                self.handset.close()
                self.setUp()
                self.answer_all_questions(encoding, kind)

    def answer_all_questions(self, encoding, kind):
        with DmServer(scenario("questions", client_auth=kind, server_auth=kind)) as server:
            self.add_account(server.url, client_auth=kind, server_auth=kind)
            terminal = Terminal(self, "session", "Test", "--encoding", encoding)
            shown = terminal.answer("yes or no: ", "no\n")
            self.assertIn("[server] Settings are\r\n[server] being updated\\xc2\\x9b31m\r\n", shown)
            self.assertIn("[server] Delete everything?", shown)
            terminal.answer("your answer [Anna]: ", "\n")
            terminal.answer("your answer: ", "4711\n", hidden=True)
            after_pin = terminal.answer("number: ", "2\n")
            self.assertNotIn("4711", after_pin)
            self.assertIn("[server] 1) red\r\n[server] 2) blue\r\n", after_pin)
            terminal.answer("numbers: ", "1, 3\n")
            terminal.answer("yes or no: ", "\x04")
            status, screen = terminal.end()
            report = server.session.report()
        self.assertEqual(report["faults"], [])
        self.assertEqual(report["encodings"], [encoding])
        self.assertEqual(status, SUCCESS, screen)
        self.assertIn("Session completed", screen)
        office = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr"
        self.assertEqual(self.handset.dmclient("get", office).returncode, SUCCESS)

    def test_answers_that_do_not_fit_are_asked_for_again(self):
        for options, wrong, problem, right in (
                ("IT=N", "12a", "Digits only, please.", "12"),
                ("IT=D", "1.1.2026", "A date of eight digits, please: DDMMYYYY.", "01012026"),
                ("IT=T", "12:00", "A time of six digits, please: hhmmss.", "120000"),
                ("IT=P", "home", "A telephone number, please.", "+49171*1#"),
                ("IT=I", "::1", "An address of four numbers, please: 192.0.2.1.", "10.0.0.1"),
                ("MAXLEN=3", "four", "At most 3 characters, please.", "ußä")):
            with self.subTest(options=options):
                terminal, session = self.ask(
                    {"alert": 1102, "items": [options, "?"], "answer": [right]})
                terminal.answer("your answer: ", wrong + "\n")
                terminal.wait_for(problem)
                terminal.answer("your answer: ", right + "\n")
                self.assertEqual(terminal.end()[0], SUCCESS)
                self.assertEqual(session.report()["faults"], [])

    def test_choices_are_numbers_of_the_list(self):
        terminal, session = self.ask(
            {"alert": 1103, "items": ["DR=1", "?", "red", "blue"], "answer": ["1"]},
            {"alert": 1104, "items": ["", "?", "red", "blue"]})
        terminal.answer("number [1]: ", "3\n")
        terminal.wait_for("Numbers from 1 to 2, please.")
        terminal.answer("number [1]: ", "1 2\n")
        terminal.wait_for("One number, please.")
        terminal.answer("number [1]: ", "\n")
        terminal.answer("numbers: ", "\n")
        self.assertEqual(terminal.end()[0], SUCCESS)
        self.assertEqual(session.report()["faults"], [])

    def test_yes_is_yes_in_several_words(self):
        for word in ("y", "YES", "1"):
            terminal, session = self.ask({"alert": 1101, "items": ["", "?"]})
            terminal.answer("yes or no: ", "perhaps\n")
            terminal.wait_for("Please type yes or no; Ctrl-D cancels.")
            terminal.answer("yes or no: ", word + "\n")
            self.assertEqual(terminal.end()[0], SUCCESS)
            self.assertEqual(session.report()["faults"], [])

    def test_no_answer_in_time(self):
        terminal, session = self.ask({"alert": 1101, "items": ["MAXDT=1", "?"], "expect": 408})
        terminal.wait_for("yes or no: ")
        self.assertEqual(terminal.end()[0], REFUSED)
        self.assertEqual(session.report()["faults"], [])

    def test_interrupting_a_question_aborts_the_session(self):
        terminal, session = self.ask({"alert": 1101, "items": ["", "?"]})
        terminal.answer("yes or no: ", "\x03")
        # The terminal belongs to no session of its own here, so the signal is sent by hand.
        terminal.process.send_signal(signal.SIGINT)
        status, screen = terminal.end()
        self.assertEqual(status, SESSION_FAILED, screen)
        self.assertEqual(session.lines[-1], "the client aborts the session")

    def test_a_shell_goes_on_after_a_session_that_was_interrupted(self):
        server = DmServer(scenario("questions", packages=[
            {"commands": [{"alert": 1101, "items": ["", "?"]}]}]))
        server.__enter__()
        self.addCleanup(server.__exit__)
        terminal = Terminal(self, "shell")
        terminal.answer("dm> ", f"session {server.url}\n")
        terminal.wait_for("yes or no: ")
        terminal.process.send_signal(signal.SIGINT)
        terminal.wait_for("Session aborted: aborted by the user")
        terminal.answer("dm> ", "get ./DevInfo/Lang\n")
        terminal.wait_for("get ./DevInfo/Lang: 200 OK")
        terminal.answer("dm> ", "quit\n")
        self.assertEqual(terminal.end()[0], SESSION_FAILED)

    def test_colour_is_for_terminals(self):
        terminal, _ = self.ask({"delete": "./DevInfo", "expect": 405})
        _, screen = terminal.end()
        self.assertTrue(re.search(r"\x1b\[31mDelete ./DevInfo: 405 .*\x1b\[0m", screen), screen)

    def test_json_asks_nobody(self):
        with DmServer(scenario("alerts")) as server:
            terminal = Terminal(self, "session", server.url, "--json")
            status, _ = terminal.end()
            self.assertEqual(status, REFUSED)
            self.assertEqual(server.session.report()["faults"], [])


if __name__ == "__main__":
    unittest.main()
