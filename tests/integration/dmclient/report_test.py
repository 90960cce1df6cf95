"""dmclient report: which files it reads, which one it writes, and what it refuses."""

import json
import os
import re
import stat
import subprocess
import unittest

from handset import DMCLIENT, Handset

RUN = {"t": 0, "event": "run", "format": 1, "arguments": ["session", "</script><b>"]}
SUCCESS, USAGE, UNUSABLE = 0, 2, 3


class ReportTest(unittest.TestCase):
    def setUp(self):
        self.handset = Handset(profiles=None)
        self.addCleanup(self.handset.close)
        self.record = self.write("session.jsonl", json.dumps(RUN) + "\n" + json.dumps({"t": 5, "event": "end"}) + "\n")

    def path(self, name):
        return os.path.join(self.handset.home, name)

    def write(self, name, text):
        with open(self.path(name), "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def report(self, *words):
        return subprocess.run([DMCLIENT, "report", *words], env=self.handset.environment(), cwd=self.handset.home,
                              capture_output=True, encoding="utf-8", timeout=60, check=False)

    def assert_refused(self, result, status, sentence):
        self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
        self.assertIn(sentence, result.stderr)

    def test_writes_a_page_beside_nothing_else_that_only_its_owner_reads(self):
        result = self.report("session.jsonl")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (SUCCESS, "session.html\n", ""))
        self.assertEqual(stat.S_IMODE(os.stat(self.path("session.html")).st_mode), 0o600)
        self.assertEqual(sorted(os.listdir(self.handset.home)), ["session.html", "session.jsonl"])

    def test_the_page_has_the_record_and_nothing_of_it_as_markup(self):
        self.report(self.record, "-o", "page.html")
        data = re.findall(r'<script type="application/json" class="record">(.*?)</script>', self.read("page.html"), re.DOTALL)
        self.assertEqual([json.loads(line) for line in data[0].splitlines()], [RUN, {"t": 5, "event": "end"}])

    def test_two_records_make_one_page(self):
        result = self.report(self.record, self.record, "-o", "-")
        self.assertEqual(result.returncode, SUCCESS)
        self.assertEqual(result.stdout.count("class=\"record\">"), 2)
        self.assertFalse(os.path.exists(self.path("-")))

    def test_a_report_is_written_over_and_keeps_to_its_owner(self):
        self.report(self.record, "-o", "page.html")
        os.chmod(self.path("page.html"), 0o644)
        self.assertEqual(self.report(self.record, "-o", "page.html").returncode, SUCCESS)
        self.assertEqual(stat.S_IMODE(os.stat(self.path("page.html")).st_mode), 0o600)

    def test_what_is_not_a_report_is_not_written_over(self):
        for name, text in (("letter.html", "<html>dear"), ("session.jsonl", None)):
            with self.subTest(name):
                before = text if text is None else self.write(name, text) and text
                before = before or self.read(name)
                self.assert_refused(self.report(self.record, "-o", name), USAGE, f"{name} is there and is not a report")
                self.assertEqual(self.read(name), before)

    def test_where_nothing_can_be_written_it_says_so(self):
        os.mkdir(self.path("folder"))
        self.assert_refused(self.report(self.record, "-o", "folder"), USAGE, "folder is there and is not a report")
        self.assert_refused(self.report(self.record, "-o", "missing/page.html"), UNUSABLE, "cannot write missing/page.html: ")

    def test_a_record_that_breaks_off_is_taken(self):
        self.write("cut.jsonl", json.dumps(RUN) + "\n{\"t\":5,\"ev")
        self.assertEqual(self.report("cut.jsonl").returncode, SUCCESS)

    def test_what_is_not_a_record_is_named(self):
        for text, sentence in ((b"", "line 0: a record begins with a run"), (b"\xff\xfe\n", "line 1: byte 1: illegal value"),
                               (b"{}\n", "line 1: it is not an event with its time"),
                               (b'{"t":0,"event":"end"}\n', "line 1: a record begins with a run"),
                               (b'{"t":0,"event":"run","format":2}\n', "line 1: the record has a format other than 1"),
                               (b'{"t":0,"event":"run","format":1}\n[]\n{}\n', "line 2: it is not an event with its time")):
            with self.subTest(text):
                self.write("odd.jsonl", text)
                self.assert_refused(self.report("odd.jsonl"), USAGE, "odd.jsonl: " + sentence)
                self.assertFalse(os.path.exists(self.path("odd.html")))
        self.assert_refused(self.report("none.jsonl"), USAGE, "nor a file none.jsonl")

    def test_without_a_record_it_is_the_last_sessions(self):
        self.assert_refused(self.report(), UNUSABLE, "no session is recorded")
        subprocess.run([DMCLIENT, "session", "http://127.0.0.1:1/"], env=self.handset.environment(), capture_output=True,
                       timeout=60, check=False)
        kept = os.listdir(self.handset.client_file("records"))
        result = self.report()
        self.assertEqual((result.returncode, result.stdout), (SUCCESS, kept[0].replace(".jsonl", ".html") + "\n"), result.stderr)
        self.assertIn("http://127.0.0.1:1/", self.read(result.stdout.strip()))

    def test_needs_no_state_and_makes_none(self):
        self.report(self.record)
        self.report()
        self.assertFalse(os.path.exists(self.handset.state))


if __name__ == "__main__":
    unittest.main()
