"""What somebody between the device and its server may try, and what must hold."""

import base64
import unittest

from hostile_server import (HostileServer, alert, basic_cred, chal, get, header_status, message,
                            replace, says)
from sessions import SECRETS, SESSION_FAILED, SUCCESS, SessionTest
import proofs
from elements import Element as E

ADDRESS = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr"
CHANGE = replace(ADDRESS, "evil.example")


NONCE = base64.b64encode(b"nonce").decode()


def proved_by_hmac(body, nonce=b"nonce"):
    return body, {"x-syncml-hmac": proofs.hmac_header("dm.example", "ServerSecret", nonce, body)}


class Attack(SessionTest):
    def attack(self, *replies, client="none", server="none", **fields):
        """One session of account Test with somebody who gives these answers."""
        self.handset.dmclient("account", "remove", "Test")
        self.add_account("http://127.0.0.1:1/", client, server, **fields)
        return self.attack_again(*replies)

    def attack_again(self, *replies):
        """The next session of the same account, with the nonces that the last one has left."""
        with HostileServer(*replies) as middle:
            self.handset.dmclient("account", "set", "Test", "address=" + middle.url)
            result = self.handset.dmclient("session", "Test")
        self.requests = middle.requests
        self.lines = result.stdout.decode().splitlines()
        return result.returncode

    def assert_failed(self, status, reason):
        self.assertEqual(status, SESSION_FAILED, "\n".join(self.lines))
        self.assertRegex(self.lines[-1], reason)

    def assert_unchanged(self):
        value = self.handset.dmclient("get", ADDRESS).stdout.decode()
        self.assertEqual(value, "internet\n", "\n".join(self.lines))

    def assert_tells_no_secret(self):
        for request in self.requests:
            self.assertNotIn(proofs.basic("Bruce2", SECRETS["client-secret"]), request.body)


class RepeatedMessages(Attack):
    """Recorded messages of the server are sent again."""

    def test_a_message_of_an_earlier_session_ends_the_session(self):
        """The server proves itself once and is believed then; a recorded command of another session
        does not run."""
        first = says("1", header_status(200), get("./DevInfo/Man"), header=[basic_cred()])
        recorded = message("recorded", "2", header_status(200), CHANGE)
        status = self.attack(first, recorded, server="basic")
        self.assert_failed(status, 'the server answers for session "recorded" instead of')
        self.assert_unchanged()
        self.assertEqual(self.requests[-1].alerts(), ["1223"])

    def test_a_message_of_this_session_runs_once(self):
        """A message that was answered already comes again."""
        first = says("1", header_status(200), get("./DevInfo/Man"), header=[basic_cred()])
        change = says("2", header_status(200), replace(ADDRESS, "first.example"))
        status = self.attack(first, change, change, server="basic")
        self.assert_failed(status, 'the server uses the MsgID "2" again')
        self.assertEqual(sum(line.startswith("Replace ") for line in self.lines), 1)

    def test_a_proved_message_is_not_proved_in_the_next_session(self):
        """A message with its HMAC is recorded and sent in the next session."""
        recorded = []

        def proved(request):
            recorded.append(proved_by_hmac(message(request.session_id, "1", header_status(200),
                                                   get("./DevInfo/Man"))))
            return recorded[0]

        self.attack(proved, b"", server="hmac", **{"server-nonce": NONCE})
        self.assertEqual(self.requests[1].statuses(), [200, 200])
        status = self.attack(lambda _: recorded[0], server="hmac")
        self.assert_failed(status, "the server answers for session")

    def test_the_proved_end_of_a_session_does_not_end_the_next_one(self):
        """By HMAC an empty answer ends a session; it is recorded and is the only answer of the next
        ones."""
        recorded = []

        def first(request):
            return proved_by_hmac(message(request.session_id, "1", header_status(200),
                                          get("./DevInfo/Man")))

        def last(request):
            recorded.append(proved_by_hmac(b"", base64.b64decode(request.nonce())))
            return recorded[0]

        status = self.attack(first, last, server="hmac", **{"server-nonce": NONCE})
        self.assertEqual(status, SUCCESS, "\n".join(self.lines))
        for _ in range(2):
            self.assert_failed(self.attack_again(recorded[0]), "the server did not prove who it is")

    def test_an_empty_answer_proved_with_the_nonce_of_the_account_is_not_a_session(self):
        """The proof says of no session that it belongs to it."""
        status = self.attack(proved_by_hmac(b""), server="hmac", **{"server-nonce": NONCE})
        self.assert_failed(status, "the server did not prove who it is")


