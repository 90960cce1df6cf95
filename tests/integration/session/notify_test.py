"""Sessions that a server asks for by a notification."""

import base64
import json
import os
import random
import unittest

import notifications
from notifications import INFORMATIVE, INTERACTIVE, ZERO_OCTETS, ZERO_TEXT
from sessions import (ENCODINGS, REFUSED, SECRETS, SESSION_FAILED, SUCCESS, UNUSABLE, USAGE,
                      DmServer, SessionTest, scenario)

SERVER = b"dm.example"
SECRET = SECRETS["server-secret"].encode()
NONCE = b"agreed"


class NotifyTest(SessionTest):
    def setUp(self):
        super().setUp()
        self.messages = 0

    def written(self, message):
        self.messages += 1
        name = os.path.join(self.handset.home, f"notification-{self.messages}")
        with open(name, "wb") as file:
            file.write(message)
        return name

    def package(self, session_id, nonce=NONCE, **fields):
        return notifications.package0(SERVER, SECRET, nonce, session_id, **fields)

    def account(self, url="http://127.0.0.1:9/", nonce=NONCE, kind="md5"):
        self.add_account(url, client_auth=kind, server_auth=kind,
                         **{"server-nonce": base64.b64encode(nonce).decode()} if nonce else {})

    def notify(self, message, *options, status=SUCCESS):
        """What it prints where it should."""
        result = self.handset.dmclient("notify", self.written(message), *options)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return (result.stdout if status == SUCCESS else result.stderr).decode()

    def have_session(self, message, *options, status=SUCCESS, nonce=NONCE, kind="md5", **played):
        """What the client printed, and the server's report."""
        played = {"client_auth": kind, "server_auth": kind, **played}
        with DmServer(scenario("several_messages", **played)) as server:
            self.handset.dmclient("account", "remove", "Test")
            self.account(server.url, nonce, kind)
            printed = self.notify(message, *options, status=status)
            report = server.session.report()
            self.session_id = server.session.session_id
        return printed, report


class MessageTest(NotifyTest):
    def test_a_notification_is_told(self):
        self.account()
        printed = self.notify(self.package(0x4D2, ui_mode=INFORMATIVE, body=b"\1\2"), "--check")
        self.assertEqual(printed, "session 4D2 of the server dm.example, ui-mode informative, begun by "
                                  "the server, 2 bytes of the vendor\n"
                                  "proved by the agreed nonce: the server of the account Test\n")
        [told] = json.loads("[%s]" % self.notify(notifications.push(self.package(0x4D2)), "--check",
                                                 "--json"))
        self.assertEqual(told, {"notification": {
            "account": "Test", "initiator": "server", "nonce": "the agreed nonce",
            "serverId": "dm.example", "sessionId": "4D2", "uiMode": "background",
            "vendorBody": ""}})

    def test_random_notifications_hold_and_no_other_digest_does(self):
        self.account()
        source = random.Random(14)
        for _ in range(12):
            nonce = source.choice((NONCE, ZERO_TEXT, ZERO_OCTETS))
            message = self.package(source.randrange(1, 0x10000), nonce,
                                   ui_mode=source.randrange(4), initiator=source.randrange(2),
                                   body=source.randbytes(source.randrange(40)))
            with self.subTest(message=message.hex(), nonce=nonce):
                self.assertIn("account Test", self.notify(message, "--check"))
                changed = bytearray(message)
                changed[source.randrange(16)] ^= 1 << source.randrange(8)
                self.assertIn("the digest is not that of the server dm.example",
                              self.notify(bytes(changed), "--check", status=REFUSED))

    def test_what_is_no_notification_is_named(self):
        for message, reason in ((b"", "byte 0 of the notification: "),
                                (b"<SyncML/>" * 9, "byte 24 of the notification: "),
                                (bytes.fromhex("010601b6") + b"x" * 50, "a push of the media type"),
                                (b"x" * 70000, "65536")):
            with self.subTest(reason=reason):
                self.assertIn(reason, self.notify(message, status=USAGE))

    def test_nothing_is_had_with_a_server_that_no_account_is_of(self):
        self.account()
        stranger = notifications.package0(b"other.example", SECRET, NONCE, 1)
        self.assertIn("no account is of the server other.example",
                      self.notify(stranger, status=REFUSED))

    def test_options_that_make_no_sense_are_wrong_usage(self):
        self.account()
        for options, reason in ((("--notified", "0"), "--notified wants"),
                                (("--notified", "04D2"), "--notified wants"),
                                (("--notified", "4d2"), "--notified wants"),
                                (("--notified", "10000"), "--notified wants"),
                                (("--notified", ""), "--notified wants"),
                                (("--zero-nonce", "text"), "--zero-nonce is for"),
                                (("--notified", "1", "--zero-nonce", "no"), "zero-nonce")):
            with self.subTest(options=options):
                result = self.handset.dmclient("session", "Test", *options)
                self.assertEqual(result.returncode, USAGE, result.stderr)
                self.assertIn(reason, result.stderr.decode())


