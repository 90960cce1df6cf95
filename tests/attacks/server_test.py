"""What a DM server with an account may try, and what must hold."""

import os
import socket
import threading
import unittest

import terminal_test
from commands import (HandsetTest, add, copy, delete, execute, get, rename, replace, run, set_acl)
from handset import CONN, PROXY, SECRET
from hostile_text import HOSTILE, harmful_in
from sessions import DmServer, SessionTest, scenario

OWN = "Add=a.example&Delete=a.example&Get=*&Replace=a.example"


class OwnProfileTest(HandsetTest):
    """Another server takes over a profile that a server has made or has made its own."""

    def setUp(self):
        super().setUp()
        self.assertEqual(run(self.handset, add(CONN + "/Mine"), add(CONN + "/Mine/Addr", "a.example"),
                             server="a.example").statuses, [200, 200])
        self.assertEqual(run(self.handset, set_acl(CONN + "/Home", OWN), server="a.example").statuses,
                         [200])
        self.before = [self.handset.profile(name) for name in ("Mine", "Home")]

    def tearDown(self):
        self.assertEqual([self.handset.profile(name) for name in ("Mine", "Home")], self.before)

    def refused(self, *commands):
        answers = run(self.handset, *commands, server="b.example")
        self.assertEqual(answers.statuses, [425] * len(commands), answers.text)

    def test_through_the_lists_of_the_profile_and_of_the_nodes_above_it(self):
        """It replaces the list of the profile, of its leaves and of every node above; none changes."""
        self.refused(*(set_acl(profile + rest, "Add=*&Delete=*&Get=*&Replace=*")
                       for profile in (CONN + "/Mine", CONN + "/Home") for rest in ("", "/Addr")),
                     set_acl(CONN, "Replace=*"), set_acl(CONN.rsplit("/", 1)[0], "Replace=*"))

    def test_by_changing_it(self):
        """It writes, adds, copies, renames and deletes; nothing of the profile changes."""
        for profile in (CONN + "/Mine", CONN + "/Home"):
            self.refused(replace(profile + "/Addr", "evil.example"), add(profile + "/DNS1", "10.9.9.9"),
                         copy(CONN + "/Office/Addr", profile + "/Addr"),
                         replace(profile + "?prop=Title", "x"), rename(profile, "Evil"),
                         delete(profile + "/Addr"), delete(profile))

    def test_by_giving_its_name_to_another_profile(self):
        """It renames another profile to the name, adds the name, and copies onto it; the name is
        taken."""
        answers = run(self.handset, rename(CONN + "/Office", "Mine"), add(CONN + "/Mine"),
                      server="b.example")
        self.assertEqual(answers.statuses, [418, 418])

    def test_through_the_other_root(self):
        """It uses the profile's node beneath the other root; the list goes for that one as well."""
        for name in ("Mine", "Home"):
            node = f"{PROXY}/{name}"
            self.refused(add(node + "/Ph1/Addr", "evil.example"), replace(node + "/UserEditable", "true"),
                         set_acl(node, "Replace=*"), rename(node, "Evil"), delete(node))

    def test_after_the_profile_was_renamed(self):
        """It waits until the owner of the device renames the profile; the list stays with it."""
        self.rename_stored("Home", "House")
        self.refused(set_acl(CONN + "/House", "Replace=*"), replace(CONN + "/House/Addr", "evil"),
                     delete(PROXY + "/House"))
        self.rename_stored("House", "Home")

    def test_its_owner_still_manages_it(self):
        """What the other one may not, the server whose profile it is may."""
        answers = run(self.handset, replace(CONN + "/Mine/Addr", "b.example"),
                      replace(CONN + "/Mine/Addr", "a.example"),
                      set_acl(CONN + "/Mine", "Get=*&Replace=a.example"), server="a.example")
        self.assertEqual(answers.statuses, [200, 200, 200])


class ProfileOfTheDeviceTest(HandsetTest):
    """A profile that was there before any server belongs to none of them."""

    def test_every_server_manages_it(self):
        """Two servers after each other change it, and the second deletes it."""
        self.assertEqual(run(self.handset, replace(CONN + "/Office/Addr", "one"),
                             server="a.example").statuses, [200])
        self.assertEqual(run(self.handset, replace(CONN + "/Office/Addr", "two"),
                             delete(CONN + "/Office"), server="b.example").statuses, [200, 200])


class SlashInANameTest(HandsetTest):
    """A profile Office/Evil is there, which the plug-in takes for Office beneath its node."""

    EVIL = CONN + "/Office%2FEvil"
    SECRET = "/Auth/PAP/AuthPw"

    def setUp(self):
        super().setUp()
        self.rename_stored("Home", "Office/Evil")
        run(self.handset, set_acl(CONN + "/Office", "Get=a.example&Replace=a.example"))
        self.before = self.handset.profile("Office")

    def tearDown(self):
        self.assertEqual(self.handset.profile("Office"), self.before)

    def test_no_command_gives_what_is_in_the_other_profile(self):
        """A server that may not read Office asks for its password by every command; none tells it."""
        for root in (CONN, PROXY):
            evil = root + "/Office%2FEvil"
            answers = run(self.handset, get(evil + self.SECRET), get(evil + "?list=StructData"),
                          get(evil + "?list=TNDS"), get(root + "?list=StructData"),
                          get(root + "?list=TNDS"), get(evil + self.SECRET + "?prop=Size"),
                          copy(evil + self.SECRET, CONN + "/%C3%84rzte/Addr"), server="b.example")
            self.assertNotIn(SECRET, answers.text)

    def test_no_command_changes_the_other_profile(self):
        """It replaces, adds, deletes, renames and executes beneath the name; Office stays as it is."""
        for evil in (self.EVIL, PROXY + "/Office%2FEvil"):
            answers = run(self.handset, replace(evil + "/Addr", "evil.example"),
                          replace(evil + self.SECRET, "mine"), add(evil + "/DNS1", "10.9.9.9"),
                          copy(CONN + "/Office/Addr", evil + "/Addr"), rename(evil, "Office"),
                          delete(evil + "/Addr"), delete(evil), execute(evil), server="b.example")
            self.assertNotIn(200, answers.statuses)


