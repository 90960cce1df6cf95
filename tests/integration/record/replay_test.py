"""A record's messages once more, on the same state and on another one."""

import os
import unittest

from handset import CONN, SECRET, Handset
from sessions import ENCODINGS, DmServer, SessionTest, scenario

SUCCESS, DIFFERENT, USAGE = range(3)
OFFICE = CONN + "/Office"


class ReplayTest(SessionTest):
    def record(self, commands, *options, encoding="xml"):
        """Records a session with these commands; the handset is as before afterwards."""
        record = os.path.join(self.handset.home, "record")
        before = Handset(profiles=None)
        self.addCleanup(before.close)
        before.copy_from(self.handset.state)
        with DmServer(scenario("commands", packages=[{"commands": commands}])) as server:
            self.add_account(server.url)
            self.handset.dmclient("--record", record, *options, "session", "Test", "--encoding",
                                  encoding)
            self.assertEqual(server.session.report()["faults"], [])
        self.handset.copy_from(before.state)
        return record

    def replay(self, record):
        result = self.handset.dmclient("replay", record)
        self.assertEqual(result.stderr, b"")
        return result.returncode, result.stdout.decode().splitlines()

    COMMANDS = [{"get": [OFFICE + "/Addr", OFFICE + "/Linger"]},
                {"replace": OFFICE + "/Linger", "format": "int", "data": "7"},
                {"rename": OFFICE, "name": "Team"}, {"get": CONN + "/Team/Linger"},
                {"get": "./Nowhere", "expect": 404}]

    def test_the_same_state_answers_the_same(self):
        for encoding in ENCODINGS:
            with self.subTest(encoding):
                self.handset.close()
                self.setUp()
                record = self.record(self.COMMANDS, encoding=encoding)
                status, lines = self.replay(record)
                self.assertEqual((status, lines), (SUCCESS, ["6 commands, 0 different, 0 not run"]))
                self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 7)

    def test_another_state_says_what_differs(self):
        record = self.record(self.COMMANDS)
        self.handset.napictl("set", "Office", "gprs.address=other.example")
        status, lines = self.replay(record)
        self.assertEqual(status, DIFFERENT)
        self.assertEqual(lines, [
            f"message 2: Get {OFFICE}/Addr: reads other.example instead of internet",
            "6 commands, 1 different, 0 not run"])
        self.handset.napictl("delete", "Office")
        status, lines = self.replay(record)
        self.assertEqual(status, DIFFERENT)
        self.assertIn(f"message 2: Replace {OFFICE}/Linger: 404 Not Found: no node {OFFICE}/Linger "
                      "instead of 200 OK", lines)

    def test_a_masked_value_is_not_written(self):
        commands = [{"replace": OFFICE + "/Auth/PAP/AuthPw", "data": "n3w-s3cr3t"},
                    {"replace": OFFICE + "/Linger", "format": "int", "data": "7"}]
        status, lines = self.replay(self.record(commands))
        self.assertEqual((status, lines), (SUCCESS, [
            f"not run: Replace {OFFICE}/Auth/PAP/AuthPw, whose value is masked",
            "1 commands, 0 different, 1 not run"]))
        self.assertEqual(self.handset.profile("Office")["gprs"]["authPassword"], SECRET)
        status, lines = self.replay(self.record(commands, "--show-secrets"))
        self.assertEqual((status, lines), (SUCCESS, ["2 commands, 0 different, 0 not run"]))
        self.assertEqual(self.handset.profile("Office")["gprs"]["authPassword"], "n3w-s3cr3t")

    def test_a_file_that_is_not_a_record_is_refused(self):
        for content in ("", "{}\n", "[1]\n", '{"t":0,"event":"run","format":9}\n'):
            path = os.path.join(self.handset.home, "other")
            with open(path, "w", encoding="utf-8") as file:
                file.write(content)
            result = self.handset.dmclient("replay", path)
            self.assertEqual((result.returncode, result.stdout), (USAGE, b""), content)
            self.assertIn(path, result.stderr.decode())


if __name__ == "__main__":
    unittest.main()
