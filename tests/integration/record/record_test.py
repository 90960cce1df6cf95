"""What a record has of sessions, packages and typed commands."""

import base64
import json
import os
import re
import tempfile
import unittest

import commands
import records
from dmserver import DmServer
from handset import CONN, PLUGIN, SECRET, Handset
from provisioning import access_point, characteristic, document, parm
from sessions import (CERTIFICATE, ENCODINGS, KEY, KINDS, SECRETS, SUCCESS, UNUSABLE, USAGE,
                      SessionTest, scenario, scenario_names)
from terminal import Terminal


class RecordTest(SessionTest):
    def setUp(self):
        super().setUp()
        self.path = os.path.join(self.handset.home, "record.jsonl")

    def record(self, *words, **run):
        result = self.handset.dmclient("--record", self.path, *words, **run)
        events = records.load(self.path)
        self.assertEqual(records.faults(events), [])
        return result, events

    def play_recorded(self, played, *options, **kinds):
        self.play(played, "--record", self.path, *options, **kinds)
        events = records.load(self.path)
        self.assertEqual(records.faults(events), [])
        return events


class SessionRecordTest(RecordTest):
    def test_every_scenario_in_both_encodings_is_as_the_schema_says(self):
        for name in scenario_names():
            for encoding in ENCODINGS:
                with self.subTest(scenario=name, encoding=encoding):
                    played = scenario(name, encoding=encoding, client_auth="md5",
                                      server_auth="md5")
                    events = self.play_recorded(played, "--encoding", encoding,
                                                client_auth="md5", server_auth="md5")
                    self.assertEqual(events[-1]["event"], "end")
                    end = events[-1]
                    self.assertEqual(len(records.of(events, "message", direction="sent")),
                                     end["messages"])
                    self.assertEqual(len(records.of(events, "request")), end["messages"])
                    refused = [event for event in records.of(events, "command")
                               if event["status"] >= 400]
                    self.assertEqual(len(refused), end["refused"])
                    self.assertEqual(len(records.of(events, "command")), end["commands"])
                    for event in records.of(events, "message"):
                        if event["size"]:
                            self.assertIsNotNone(event["bytes"], event["decoded"])
                            self.assertEqual(len(base64.b64decode(event["bytes"])), event["size"])

    def test_both_encodings_are_recorded_alike(self):
        # Two sessions differ anyway in times, numbers of sessions, ports and folders.
        different = ("t", "us", "began", "time", "run", "state", "sessionId")
        of_bytes = ("bytes", "size", "encoding", "headers", "arguments")

        def meaning(value):
            if isinstance(value, dict):
                return {name: meaning(field) for name, field in value.items()
                        if name not in different + of_bytes}
            if isinstance(value, list):
                return [meaning(entry) for entry in value]
            if isinstance(value, str):
                value = re.sub("127.0.0.1:[0-9]+(/session/[0-9A-F]+)?", "SERVER", value)
                return value.replace(self.handset.home, "HOME")
            return value

        for name in scenario_names():
            with self.subTest(scenario=name):
                recorded = []
                for encoding in ENCODINGS:
                    self.handset = Handset()
                    self.addCleanup(self.handset.close)
                    events = self.play_recorded(scenario(name, encoding=encoding), "--encoding",
                                                encoding)
                    if name == "large_objects":
                        # How much of an answer a message takes, and so how many messages and
                        # Alerts for the next one there are, is a matter of their bytes.
                        events = [{**event, "command": None, "message": None, "cmdId": None}
                                  for event in events if event.get("name") != "Alert 1222" and
                                  event["event"] not in ("message", "request", "response", "end")]
                    recorded.append(meaning(events))
                self.assertEqual(*recorded)

    def test_a_command_has_the_calls_beneath_it_and_their_changes(self):
        events = self.play_recorded(scenario("profiles"))
        written = [event for event in records.of(events, "profile-call",
                                                 function="NAPI_ModifyProfile")
                   if "command" in event and event["changes"]]
        self.assertTrue(written)
        for call in written:
            command = records.of(events, "command", command=call["command"])[0]
            self.assertIn(command["name"], ("Replace", "Add", "Delete"))
            self.assertLessEqual(command["began"], call["t"])
            self.assertLessEqual(call["t"], command["began"] + command["us"])
            before, after = (base64.b64decode(call[which]) for which in ("before", "after"))
            self.assertEqual((len(before), len(after)), (1168, 1168))
            changed = {place for place in range(1168) if before[place] != after[place]}
            covered = {place for change in call["changes"]
                       for place in range(change["offset"], change["offset"] + change["size"])}
            self.assertLessEqual(changed, covered)