PROFILE = f"{CONN}/{HOSTILE}"


class RawServer:
    """Answers every request with the same bytes, whatever HTTP says of them."""

    def __init__(self, answer):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self._listener.getsockname()[1]}/"
        threading.Thread(target=self._serve, args=(answer,), daemon=True).start()

    def _serve(self, answer):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with connection:
                connection.recv(65536)
                connection.sendall(answer)

    def close(self):
        self._listener.close()


class HostileTextTest(SessionTest):
    """Puts control characters and overrides of the writing direction wherever a text can stand, to
    steer the terminal or to forge lines."""

    def run_session(self, url, *options):
        result = self.handset.dmclient("session", url, *options)
        self.assertEqual(harmful_in(result.stdout + result.stderr), [])
        return result.stdout

    def play_commands(self, *options):
        commands = [{"get": f"./{HOSTILE}\nNote: forged"}, {"replace": "./DevInfo/Man", "data": HOSTILE},
                    {"add": PROFILE, "format": "node"},
                    {"add": PROFILE + "/Bearer", "format": "chr", "data": "GSM-GPRS"},
                    {"add": PROFILE + "/Addr", "format": "chr", "data": HOSTILE},
                    {"alert": 1100, "items": ["", HOSTILE]},
                    {"get": [PROFILE, PROFILE + "/Addr"]}]
        with DmServer(scenario("commands", packages=[{"commands": commands}])) as server:
            return self.run_session(server.url, *options)

    def test_addresses_and_values_of_commands(self):
        """The lines of a session, for people and for programs, show them escaped, one for each."""
        for option in ([], ["--json"]):
            output = self.play_commands(*option, "--encoding", "wbxml")
            self.assertNotIn(b"\nNote: forged", output)
            self.assertIn(b"31m", output)

    def test_a_trace_has_them_escaped(self):
        """The trace of the session has the texts, and nothing raw."""
        trace = os.path.join(self.handset.home, "trace")
        self.play_commands("--trace", trace)
        with open(trace, "rb") as file:
            content = file.read()
        self.assertIn(b"31m", content)
        self.assertEqual(harmful_in(content), [])
        self.assertNotIn(b"\nNote: forged", content)

    def test_what_was_stored_is_listed_escaped(self):
        """tree, napictl list and their JSON do not show raw what a server stored."""
        self.play_commands()
        for output in (self.handset.dmclient("tree").stdout,
                       self.handset.dmclient("tree", "--json").stdout,
                       self.handset.dmclient("get", CONN).stdout,
                       self.handset.napictl("list").encode(), self.handset.napictl("export").encode()):
            self.assertIn(b"31m", output)
            self.assertEqual(harmful_in(output), [])

    def test_the_log_of_the_plugin_on_standard_error(self):
        """Names in the plug-in's own messages come escaped."""
        self.play_commands()
        result = self.handset.dmclient("--verbose", "rename", PROFILE, "Office")
        self.assertEqual(harmful_in(result.stderr), [])
        result = self.handset.dmclient("--verbose", "replace", PROFILE + "/Bearer", HOSTILE)
        self.assertIn(b"(DM_Napi_", result.stderr)
        self.assertEqual(harmful_in(result.stderr), [])

    def test_questions_at_a_terminal(self):
        """Texts, choices and default answers of alerts come escaped, each line marked as the
        server's."""
        alerts = [{"alert": 1100, "items": ["", HOSTILE + "\nSession completed"]},
                  {"alert": 1103, "items": ["", HOSTILE, HOSTILE + "\nred", "blue"], "answer": ["1"]},
                  {"alert": 1102, "items": ["DR=" + HOSTILE, "Name?"], "answer": [HOSTILE]}]
        with DmServer(scenario("questions", packages=[{"commands": alerts}])) as server:
            terminal = terminal_test.Terminal(self, "session", server.url)
            shown = terminal.answer("number: ", "1\n") + terminal.answer("your answer", "\n")
            shown += terminal.end()[1]
        self.assertIn("[server] Session completed", shown)
        without_colours = shown.replace("\x1b[31m", "").replace("\x1b[2m", "").replace("\x1b[0m", "")
        self.assertEqual(harmful_in(without_colours.replace("\r\n", "\n").encode()), [])

    def test_http_status_and_headers(self):
        """The reason of an HTTP error, a media type and the place of a redirect come escaped."""
        raw = HOSTILE.encode() + b"\x1b[2J\xff"
        for answer in (b"HTTP/1.1 500 " + raw + b"\r\nContent-Length: 0\r\n\r\n",
                       b"HTTP/1.1 200 OK\r\nContent-Type: " + raw + b"\r\nContent-Length: 1\r\n\r\nx",
                       b"HTTP/1.1 307 x\r\nLocation: http://" + raw + b"/\r\nContent-Length: 0\r\n\r\n",
                       b"HTTP/1.1 307 x\r\nLocation: " + raw + b":x\r\nContent-Length: 0\r\n\r\n",
                       raw + b"\r\n\r\n"):
            server = RawServer(answer)
            self.addCleanup(server.close)
            with self.subTest(answer=answer):
                self.run_session(server.url)
                self.run_session(server.url, "--json")


if __name__ == "__main__":
    unittest.main()
