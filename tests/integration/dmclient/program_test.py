"""dmclient as a program: what it prints where, its exit statuses, its files, its shell."""

import base64
import fcntl
import json
import os
import pty
import select
import signal
import sqlite3
import stat
import subprocess
import termios
import time
import unittest

from commands import add, get, package_of, replace
from handset import CONN, DMCLIENT, PLUGIN, PROXY, SECRET, Handset, HandsetTest

SUCCESS, REFUSED, USAGE, UNUSABLE, SESSION_FAILED = range(5)


class DmclientTest(HandsetTest):
    def run_client(self, *arguments, **options):
        result = self.handset.dmclient(*arguments, **options)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def succeed(self, *arguments, **options):
        """Runs a command that has to succeed in silence; returns what it printed."""
        status, printed, errors = self.run_client(*arguments, **options)
        self.assertEqual((status, errors), (SUCCESS, ""))
        return printed


class CommandLineTest(DmclientTest):
    def test_a_value_is_printed_alone(self):
        self.assertEqual(self.succeed("get", CONN + "/Office/Addr"), "internet\n")

    def test_several_addresses_are_printed_a_line_each(self):
        self.assertEqual(self.succeed("get", CONN + "/Office/Addr", CONN), "internet\nOffice\nPX1\nHome\n")

    def test_addresses_are_read_as_one_json_array(self):
        office = CONN + "/Office"
        printed = self.succeed("get", "--json", office + "/Addr", office + "/Linger", CONN,
                               office + "/Auth/PAP/AuthPw", office + "?prop=Type", ".")
        self.assertNotIn(SECRET, printed)
        self.assertEqual(json.loads(printed)[:5], [
            {"name": "Addr", "uri": office + "/Addr", "format": "chr", "value": "internet"},
            {"name": "Linger", "uri": office + "/Linger", "format": "int", "value": 30},
            {"name": "Profiles", "uri": CONN, "format": "node",
             "children": ["Office", "PX1", "Home"]},
            {"name": "AuthPw", "uri": office + "/Auth/PAP/AuthPw", "format": "chr",
             "value": "********", "masked": True},
            {"uri": office, "property": "Type", "value": ""}])
        self.assertIn(SECRET, self.succeed("get", "--json", "--show-secrets",
                                           office + "/Auth/PAP/AuthPw"))

    def test_a_refusal_has_its_place_in_the_json_array(self):
        status, printed, errors = self.run_client("get", "--json", "./Nowhere", CONN + "/Home/Addr")
        self.assertEqual(status, REFUSED)
        self.assertIn("404 Not Found", errors)
        refusal, value = json.loads(printed)
        self.assertEqual(refusal, {"uri": "./Nowhere", "status": 404, "meaning": "Not Found",
                                   "reason": "no node ./Nowhere"})
        self.assertEqual(value["value"], "+4930123")

    def test_a_value_that_is_not_utf8_is_base64_in_json(self):
        with sqlite3.connect(self.handset.path("profiles.db")) as store:
            [[record]] = store.execute("SELECT record FROM profile WHERE name = 'Office'")
            store.execute("UPDATE profile SET record = ? WHERE name = 'Office'",
                          [record.replace(b"internet", b"\xffnternet", 1)])
        store.close()
        [entry] = json.loads(self.succeed("get", "--json", CONN + "/Office/Addr"))
        self.assertEqual((entry["encoding"], base64.b64decode(entry["value"])),
                         ("base64", b"\xffnternet"))

    def test_a_change_is_silent_and_reaches_the_profile_service(self):
        self.assertEqual(self.succeed("replace", CONN + "/Office/Addr", "web.example"), "")
        self.assertEqual(self.handset.profile("Office")["gprs"]["address"], "web.example")

    def test_several_leaves_are_changed_in_one_command(self):
        self.succeed("replace", CONN + "/Office", "Addr=a.example", "DNS1=10.9.9.9", "Linger=7")
        gprs = self.handset.profile("Office")["gprs"]
        self.assertEqual((gprs["address"], gprs["dns1"], gprs["linger"]), ("a.example", "10.9.9.9", 7))

    def test_a_refusal_is_reported_with_its_meaning_on_standard_error(self):
        self.assertEqual(self.run_client("get", "./Nowhere"),
                         (REFUSED, "", "dmclient: get ./Nowhere: 404 Not Found: no node ./Nowhere\n"))

    def test_one_refusal_among_several_decides_the_exit_status(self):
        status, printed, errors = self.run_client("get", "./Nowhere", CONN + "/Office/Addr")
        self.assertEqual((status, printed), (REFUSED, "internet\n"))
        self.assertIn("404 Not Found", errors)

    def test_node_names_live_as_long_as_a_mount(self):
        status, printed, errors = self.run_client("rename", CONN + "/Office", "Team")
        self.assertEqual((status, printed), (SUCCESS, ""))
        self.assertIn("Office again at the next mount", errors)
        self.assertEqual(self.succeed("get", CONN), "Office\nPX1\nHome\n")

    def test_a_negative_number_stands_after_a_double_dash(self):
        self.run_client("replace", "--", PROXY + "/Office/Ph1/Port/PortNbr", "-1")
        self.assertEqual(self.handset.profile("Office")["proxy1"]["port"], 65535)

    def test_wrong_usage(self):
        for arguments in ([], ["frobnicate"], ["get"], ["tree", "--nonsense"], ["--nonsense", "tree"],
                          ["rename", "./A"], ["shell", "x"], ["quit"], ["help", "nothing"],
                          ["replace", CONN + "/Office/Addr", "a", "b"], ["delete", CONN + "?prop=ACL"],
                          ["add", CONN + "/Office/X", "value", "--format", "Node"],
                          ["--state", "", "tree"]):
            status, printed, errors = self.run_client(*arguments)
            self.assertEqual((status, printed), (USAGE, ""), arguments)
            self.assertTrue(errors.startswith("dmclient: "), errors)
            self.assertEqual(errors.count("\n"), 1, errors)

    def test_arguments_have_to_be_utf8(self):
        self.assertEqual(self.run_client("add", CONN.encode() + b"/\xff"),
                         (USAGE, "", "dmclient: argument 4 is not UTF-8\n"))
        self.assertEqual(self.succeed("get", CONN), "Office\nPX1\nHome\n")

    def test_output_that_cannot_be_written_is_a_failure(self):
        for arguments, stdin in ((["get", CONN], b""), (["--help"], b""), (["shell"], b"get .\n")):
            with open("/dev/full", "wb") as full:
                result = subprocess.run([DMCLIENT, "--plugin", PLUGIN, *arguments], input=stdin, stdout=full,
                                        stderr=subprocess.PIPE, env=self.handset.environment(),
                                        timeout=120, check=False)
            self.assertEqual(result.returncode, UNUSABLE, arguments)
            self.assertEqual(result.stderr,
                             b"dmclient: cannot write the output: No space left on device\n", arguments)

    def test_help_and_version_need_no_handset(self):
        for arguments in (["--help"], ["--version"], ["help"], ["help", "tree"], ["tree", "--help"]):
            self.assertNotEqual(self.succeed(*arguments, plugin="/nonexistent"), "", arguments)

    def test_a_command_that_needs_no_plugin_loads_none_and_leaves_no_log(self):
        for words in (("get", "./DevInfo/Man"), ("tree", "./DevInfo"), ("get", "."),
                      ("replace", "./DevDetail?prop=Title", "Mine"),
                      ("copy", "./DevInfo/Man", "./DevInfo/Nowhere")):
            with self.subTest(words):
                result = self.handset.dmclient(*words, plugin="/nonexistent.so", LD_DEBUG="libs",
                                               LD_DEBUG_OUTPUT=self.handset.path("loaded"))
                self.assertNotIn(b"plug-in", result.stderr)
                self.assertEqual(self.loaded_libraries() & {"libnapi.so", "libsqlite3.so.0",
                                                            "libdmclienthttp.so",
                                                            "libQt6Network.so.6",
                                                            "libQt6DBus.so.6"}, set())
        self.assertFalse(os.path.exists(self.handset.client_file("plugin.log")))

    def loaded_libraries(self):
        """The file names of what the dynamic linker initialised in the last run."""
        folder = self.handset.state
        names = [name for name in os.listdir(folder) if name.startswith("loaded.")]
        self.assertEqual(len(names), 1)
        with open(os.path.join(folder, names[0]), encoding="utf-8") as file:
            loaded = {os.path.basename(line.split()[-1]) for line in file if "calling init:" in line}
        os.unlink(os.path.join(folder, names[0]))
        self.assertIn("libQt6Core.so.6", loaded)
        return loaded

    def test_the_plugin_is_found_beside_the_program(self):
        result = subprocess.run([DMCLIENT, "get", CONN + "/Office/Addr"], capture_output=True,
                                env=self.handset.environment(), timeout=120, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (SUCCESS, b"internet\n", b""))

    def test_the_option_chooses_the_state_directory(self):
        other = Handset([])
        self.addCleanup(other.close)
        self.assertEqual(self.succeed("--state", other.state, "get", CONN), "")


