"""What a program may try that servers' questions go to: it belongs to a user who may register it,
and does not answer as an agent does."""

import base64
import unittest

import dbus
from scripted_agent import ScriptedAgent
from services import ServiceFixture
from sessions import DmServer, scenario

ERROR = "org.kub.DmClient1.Agent.Error."
QUESTION = {"alert": 1101, "items": ["", "Delete everything?"]}
CHOICE = {"alert": 1103, "items": ["", "Which one?", "red", "blue", "green"]}
CHOICES = {**CHOICE, "alert": 1104}
ENTRY = {"alert": 1102, "items": ["", "Your name?"]}
NO, YES, CANCELLED, TIMED_OUT, NOBODY, CANNOT_SHOW = 304, 200, 214, 408, 406, 416
LARGE = 8_000_000
LONGEST_TEXT = 10_000


class HostileAgentTest(ServiceFixture):
    def begin(self, *commands, agents=1):
        """Has a session held whose server puts these questions. Returns its side of it, and agents
        in the order in which they have registered."""
        server = DmServer(scenario("questions", packages=[{"commands": list(commands)}]))
        server.__enter__()
        self.addCleanup(server.__exit__, None, None, None)
        self.add_account(server.url)
        self.start_service()
        there = [self.agent() for _ in range(agents)]
        started = self.bus.start_session("Test")
        self.assertEqual(started.returncode, 0, started.stderr)
        return server.session, *there

    def agent(self):
        agent = ScriptedAgent(self.bus.address)
        self.addCleanup(agent.close)
        return agent

    def assert_held(self, session):
        """The server has got the answers that it expects."""
        self.wait_until(lambda: self.status()["LastResults"])
        [result] = self.status()["LastResults"]
        self.assertEqual(result["session"], "completed", result)
        self.assertEqual(session.report()["faults"], [])

    def test_only_the_type_that_was_asked_for_is_an_answer(self):
        replies = [("s", "yes"), ("i", 1), ("",), ("bb", True, True), ("v", True), ("ab", [True]),
                   ("a{sv}", {"answer": True})]
        session, agent = self.begin(*[{**QUESTION, "expect": NOBODY} for _ in replies])
        for reply in replies:
            agent.reply(agent.question(), *reply)
        self.assert_held(session)

    def test_an_error_that_nobody_knows_is_no_answer(self):
        errors = ["org.freedesktop.DBus.Error.Failed", ERROR + "Granted", ERROR + "cancelled"]
        session, agent = self.begin(*[{**QUESTION, "expect": NOBODY} for _ in errors],
                                    {**QUESTION, "expect": CANCELLED})
        for error in [*errors, ERROR + "Cancelled"]:
            agent.fail(agent.question(), error)
        self.assert_held(session)

    def test_who_answers_nonsense_does_not_keep_the_one_before_from_it(self):
        session, honest, hostile = self.begin({**QUESTION, "expect": NO}, agents=2)
        hostile.reply(hostile.question(), "s", "yes")
        honest.reply(honest.question(), "b", False)
        self.assert_held(session)

    def test_what_cannot_be_chosen_is_not_chosen(self):
        numbers = [[0], [4], [2**32 - 1], [1, 2], [1, 1], [1] * (LARGE // 4)]
        session, agent = self.begin(*[{**CHOICE, "expect": CANNOT_SHOW} for _ in numbers],
                                    {**CHOICES, "expect": CANNOT_SHOW},
                                    {**CHOICES, "answer": ["1", "3"]})
        for chosen in [*numbers, [1, 4], [1, 3]]:
            agent.reply(agent.question(), "au", chosen)
        self.assert_held(session)

    def test_a_large_text_reaches_no_session_and_leaves_nothing_in_memory(self):
        session, agent = self.begin(*[{**ENTRY, "expect": CANNOT_SHOW} for _ in range(10)],
                                    {**ENTRY, "answer": ["Anna"]})
        for _ in range(10):
            agent.reply(agent.question(), "s", "x" * LARGE)
        question = agent.question()
        # All of them together would take more.
        self.assertLess(self.resident(), LARGE * 10)
        agent.reply(question, "s", "Anna")
        self.assert_held(session)

    def test_a_text_has_a_limit_and_the_longest_arrives(self):
        longest = "\x01" * LONGEST_TEXT  # six bytes each in JSON
        session, agent = self.begin({**ENTRY, "expect": CANNOT_SHOW},
                                    {**ENTRY, "answer": [base64.b64encode(
                                        longest.encode()).decode()]})
        agent.reply(agent.question(), "s", longest + "x")
        agent.reply(agent.question(), "s", longest)
        self.assert_held(session)

    def resident(self):
        """Bytes of the service that are in memory."""
        with open(f"/proc/{self.service.pid}/status", encoding="ascii") as file:
            [line] = [line for line in file if line.startswith("VmRSS:")]
        return int(line.split()[1]) * 1024

    def test_a_text_steers_neither_session_nor_service(self):
        texts = ['","response":"cancelled","id":2,"text":"', 'x"}\n{"session":"failed"}\n',
                 "\U0001f600" * 50]
        session, agent = self.begin(*[{**ENTRY, "answer": [text]} for text in texts])
        for text in texts:
            agent.reply(agent.question(), "s", text)
        self.assert_held(session)

    def test_an_answer_after_its_time_is_not_that_of_the_next_question(self):
        session, agent = self.begin(
            {"alert": 1101, "items": ["MAXDT=1", "Delete everything?"], "expect": TIMED_OUT},
            {**QUESTION, "expect": NO})
        late = agent.question()
        question = agent.question()
        agent.reply(late, "b", True)
        agent.reply(question, "b", False)
        self.assert_held(session)
        self.assertEqual(agent.cancelled, 1)

    def test_a_second_answer_is_not_that_of_the_next_question(self):
        session, agent = self.begin({**QUESTION, "expect": YES}, {**QUESTION, "expect": NO})
        first = agent.question()
        agent.reply(first, "b", True)
        agent.reply(first, "b", True)
        question = agent.question()
        agent.reply(first, "b", True)
        agent.reply(question, "b", False)
        self.assert_held(session)

    def test_who_has_left_answers_nothing_any_more(self):
        session, honest, hostile = self.begin({**QUESTION, "expect": NO}, agents=2)
        left = hostile.question()
        hostile.unregister()
        question = honest.question()
        hostile.reply(left, "b", True)
        honest.reply(question, "b", False)
        self.assert_held(session)

    def test_who_has_left_is_not_asked_after_all(self):
        session, gone, hostile = self.begin({**QUESTION, "expect": NOBODY},
                                            {**QUESTION, "expect": YES}, agents=2)
        question = hostile.question()
        gone.unregister()
        hostile.reply(question, "s", "yes")
        # The first question has found nobody, so this is the second one.
        hostile.reply(hostile.question(), "b", True)
        self.assert_held(session)

    def test_who_vanishes_while_it_is_asked_leaves_the_question_to_the_one_before(self):
        session, honest, hostile = self.begin({**QUESTION, "expect": NO}, agents=2)
        hostile.question()
        hostile.close()
        honest.reply(honest.question(), "b", False)
        self.assert_held(session)

    def test_who_leaves_and_comes_again_does_not_hold_a_question_for_ever(self):
        session, agent = self.begin({**QUESTION, "expect": NOBODY}, {**QUESTION, "expect": YES})
        agent.question()
        agent.register("/other")
        agent.unregister()
        question = agent.question()
        self.assertEqual(question.get_path(), "/other")
        agent.reply(question, "b", True)
        self.assert_held(session)

    def test_agents_of_one_program_have_a_limit_and_are_asked_once_each(self):
        self.start_service()
        agent = self.agent()
        refused = []
        for number in range(2, 21):
            try:
                agent.register(f"/agent/{number}")
            except dbus.DBusException as error:
                refused.append(error)
        self.assertEqual(len(refused), 4)
        self.assertIn("there are 16 agents, which is the most", str(refused[0]))
        server = DmServer(scenario("questions",
                                   packages=[{"commands": [{**QUESTION, "expect": NOBODY}]}]))
        server.__enter__()
        self.addCleanup(server.__exit__, None, None, None)
        self.add_account(server.url)
        self.wait_until(lambda: self.bus.start_session("Test").returncode == 0)
        asked = []
        for _ in range(16):
            question = agent.question()
            asked.append(question.get_path())
            agent.reply(question, "s", "yes")
        self.assertEqual(len(set(asked)), 16)
        self.assert_held(server.session)


if __name__ == "__main__":
    unittest.main()