class FailureRecordTest(RecordTest):
    def test_a_repeated_request_has_its_failure_and_the_wait(self):
        events = self.play_recorded(scenario("profiles", misbehave=["busy_once"]))
        first = records.of(events, "response", attempt=1, exchange=1)[0]
        self.assertEqual(first["status"], 503)
        self.assertIn("503", first["failure"])
        self.assertEqual(len(records.of(events, "wait", exchange=1)), 1)
        self.assertEqual(records.of(events, "response", attempt=2, exchange=1)[0]["status"], 200)

    def test_the_run_has_the_path_of_the_library(self):
        for plugin in (PLUGIN, os.path.relpath(PLUGIN), "libkubdmnapipluginlib.so.1"):
            with self.subTest(plugin=plugin):
                self.handset.dmclient("--record", self.path, "get", CONN, plugin=plugin)
                run = records.of(records.load(self.path), "run")[0]
                self.assertTrue(os.path.samefile(run["plugin"], PLUGIN), run["plugin"])
                self.assertTrue(os.path.isabs(run["plugin"]))

    def test_a_library_that_cannot_be_loaded_is_named_as_it_was_asked_for(self):
        self.handset.dmclient("--record", self.path, "get", CONN, plugin="libnowhere.so")
        self.assertEqual(records.of(records.load(self.path), "run")[0]["plugin"], "libnowhere.so")

    def test_nobody_there(self):
        result, events = self.record("session", "http://127.0.0.1:1/")
        self.assertEqual(len(records.of(events, "request")), 3)
        answer = records.of(events, "response")[0]
        self.assertNotIn("status", answer)
        self.assertIn("refused", answer["failure"])
        self.assertEqual(events[-1]["kind"], "failed")
        self.assertEqual(events[-1]["status"], result.returncode)

    def test_a_message_that_cannot_be_read_has_its_bytes_and_the_place(self):
        events = self.play_recorded(scenario("profiles", misbehave=["truncated_message"]))
        message = records.of(events, "message", direction="received")[0]
        self.assertIsNone(message["decoded"])
        self.assertRegex(message["fault"], "line [0-9]+, column")
        self.assertEqual(len(base64.b64decode(message["bytes"])), message["size"])
        self.assertIn(b"<SyncHdr>", base64.b64decode(message["bytes"]))

    def test_tls_of_a_connection(self):
        with tempfile.NamedTemporaryFile() as pem:
            for part in (CERTIFICATE, KEY):
                with open(part, "rb") as file:
                    pem.write(file.read())
            pem.flush()
            events = self.play_recorded(scenario("profiles"), "--ca", CERTIFICATE,
                                        certificate=pem.name)
        tls = records.of(events, "response")[0]["tls"]
        self.assertEqual(tls["version"], "TLS 1.3")
        self.assertRegex(tls["sha256"], "^[0-9a-f]{64}$")


