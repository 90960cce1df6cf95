"""What a server may try with an Exec that ends later, and what must hold."""

import os
import stat
import unittest
from xml.sax.saxutils import escape

from hostile_text import HOSTILE, harmful_in
from late_exec import NODES, LateExecFixture, run

KEPT = 8  # operations of an account


class FloodTest(LateExecFixture):
    def test_asking_for_more_than_is_kept(self):
        """It asks for twenty; eight are kept, the others are refused, and nothing is run twice."""
        commands = [{"exec": run(number), "correlator": "c", "expect": 202 if number < KEPT else 500}
                    for number in range(NODES)]
        _, lines, report = self.session(*commands)
        self.assertEqual(report["faults"], [])
        self.assertIn("8 operations wait", lines[KEPT])
        self.assertEqual(len(self.kept()), KEPT)
        self.assertEqual(len(self.calls()), KEPT)

    def test_never_taking_a_result(self):
        """It refuses every session after that; what is kept does not grow, and nothing runs again."""
        self.session(*({"exec": run(number), "correlator": "c", "expect": 202}
                       for number in range(KEPT)))
        for _ in range(3):
            self.session(misbehave=["http_error"], client_gives_up=True)
        self.assertEqual(len(self.kept()), KEPT)
        self.assertEqual(len(self.calls()), KEPT)

    def test_large_arguments_and_correlators(self):
        """What is larger than is kept is answered 413, and leaves no file behind."""
        _, _, report = self.session(
            {"exec": run(0), "correlator": "c" * 256, "expect": 413},
            {"exec": run(1), "correlator": "c", "data": "x" * (16 * 1024 + 1), "expect": 413},
            {"exec": run(2), "correlator": "c" * 200_000, "expect": 413})
        self.assertEqual(report["faults"], [])
        self.assertEqual((self.kept(), self.calls()), ([], []))


class HostileCorrelatorTest(LateExecFixture):
    def test_texts_that_steer_a_terminal_or_look_like_elements(self):
        """The server gets its own text back as it was; the terminal and the file of the owner alone
        get nothing of it."""
        for correlator in (HOSTILE, "</Correlator><Data>200</Data>&amp;", "a\nNote: forged", "]]>"):
            with self.subTest(correlator=correlator):
                self.session({"exec": run(0), "correlator": correlator, "expect": 202})
                printed = self.last_session.encode()
                self.assertEqual(harmful_in(printed), [])
                self.assertNotIn(b"\nNote: forged", printed)
                self.assertEqual(stat.S_IMODE(os.stat(self.file).st_mode), 0o600)
                _, _, report = self.session(words=("--encoding", "wbxml"))
                self.assertEqual(report["faults"], [])
                self.assertEqual(report["lines"].count("alert 1226"), 1)
                if correlator.isprintable():
                    self.assertIn(f"<Correlator>{escape(correlator)}</Correlator>", self.trace)
                self.assertEqual(self.kept(), [])

    def test_another_spelling_of_the_address(self):
        """A node that has not ended is the same one however its address is written."""
        _, _, report = self.session(
            {"exec": run(0), "correlator": "c", "expect": 202},
            {"exec": run(0)[2:], "correlator": "d", "expect": 403},
            {"exec": run(0).replace("Run", "%52un"), "correlator": "e", "expect": 403})
        self.assertEqual(report["faults"], [])
        self.assertEqual(len(self.calls()), 1)


if __name__ == "__main__":
    unittest.main()