class SessionOfANotificationTest(NotifyTest):
    def test_it_has_the_identifier_and_says_why_it_was_begun(self):
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                trace = os.path.join(self.handset.home, "trace-" + encoding)
                printed, report = self.have_session(
                    notifications.push(self.package(0x4D2 + len(encoding))), "--encoding", encoding,
                    "--trace", trace, server_nonce=NONCE.decode())
                self.assertEqual(report["faults"], [])
                self.assertTrue(report["server_accepted"] and report["client_accepted"])
                self.assertEqual(self.session_id, f"{0x4D2 + len(encoding):X}")
                self.assertIn("Session completed", printed)
                with open(trace, encoding="utf-8") as file:
                    text = file.read()
                self.assertIn("<Data>1200</Data>", text)
                self.assertNotIn("<Data>1201</Data>", text)

    def test_a_server_that_lost_its_nonce_is_met_with_the_one_of_zeros(self):
        for kind, nonce in (("md5", ZERO_TEXT), ("hmac", ZERO_TEXT)):
            with self.subTest(kind=kind):
                _, report = self.have_session(
                    self.package(7, nonce), kind=kind, nonce=b"another" + kind.encode(),
                    client_nonce=nonce.decode(), server_nonce=nonce.decode())
                self.assertEqual(report["faults"], [])
                self.assertTrue(report["server_accepted"] and report["client_accepted"])
                self.assertFalse([line for line in report["lines"] if "401" in line or "407" in line],
                                 report["lines"])
                os.remove(self.handset.client_file("notifications.json"))

    def test_a_repetition_leads_to_no_session(self):
        message = self.package(9, ZERO_TEXT)
        self.have_session(message, client_nonce=ZERO_TEXT.decode(), server_nonce=ZERO_TEXT.decode())
        refused, report = self.have_session(notifications.push(message), status=REFUSED)
        self.assertIn("the notification of session 9 of the account Test has come before", refused)
        self.assertEqual(report["requests"], 0)

    def test_a_failed_session_is_not_had_again_for_the_same_notification(self):
        self.account()
        self.notify(self.package(9), status=SESSION_FAILED)
        self.assertIn("has come before", self.notify(self.package(9), status=REFUSED))

    def test_without_anybody_to_ask_an_interactive_one_is_not_had_and_not_used_up(self):
        message = self.package(9, ui_mode=INTERACTIVE)
        refused, report = self.have_session(message, status=REFUSED)
        self.assertIn("nobody can be", refused)
        self.assertEqual(report["requests"], 0)
        printed, _ = self.have_session(message, "--yes", server_nonce=NONCE.decode())
        self.assertIn("Session completed", printed)

    def test_what_cannot_be_remembered_is_not_had(self):
        self.account()
        with open(self.handset.client_file("notifications.json"), "w", encoding="ascii") as file:
            file.write("{")
        os.chmod(self.handset.client_file("notifications.json"), 0o600)
        self.assertIn("notifications.json", self.notify(self.package(9), status=REFUSED))

    def test_a_damaged_file_of_accounts_keeps_servers_out(self):
        with open(self.handset.client_file("accounts.json"), "w", encoding="ascii") as file:
            file.write("{")
        os.chmod(self.handset.client_file("accounts.json"), 0o600)
        self.assertIn("no server may do anything", self.notify(self.package(9), status=UNUSABLE))


if __name__ == "__main__":
    unittest.main()
