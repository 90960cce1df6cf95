"""What another page, another user of the machine and another machine may try on the page of dmclient
explore, and what must hold."""

import os
import secrets
import signal
import socket
import stat
import unittest

from explorer import Explorer
from handset import CONN, SECRET, HandsetTest

PACKAGE = ("<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
           "<SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>urn:handset</LocURI></Target>"
           "<Source><LocURI>urn:page</LocURI></Source></SyncHdr><SyncBody>{}<Final/></SyncBody></SyncML>")


def replace(uri, value):
    return PACKAGE.format(f"<Replace><CmdID>1</CmdID><Item><Target><LocURI>{uri}</LocURI></Target>"
                          f"<Data>{value}</Data></Item></Replace>")


def get(uri):
    return PACKAGE.format(f"<Get><CmdID>1</CmdID><Item><Target><LocURI>{uri}</LocURI></Target></Item></Get>")


class ExploreTest(HandsetTest):
    PLANTS_FILES = True

    def explore(self, *options, **environment):
        explorer = Explorer(self.handset, *options, **environment)
        self.addCleanup(explorer.end)
        return explorer


class StrangerTest(ExploreTest):
    """Knows the port, and nothing else."""

    def setUp(self):
        super().setUp()
        self.explorer = self.explore()

    def assert_untouched(self):
        self.assertEqual(self.handset.profile("Office")["gprs"]["address"], "internet")

    def change(self, **headers):
        """Tries to change a profile; the status."""
        body = '{"xml": "%s"}' % replace(CONN + "/Office/Addr", "taken.over")
        fields = {"Content_Type": "application/json", **headers}
        return self.explorer.ask("POST", "package", body, **fields)[0]

    def test_guessed_token_opens_nothing(self):
        """Tries tokens of the right length, none, and the beginning of the right one."""
        token = self.explorer.url.path
        for guess in ("/", "//", token[:-3] + "/", token[:-1], token.upper(), "/" + secrets.token_hex(16) + "/",
                      "/" + "0" * 32 + "/", token.replace("/", "%2f"), "/.." + token, "/x/.." + token):
            if guess == token:
                continue
            for method, path in (("GET", ""), ("GET", "events"), ("POST", "mount")):
                with self.subTest(guess=guess, path=path):
                    status, _, body = self.explorer.ask(method, path, "{}" if method == "POST" else None,
                                                        token=guess, Content_Type="application/json")
                    self.assertEqual(status, 404)
                    self.assertNotIn(token.strip("/").encode(), body)

    def test_each_token_has_128_random_bits_and_is_not_used_again(self):
        other = self.explore("--state", self.handset.path("other"))
        tokens = {self.explorer.url.path.strip("/"), other.url.path.strip("/")}
        self.assertEqual(len(tokens), 2)
        for token in tokens:
            self.assertRegex(token, r"\A[0-9a-f]{32}\Z")

    def test_name_that_was_rebound_to_loopback_is_not_served(self):
        """A page of the attacker's, whose name leads to this machine now, knows even the token."""
        for host in ("rebound.example", f"rebound.example:{self.explorer.url.port}", "localhost",
                     f"localhost:{self.explorer.url.port}", "127.0.0.1"):
            with self.subTest(host=host):
                self.assertEqual(self.explorer.ask("GET", "", Host=host)[0], 403)
                self.assertEqual(self.change(Host=host), 403)
        self.assert_untouched()

    def test_page_of_another_origin_changes_and_reads_nothing(self):
        for headers in ({"Origin": "https://evil.example"}, {"Origin": "null"}, {"Sec_Fetch_Site": "cross-site"},
                        {"Origin": f"http://127.0.0.1:{self.explorer.url.port + 1}"},
                        {"Sec_Fetch_Site": "same-site"}):
            with self.subTest(**headers):
                self.assertEqual(self.change(**headers), 403)
                self.assertEqual(self.explorer.ask("GET", "events", **headers)[0], 403)
        self.assert_untouched()

    def test_form_of_another_page_needs_no_permission_and_is_not_taken(self):
        """What a browser sends for a page without asking the server before."""
        for kind in ("text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x", ""):
            with self.subTest(kind=kind):
                self.assertEqual(self.change(Content_Type=kind), 415)
        self.assert_untouched()

    def test_permission_for_another_page_is_never_given(self):
        status, headers, _ = self.explorer.ask("OPTIONS", "package", Origin="https://evil.example",
                                               Access_Control_Request_Method="POST")
        self.assertGreaterEqual(status, 400)
        self.assertNotIn("Access-Control-Allow-Origin", headers)

    def test_page_may_not_be_framed_kept_or_told_on(self):
        _, headers, _ = self.explorer.ask("GET", "")
        self.assertEqual(headers["X-Frame-Options"], "DENY")
        self.assertEqual(headers["Cache-Control"], "no-store")
        self.assertEqual(headers["Referrer-Policy"], "no-referrer")
        self.assertEqual(headers["X-Content-Type-Options"], "nosniff")

    def test_other_addresses_of_this_machine_are_not_listened_on(self):
        """127.0.0.2 is this machine as well; a server on every address would answer there."""
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.2", self.explorer.url.port), timeout=10)

    def test_connections_that_say_nothing_do_not_keep_the_person_out(self):
        """Opens more connections than there is room for, and lets go of one."""
        silent = [socket.create_connection(("127.0.0.1", self.explorer.url.port), timeout=30) for _ in range(40)]
        for connection in silent:
            connection.close()
        for _ in range(100):
            try:
                if self.explorer.ask("GET", "")[0] == 200:
                    return
            except OSError:
                pass
        self.fail("nobody is answered any more")

    def test_broken_requests_are_refused_and_nothing_else(self):
        for request in (b"\r\n\r\n", b"\x16\x03\x01\x00\x00\r\n\r\n", b"GET\r\n\r\n", b"A" * 20000,
                        b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * 5000, b"GET / HTTP/1.1\nHost: x\n\n" + b"x" * 17000):
            with self.subTest(request=request[:20]):
                with socket.create_connection(("127.0.0.1", self.explorer.url.port), timeout=30) as connection:
                    connection.sendall(request)
                    answer = b""
                    try:
                        while part := connection.recv(4096):
                            answer += part
                    except ConnectionResetError:
                        pass
                    self.assertRegex(answer.decode("latin-1") or "HTTP/1.1 4", r"\AHTTP/1\.1 4\d\d")
        self.assertEqual(self.explorer.ask("GET", "")[0], 200)


