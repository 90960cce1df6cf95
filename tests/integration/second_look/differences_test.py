"""Changes that are answered 200: what the client says when the tree says something else."""

import json
import os
import unittest

from handset import CONN, PROXY, SECRET, Handset
from sessions import ENCODINGS, DmServer, SessionTest, scenario
from surprises import PROFILES

SUCCESS, REFUSED, USAGE, UNUSABLE, SESSION_FAILED, DIFFERENT = range(6)
OFFICE, HOME = CONN + "/Office", CONN + "/Home"
NUMBER = "0123456789" * 12


def replace(uri, data, number=1):
    return (f"<Replace><CmdID>{number}</CmdID><Item><Target><LocURI>{uri}</LocURI></Target>"
            f"<Data>{data}</Data></Item></Replace>")


def package(*commands):
    return ("<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
            "<SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>x</LocURI></Target>"
            "<Source><LocURI>y</LocURI></Source></SyncHdr><SyncBody>" + "".join(commands)
            + "<Final/></SyncBody></SyncML>")


class SecondLookTest(SessionTest):
    def setUp(self):
        super().setUp()
        self.handset.close()
        self.handset = Handset(PROFILES)

    def client(self, *words, **options):
        result = self.handset.dmclient(*words, **options)
        self.assertEqual([name for name in os.listdir(self.handset.client_file(""))
                          if name.startswith("scratch-")], [], "a copy of the state is left")
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def assert_difference(self, text, *words, **options):
        """The command succeeds and says that; with --strict it has a status of its own."""
        copy = Handset(state=None, profiles=None)
        self.addCleanup(copy.close)
        copy.copy_from(self.handset.state)
        status, printed, errors = self.client(*words, **options)
        uri = next(word for word in words if word.startswith("./"))
        self.assertEqual((status, printed), (SUCCESS, ""))
        self.assertEqual(errors, f"dmclient: {words[0]} {uri}: 200 OK, but {text}\n")
        self.handset.copy_from(copy.state)
        self.assertEqual(self.client("--strict", *words)[0], DIFFERENT)


class TableTest(SecondLookTest):
    def test_a_number_that_is_cut(self):
        self.assert_difference("reads 4464", "replace", OFFICE + "/Linger", "70000")

    def test_a_value_that_is_ignored(self):
        self.assert_difference("reads 10.0.0.1", "replace", OFFICE + "/DNS1", "300.1.1.1")

    def test_a_text_that_is_cut(self):
        self.assert_difference(f"reads its first 44 bytes, {NUMBER[:44]}",
                               "replace", HOME + "/Addr", NUMBER)

    def test_a_leaf_that_no_profile_has(self):
        self.assert_difference("gone at the next mount: a profile has no such node",
                               "add", OFFICE + "/Foo", "x")

    def test_a_profile_without_a_leaf(self):
        self.assert_difference("gone at the next mount: no leaf of the profile is set, and it still "
                               "counts among the profiles that can be stored", "add", CONN + "/Empty")
        self.assertIn("Empty", self.handset.napictl("list"))

    def test_a_name_that_comes_back(self):
        self.assert_difference("Office again at the next mount", "rename", OFFICE, "Team")

    def test_a_profile_that_comes_back(self):
        self.assert_difference("back at the next mount: another bearer or the proxies of the profile "
                               "remain", "delete", OFFICE)
        self.assertIn("Office", self.client("get", CONN)[1])

    def test_settings_that_are_overwritten(self):
        self.assert_difference("the GSM-CSD settings that the profile had (Addr +491720000) are "
                               "overwritten", "replace", OFFICE + "/Bearer", "GSM-CSD")

    def test_each_leaf_of_a_change_of_several(self):
        self.assert_difference("Linger reads 4464; DNS1 reads 10.0.0.1", "replace", OFFICE,
                               "Linger=70000", "Addr=x.example", "DNS1=1.2.3.x")

    def test_a_copy_of_a_value(self):
        self.handset.napictl("set", "Office", "gprs.address=" + NUMBER[:60])
        status, _, errors = self.client("copy", OFFICE + "/Addr", HOME + "/Addr")
        self.assertEqual(status, SUCCESS)
        self.assertIn(f"200 OK, but reads its first 44 bytes, {NUMBER[:44]}", errors)


