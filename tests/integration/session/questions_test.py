"""The user of a program that runs dmclient, asked by a server."""

import json
import subprocess
import unittest

from handset import PROGRAMS
from sessions import ENCODINGS, SUCCESS, USAGE, DmServer, SessionTest, scenario


class QuestionsTest(SessionTest):
    def start(self, server):
        process = subprocess.Popen(
            [*PROGRAMS["dmclient"], "session", server.url, "--json", "--questions"],
            env=self.handset.environment(), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, encoding="utf-8")
        self.addCleanup(process.__exit__, None, None, None)
        self.addCleanup(process.kill)
        return process

    def question(self, process):
        """The next question; commands are passed over."""
        for line in process.stdout:
            fields = json.loads(line)
            if "question" in fields:
                return fields
        self.fail(process.stderr.read())

    def ask(self, alert, answer, status):
        """One question of a server. Returns it as the program had it.

        answer: makes a line, or None for the end of the input, of the question
        status: with which the server has to be answered"""
        played = scenario("questions", packages=[{"commands": [{**alert, "expect": status}]}])
        with DmServer(played) as server:
            process = self.start(server)
            question = self.question(process)
            line = answer(question)
            _, errors = process.communicate(line, timeout=60)
            self.assertEqual(server.session.report()["faults"], [], line)
        self.assertEqual(errors, "")
        return question

    @staticmethod
    def reply(**fields):
        return lambda question: json.dumps({"id": question["id"], **fields}) + "\n"

    def test_all_questions_of_a_session(self):
        answers = [
            ({"question": "display", "text": "Settings are\nbeing updated\u009b31m",
              "options": {"minimum-time": 1}}, {"response": "given"}),
            ({"question": "confirmation", "text": "Delete everything?",
              "options": {"maximum-time": 60}}, {"response": "refused"}),
            ({"question": "text", "text": "Your name?",
              "options": {"maximum-length": 8, "default": "Anna"}},
             {"response": "given", "text": "Anna"}),
            ({"question": "text", "text": "Your PIN?",
              "options": {"input": "number", "secret": True}},
             {"response": "given", "text": "4711"}),
            ({"question": "choice", "text": "Which one?", "choices": ["red", "blue"],
              "options": {}}, {"response": "given", "chosen": [2]}),
            ({"question": "choices", "text": "Which ones?",
              "choices": ["red", "blue", "green"], "options": {}},
             {"response": "given", "chosen": [1, 3]}),
            ({"question": "confirmation", "text": "Go on?", "options": {}},
             {"response": "cancelled"}),
        ]
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                with DmServer(scenario("questions", encoding=encoding)) as server:
                    process = self.start(server)
                    for number, (expected, answer) in enumerate(answers, 1):
                        asked = self.question(process)
                        # Without a limit of the server's it is the session's.
                        self.assertGreater(asked["options"]["maximum-time"], 0)
                        if "maximum-time" not in expected["options"]:
                            del asked["options"]["maximum-time"]
                        self.assertEqual(asked, {"id": number, **expected})
                        process.stdin.write(json.dumps({"id": number, **answer}) + "\n")
                        process.stdin.flush()
                    output, errors = process.communicate(timeout=60)
                    self.assertEqual(server.session.report()["faults"], [])
                self.assertEqual(process.returncode, SUCCESS, output + errors)
                self.assertEqual(json.loads(output.splitlines()[-1])["session"], "completed")

    def test_what_happened_to_a_question_is_told_to_the_server(self):
        for response, status in (("given", 200), ("refused", 304), ("cancelled", 214),
                                 ("timed-out", 408), ("cannot-show", 416), ("nobody", 406)):
            with self.subTest(response=response):
                self.ask({"alert": 1101, "items": ["", "Go on?"]},
                         self.reply(response=response), status)

    def test_an_answer_that_cannot_be_read_is_none(self):
        for line in ("", "yes", "[]", "{}x", '{"id": 1}', '{"id": 1, "response": true}',
                     '{"id": 1, "response": "certainly"}', "x" * 100_000):
            with self.subTest(line=line[:40]):
                self.ask({"alert": 1101, "items": ["", "Go on?"]}, lambda _: line + "\n", 416)

    def test_the_end_of_the_input_is_nobody(self):
        self.ask({"alert": 1101, "items": ["", "Go on?"]}, lambda _: "", 406)

    def test_answers_to_other_questions_are_skipped(self):
        for other in (0, 2, "1", None):
            with self.subTest(other=other):
                self.ask({"alert": 1101, "items": ["", "Go on?"]},
                         lambda asked: json.dumps({"id": other, "response": "refused"}) + "\n"
                         + json.dumps({"id": asked["id"], "response": "given"}) + "\n", 200)

    def test_a_server_gets_no_answer_that_it_does_not_take(self):
        text, choice, choices = 1102, 1103, 1104
        for code, options, fields in (
                (text, "IT=N", {"text": "12a"}), (text, "IT=I", {"text": "::1"}),
                (text, "MAXLEN=3", {"text": "four"}), (text, "", {"text": 4}), (text, "", {}),
                (choice, "", {"chosen": [3]}), (choice, "", {"chosen": [0]}),
                (choice, "", {"chosen": [1, 2]}), (choice, "", {"chosen": []}),
                (choice, "", {"chosen": "1"}), (choices, "", {"chosen": [1, 1]}),
                (choices, "", {"chosen": [1.5]}), (choices, "", {"chosen": ["1"]}),
                (choices, "", {"chosen": [-1]})):
            with self.subTest(code=code, options=options, fields=fields):
                items = [options, "?"] + (["red", "blue"] if code != text else [])
                self.ask({"alert": code, "items": items},
                         self.reply(response="given", **fields), 416)

    def test_silence_is_over_when_the_servers_time_is(self):
        played = scenario("questions", packages=[{"commands": [
            {"alert": 1101, "items": ["MAXDT=1", "Go on?"], "expect": 408}]}])
        with DmServer(played) as server:
            process = self.start(server)
            self.question(process)
            process.wait(60)
            self.assertEqual(server.session.report()["faults"], [])

    def test_is_for_programs_only(self):
        result = self.handset.dmclient("session", "https://localhost", "--questions")
        self.assertEqual(result.returncode, USAGE)
        self.assertIn(b"--questions needs --json", result.stderr)
        result = self.handset.dmclient("shell", stdin="session x --json --questions\n")
        self.assertIn(b"and standard input", result.stdout)


if __name__ == "__main__":
    unittest.main()