class PageTest(ExploreTest):
    """Has the token: what the page itself can ask for is bounded all the same."""

    def setUp(self):
        super().setUp()
        self.explorer = self.explore()
        self.events = self.explorer.events()

    def test_session_cannot_be_given_options_or_a_second_line(self):
        """A server's name that would be an option writing to a file, or another command."""
        file = os.path.join(self.handset.home, "trace")
        for server in (f"--trace={file}", "-h", f"x\nsession --trace {file} http://127.0.0.1:1/", "",
                       "x\x00y"):
            with self.subTest(server=server):
                self.assertEqual(self.explorer.post("session", server=server)[0], 400)
        self.assertFalse(os.path.exists(file))

    def test_quotes_do_not_lead_out_of_the_word_that_a_server_is(self):
        file = os.path.join(self.handset.home, "trace")
        for server in (f"x' --trace '{file}", f"x\\' --trace {file} '", f"x\" --trace {file} \""):
            with self.subTest(server=server):
                self.assertEqual(self.explorer.post("session", server=server)[0], 200)
                self.events.printed(server.split(" ")[0])
        self.assertFalse(os.path.exists(file))

    def test_body_that_is_not_an_object_is_refused(self):
        for body in ("", "[]", "3", "{", "null", '{"a":1} x'):
            with self.subTest(body=body):
                status, _, _ = self.explorer.ask("POST", "mount", body, Content_Type="application/json")
                self.assertEqual(status, 400)

    def test_snapshot_that_there_is_not_is_refused(self):
        for snapshot in (-1, 1, 1e9, "0/../..", None):
            with self.subTest(snapshot=snapshot):
                self.assertEqual(self.explorer.post("undo", snapshot=snapshot)[0], 400)
        self.assertEqual(self.handset.profile("Office")["gprs"]["address"], "internet")

    def test_secrets_are_masked_until_asked_for(self):
        self.explorer.post("package", xml=get(CONN + "/Office?list=StructData"))
        seen = self.events.wait_for(lambda event: event.get("recorded", {}).get("direction") == "sent")
        self.assertIn("********", str(seen))
        self.assertNotIn(SECRET, str(seen))
        self.explorer.post("mount", showSecrets=True)
        self.explorer.post("package", xml=get(CONN + "/Office?list=StructData"))
        seen = self.events.wait_for(lambda event: event.get("recorded", {}).get("direction") == "sent")
        self.assertIn(SECRET, str(seen))

    def test_nobody_else_can_read_what_it_keeps(self):
        """Snapshots and records lie in a folder of this user's, and go with the program."""
        scratch = os.path.join(self.handset.home, "scratch")
        os.mkdir(scratch)
        explorer = self.explore("--state", self.handset.path("other"), TMPDIR=scratch)
        self.assertEqual(explorer.post("snapshot")[0], 200)
        folder, = os.listdir(scratch)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.join(scratch, folder)).st_mode), 0o700)


class EndTest(ExploreTest):
    def test_ctrl_c_ends_it_and_its_handset_and_leaves_nothing_behind(self):
        scratch = os.path.join(self.handset.home, "scratch")
        os.mkdir(scratch, 0o700)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number=number):
                explorer = self.explore(TMPDIR=scratch)
                explorer.events().wait_for(lambda event: "mounted" in event)
                self.assertNotEqual(os.listdir(scratch), [])
                self.assertEqual(explorer.end(number), (0, ""))
                self.assertEqual(os.listdir(scratch), [])
                # The handset's process is gone as well, since it held the lock.
                self.assertEqual(self.handset.dmclient("get", CONN).returncode, 0)

    def test_handset_that_is_in_use_is_left_alone(self):
        """A snapshot of what somebody else is writing would be none to go back to."""
        first = self.explore()
        first.events().recorded("run")
        second = Explorer(self.handset)
        status, errors = second.end()
        self.assertEqual(status, 3)
        self.assertIn("another DM client is using the state directory", errors)
        self.assertEqual(first.post("mount")[0], 200)


if __name__ == "__main__":
    unittest.main()