class RepeatedCredentials(Attack):
    """The server's MD5 credentials are recorded, and sent in the next session with commands of the
    attacker's: they cover a nonce, and not the message."""

    CRED = E("Cred", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES["md5"])),
             E("Data", proofs.md5("dm.example", "ServerSecret", b"nonce")))

    def check(self, *last, ends_with=SUCCESS):
        """A session in which the server says no more than that, and then the attacker."""
        status = self.attack(says("1", *last, header=[self.CRED]), server="md5",
                             **{"server-nonce": NONCE})
        self.assertEqual(status, ends_with, "\n".join(self.lines))
        status = self.attack_again(says("1", header_status(200), CHANGE, header=[self.CRED]), b"")
        self.assertEqual(self.requests[1].statuses(), [401, 401])
        self.assert_failed(status, "the server did not prove who it is")
        self.assert_unchanged()

    def test_after_a_session_in_which_there_was_nothing_to_do(self):
        self.check(header_status(200))

    def test_after_a_session_that_the_server_aborted(self):
        self.check(header_status(200), alert("1223"), ends_with=SESSION_FAILED)

    def test_after_a_session_that_the_server_refused(self):
        self.check(header_status(500), ends_with=SESSION_FAILED)

    def test_after_a_session_in_which_the_server_proved_itself_once_too_often(self):
        """The credentials that are recorded are those of a message after 212, which needed none."""
        recorded = []

        def proves_itself_again(request):
            nonce = base64.b64decode(request.nonce())
            recorded.append(E("Cred", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES["md5"])),
                              E("Data", proofs.md5("dm.example", "ServerSecret", nonce))))
            return says("2", header_status(200), header=recorded)(request)

        first = says("1", header_status(200), get("./DevInfo/Man"), header=[self.CRED])
        status = self.attack(first, proves_itself_again, server="md5", **{"server-nonce": NONCE})
        self.assertEqual(status, SUCCESS, "\n".join(self.lines))
        self.attack_again(says("1", header_status(200), CHANGE, header=recorded), b"")
        self.assertEqual(self.requests[1].statuses(), [401, 401])
        self.assert_unchanged()


class Downgrade(Attack):
    """The client is asked for a weaker proof than its account has."""

    def test_no_account_tells_its_password_to_who_asks_for_it(self):
        for kind in ("md5", "hmac"):
            with self.subTest(account=kind):
                status = self.attack(says("1", header_status(407, chal("basic", None))),
                                     client=kind)
                self.assert_failed(status, "the server asks for the password itself")
                self.assert_tells_no_secret()

    def test_an_hmac_account_makes_no_digest_with_a_chosen_nonce(self):
        """An MD5 proof could be used for any message, an HMAC only for its own."""
        status = self.attack(says("1", header_status(407, chal("md5"))), client="hmac")
        self.assert_failed(status, "the server asks for a weaker proof")
        self.assertEqual(len(self.requests), 1)

    def test_hmac_that_was_asked_for_once_stays(self):
        status = self.attack(says("1", header_status(407, chal("hmac"))),
                             says("2", header_status(401, chal("md5"))), client="md5")
        self.assert_failed(status, "the server asks for a weaker proof")
        self.assertIsNotNone(self.requests[1].hmac)
        self.assertEqual(len(self.requests), 2)