class UnusableTest(DmclientTest):
    def assert_unusable(self, expected, *arguments, **options):
        status, printed, errors = self.run_client(*arguments, **options)
        self.assertEqual((status, printed), (UNUSABLE, ""))
        self.assertIn(expected, errors)

    def test_a_missing_plugin_is_named(self):
        self.assert_unusable("/nonexistent.so", "tree", plugin="/nonexistent.so")

    def test_a_missing_plugin_is_named_by_every_command_that_needs_it(self):
        for words in (("tree",), ("tree", "./DevDetail"), ("get", CONN), ("get", "./DevInfo", CONN),
                      ("get", os.path.dirname(CONN)), ("add", CONN + "/New"), ("delete", CONN + "/X"),
                      ("replace", PROXY + "/Office?prop=Title", "x"), ("rename", CONN + "/X", "Y"),
                      ("copy", "./DevInfo/Man", CONN + "/Office/Addr")):
            with self.subTest(words):
                status, printed, errors = self.run_client(*words, plugin="/nonexistent.so")
                self.assertEqual((status, printed), (UNUSABLE, ""))
                self.assertRegex(errors, "^dmclient: cannot load the plug-in /nonexistent.so: .*\n$")

    def test_a_package_that_needs_a_missing_plugin_is_answered_and_the_reason_said(self):
        package = os.path.join(os.path.dirname(__file__), "packages", "read.xml")
        status, answer, errors = self.run_client("process", package, plugin="/nonexistent.so")
        self.assertEqual(status, UNUSABLE)
        self.assertIn("<Data>510</Data>", answer)
        self.assertEqual(errors.count("cannot load the plug-in /nonexistent.so"), 1)

    def test_a_line_that_needs_a_missing_plugin_ends_with_510_and_the_next_goes_on(self):
        lines = f"get {CONN}\nget ./DevInfo/Man\ndelete {PROXY}/Office\n".encode()
        status, printed, errors = self.run_client("shell", stdin=lines, plugin="/nonexistent.so")
        self.assertEqual(status, UNUSABLE)
        self.assertIn("kub\nget ./DevInfo/Man: 200", printed)
        self.assertIn(f"get {CONN}: 510", printed)
        self.assertIn(f"delete {PROXY}/Office: 510", printed)
        self.assertEqual(printed.count("\ncannot load the plug-in"), 1)
        self.assertEqual(errors, "")

    def test_a_library_that_is_no_plugin_is_named(self):
        self.assert_unusable("does not export DMT_PluginLib_GetAPIVersion", "tree", plugin="libc.so.6")

    def test_a_broken_profile_store_stops_the_mount(self):
        with open(os.path.join(self.handset.state, "profiles.db"), "r+b") as file:
            file.write(b"no database at all" * 100)
        self.assert_unusable("did not mount " + CONN, "tree")

    def test_a_state_directory_that_is_a_file_is_named(self):
        path = os.path.join(self.handset.home, "file")
        with open(path, "w", encoding="ascii"):
            pass
        self.assert_unusable(f"cannot use {path}: Not a directory",
                             "--state", path, "tree")

    def test_a_state_directory_that_cannot_be_made_is_named_with_the_reason(self):
        self.assert_unusable("cannot use /proc/handset: it cannot be made: No such file or directory",
                             "--state", "/proc/handset/state", "tree")

    def test_a_second_client_is_refused_while_the_first_runs(self):
        with open(self.handset.client_file("lock"), "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.assert_unusable("another DM client is using the state directory " + self.handset.state,
                                 "tree")
        self.succeed("get", CONN)

    def test_a_running_shell_keeps_others_out_until_it_ends(self):
        with subprocess.Popen([DMCLIENT, "--plugin", PLUGIN, "shell"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, env=self.handset.environment()) as shell:
            shell.stdin.write(b"get ./DevInfo/DmV\n")
            shell.stdin.flush()
            self.assertEqual(shell.stdout.readline(), b"1.2\n")
            self.assert_unusable("another DM client", "tree")
            shell.stdin.close()
            self.assertEqual(shell.wait(timeout=60), SUCCESS)
        self.succeed("get", CONN)


class PluginMessagesTest(DmclientTest):
    """A rename prints a message of the plug-in, whatever its outcome."""

    def log(self):
        with open(self.handset.client_file("plugin.log"), encoding="utf-8") as file:
            return file.read()

    def test_they_go_to_a_file_of_their_own(self):
        self.run_client("rename", CONN + "/Office", "Branch")
        self.assertIn("Leave: RenameProfileMap!", self.log())

    def test_each_command_stands_before_its_messages_with_time_and_process(self):
        self.run_client("shell", stdin=f"rename {CONN}/Office Branch\nget {CONN}/Branch/Addr\n"
                                       f"replace {CONN}/Branch/Bearer nonsense\n")
        lines = self.log().splitlines()
        headings = [line for line in lines if not line.startswith("(")]
        for line in headings:
            self.assertRegex(line, r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d\d\dZ \d+ [a-z]+ \./")
        self.assertEqual([line.split(" ", 2)[2] for line in headings],
                         [f"mount {PROXY}", f"rename {CONN}/Office", f"replace {CONN}/Branch/Bearer"])
        self.assertRegex(lines[lines.index(headings[1]) + 1], r"Leave: RenameProfileMap!$")
        self.assertRegex(lines[lines.index(headings[2]) + 1], r"Bearer illegal $")
        self.assertNotIn("nonsense", self.log())

    def test_repeated_messages_of_a_mount_are_counted(self):
        self.handset.add([{"name": f"P{number}", "editable": True, "csd": {}, "csd2": {},
                           "gprs": {"address": "apn", "authId": "", "authPassword": "",
                                    "dns1": "0.0.0.0", "dns2": "0.0.0.0", "linger": 0},
                           "proxy1": {"address": "proxy", "port": 1}, "proxy2": {}}
                          for number in range(20)])
        self.succeed("tree", PROXY)
        lines = self.log().splitlines()
        self.assertEqual(len(lines), len(set(lines)))
        [counted] = [line for line in lines if "the Conn of  Ph2 has no related fields" in line]
        self.assertRegex(counted, r"\((2\d) times\)$")

    def test_what_was_said_beneath_a_refused_command_stands_after_its_status(self):
        speed = CONN + "/Home/Speed"
        refused = f"{speed}: 500 Command Failed: Speed illegal"
        self.assertEqual(self.run_client("replace", speed, "1"),
                         (REFUSED, "", f"dmclient: replace {refused}\n"))
        self.assertEqual(self.run_client("shell", stdin=f"replace {speed} 1\n")[1], f"replace {refused}\n")
        package = package_of(replace(speed, "1", "int"), get(CONN + "/Home/Speed"))
        self.assertEqual(self.run_client("process", "-", "--summary", stdin=package)[1],
                         f"Replace {refused}\nGet {speed}: 200 OK\n")
        answered = json.loads(self.run_client("process", "-", "--json", stdin=package)[1].splitlines()[0])
        self.assertEqual((answered["status"], answered["reason"]), (500, "Speed illegal"))

    def test_the_services_reason_stands_after_the_status_and_is_not_told_twice(self):
        name = "n" * 70
        status, _, errors = self.run_client("add", f"{CONN}/{name}")
        self.assertEqual(status, REFUSED)
        self.assertIn("500 Command Failed: Profile name too long; a profile name is empty, longer than",
                      errors)
        self.assertEqual(errors.count("\n"), 1, errors)

    def test_a_package_whose_answer_has_no_reasons_leaves_them_on_standard_error(self):
        package = package_of(add(f"{CONN}/{'n' * 70}"))
        _, printed, errors = self.run_client("process", "-", stdin=package)
        self.assertIn("<Data>500</Data>", printed)
        self.assertRegex(errors, "^libnapi: a profile name is empty, longer than [^\\n]*\n$")

    def test_a_mount_that_fails_says_why_and_names_the_log(self):
        mapping = self.handset.path("settings", "kub_napdef_profilemapping.cfg")
        os.makedirs(os.path.join(mapping, "in the way"))
        status, _, errors = self.run_client("tree", CONN)
        self.assertEqual(status, UNUSABLE)
        self.assertIn(f"did not mount {CONN}: status 1: flush failed; all that it said is in "
                      + self.handset.client_file("plugin.log"), errors)

    def test_they_go_to_standard_error_when_asked_for(self):
        status, printed, errors = self.run_client("--verbose", "rename", CONN + "/Office", "Branch")
        self.assertEqual((status, printed), (SUCCESS, ""))
        self.assertIn("Leave: RenameProfileMap!", errors)
        self.assertFalse(os.path.exists(self.handset.client_file("plugin.log")))

    def test_they_never_mix_with_results(self):
        shell = f"rename {CONN}/Office Branch\nget {CONN}/Branch/Addr\n"
        for options in ([], ["--verbose"]):
            _, printed, _ = self.run_client(*options, "shell", stdin=shell)
            self.assertNotIn("DM_Napi_Plugin", printed)


class TreeTest(DmclientTest):
    def test_the_whole_tree_is_drawn_from_the_root(self):
        lines = self.succeed("tree").splitlines()
        self.assertEqual(lines[0], ".")
        self.assertIn("├── DevInfo", lines)
        self.assertTrue(any("Addr" in line and "internet" in line for line in lines))

    def test_json_holds_the_same_tree(self):
        tree = json.loads(self.succeed("tree", "--json", CONN))
        self.assertEqual([child["name"] for child in tree["children"]], ["Office", "PX1", "Home"])
        office = {child["name"]: child.get("value") for child in tree["children"][0]["children"]}
        self.assertEqual((office["Addr"], office["Linger"]), ("internet", 30))

    def test_nothing_is_coloured_in_a_pipe(self):
        self.assertNotIn("\x1b", self.succeed("tree", TERM="xterm"))

    def test_passwords_show_only_when_asked_for(self):
        for arguments in (["tree"], ["tree", "--json"], ["tree", CONN + "/Office/Auth"]):
            printed = self.succeed(*arguments)
            self.assertNotIn(SECRET, printed)
            self.assertIn("********", printed)
            self.assertIn(SECRET, self.succeed(*arguments, "--show-secrets"))

    def test_no_password_reaches_a_log_or_an_error(self):
        shell = "\n".join([
            f"replace {CONN}/Office/Auth/PAP/AuthPw {SECRET}-2", f"tree {CONN}/Office",
            f"replace {CONN}/Office/Auth/PAP AuthPw={SECRET}-3 AuthId=x",
            f"replace {CONN}/Nobody/AuthPw {SECRET}", f"delete {CONN}/Office", ""])
        status, printed, errors = self.run_client("shell", stdin=shell)
        self.assertEqual((status, errors), (REFUSED, ""))
        self.assertNotIn(SECRET, printed)
        for folder, _, files in os.walk(os.path.join(self.handset.state, "client")):
            for name in files:
                with open(os.path.join(folder, name), "rb") as file:
                    self.assertNotIn(SECRET.encode(), file.read(), name)


def wbxml_text(tag, text):
    return bytes([tag | 0x40, 0x03]) + text.encode() + b"\0\1"


def wbxml_element(tag, *children):
    return bytes([tag | 0x40]) + b"".join(children) + b"\1"


def wbxml_get(uri):
    """A package with one Get."""
    header = wbxml_element(
        0x2C, wbxml_text(0x31, "1.2"), wbxml_text(0x32, "DM/1.2"), wbxml_text(0x25, "1"),
        wbxml_text(0x1B, "1"), wbxml_element(0x2E, wbxml_text(0x17, "urn:x")),
        wbxml_element(0x27, wbxml_text(0x17, "https://dm.example/")))
    get = wbxml_element(0x13, wbxml_text(0x0B, "5"), wbxml_element(
        0x14, wbxml_element(0x2E, wbxml_text(0x17, uri))))
    return b"\x02\xa4\x01\x6a\x00" + wbxml_element(0x2D, header, wbxml_element(0x2B, get, b"\x12"))


class ProcessTest(DmclientTest):
    EMPTY = ("<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
             "<SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>x</LocURI></Target>"
             "<Source><LocURI>y</LocURI></Source></SyncHdr><SyncBody>%s<Final/></SyncBody></SyncML>")
    GET = "<Get><CmdID>1</CmdID><Item><Target><LocURI>%s</LocURI></Target></Item></Get>"

    def package(self, content):
        path = os.path.join(self.handset.home, "package")
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def test_a_package_from_a_file_or_from_standard_input_has_the_same_answer(self):
        package = self.EMPTY % (self.GET % "./DevInfo/DmV")
        answer = self.succeed("process", self.package(package))
        self.assertIn("<Data>1.2</Data>", answer)
        self.assertEqual(self.succeed("process", "-", stdin=package), answer)

    def test_a_summary_has_a_line_a_command_in_place_of_the_answer(self):
        replace = ("<Replace><CmdID>%d</CmdID><Item><Target><LocURI>%s</LocURI></Target>"
                   "<Data>%s</Data></Item></Replace>")
        package = self.EMPTY % (self.GET % "./DevInfo/DmV"
                                + replace % (2, CONN + "/Office/Auth/PAP/AuthPw", "n3w-s3cr3t")
                                + replace % (3, "./DevInfo/Man", "me"))
        status, printed, errors = self.run_client("process", "--summary", "-", stdin=package)
        self.assertEqual((status, errors), (REFUSED, ""))
        self.assertEqual(printed.splitlines(), [
            "Get ./DevInfo/DmV: 200 OK",
            f"Replace {CONN}/Office/Auth/PAP/AuthPw: 200 OK",
            "Replace ./DevInfo/Man: 405 Command Not Allowed: ./DevInfo/Man is read-only"])
        status, printed, errors = self.run_client("process", "--json", "-", stdin=package)
        self.assertEqual((status, errors), (REFUSED, ""))
        self.assertNotIn("n3w-s3cr3t", printed)
        lines = [json.loads(line) for line in printed.splitlines()]
        self.assertEqual([(line["command"], line["msgId"], line["cmdId"], line["status"],
                           line.get("value")) for line in lines],
                         [("Get", "1", "1", 200, "1.2"), ("Replace", "1", "2", 200, "********"),
                          ("Replace", "1", "3", 405, "me")])
        status, printed, errors = self.run_client("process", "--json", "--summary", "-")
        self.assertEqual((status, printed), (USAGE, ""))

    def test_a_refused_command_decides_the_exit_status(self):
        status, printed, errors = self.run_client("process", "-", stdin=self.EMPTY % (self.GET % "./x"))
        self.assertEqual((status, errors), (REFUSED, ""))
        self.assertIn("<Data>404</Data>", printed)

    def test_a_binary_package_has_a_binary_answer(self):
        result = self.handset.dmclient("process", "-", stdin=wbxml_get(CONN + "/Office/Addr"))
        self.assertEqual((result.returncode, result.stderr), (SUCCESS, b""))
        self.assertEqual(result.stdout[0] & 0xF8, 0)
        self.assertIn(b"internet", result.stdout)
        self.assertNotIn(b"<", result.stdout)

    def test_a_server_that_asks_for_nothing_gets_no_answer(self):
        status, printed, errors = self.run_client("process", "-", stdin=self.EMPTY % "")
        self.assertEqual((status, printed), (SUCCESS, ""))
        self.assertIn("asks for nothing", errors)

    def test_what_is_no_package_is_wrong_usage_and_named(self):
        for content in (b"", b"hello", b"<a/>", b"<SyncML><SyncHdr>", b"\x02\xa4\x01\x6a\x00\x6d",
                        b"\xff" * 100, (self.EMPTY % self.GET[:-2]).encode()):
            path = self.package(content)
            status, printed, errors = self.run_client("process", path)
            self.assertEqual((status, printed), (USAGE, ""), content)
            self.assertTrue(errors.startswith(f"dmclient: process: {path}: "), errors)

    def test_an_endless_package_is_not_read_to_its_end(self):
        block = b"<" * 65536
        with subprocess.Popen([DMCLIENT, "--plugin", PLUGIN, "process", "-"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              env=self.handset.environment()) as client:
            taken = 0
            try:
                while taken < 64 * 1024 * 1024:
                    taken += client.stdin.raw.write(block)
            except BrokenPipeError:
                pass
            printed, errors = client.communicate(timeout=60)
        self.assertEqual((client.returncode, printed), (USAGE, b""))
        self.assertIn(b"process: -: ", errors)
        self.assertLess(taken, 8 * 1024 * 1024)

    def test_a_file_that_cannot_be_read_is_named(self):
        for path in ("/nonexistent", self.handset.home):
            status, printed, errors = self.run_client("process", path)
            self.assertEqual((status, printed), (USAGE, ""))
            self.assertIn(f"cannot read {path}: ", errors)

    def test_an_empty_file_name_is_wrong_usage(self):
        for words, problem in ((("process", ""), "process: FILE names no file"),
                               (("--plugin", "", "tree"), "--plugin names no file")):
            self.assertEqual(self.run_client(*words), (USAGE, "", f"dmclient: {problem}\n"))

    def test_a_package_that_refuses_the_clients_header_runs_nothing(self):
        before = self.handset.profile("Office")
        for code, reason in (("abc", "the server's status of the header, \"abc\", is not a status"),
                             ("401", "the server refuses the client and does not say what it asks for")):
            package = self.EMPTY % (
                '<Status><CmdID>1</CmdID><MsgRef>1</MsgRef><CmdRef>0</CmdRef><Cmd>SyncHdr</Cmd>'
                f'<Data>{code}</Data></Status><Delete><CmdID>2</CmdID><Item><Target>'
                f'<LocURI>{CONN}/Office</LocURI></Target></Item></Delete>')
            self.assertEqual(self.run_client("process", "-", stdin=package),
                             (SESSION_FAILED, "", f"dmclient: process: -: {reason}\n"))
        self.assertEqual(self.handset.profile("Office"), before)


class PipedShellTest(DmclientTest):
    def shell(self, lines, *options):
        status, printed, errors = self.run_client("shell", *options, stdin=lines)
        self.assertEqual(errors, "")
        return status, printed.splitlines()

    def test_each_line_is_answered_with_its_results_and_its_status(self):
        self.assertEqual(self.shell("get ./DevInfo/DmV\ndelete .\n"),
                         (REFUSED, ["1.2", "get ./DevInfo/DmV: 200 OK",
                                    "delete .: 405 Command Not Allowed: . is permanent"]))

    def test_all_lines_work_on_one_mount(self):
        status, lines = self.shell(f"rename {CONN}/Office Team\nget {CONN}/Team/Addr\n")
        self.assertEqual((status, lines[1]), (SUCCESS, "internet"))

    def test_a_failing_line_does_not_stop_the_next(self):
        status, lines = self.shell("get ./x\nnonsense\nget ./DevInfo/DmV\n")
        self.assertEqual((status, len(lines)), (USAGE, 4))
        self.assertEqual(lines[2], "1.2")

    def test_fail_fast_stops_at_the_first_failing_line(self):
        for line in ("get ./x", "nonsense", "get 'x"):
            _, lines = self.shell(f"get ./DevInfo/DmV\n{line}\nget ./DevInfo/DmV\n", "--fail-fast")
            self.assertEqual(len(lines), 3, line)

    def test_empty_lines_and_comments_are_skipped(self):
        self.assertEqual(self.shell("\n   \n# delete .\n\t# x\n"), (SUCCESS, []))

    def test_the_last_line_needs_no_line_break(self):
        self.assertEqual(self.shell("get ./DevInfo/DmV")[1][0], "1.2")

    def test_a_line_that_is_no_text_is_refused_as_a_whole(self):
        for line in (b"\0", b"\0get .", b"delete " + CONN.encode() + b"/Office\0/Addr",
                     b"add " + CONN.encode() + b"/\xff", b"\xc3"):
            status, lines = self.shell(line + b"\nget " + CONN.encode() + b"\n")
            self.assertEqual((status, lines),
                             (USAGE, ["the line holds a NUL byte or is not UTF-8", "Office", "PX1", "Home",
                                      f"get {CONN}: 200 OK"]), line)

    def test_quit_leaves_the_rest_unread(self):
        self.assertEqual(self.shell("quit\nget ./x\n"), (SUCCESS, []))

    def test_help_lists_the_commands_of_the_shell(self):
        lines = self.shell("help\n")[1]
        self.assertTrue(any(line.startswith("  quit ") for line in lines))
        self.assertFalse(any(line.startswith("  shell ") for line in lines))


class FullStoreTest(DmclientTest):
    def test_a_deleted_profile_makes_room_at_the_next_mount_only(self):
        refused = "500 Command Failed: Profile number reaches maximum!"
        script = f"delete {PROXY}/Home\ndelete {CONN}/Home\nadd {CONN}/New\n"
        result = self.handset.dmclient("shell", stdin=script, KUB_NAPI_MAX="3")
        self.assertEqual(result.stdout.decode().splitlines(),
                         [f"delete {PROXY}/Home: 200 OK", f"delete {CONN}/Home: 200 OK",
                          f"add {CONN}/New: {refused}"])
        with open(self.handset.client_file("plugin.log"), encoding="utf-8") as log:
            self.assertIn("Profile number reaches maximum!", log.read())
        result = self.handset.dmclient("add", CONN + "/New", KUB_NAPI_MAX="3")
        self.assertEqual(result.returncode, 0, result.stderr)


class TerminalTest(DmclientTest):
    """The shell on a terminal of its own."""

    TIMEOUT = 60

    def open_shell(self, **environment):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            changes = {"TERM": "xterm", **environment}
            os.execve(DMCLIENT, [DMCLIENT, "--plugin", PLUGIN, "shell"],
                      self.handset.environment(**changes))
        self.addCleanup(self.stop, self.child, self.terminal)
        self.seen = b""
        self.wait_for_prompt()

    def stop(self, child, terminal):
        os.close(terminal)
        if child == self.child:  # it has not ended by itself
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)

    def read_more(self, deadline):
        """Waits for more from the shell; false when it has ended."""
        ready, _, _ = select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))
        self.assertTrue(ready, f"no answer after {self.seen!r}")
        try:
            self.seen += os.read(self.terminal, 4096)
        except OSError:
            return False
        return True

    def wait_for(self, text):
        """Reads up to the text, which has to come."""
        deadline = time.monotonic() + self.TIMEOUT
        while text not in self.seen:
            self.assertTrue(self.read_more(deadline), f"no {text!r} before the end in {self.seen!r}")
        self.seen = self.seen.partition(text)[2]

    def wait_for_prompt(self):
        """Reads up to the prompt, and waits until keys are read one by one.

        Before that the terminal would keep an end of input for itself.
        """
        self.wait_for(b"dm> ")
        deadline = time.monotonic() + self.TIMEOUT
        while termios.tcgetattr(self.terminal)[3] & termios.ICANON:
            self.assertLess(time.monotonic(), deadline, "the terminal stays in line mode")
            os.sched_yield()

    def type(self, text):
        os.write(self.terminal, text.encode())

    def exit_status(self):
        deadline = time.monotonic() + self.TIMEOUT
        while self.read_more(deadline):
            pass
        status = os.waitpid(self.child, 0)[1]
        self.child = None
        return os.waitstatus_to_exitcode(status)

    def end(self):
        self.type("quit\n")
        return self.exit_status()

    def test_lines_are_answered(self):
        self.open_shell()
        self.type("get ./DevInfo/DmV\n")
        self.wait_for(b"\r\n1.2\r\nget ./DevInfo/DmV: 200 OK\r\n")
        self.wait_for_prompt()
        self.assertEqual(self.end(), SUCCESS)

    def test_words_are_completed_with_the_tab_key(self):
        self.open_shell()
        self.type("ge\t./DevI\t\tDm\t\n")
        self.wait_for(b"1.2\r\nget ./DevInfo/DmV: 200 OK\r\n")
        self.wait_for_prompt()
        self.type("get ./DevInfo/D\t")
        self.wait_for(b"DevId\r\nDmV\r\n")
        self.type("evId --prop For\t\n")
        self.wait_for(b"chr\r\nget ./DevInfo/DevId: 200 OK\r\n")
        self.wait_for_prompt()
        self.assertEqual(self.end(), SUCCESS)

    def test_a_completed_address_of_an_interior_node_is_taken_as_it_stands(self):
        self.open_shell()
        self.type("get ./DevI\t\n")
        self.wait_for(b"get ./DevInfo: 200 OK\r\n")
        self.wait_for_prompt()
        self.assertEqual(self.end(), SUCCESS)

    def test_a_name_with_blanks_is_completed_as_one_word(self):
        self.open_shell()
        self.type(f"rename {CONN}/Office 'My office'\n")
        self.wait_for(b"200 OK")
        self.wait_for_prompt()
        self.type(f"get {CONN}/My\t\tAd\t\n")
        self.wait_for(b"internet\r\n")
        self.wait_for_prompt()
        self.assertEqual(self.end(), SUCCESS)

    def test_lines_are_recalled_in_the_next_run_but_none_with_a_password(self):
        self.open_shell()
        self.type("get ./DevInfo/DmV\n")
        self.wait_for(b"200 OK")
        self.wait_for_prompt()
        self.type(f"replace {CONN}/Office/Auth/PAP/AuthPw {SECRET}\n")
        self.wait_for(b"200 OK")
        self.wait_for_prompt()
        self.end()
        with open(self.handset.client_file("history"), "rb") as file:
            self.assertNotIn(SECRET.encode(), file.read())
        mode = os.stat(self.handset.client_file("history")).st_mode
        self.assertEqual(stat.S_IMODE(mode), 0o600)

        self.open_shell()
        self.type("\x1b[A\x1b[A\n")  # past "quit"
        self.wait_for(b"1.2\r\nget ./DevInfo/DmV: 200 OK\r\n")
        self.wait_for_prompt()
        self.end()

    def test_the_end_of_input_leaves_the_shell(self):
        self.open_shell()
        self.type("\x04")
        self.assertEqual(self.exit_status(), SUCCESS)

    def test_failures_are_coloured_unless_no_color_is_set(self):
        for environment, expected in (({}, b"\x1b[31mget ./x: 404"), ({"NO_COLOR": "1"}, b"\nget ./x: 404"),
                                      ({"TERM": "dumb"}, b"\nget ./x: 404")):
            self.open_shell(**environment)
            self.type("get ./x\n")
            self.wait_for(expected)
            self.wait_for_prompt()
            self.assertEqual(self.end(), REFUSED)

    def test_a_value_cannot_steer_the_terminal(self):
        self.succeed("shell", stdin=f"replace {CONN}/Office/Addr 'a\x1b[2Jb'\n")
        self.open_shell()
        self.type(f"get {CONN}/Office/Addr\n")
        self.wait_for(b"\r\na\\x1b[2Jb\r\n")
        self.wait_for_prompt()
        self.end()


if __name__ == "__main__":
    unittest.main()
