"""What a DM server with an account may try, and what must hold."""

import base64
import os
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import unittest.mock

import hostile_server as hostile
import sessions
from commands import (add, copy, delete, execute, get, package_of, rename, replace, run,
                      run_package, set_acl)
from handset import CONN, PROXY, SANITIZED, SECRET, HandsetTest
from hostile_text import HOSTILE, harmful_in
from instructions import CALLGRIND, times_as_many
from hostile_server import HostileServer
from sessions import (CERTIFICATE, KEY, REFUSED, SESSION_FAILED, SUCCESS, USAGE, DmServer,
                      SessionTest, scenario)
from terminal import Terminal

AN_HOUR = "3600"
GUARD = 60  # seconds; only against a test that hangs
OFFICE = CONN + "/Office"
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
        self.handset.rename_stored("Home", "House")
        self.refused(set_acl(CONN + "/House", "Replace=*"), replace(CONN + "/House/Addr", "evil"),
                     delete(PROXY + "/House"))
        self.handset.rename_stored("House", "Home")

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


class FloodOfAnswersTest(HandsetTest):
    """A server asks for more than the device can hold."""

    MOST = 4 * 1024 * 1024
    LISTINGS = 20000

    def flood(self, listing):
        """Asks for a whole root again and again, in one package of the largest size that is read."""
        with_limited_memory = ["prlimit", "--as=%d" % (1024 * 1024 * 1024)]
        package = package_of(*[get(CONN + listing)] * self.LISTINGS)
        self.assertLess(len(package), self.MOST)
        return run_package(self.handset, package, prefix=[] if SANITIZED else with_limited_memory)

    def test_listings_end_with_413_and_not_with_the_memory(self):
        """It asks 20,000 times for all values; what goes beyond the limit is refused one by one."""
        for listing in ("?list=StructData", "?list=TNDS"):
            answers = self.flood(listing)
            self.assertEqual(len(answers.statuses), self.LISTINGS)
            self.assertEqual((answers.statuses[0], answers.statuses[-1]), (200, 413))
            self.assertLess(len(answers.text), 8 * self.MOST)


class SlashInANameTest(HandsetTest):
    """A profile Office/Evil is there, which the plug-in takes for Office beneath its node."""

    EVIL = CONN + "/Office%2FEvil"
    SECRET = "/Auth/PAP/AuthPw"

    def setUp(self):
        super().setUp()
        self.handset.rename_stored("Home", "Office/Evil")
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
            terminal = Terminal(self, "session", server.url)
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


class OwnAccountTest(SessionTest):
    """The server makes its own account one that the device cannot use any more."""

    def test_by_asking_for_proofs_that_the_account_has_nothing_for(self):
        """It asks a client without name and secret for each kind of proof; the account stays, and
        sessions with it begin."""
        result = self.handset.dmclient("account", "add", "Mine", "address=http://127.0.0.1:1/",
                                       "server-id=a.example")
        self.assertEqual(result.returncode, SUCCESS, result.stderr.decode())
        answers = run(self.handset, *(replace("./DMAcc/Mine/AAuthPref", kind)
                                      for kind in ("BASIC", "DIGEST", "HMAC")), server="a.example")
        self.assertEqual(answers.statuses, [405] * 3, answers.text)
        with HostileServer(b"") as server:
            self.handset.dmclient("account", "set", "Mine", "address=" + server.url)
            result = self.handset.dmclient("session", "Mine")
        self.assertEqual(result.returncode, SUCCESS, result.stderr.decode())