class SecretTest(RecordTest):
    def test_no_secret_of_an_account_or_a_profile_stands_in_a_record(self):
        for encoding in ENCODINGS:
            for kind in KINDS:
                with self.subTest(encoding=encoding, kind=kind):
                    self.play_recorded(
                        scenario("accounts", encoding=encoding, client_auth=kind,
                                 server_auth=kind), "--encoding", encoding,
                        client_auth=kind, server_auth=kind)
                    self.assertEqual(records.leaks(self.path, SECRETS.values()), [])


    def test_no_secret_of_messages_stands_in_a_record(self):
        new, typed = "n3w-Pa55word", "typed-Pa55word"
        leaf = f"{CONN}/Office/Auth/PAP/AuthPw"
        package = [{"get": leaf}, {"get": f"{CONN}/Office?list=StructData"},
                   {"get": f"{CONN}/Office?list=TNDS"}, {"replace": leaf, "data": new},
                   {"get": leaf},
                   {"replace": f"{CONN}/Nobody/Auth/PAP/AuthPw", "data": typed, "expect": 404}]
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                events = self.play_recorded(
                    scenario("profiles", encoding=encoding, packages=[{"commands": package}]),
                    "--encoding", encoding)
                asked = records.of(events, "command", target=leaf)
                self.assertEqual([event["value"] for event in asked], ["********"] * 3)
                listed = records.of(events, "command", target=f"{CONN}/Office?list=TNDS")
                self.assertEqual(listed[0]["status"], 200)
                self.assertEqual(records.leaks(self.path, [SECRET, new, typed]), [])
                for event in records.of(events, "message"):
                    self.assertIsNotNone(event["bytes"])
                answer = [event for event in records.of(events, "message", direction="sent")
                          if b"NodeName" in base64.b64decode(event["bytes"])]
                self.assertIn("<Value>********</Value>", json.dumps(answer[0]["decoded"]))
                self.assertIn("<NodeName>Addr</NodeName>", json.dumps(answer[0]["decoded"]))

    def test_secrets_are_shown_when_that_is_asked_for(self):
        leaf = f"{CONN}/Office/Auth/PAP/AuthPw"
        _, events = self.record("get", leaf, "--show-secrets")
        self.assertEqual(records.of(events, "command")[0]["value"], SECRET)
        self.record("get", leaf)
        self.assertEqual(records.leaks(self.path, [SECRET]), [])

    def test_a_secret_that_is_typed_is_hidden(self):
        for value, stdin in (("typed-Pa55word", None), ("-", "typed-Pa55word\n")):
            self.record("replace", f"{CONN}/Office/Auth/PAP/AuthPw", value, stdin=stdin)
            self.assertEqual(records.leaks(self.path, [SECRET, "typed-Pa55word"]), [])


    def test_what_a_server_asks_for_and_shows_nobody_is_hidden(self):
        typed = "typed-Pa55word"
        question = {"alert": 1102, "items": ["ET=P", "Your password?"], "answer": [typed]}
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                played = scenario("questions", encoding=encoding,
                                  packages=[{"commands": [question]}])
                with DmServer(played) as server:
                    terminal = Terminal(self, "session", server.url, "--record", self.path,
                                        "--encoding", encoding)
                    terminal.answer("your answer: ", typed + "\n", hidden=True)
                    self.assertEqual(terminal.end()[0], SUCCESS)
                    self.assertEqual(server.session.report()["faults"], [])
                events = records.load(self.path)
                self.assertEqual(records.faults(events), [])
                self.assertEqual(records.leaks(self.path, [typed]), [])
                answers = [command for event in records.of(events, "message", direction="sent")
                           for command in event["decoded"]["commands"]
                           if command.get("cmd") == "Alert"]
                self.assertIn("********", json.dumps(answers))
                for event in records.of(events, "message"):
                    self.assertIsNotNone(event["bytes"])

    def test_a_value_that_is_asked_for_at_a_terminal_is_hidden(self):
        typed = "typed-Pa55word"
        terminal = Terminal(self, "replace", f"{CONN}/Office/Auth/PAP/AuthPw", "-", "--record",
                            self.path)
        terminal.answer(": ", typed + "\n", hidden=True)
        self.assertEqual(terminal.end()[0], SUCCESS)
        self.assertEqual(records.of(records.load(self.path), "command")[0]["value"], "********")
        self.assertEqual(records.leaks(self.path, [SECRET, typed]), [])


class TraceRecordTest(RecordTest):
    LEAF = f"{CONN}/Office/Auth/PAP/AuthPw"
    NEW = "n3w-Pa55word"

    def setUp(self):
        super().setUp()
        self.handset.plugin = os.path.join(os.path.dirname(PLUGIN),
                                           "libkubdmnapipluginlib-traces.so.1")

    def traces(self, events):
        return [event for event in records.of(events, "plugin-message") if event.get("level") == 8]

    def assert_traced_and_hidden(self, events, *secrets):
        self.assertEqual(records.leaks(self.path, [SECRET, self.NEW, *secrets]), [])
        # The plug-in did tell of the value.
        self.assertIn("... Want to set new value = " + "*" * len(self.NEW),
                      [event["text"] for event in self.traces(events)])

    def test_steps_of_a_command_are_those_of_the_plugin(self):
        result, events = self.record("replace", f"{CONN}/Office/Speed", "1")
        [command] = records.of(events, "command")
        beneath = [event for event in records.of(events, "plugin-message")
                   if event.get("command") == command["command"]]
        said = [(event["text"], event.get("level")) for event in beneath]
        self.assertEqual(said[0], ("Enter: SetValue()!", 8))
        self.assertIn(("Enter: SetValueInternal()! NodeName = Speed", 8), said)
        refusals = [text for text, level in said if level is None]
        self.assertEqual(len(refusals), 2, said)
        self.assertIn("Speed illegal", refusals[0])
        for event in beneath:
            self.assertRegex(event["place"], r"^DM_Napi_Plugin\w*\.cpp:\d+$")
        # Nobody else hears of them, and the reason is the same.
        self.assertNotIn(b"Enter", result.stdout + result.stderr)
        with open(self.handset.client_file("plugin.log"), "rb") as log:
            self.assertNotIn(b"Enter", log.read())
        self.handset.plugin = PLUGIN
        _, untraced = self.record("replace", f"{CONN}/Office/Speed", "1")
        self.assertEqual(self.traces(untraced), [])
        self.assertEqual(records.of(untraced, "command")[0]["reason"], command["reason"])
        self.assertEqual([event["text"] for event in records.of(untraced, "plugin-message")
                          if "command" in event], refusals)

    def test_mount_counts_messages_only(self):
        counts = []
        for plugin in (PLUGIN, self.handset.plugin):
            self.handset.plugin = plugin
            _, events = self.record("get", f"{CONN}/Office/Addr")
            counts.append([mounted["messages"] for mounted in records.of(events, "mounted")])
        self.assertEqual(counts[0], counts[1])
        self.assertTrue(any("mount" in event for event in self.traces(events)))

    def test_secrets_that_are_typed_are_hidden(self):
        for words, stdin in ((("replace", self.LEAF, self.NEW), None),
                             (("replace", self.LEAF, "-"), self.NEW),
                             (("shell",), f"replace {self.LEAF} {self.NEW}\n"),
                             (("shell",), f"replace {self.LEAF[:-7]} AuthPw={self.NEW}\n"),
                             (("shell",), f"delete {self.LEAF}\nadd {self.LEAF} {self.NEW}\n")):
            with self.subTest(words=words, stdin=stdin):
                _, events = self.record(*words, stdin=stdin)
                self.assert_traced_and_hidden(events)

    def test_secrets_of_a_server_are_hidden(self):
        package = [{"replace": self.LEAF, "data": "first-Pa55wo"},
                   {"replace": self.LEAF, "data": self.NEW}]
        for chunk in (None, 5):
            for encoding in ENCODINGS:
                with self.subTest(chunk=chunk, encoding=encoding):
                    played = scenario("profiles", encoding=encoding,
                                      packages=[{"commands": package}])
                    if chunk:
                        played["chunk"] = chunk
                    events = self.play_recorded(played, "--encoding", encoding)
                    self.assert_traced_and_hidden(events, "first-Pa55wo")

    def test_secrets_of_a_tree_are_hidden(self):
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                self.setUp()
                events = self.play_recorded(scenario("serialised_trees", encoding=encoding),
                                            "--encoding", encoding)
                self.assertEqual(records.leaks(self.path, [SECRET, "s3cret"]), [])
                self.assertIn("... Want to set new value = ******",
                              [event["text"] for event in self.traces(events)])

    def test_secrets_of_a_bootstrap_message_are_hidden(self):
        path = os.path.join(self.handset.home, "message")
        with open(path, "wb") as file:
            file.write(document(access_point("Net", characteristic(
                "NAPAUTHINFO", parm("AUTHTYPE", "PAP"), parm("AUTHNAME", "me"),
                parm("AUTHSECRET", self.NEW)))))
        result, events = self.record("bootstrap", path, "--yes")
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        self.assert_traced_and_hidden(events)