class StrippedHmac(Attack):
    """What keeps each message proved is taken out of the server's answer."""

    def check(self, reason, *statuses):
        status = self.attack(says("1", *statuses, CHANGE), client="hmac",
                             **{"client-nonce": NONCE})
        self.assert_failed(status, reason)
        self.assertEqual(len(self.requests), 1)
        self.assert_unchanged()

    def test_an_acceptance_for_the_whole_session_ends_it(self):
        self.check("takes one HMAC proof for the whole session", header_status(212, chal("hmac")))

    def test_a_missing_nonce_ends_the_session(self):
        self.check("no nonce for the next HMAC proof", header_status(200, chal("hmac", None)))

    def test_an_empty_nonce_ends_the_session(self):
        self.check("no nonce for the next HMAC proof", header_status(200, chal("hmac", "")))
        shown = self.handset.dmclient("account", "show", "Test").stdout.decode()
        self.assertIn(f"client-nonce={NONCE}\n", shown)

    def test_the_nonce_that_was_just_used_ends_the_session(self):
        self.check("no nonce for the next HMAC proof", header_status(200, chal("hmac", NONCE)))

    def test_a_nonce_for_another_kind_of_proof_ends_the_session(self):
        for kind in ("basic", "md5"):
            with self.subTest(kind=kind):
                self.check("no nonce for the next HMAC proof",
                           header_status(200, chal(kind, "b3RoZXI=")))

    def test_a_missing_challenge_ends_the_session(self):
        self.check("no nonce for the next HMAC proof", header_status(200))

    def test_a_missing_status_ends_the_session(self):
        self.check("no nonce for the next HMAC proof")


class UnprovedMessages(Attack):
    """The account wants the server to prove itself; somebody else answers."""

    def test_the_answer_does_not_go_where_an_unproved_message_wants_it(self):
        with HostileServer(b"") as elsewhere:
            status = self.attack(says("1", get("./DevInfo/Man"),
                                      header=[E("RespURI", elsewhere.url)]), server="md5")
        self.assertEqual(status, SESSION_FAILED)
        self.assertEqual(elsewhere.requests, [])
        self.assertEqual(self.requests[1].statuses(), [407, 407])

    def test_an_unproved_limit_does_not_cut_the_client_short(self):
        self.attack(says("1", get("./DevInfo/Man"), header=[E("Meta", E("MaxMsgSize", "10"))]),
                    server="md5")
        self.assertEqual(self.requests[1].statuses(), [407, 407])

    def test_an_unproved_abort_and_refusal_do_not_end_the_session(self):
        """The client goes on and asks for the proof."""
        self.attack(says("1", header_status(500), alert("1223"), CHANGE), server="md5")
        self.assertEqual(self.requests[1].statuses(), [407, 407, 407])
        self.assert_unchanged()

    def test_an_empty_answer_is_not_a_session(self):
        """Whoever drops the server's commands cannot make it look as if there were none."""
        for kind in ("basic", "md5", "hmac"):
            with self.subTest(proof=kind):
                self.assert_failed(self.attack(b"", server=kind),
                                   "the server did not prove who it is")

    def test_with_hmac_an_empty_answer_in_the_middle_is_not_the_end(self):
        def proved(request):
            return proved_by_hmac(message(request.session_id, "1", header_status(200),
                                          get("./DevInfo/Man")))

        self.assert_failed(self.attack(proved, b"", server="hmac", **{"server-nonce": NONCE}),
                           "the server did not prove who it is")

    def test_a_nonce_from_somebody_else_does_not_replace_the_good_one(self):
        self.attack(says("1", header_status(200, chal("md5", "ZXZpbA==")), get("./DevInfo/Man")),
                    client="md5", server="md5", **{"client-nonce": "Z29vZA=="})
        shown = self.handset.dmclient("account", "show", "Test").stdout.decode()
        self.assertIn("client-nonce=Z29vZA==\n", shown)

    def test_a_challenge_to_somebody_else_does_not_replace_the_good_nonce(self):
        """Somebody without a proof is challenged until the session fails; the server's own nonce is
        kept."""
        for kind in ("md5", "hmac"):
            with self.subTest(proof=kind):
                self.attack(says("1", header_status(200), get("./DevInfo/Man")), server=kind,
                            **{"server-nonce": "Z29vZA=="})
                self.assertNotIn(self.requests[1].nonce(), (None, "Z29vZA=="))
                shown = self.handset.dmclient("account", "show", "Test").stdout.decode()
                self.assertIn("server-nonce=Z29vZA==\n", shown)


class WithoutAProof(Attack):
    """No proof was asked for: what is irregular is told."""

    def test_repeated_and_foreign_messages_are_noted(self):
        status = self.attack(message("other", "1", header_status(200), get("./DevInfo/Man")), b"")
        self.assertEqual(status, SUCCESS)
        self.assertRegex(self.lines[0], '^Note: the server answers for session "other"')


if __name__ == "__main__":
    unittest.main()
