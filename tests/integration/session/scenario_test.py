"""Every scenario in both encodings, and with every kind of proof on both sides."""

import itertools
import json
import os
import stat
import tempfile
import unittest

from handset import SECRET as STORED_SECRET
from sessions import (CERTIFICATE, ENCODINGS, KEY, KINDS, REFUSED, SECRETS, SESSION_FAILED, SUCCESS,
                      UNUSABLE, USAGE, DmServer, SessionTest, scenario, scenario_names)

# These need a terminal, or an account of a certain kind; they have tests of their own.
ON_THEIR_OWN = {"questions", "accounts"}
# Scenarios with commands that are refused.
WITH_REFUSALS = {"commands", "alerts", "serialised_trees"}


class ScenarioTest(SessionTest):
    def check(self, name, encoding, client_auth, server_auth, *options, **changes):
        played = scenario(name, client_auth=client_auth, server_auth=server_auth, **changes)
        status, lines, report = self.play(played, "--encoding", encoding, *options,
                                          client_auth=client_auth, server_auth=server_auth)
        self.assertEqual(report["faults"], [], "\n".join(lines))
        self.assertTrue(report["client_accepted"] and report["server_accepted"])
        self.assertEqual(report["encodings"], [encoding])
        self.assertEqual(status, REFUSED if name in WITH_REFUSALS else SUCCESS, lines[-1])
        self.assertRegex(lines[-1], r"^Session completed \(\d+ messages?, ")
        return lines, report

    def test_every_scenario_in_both_encodings_and_all_kinds_of_proof(self):
        names = [name for name in scenario_names() if name not in ON_THEIR_OWN]
        self.assertGreaterEqual(len(names), 5)
        for name, encoding, kind in itertools.product(names, ENCODINGS, KINDS):
            with self.subTest(scenario=name, encoding=encoding, proof=kind):
                self.handset.close()
                self.setUp()
                self.check(name, encoding, kind, kind)

    def test_the_two_sides_may_prove_themselves_differently(self):
        for client, server in itertools.permutations(KINDS, 2):
            with self.subTest(client=client, server=server):
                self.check("several_messages", "xml", client, server)

    def test_proofs_in_every_message(self):
        for encoding, kind in itertools.product(ENCODINGS, ("basic", "md5")):
            with self.subTest(encoding=encoding, proof=kind):
                self.check("several_messages", encoding, kind, "none", per_message=True)

    def test_the_server_may_change_the_encoding(self):
        played = scenario("several_messages", encoding="wbxml")
        status, _, report = self.play(played, "--encoding", "xml")
        self.assertEqual((status, report["faults"]), (SUCCESS, []))
        self.assertEqual(report["encodings"], ["wbxml", "xml"])

    def test_nonces_are_kept_for_the_next_session(self):
        # By HMAC the server's last message uses its nonce up, and no message follows that could bring
        # another one.
        for kind, server_challenges in (("md5", 0), ("hmac", 1)):
            with self.subTest(proof=kind):
                played = scenario("several_messages", client_auth=kind, server_auth=kind,
                                  end="statuses")
                with DmServer(played) as server:
                    first = self.next_session(server, played, account=kind)
                    second = self.next_session(server, played)
                self.assertEqual(second["requests"], first["requests"] - 1 + server_challenges)
                self.assertEqual(server.session.client_failures, 0)
                self.assertEqual(server.session.server_challenges, server_challenges)

    def next_session(self, server, played, *options, account=None):
        """One more session with that server, which keeps its nonces. Returns its report."""
        server.begin_session(played)
        if account:
            self.handset.dmclient("account", "remove", "Test")
            self.add_account(server.url, client_auth=account, server_auth=account)
        result = self.handset.dmclient("session", "Test", *options)
        report = server.session.report()
        self.assertEqual((result.returncode, report["faults"]), (SUCCESS, []),
                         result.stdout.decode() + result.stderr.decode())
        return report

    def test_a_server_with_nothing_to_do_is_met_again_and_again(self):
        # One that has no nonce left, as by each session of these, is challenged with a whole package.
        for encoding, (kind, requests) in itertools.product(ENCODINGS, (
                ("none", 1), ("basic", 1), ("md5", 2), ("hmac", 2))):
            with self.subTest(encoding=encoding, proof=kind):
                quiet = scenario("profiles", client_auth=kind, server_auth=kind, packages=[])
                with DmServer(quiet) as server:
                    reports = [self.next_session(server, quiet, "--encoding", encoding,
                                                 account=None if number else kind)
                               for number in range(4)]
                self.assertEqual([report["requests"] for report in reports], [requests] * 4)

    def test_limits_of_the_client_make_the_server_send_chunks(self):
        played = scenario("large_objects", chunk=0)
        played["packages"] = played["packages"][:1]
        status, lines, report = self.play(played, "--max-msg-size", "2010")
        self.assertEqual((status, report["faults"]), (SUCCESS, []))
        self.assertGreater(sum(": 213 " in line for line in lines), 1)

    def test_an_object_that_is_too_large_is_refused(self):
        played = scenario("large_objects")
        played["packages"] = [{"commands": [
            {"replace": "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr", "data": "short.example"}]}]
        status, lines, _ = self.play(played, "--max-obj-size", "10")
        self.assertEqual(status, REFUSED)
        self.assertIn("Replace ./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr: 413 Request Entity "
                      "Too Large: an object of more than 10 bytes", lines)

    def test_events_reach_the_server(self):
        _, _, report = self.play(scenario("several_messages"), "--event", "org.example.up=now",
                                 "--generic-alert", "Reversed-Domain-Name: org.example.down=1")
        self.assertEqual(report["faults"], [])
        self.assertIn("alert 1224", report["lines"])
        self.assertIn("alert 1226", report["lines"])

    def test_generic_alerts_reach_the_server_with_everything_that_they_have(self):
        trace = os.path.join(self.handset.home, "trace")
        _, _, report = self.play(
            scenario("several_messages"), "--trace", trace,
            "--generic-alert", "Reversed-Domain-Name: org.example.down=1",
            "--generic-alert", "mark=critical source=./DevInfo format=int correlator=c1 "
                               "Reversed-Domain-Name: org.example.full=95")
        self.assertEqual(report["faults"], [])
        self.assertEqual(report["lines"].count("alert 1226"), 2)
        with open(trace, encoding="utf-8") as file:
            sent = file.read()
        for text in ("<Mark>critical</Mark>", "<Correlator>c1</Correlator>", "<Format>int</Format>",
                     "<LocURI>./DevInfo</LocURI>", "<Data>95</Data>", "<Data>1</Data>"):
            self.assertIn(text, sent)

    def test_options_that_cannot_be_kept_are_refused(self):
        for words, problem in (
                (["--max-msg-size", "4194305"],
                 '--max-msg-size wants a number from 1 to 4194304 instead of "4194305"'),
                (["--max-msg-size", "0"], "--max-msg-size wants a number from 1 to 4194304"),
                (["--generic-alert", "org.example.down=1"], "neither mark="),
                (["--generic-alert", "mark=loud Content-Type: a/b=1"], 'mark "loud" is not one of'),
                (["--event", "nothing"], "is not TYPE=TEXT")):
            with self.subTest(words=words):
                result = self.handset.dmclient("session", "http://localhost:1/", *words)
                self.assertEqual(result.returncode, USAGE)
                self.assertIn(problem, result.stderr.decode())

    # ---- What a person sees ----------------------------------------------------------------------

    def test_each_command_is_a_line_with_its_reason(self):
        _, lines, _ = self.play(scenario("commands"))
        self.assertIn("Get ./DevInfo/DmV: 200 OK", lines)
        self.assertIn("Replace ./DevInfo/Man: 405 Command Not Allowed: ./DevInfo/Man is read-only",
                      lines)
        self.assertIn("Atomic: 507 Atomic Failed: one of its commands failed", lines)

    def test_a_denial_names_the_rule(self):
        uri = "./DevDetail/Ext/Conf/Conn/Profiles/Office"
        played = scenario("commands", packages=[{"commands": [
            {"replace": uri + "?prop=ACL", "data": "Get=*&Replace=somebody.else"},
            {"replace": uri + "/Addr", "data": "x", "expect": 425}]}])
        status, lines, report = self.play(played)
        self.assertEqual((status, report["faults"]), (REFUSED, []))
        self.assertRegex(lines[1], rf"^Replace {uri}/Addr: 425 Permission Denied: .*Replace.*"
                                   r"somebody\.else")

    def test_what_the_plugin_said_stands_after_the_status(self):
        conn = "./DevDetail/Ext/Conf/Conn/Profiles"
        long_name = "n" * 70
        # The mount that the first command causes says much, and nothing of it is about the command.
        played = scenario("commands", packages=[{"commands": [
            {"replace": conn + "/Home/Speed", "format": "int", "data": "1", "expect": 500},
            {"atomic": [{"replace": conn + "/Home/Linger", "format": "int", "data": "5", "expect": 216},
                        {"replace": conn + "/Home/Bearer", "data": "pigeon", "expect": 500}],
             "expect": 507},
            {"add": f"{conn}/{long_name}", "format": "node", "expect": 500},
            {"replace": conn + "/Home/Linger", "format": "int", "data": "6"}]}])
        reasons = [
            (f"{conn}/Home/Speed", 500, "Speed illegal"),
            ("", 507, "one of its commands failed"),
            (f"{conn}/Home/Linger", 216, "taken back"),
            (f"{conn}/Home/Bearer", 500, "Bearer illegal"),
            (f"{conn}/{long_name}", 500, "Profile name too long; a profile name is empty, longer than 63 "
                                         "bytes, not UTF-8, has a slash, or is . or .. or *"),
            (f"{conn}/Home/Linger", 200, "")]
        status, lines, report = self.play(played)
        self.assertEqual((status, report["faults"], self.stderr), (REFUSED, [], ""))
        self.assertIn(f"Replace {conn}/Home/Speed: 500 Command Failed: Speed illegal", lines)
        _, lines, _ = self.play(played, "--json")
        self.assertEqual([(entry["uri"], entry["status"], entry["reason"])
                          for entry in map(json.loads, lines[:-1])], reasons)
        with open(self.handset.client_file("plugin.log"), encoding="utf-8") as file:
            headings = [line.split(" ", 2)[2].rstrip() for line in file if not line.startswith("(")]
        self.assertEqual(headings[1:3], [f"Replace {conn}/Home/Speed", f"Replace {conn}/Home/Bearer"])

    def test_json_has_an_object_a_line(self):
        _, lines, _ = self.play(scenario("commands"), "--json")
        objects = [json.loads(line) for line in lines]
        self.assertRegex(objects[0].pop("time"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertEqual(objects[0], {"command": "Get", "uri": "./DevInfo/DmV", "status": 200,
                                      "meaning": "OK", "reason": "", "msgId": "1", "cmdId": "4",
                                      "value": "1.2"})
        self.assertEqual(objects[-1]["session"], "completed")
        commands = [entry for entry in objects[:-1] if "note" not in entry]
        refused = [entry for entry in commands if entry["status"] >= 400]
        self.assertEqual(objects[-1]["refused"], len(refused))
        self.assertEqual(objects[-1]["commands"], len(commands))

    def test_json_says_what_each_command_carried_and_which_it_was(self):
        uri = "./DevDetail/Ext/Conf/Conn/Profiles/Office"
        played = scenario("commands", packages=[{"commands": [
            {"replace": uri + "/Linger", "format": "int", "data": "7"},
            {"get": [uri + "/Linger", uri + "/Auth/PAP/AuthPw", "./Nowhere"],
             "expect": [200, 200, 404]},
            {"replace": uri + "/Auth/PAP/AuthPw", "data": "n3w-s3cr3t"},
            {"replace": uri + "/Auth/PAP/AuthPw", "data": ""},
            {"delete": "./Nowhere", "expect": 404}]}])
        for encoding in ENCODINGS:
            with self.subTest(encoding):
                self.handset.close()
                self.setUp()
                _, lines, report = self.play(played, "--json", "--encoding", encoding)
                self.assertEqual(report["faults"], [])
                for secret in ("n3w-s3cr3t", STORED_SECRET):
                    self.assertNotIn(secret, "\n".join(lines))
                commands = [json.loads(line) for line in lines[:-1]]
                self.assertEqual({command["msgId"] for command in commands}, {"1"})
                self.assertEqual([(entry["command"], entry.get("format"), entry.get("value"),
                                   entry.get("masked")) for entry in commands], [
                    ("Replace", "int", "7", None), ("Get", "int", "7", None),
                    ("Get", None, "********", True), ("Get", None, None, None),
                    ("Replace", None, "********", True), ("Replace", None, "", None),
                    ("Delete", None, None, None)])
                ids = [entry["cmdId"] for entry in commands]
                self.assertEqual([ids.index(number) for number in ids], [0, 1, 1, 1, 4, 5, 6])

    def test_a_trace_on_standard_output_stands_among_the_lines(self):
        status, lines, _ = self.play(scenario("several_messages"), "--trace", "-")
        self.assertEqual(status, SUCCESS)
        first = next(i for i, line in enumerate(lines) if line.startswith("<== message 1 from"))
        command = next(i for i, line in enumerate(lines) if line.startswith("Get ./"))
        answer = next(i for i, line in enumerate(lines) if line.startswith("==> message 2 to"))
        self.assertLess(first, command)
        self.assertLess(command, answer)
        self.assertRegex(lines[-1], "^Session completed ")
        self.assertFalse(os.path.exists("-"))

    def test_a_trace_and_json_do_not_share_standard_output(self):
        result = self.handset.dmclient("session", "http://127.0.0.1:1/", "--trace", "-", "--json")
        self.assertEqual(result.returncode, USAGE)
        self.assertEqual(result.stderr.decode(),
                         "dmclient: session: --json and --trace - cannot share standard output\n")

    def test_a_trace_that_loses_something_is_told(self):
        status, lines, report = self.play(scenario("several_messages"), "--trace", "/dev/full")
        self.assertEqual((status, report["faults"]), (UNUSABLE, []))
        self.assertRegex(lines[-1], "^Session completed ")
        self.assertEqual(self.stderr, "dmclient: session: the trace has gaps: cannot write "
                                      "/dev/full: No space left on device\n")

    def test_the_trace_is_private_and_has_no_secret(self):
        for encoding, kind in itertools.product(ENCODINGS, KINDS[1:]):
            with self.subTest(encoding=encoding, proof=kind):
                trace = os.path.join(self.handset.home, "trace")
                uri = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Auth/PAP/AuthPw"
                packages = [{"commands": [
                    {"replace": uri, "data": "Pass-of-Profile"},
                    {"get": uri},
                    {"get": "./DevDetail?list=StructData"},
                    {"get": "./DevDetail?list=TNDS"}]}]
                self.check("profiles", encoding, kind, kind, "--trace", trace, packages=packages)
                self.assertEqual(stat.S_IMODE(os.stat(trace).st_mode), 0o600)
                with open(trace, encoding="utf-8") as file:
                    text = file.read()
                for secret in (*SECRETS.values(), "Pass-of-Profile", "QnJ1Y2UyOk9oQmVoYXZl"):
                    self.assertNotIn(secret, text)
                self.assertIn("<Data>********</Data>", text)
                self.assertIn("<!-- OK -->", text)

    # ---- Whom to talk to -------------------------------------------------------------------------

    def test_a_url_without_an_account_is_enough(self):
        status, _, report = self.play(scenario("profiles"), account=False)
        self.assertEqual((status, report["faults"]), (SUCCESS, []))

    def test_the_url_of_an_account_is_that_account(self):
        played = scenario("several_messages", client_auth="md5")
        with DmServer(played) as server:
            self.add_account(server.url, client_auth="md5")
            result = self.handset.dmclient("session", server.url)
            self.assertEqual(result.returncode, SUCCESS, result.stdout.decode())
            self.assertEqual(server.session.report()["faults"], [])

    def test_wrong_usage_is_explained(self):
        for words, problem in (
                (["nobody"], '"nobody" is not an account and is not an http or https URL'),
                (["http://127.0.0.1/", "--encoding", "json"],
                 '--encoding is xml or wbxml, not "json"'),
                (["http://127.0.0.1/", "--timeout", "0"],
                 '--timeout wants a number from 1 to 86400 instead of "0"'),
                (["http://127.0.0.1/", "--event", "x"],
                 '--event "x": is not TYPE=TEXT'),
                (["http://127.0.0.1/", "--ca", "/nowhere"],
                 "cannot read /nowhere: No such file or directory"),
                (["http://127.0.0.1/", "--ca", ""], "--ca names no file"),
                (["http://127.0.0.1/", "--trace", ""], "--trace names no file"),
                (["http://127.0.0.1/", "--trace", "/nowhere/x"],
                 "cannot write /nowhere/x: No such file or directory")):
            with self.subTest(words=words):
                result = self.handset.dmclient("session", *words)
                self.assertEqual(result.returncode, USAGE)
                self.assertEqual(result.stderr.decode(), f"dmclient: session: {problem}\n")

    # ---- HTTPS -----------------------------------------------------------------------------------

    def test_https_with_an_authority(self):
        with tempfile.NamedTemporaryFile() as pem:
            for part in (CERTIFICATE, KEY):
                with open(part, "rb") as file:
                    pem.write(file.read())
            pem.flush()
            status, _, report = self.play(scenario("profiles"), "--ca", CERTIFICATE,
                                          certificate=pem.name)
            self.assertEqual((status, report["faults"]), (SUCCESS, []))

            status, lines, report = self.play(scenario("profiles"), certificate=pem.name)
            self.assertEqual(status, SESSION_FAILED)
            self.assertIn("self-signed", lines[-1])
            self.assertEqual(report["requests"], 0)

            elsewhere = scenario("profiles", misbehave=["respuri_elsewhere"])
            status, lines, _ = self.play(elsewhere, "--ca", CERTIFICATE, certificate=pem.name)
            self.assertEqual(status, SESSION_FAILED)
            self.assertIn("which gives up TLS", lines[-1])


if __name__ == "__main__":
    unittest.main()