class StrictTest(SecondLookTest):
    """A difference is an exit status of its own, and the record ends with the same one."""

    CHANGE = replace(OFFICE + "/Linger", "70000")
    REFUSAL = replace(OFFICE + "/Speed", "1200", 2)

    def recorded(self, *words, strict=True, **options):
        """Exit status of a command, which its record has to have as well."""
        record = os.path.join(self.handset.home, "record")
        status = self.client("--record", record, *(["--strict"] if strict else []), *words, **options)[0]
        with open(record, encoding="utf-8") as file:
            end = [json.loads(line) for line in file][-1]
        self.assertEqual((end["event"], end["status"]), ("end", status))
        return status

    def test_of_a_command(self):
        self.assertEqual(self.recorded("replace", OFFICE + "/Linger", "70000"), DIFFERENT)
        self.assertEqual(self.recorded("rename", OFFICE, "Team"), DIFFERENT)
        self.assertEqual(self.recorded("replace", OFFICE + "/Linger", "7"), SUCCESS)
        self.assertEqual(self.recorded("replace", OFFICE + "/Linger", "70000", strict=False), SUCCESS)

    def test_of_a_package_in_each_form(self):
        for form in ([], ["--json"], ["--summary"]):
            with self.subTest(form):
                self.assertEqual(self.recorded("process", *form, "-", stdin=package(self.CHANGE)), DIFFERENT)
                self.assertEqual(self.recorded("process", *form, "-", stdin=package(self.CHANGE), strict=False),
                                 SUCCESS)
        self.assertEqual(self.recorded("process", "-", stdin=package(replace(OFFICE + "/Linger", "7"))), SUCCESS)

    def test_of_a_session(self):
        for form in ([], ["--json"]):
            for data, status in (("70000", DIFFERENT), ("7", SUCCESS)):
                with self.subTest(data=data, form=form), DmServer(scenario("profiles", packages=[{
                        "commands": [{"replace": OFFICE + "/Linger", "data": data}]}])) as server:
                    self.assertEqual(self.recorded("session", server.url, *form), status)

    def test_of_a_shell_and_of_a_session_in_it(self):
        self.assertEqual(self.recorded("shell", stdin=f"replace {OFFICE}/Linger 70000\n"), DIFFERENT)
        self.assertEqual(self.recorded("shell", stdin=f"rename {OFFICE} Team\n"), DIFFERENT)
        self.assertEqual(self.recorded("shell", stdin=f"replace {OFFICE}/Linger 7\n"), SUCCESS)
        with DmServer(scenario("profiles", packages=[{
                "commands": [{"replace": OFFICE + "/Linger", "data": "70000"}]}])) as server:
            self.assertEqual(self.recorded("shell", stdin=f"session {server.url}\n"), DIFFERENT)

    def test_what_has_failed_keeps_its_own_status(self):
        commands = package(self.CHANGE, self.REFUSAL)
        self.assertEqual(self.recorded("process", "-", stdin=commands), REFUSED)
        self.assertEqual(self.recorded("shell", stdin=f"replace {OFFICE}/Linger 70000\n"
                                                      f"replace {OFFICE}/Speed 1200\n"), REFUSED)

    def test_a_look_that_is_missing_is_no_difference(self):
        with open(self.handset.path("large"), "wb") as file:
            file.truncate(1 << 42)
        self.assertEqual(self.recorded("replace", OFFICE + "/Linger", "70000"), SUCCESS)


class SilenceTest(SecondLookTest):
    def test_what_is_as_it_was_asked_for_says_nothing(self):
        for words in (["replace", OFFICE + "/Linger", "70"], ["replace", OFFICE + "/Linger", " 070 "],
                      ["replace", OFFICE + "/DNS1", "10.1.1.1"], ["replace", OFFICE, "Addr=a", "Linger=1"],
                      ["replace", OFFICE + "?prop=Title", "x"], ["delete", HOME],
                      ["replace", PROXY + "/Office/UserEditable", "false"]):
            with self.subTest(words):
                self.assertEqual(self.client("--strict", *words), (SUCCESS, "", ""))

    def test_a_refusal_has_no_second_look(self):
        status, _, errors = self.client("--strict", "replace", OFFICE + "/Speed", "1200")
        self.assertEqual(status, REFUSED)
        self.assertNotIn("but", errors)

    def test_a_secret_stays_one(self):
        uri = HOME + "/Auth/PAP/AuthPw"
        long_secret = (SECRET * 20)[:120]
        status, printed, errors = self.client("replace", uri, long_secret)
        self.assertEqual((status, printed), (SUCCESS, ""))
        self.assertIn("200 OK, but reads its first 64 bytes, ********", errors)
        self.assertNotIn(SECRET, errors)
        status, printed, _ = self.client("process", "--json", "-",
                                         stdin=package(replace(uri, long_secret)))
        self.assertNotIn(SECRET, printed)
        self.assertEqual(json.loads(printed.splitlines()[-1])["reads"], "********")