class WeakenedAccount(SessionTest):
    """The server changes its own account beneath ./DMAcc for whoever comes after it."""

    def account(self):
        return self.handset.dmclient("account", "show", "Test", "--show-secrets").stdout.decode()

    def test_the_account_does_not_leave_https(self):
        with tempfile.TemporaryDirectory() as folder:
            both = os.path.join(folder, "both.pem")
            with open(both, "w", encoding="ascii") as file:
                for part in (CERTIFICATE, KEY):
                    with open(part, encoding="ascii") as source:
                        file.write(source.read())
            played = scenario("accounts", packages=[{"commands": [
                {"replace": "./DMAcc/Test/AppAddr/1/Addr", "data": "http://127.0.0.1/",
                 "expect": 405}]}])
            status, _, report = self.play(played, "--ca", CERTIFICATE, certificate=both)
        self.assertEqual((status, report["faults"]), (REFUSED, []))
        self.assertIn("address=https://127.0.0.1", self.account())

    def test_no_proof_becomes_weaker(self):
        weaker = {"hmac": ("DIGEST", "BASIC"), "md5": ("BASIC",)}
        for kind, names in weaker.items():
            for leaf in ("AppAuth/1/AAuthType", "AAuthPref", "AppAuth/2/AAuthType"):
                with self.subTest(kind=kind, leaf=leaf):
                    commands = [{"replace": f"./DMAcc/Test/{leaf}", "data": name, "expect": 405}
                                for name in names]
                    played = scenario("accounts", client_auth=kind, server_auth=kind,
                                      packages=[{"commands": commands}])
                    status, _, report = self.play(played, client_auth=kind, server_auth=kind)
                    self.assertEqual((status, report["faults"]), (REFUSED, []))
                    self.assertIn(f"client-auth={kind}\n", self.account())
                    self.assertIn(f"server-auth={kind}\n", self.account())

    def test_the_owner_may_do_it(self):
        self.add_account("https://dm.example/", "hmac")
        for words in (("replace", "./DMAcc/Test/AAuthPref", "DIGEST"),
                      ("replace", "./DMAcc/Test/AppAddr/1/Addr", "http://dm.example/"),
                      ("account", "set", "Test", "client-auth=basic")):
            result = self.handset.dmclient(*words)
            self.assertEqual(result.returncode, SUCCESS, result.stderr.decode())

    def test_a_password_in_clear_is_warned_of(self):
        warning = ("dmclient: account: warning: with http and basic the password goes over the "
                   "network as it is\n")
        added = self.handset.dmclient("account", "add", "Clear", "address=http://clear.example/",
                                      "server-id=c", "client-auth=basic", "client-name=n",
                                      "client-secret=s")
        self.assertEqual((added.returncode, added.stderr.decode()), (SUCCESS, warning))
        self.add_account("https://dm.example/", "basic")
        for words, warns in ((("address=http://dm.example/",), True), (("client-auth=md5",), False),
                             (("client-auth=basic",), True),
                             (("address=https://dm.example/",), False)):
            result = self.handset.dmclient("account", "set", "Test", *words)
            self.assertEqual(result.returncode, SUCCESS)
            self.assertEqual(result.stderr.decode(),
                             warning if warns else "")