class PackageRecordTest(RecordTest):
    def test_package_and_answer_are_messages_without_exchange(self):
        package = commands.package_of(commands.get(CONN), commands.get("./Nowhere"))
        result, events = self.record("process", "-", stdin=package)
        received, sent = records.of(events, "message")
        self.assertEqual((received["direction"], sent["direction"]), ("received", "sent"))
        self.assertNotIn("exchange", received)
        self.assertEqual(base64.b64decode(received["bytes"]), package.encode())
        self.assertEqual(base64.b64decode(sent["bytes"]), result.stdout)
        statuses = [event["status"] for event in records.of(events, "command", message=1)]
        self.assertEqual(statuses, [200, 404])


class TypedCommandRecordTest(RecordTest):
    def test_each_line_of_a_shell_is_a_command(self):
        lines = f"get {CONN}\nreplace {CONN}/Nobody/Addr x\nget ./DevInfo/Man ./DevInfo/Mod\n"
        _, events = self.record("shell", stdin=lines)
        self.assertEqual([(event["command"], event["name"], event["target"], event["status"])
                          for event in records.of(events, "command")],
                         [(1, "Get", CONN, 200), (2, "Replace", f"{CONN}/Nobody/Addr", 404),
                          (3, "Get", "./DevInfo/Man", 200), (4, "Get", "./DevInfo/Mod", 200)])
        self.assertEqual(records.of(events, "mount")[0]["command"], 1)

    def test_a_file_that_cannot_be_written_is_refused_before_anything_is_done(self):
        result = self.handset.dmclient("--record", "/nowhere/r", "get", "./DevInfo/Man")
        self.assertEqual(result.returncode, USAGE)
        self.assertIn("cannot write /nowhere/r", result.stderr.decode())
        self.assertEqual(result.stdout, b"")

    def test_a_full_disk_ends_the_record_and_not_the_command(self):
        result = self.handset.dmclient("--record", "/dev/full", "get", "./DevInfo/Man")
        self.assertEqual(result.returncode, UNUSABLE)
        self.assertEqual(result.stdout, b"kub\n")
        self.assertEqual(result.stderr.decode().count("/dev/full"), 1)

    def test_a_command_without_device_has_nothing_to_record(self):
        result = self.handset.dmclient("--record", self.path, "ddf")
        self.assertEqual(result.returncode, USAGE)
        self.assertFalse(os.path.exists(self.path))


if __name__ == "__main__":
    unittest.main()