class SeveralCommandsTest(SecondLookTest):
    SHELL = (f"replace {OFFICE}/Linger 70000\nrename {OFFICE} Team\n"
             f"replace {CONN}/Team/Addr x.example\nadd {CONN}/Team/Foo 1\nget {CONN}/Team/Addr\n")

    def test_a_shell_says_at_once_what_is_so_now_and_at_its_end_what_the_next_mount_says(self):
        status, printed, _ = self.client("shell", stdin=self.SHELL)
        self.assertEqual(status, SUCCESS)
        self.assertEqual(printed.splitlines(), [
            f"replace {OFFICE}/Linger: 200 OK, but reads 4464",
            f"rename {OFFICE}: 200 OK",
            f"replace {CONN}/Team/Addr: 200 OK",
            f"add {CONN}/Team/Foo: 200 OK",
            "x.example",
            f"get {CONN}/Team/Addr: 200 OK",
            f"Replace {OFFICE}?prop=Name: 200 OK, but Office again at the next mount",
            f"Add {CONN}/Team/Foo: 200 OK, but gone at the next mount: a profile has no such node"])
        self.assertEqual(self.client("--strict", "shell", stdin=self.SHELL)[0], DIFFERENT)

    def test_what_one_change_has_overwritten_is_not_told_of_the_next(self):
        _, printed, _ = self.client("shell", stdin=f"replace {OFFICE}/Bearer GSM-CSD\n"
                                                   f"replace {OFFICE}/Addr 12345\n"
                                                   f"replace {OFFICE}/Bearer GSM-GPRS\n")
        lines = printed.splitlines()
        self.assertIn("the GSM-CSD settings that the profile had", lines[0])
        self.assertEqual(lines[2].split(", but ")[0], f"replace {OFFICE}/Bearer: 200 OK")
        self.assertNotIn("overwritten", "\n".join(lines[1:]))

    def test_settings_of_a_third_bearer_are_not_overwritten(self):
        self.handset.napictl("set", "Home", "csd2.address=+4999")
        status, printed, errors = self.client("replace", HOME + "/Bearer", "GSM-GPRS")
        self.assertEqual(status, SUCCESS)
        self.assertNotIn("overwritten", printed + errors)
        self.assertEqual(self.handset.profile("Home")["csd2"]["address"], "+4999")

    def test_the_last_command_that_touches_an_address_counts(self):
        for lines in ((f"add {CONN}/Empty", f"delete {CONN}/Empty"),
                      (f"rename {OFFICE} Team", f"rename {CONN}/Team Office"),
                      (f"add {CONN}/New", f"add {CONN}/New/Bearer GSM-GPRS",
                       f"add {CONN}/New/Addr new.example"),
                      (f"add {HOME}/Foo 1", f"delete {HOME}/Foo"),
                      (f"add {CONN}/Empty", f"rename {CONN}/Empty Other", f"delete {CONN}/Other")):
            with self.subTest(lines):
                _, printed, _ = self.client("shell", stdin="\n".join(lines) + "\n")
                self.assertNotIn("but", printed)

    def test_values_follow_a_name_that_comes_back(self):
        _, printed, _ = self.client("shell", stdin=f"replace {OFFICE}/Addr x.example\n"
                                                   f"rename {OFFICE} Team\nrename {CONN}/Team Staff\n"
                                                   f"replace {CONN}/Staff/Linger 5\n")
        self.assertEqual(printed.count("but"), 1, printed)
        self.assertIn("Replace " + CONN + "/Team?prop=Name: 200 OK, but Office again", printed)

    def test_a_package_says_it_in_each_form(self):
        commands = package(replace(OFFICE + "/Linger", "70000", 1), replace(OFFICE + "/Addr", "a", 2),
                           replace(OFFICE + "?prop=Name", "Team", 3))
        differences = [f"Replace {OFFICE}/Linger: 200 OK, but reads 4464",
                       f"Replace {OFFICE}?prop=Name: 200 OK, but Office again at the next mount"]
        status, printed, errors = self.client("process", "--summary", "-", stdin=commands)
        self.assertEqual((status, errors), (SUCCESS, ""))
        self.assertEqual(printed.splitlines()[3:], differences)
        status, printed, errors = self.client("process", "-", stdin=commands)
        self.assertEqual(errors.splitlines(), ["dmclient: " + line for line in differences])
        self.assertNotIn("but", printed)
        status, printed, _ = self.client("--strict", "process", "--json", "-", stdin=commands)
        self.assertEqual(status, DIFFERENT)
        self.assertEqual([json.loads(line) for line in printed.splitlines()[3:]], [
            {"note": "reads 4464", "command": "Replace", "uri": OFFICE + "/Linger", "status": 200,
             "msgId": "1", "cmdId": "1", "reads": "4464", "when": "now"},
            {"note": "Office again at the next mount", "command": "Replace",
             "uri": OFFICE + "?prop=Name", "status": 200, "msgId": "1", "cmdId": "3",
             "when": "next mount"}])

    def test_an_atomic_that_was_taken_back_says_nothing(self):
        commands = package("<Atomic><CmdID>1</CmdID>" + replace(OFFICE + "/Linger", "70000", 2)
                           + replace(OFFICE + "?prop=Name", "Team", 3)
                           + replace(CONN + "/Nowhere", "x", 4) + "</Atomic>",
                           replace(HOME + "/Linger", "65537", 5))
        status, printed, _ = self.client("process", "--summary", "-", stdin=commands)
        self.assertEqual(status, REFUSED)
        self.assertEqual([line for line in printed.splitlines() if "but" in line],
                         [f"Replace {HOME}/Linger: 200 OK, but reads 1"])

    def test_a_server_is_followed_with_its_own_rights(self):
        """A look with the owner's rights would go another way where the server is refused."""
        self.assertEqual(self.client("replace", OFFICE + "?prop=ACL", "Get=*&Replace=other")[0], SUCCESS)
        status, printed, _ = self.client("process", "--summary", "--server-id", "dm.example", "-",
                                         stdin=package(replace(OFFICE + "/Linger", "70000", 1),
                                                       replace(HOME + "/Linger", "70001", 2)))
        self.assertEqual(status, REFUSED)
        self.assertIn(f"Replace {OFFICE}/Linger: 425 ", printed)
        self.assertNotIn("no second look", printed)
        self.assertIn(f"Replace {HOME}/Linger: 200 OK, but reads 4465", printed)

    def test_rights_that_an_atomic_has_changed_are_taken_back_in_the_look_as_well(self):
        status, printed, _ = self.client(
            "process", "--summary", "--server-id", "dm.example", "-",
            stdin=package("<Atomic><CmdID>1</CmdID>" + replace(HOME + "?prop=ACL", "Replace=other", 2)
                          + replace(CONN + "/Nowhere", "x", 3) + "</Atomic>",
                          replace(HOME + "/Linger", "70001", 4)))
        self.assertEqual(status, REFUSED)
        self.assertNotIn("no second look", printed)
        self.assertIn(f"Replace {HOME}/Linger: 200 OK, but reads 4465", printed)

    def test_rights_from_before_an_atomic_are_there_after_it_in_the_look_as_well(self):
        _, printed, _ = self.client(
            "process", "--summary", "--server-id", "dm.example", "-",
            stdin=package(replace(HOME + "?prop=ACL", "Replace=other", 1),
                          "<Atomic><CmdID>2</CmdID>" + replace(OFFICE + "/Linger", "5", 3)
                          + replace(CONN + "/Nowhere", "x", 4) + "</Atomic>",
                          replace(HOME + "/Linger", "7", 5)))
        self.assertIn(f"Replace {HOME}/Linger: 425 ", printed)
        self.assertNotIn("no second look", printed)

    def test_a_session_says_it_before_its_last_line_in_both_encodings(self):
        played = scenario("profiles", packages=[{"commands": [
            {"replace": OFFICE + "/Linger", "format": "int", "data": "70000"},
            {"rename": OFFICE, "name": "Team"}]}, {"commands": [{"get": CONN + "/Team/Addr"}]}])
        for encoding in ENCODINGS:
            with self.subTest(encoding):
                self.handset.close()
                self.setUp()
                status, lines, report = self.play(played, "--encoding", encoding)
                self.assertEqual((status, report["faults"]), (SUCCESS, []))
                self.assertEqual(lines[-3:-1], [
                    f"Replace {OFFICE}/Linger: 200 OK, but reads 4464",
                    f"Replace {OFFICE}?prop=Name: 200 OK, but Office again at the next mount"])
                self.assertRegex(lines[-1], r"^Session completed \(.*, 0 refused, 2 different\)$")
        self.handset.close()
        self.setUp()
        status, lines, _ = self.play(played, "--json", "--strict")
        self.assertEqual(status, DIFFERENT)
        objects = [json.loads(line) for line in lines]
        self.assertEqual([(entry["command"], entry["uri"], entry["when"], entry["msgId"])
                          for entry in objects if "note" in entry],
                         [("Replace", OFFICE + "/Linger", "now", "1"),
                          ("Replace", OFFICE + "?prop=Name", "next mount", "1")])
        self.assertEqual(objects[-1]["differences"], 2)


if __name__ == "__main__":
    unittest.main()