class ForeignIdentifier(SessionTest):
    """A server without an account would like to have the rights of one with an account."""

    def session(self, url, *commands):
        says = hostile.says("1", hostile.header_status(200), *commands)
        with HostileServer(says, b"") as server:
            result = self.handset.dmclient("session", url or server.url)
        return result, server

    def own(self, server_id):
        """Gives a profile to that server."""
        result = self.handset.dmclient("replace", f"{OFFICE}?prop=ACL",
                                       f"Get={server_id}&Replace={server_id}")
        self.assertEqual(result.returncode, SUCCESS)

    def test_the_name_of_a_host_is_not_the_identifier_of_a_server(self):
        self.own("127.0.0.1")
        result, _ = self.session(None, hostile.replace(f"{OFFICE}/Addr", "evil.example"))
        self.assertEqual(result.returncode, REFUSED)
        self.assertIn("425 Permission Denied: a server without an account needs Replace",
                      result.stdout.decode())
        self.assertEqual(self.handset.profile("Office")["gprs"]["address"], "internet")

    def test_another_port_on_the_host_of_an_account_is_not_its_server(self):
        """Whoever listens there would be spared the proof."""
        self.add_account("http://LOCALHOST:1/dm", "hmac", "hmac")
        for url in ("http://localhost:2/dm", "http://localhost/other", "https://LocalHost./dm"):
            with self.subTest(url=url):
                result, _ = self.session(url)
                self.assertEqual(result.returncode, USAGE, result.stdout.decode())
                self.assertIn(f"{url} is on the host of the account Test (http://localhost:1/dm); "
                              "name the account", result.stderr.decode())

    def test_another_form_of_the_address_of_an_account_is_not_its_server(self):
        """An IPv4 address inside an IPv6 one leads to the same machine."""
        self.add_account("http://127.0.0.1:1/dm", "hmac", "hmac")
        with HostileServer(b"") as server:
            port = server.url.rstrip("/").rpartition(":")[2]
            for host in ("[::ffff:127.0.0.1]", "[0:0:0:0:0:FFFF:7f00:1]"):
                with self.subTest(host=host):
                    result = self.handset.dmclient("session", f"http://{host}:{port}/dm")
                    self.assertEqual(result.returncode, USAGE, result.stdout.decode())
                    self.assertIn("is on the host of the account Test", result.stderr.decode())
            self.assertEqual(server.requests, [])
        result = self.handset.dmclient("session", "http://[::1]:1/dm")
        self.assertEqual(result.returncode, SESSION_FAILED)

    def test_the_accounts_own_address_is_used_with_its_proofs(self):
        change = hostile.replace(f"{OFFICE}/Addr", "evil.example")
        with HostileServer(hostile.says("1", hostile.header_status(200), change)) as server:
            self.add_account(server.url, "none", "md5")
            result = self.handset.dmclient("session", server.url)
        self.assertEqual(result.returncode, SESSION_FAILED)
        self.assertEqual(server.requests[1].statuses(), [407, 407])


class EndlessSession(SessionTest):
    """The server never comes to an end."""

    def run_until_the_end(self, server, *options):
        result = self.handset.dmclient("session", server.url, *options)
        self.assertEqual(result.returncode, SESSION_FAILED)
        return result.stdout.decode().splitlines()

    def test_a_session_has_a_total_time(self):
        """One question after another, each of them in good time."""
        numbers = iter(range(1, 10 ** 9))

        def question(request):
            time.sleep(0.01)  # so that the most messages of a session take far longer
            return hostile.message(request.session_id, next(numbers), hostile.header_status(200),
                                   hostile.get("./DevInfo/Man"))

        with HostileServer(question) as server:
            lines = self.run_until_the_end(server, "--session-timeout", "1")
        self.assertRegex(lines[-1], "^Session failed: no end after 1 s")
        self.assertEqual(server.requests[-1].alerts(), ["1223"])

    def test_silence_ends_with_the_session(self):
        """The time for one answer and its repetitions does not count when the session has less."""
        with HostileServer(None) as server:
            lines = self.run_until_the_end(server, "--timeout", AN_HOUR, "--session-timeout", "1")
        self.assertRegex(lines[-1], "^Session failed: no end after 1 s")

    def test_a_question_that_nobody_answers_ends_with_the_session(self):
        """It asks the user, and sets no time for it or far too much."""
        for options in ("", "MAXDT=86400"):
            with self.subTest(options=options):
                alerts = [{"alert": 1101, "items": [options, "Update?"]}]
                with DmServer(scenario("questions", packages=[{"commands": alerts}])) as server:
                    terminal = Terminal(self, "session", server.url,
                                                      "--session-timeout", "1")
                    terminal.wait_for("yes or no: ")
                    status, screen = terminal.end()
                self.assertIn("Session failed: no end after 1 s", screen)
                self.assertEqual(status, SESSION_FAILED)

    def test_another_version_is_given_up_after_three_messages(self):
        numbers = iter(range(1, 10 ** 9))

        def other_version(request):
            return hostile.message(request.session_id, next(numbers), hostile.get("./DevInfo/Man"),
                                   version="DM/9.9")

        with HostileServer(other_version) as server:
            lines = self.run_until_the_end(server)
        self.assertRegex(lines[-1], "^Session failed: the server does not speak DM/1.2 ")
        self.assertEqual(len(server.requests), 3)

    def test_a_signal_ends_a_session_that_waits_for_an_answer(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                with HostileServer(None, b"") as server:
                    process = self.start("session", server.url, "--timeout", AN_HOUR,
                                         stdout=subprocess.PIPE)
                    self.assertTrue(server.has_request.wait(GUARD))
                    process.send_signal(number)
                    output, _ = process.communicate(timeout=GUARD)
                self.assertEqual(process.returncode, SESSION_FAILED)
                self.assertIn("Session aborted: aborted by the user", output.decode())
                self.assertEqual(server.requests[-1].alerts(), ["1223"])

    def signal_in_a_session_of_a_shell(self, number, process, send, finish):
        """The server is silent; meanwhile the next line, a change, and the signal come."""
        with HostileServer(None, b"") as server:
            send(f"session {server.url} --timeout {AN_HOUR}\n".encode())
            self.assertTrue(server.has_request.wait(GUARD))
            send(f"replace {OFFICE}/Addr changed\n".encode())
            process.send_signal(number)
            finished = finish()
        self.assertEqual(server.requests[-1].alerts(), ["1223"])
        self.assertEqual(process.returncode, SESSION_FAILED)
        address = self.handset.dmclient("get", OFFICE + "/Addr").stdout
        self.assertEqual(address, b"internet\n")
        return finished

    def test_a_signal_keeps_a_shell_on_a_pipe_from_running_the_next_line(self):
        """The server keeps the session waiting; whoever ends it ends the whole script."""
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                process = self.start("shell", bufsize=0, stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
                output, _ = self.signal_in_a_session_of_a_shell(
                    number, process, process.stdin.write,
                    lambda: process.communicate(timeout=GUARD))
                self.assertRegex(output.decode(), "^Session aborted: aborted by the user .*\n"
                                                  f"session: {number.name} ends the shell\n$")

    def test_sigterm_and_sighup_keep_a_shell_on_a_terminal_from_running_the_next_line(self):
        """The server keeps the session waiting; what is typed meanwhile is not run."""
        for number in (signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                terminal = Terminal(self, "shell")
                terminal.wait_for("dm> ")
                _, screen = self.signal_in_a_session_of_a_shell(number, terminal.process,
                                                                terminal.type, terminal.end)
                self.assertIn("Session aborted: aborted by the user", screen)
                self.assertIn(f"session: {number.name} ends the shell", screen)
                self.assertNotIn("dm> ", screen)

    def test_time_outs_that_cannot_be_kept_are_refused(self):
        for option in ("--timeout", "--session-timeout"):
            for value in ("0", "-1", "86401", "2147484", "9999999999", "1.5", "x"):
                with self.subTest(option=option, value=value):
                    result = self.handset.dmclient("session", "http://127.0.0.1:1/",
                                                   f"{option}={value}")
                    self.assertEqual(result.returncode, USAGE)
                    self.assertEqual(result.stderr.decode(),
                                     f"dmclient: session: {option} wants a number from 1 to 86400 "
                                     f'instead of "{value}"\n')


@unittest.skipUnless(CALLGRIND, "needs valgrind, and programs without sanitizers")
class ValueThatCostsMoreThanItsLengthTest(HandsetTest):
    """Sends a value that is slow to take out of all proportion to its length."""

    SHORT, LONG, MOST = 16_000, 64_000, 5

    def setUp(self):
        super().setUp()
        self.handset.dmclient("account", "add", "Test", "address=https://dm.example/",
                              "server-id=dm.example", "server-auth=md5", "server-name=s",
                              "server-secret=s")

    def check(self, uri, form, data_of_size):
        def command(size):
            path = os.path.join(self.handset.home, f"{size}.xml")
            with open(path, "w", encoding="ascii") as file:
                file.write(
                    "<SyncML><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
                    "<SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>d</LocURI></Target>"
                    "<Source><LocURI>s</LocURI></Source></SyncHdr><SyncBody><Replace>"
                    f"<CmdID>1</CmdID><Item><Target><LocURI>{uri}</LocURI></Target><Meta>"
                    f"<Format xmlns='syncml:metinf'>{form}</Format></Meta><Data>"
                    f"{data_of_size(size)}</Data></Item></Replace></SyncBody></SyncML>")
            return ("dmclient", "process", path)
        self.assertLess(times_as_many(self.handset, *map(command, (4, self.SHORT, self.LONG))),
                        self.MOST)

    def test_binary_value(self):
        """A value in base64."""
        self.check("./DMAcc/Test/AppAuth/2/AAuthData", "b64", lambda size: "QUJD" * (size // 4))

    def test_access_control_list(self):
        """A list of thousands of servers."""
        self.check("./DevInfo?prop=ACL", "chr",
                   lambda size: "Get=x" + "".join(f"+s{i:06}" for i in range(size // 8)))


class StateThatCannotBeLoadedTest(HandsetTest):
    """A server writes what the client keeps but would not read again, so that no later command runs."""

    AUTH = "./DMAcc/Mine/AppAuth/1"

    def setUp(self):
        super().setUp()
        self.handset.dmclient("account", "add", "Mine", "address=https://dm.example/",
                              "server-id=a.example", "client-auth=md5", "client-name=me",
                              "client-secret=secret")

    def tearDown(self):
        self.assertEqual(run(self.handset, get("./DevInfo/DevId")).statuses, [200])
        self.assertEqual(self.handset.dmclient("account", "list").returncode, 0)

    def test_in_its_own_account(self):
        """A nonce, an address, a name and a secret beyond what an account holds: 413 each."""
        nonce = base64.b64encode(bytes(257)).decode()
        answers = run(self.handset, replace(self.AUTH + "/AAuthData", nonce),
                      replace("./DMAcc/Mine/AppAddr/1/Addr", "https://x/" + 2048 * "x"),
                      replace("./DMAcc/Mine/Name", 1025 * "x"),
                      replace(self.AUTH + "/AAuthName", 1025 * "x"),
                      replace(self.AUTH + "/AAuthSecret", 1025 * "x"), server="a.example")
        self.assertEqual(answers.statuses, [413] * 5)

    def test_in_the_properties_of_a_node(self):
        """A list and a Title beyond what is kept, and a list with a hundred thousand servers: 413 each."""
        many = "Get=" + "+".join(str(number) for number in range(100000))
        answers = run(self.handset, set_acl(CONN + "/Office", "Get=" + 16381 * "x"),
                      set_acl(CONN + "/Office", many),
                      replace(CONN + "/Office?prop=Title", 256 * "x"), server="a.example")
        self.assertEqual(answers.statuses, [413] * 3)

    def test_by_a_challenge(self):
        """The nonce for the next session is longer than what is kept: the session fails and says so."""
        long_nonce = lambda number: bytes(300)
        played = sessions.scenario("profiles", client_auth="md5", client_secret="secret",
                                   client_name="me")
        with unittest.mock.patch("session.os.urandom", long_nonce), \
                sessions.DmServer(played) as server:
            self.handset.dmclient("account", "set", "Mine", "address=" + server.url)
            result = self.handset.dmclient("session", "Mine")
        self.assertEqual(result.returncode, sessions.SESSION_FAILED)
        self.assertIn(b"the server's nonce has 300 bytes, which is more than 256", result.stdout)


if __name__ == "__main__":
    unittest.main()
