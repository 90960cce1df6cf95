"""What a bootstrap message of somebody who is not the operator may try, and what must hold."""

import json
import os
import unittest

from blank_handset import BlankHandsetTest
from handset import CONN
from hostile_text import HOSTILE, harmful_in
from provisioning import (access_point, application, document, hmac_sha1, parm, push, uintvar,
                          vector)
from instructions import CALLGRIND, times_as_many
from serialised_trees import (access_point as serialised_access_point, account, interior, leaf,
                              message_wbxml, message_xml)
from sessions import REFUSED, SUCCESS, USAGE

PIN = b"1234"
ID = "com.example.dm"


class UnprovedDocumentTest(BlankHandsetTest):
    """A push with a document that no parser should see."""

    def test_a_document_is_not_read_before_its_proof(self):
        """What is said of a broken one is the same as of a whole one."""
        whole = push(vector("cp.wbxml"), "USERPIN", b"4321")
        broken = push(b"\x03\x0B\x6A\x7F", "USERPIN", b"4321")
        said = [self.bootstrap(message, "--yes", "--pin", "-", stdin=b"1234\n", status=REFUSED)
                for message in (whole, broken)]
        self.assertEqual(said[0], said[1])
        self.assertIn("the PIN is wrong", said[0][1])

    def test_a_mac_over_another_body_proves_nothing(self):
        """Neither over a longer one, a shorter one, nor with one bit changed."""
        body = vector("cp.wbxml")
        mac = hmac_sha1(PIN, body)
        changed = bytes([*body[:-9], body[-9] ^ 1, *body[-8:]])
        for other in (body + b"\x01", body[:-1], changed):
            self.refused("the PIN is wrong", push(other, "USERPIN", mac=mac), "--yes", "--pin", "-",
                         stdin=b"1234\n")

    def test_a_mac_without_its_method_or_the_other_way_round_is_no_message_without_a_proof(self):
        """Taking one of the two away does not lead to the way for files of the owner's."""
        body = vector("cp.wbxml")
        security, mac = b"\x91\x81", b"\x92" + hmac_sha1(PIN, body).encode() + b"\0"
        for parameters, reason in ((security, "a SEC and no MAC"), (mac, "a MAC and no SEC")):
            content = b"\xB6" + parameters
            header = b"\x1F" + uintvar(len(content)) + content
            self.refused(reason, b"\x01\x06" + uintvar(len(header)) + header + body, "--yes",
                         status=USAGE)

    def test_a_line_is_one_try(self):
        """Who gives many PINs on standard input gets one of them tried."""
        message = push(vector("cp.wbxml"), "USERPIN", PIN)
        guesses = b"".join(b"%04d\n" % number for number in range(1230, 1240))
        self.refused("the PIN is wrong", message, "--yes", "--pin", "-", stdin=guesses)

    def test_an_empty_pin_and_an_empty_mac_prove_nothing(self):
        """Not even a MAC that was made with an empty key."""
        body = vector("cp.wbxml")
        self.refused("the PIN is wrong", push(body, "USERPIN", b""), "--yes", "--pin", "-", stdin=b"\n")
        self.refused("MAC is neither a number nor a text", push(body, "USERPIN", mac=""), "--yes",
                     "--pin", "-", stdin=b"\n", status=USAGE)


class BrokenBytesTest(BlankHandsetTest):
    """Bytes that break off, and lengths that lie."""

    def attempt(self, content):
        result = self.handset.dmclient("bootstrap", self.message(content), "--yes")
        self.assertIn(result.returncode, (REFUSED, USAGE), content)
        self.assertTrue(result.stderr.startswith(b"dmclient: "), result.stderr)
        self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)

    def test_a_message_that_breaks_off_makes_nothing(self):
        """At any place of the header, and at places all over the document."""
        whole = push(vector("cp.wbxml"), "USERPIN", PIN)
        header = len(whole) - len(vector("cp.wbxml"))
        for size in range(0, header, 9):
            self.attempt(whole[:size])
        for size in range(4, len(vector("cp.wbxml")), 97):
            result = self.handset.dmclient("bootstrap", self.message(vector("cp.wbxml")[:size]), "--yes")
            self.assertEqual(result.returncode, REFUSED, size)
        self.assert_untouched()

    def test_lengths_that_lie_are_refused(self):
        """Of the header, of the content type, of the string table, beyond 32 bits and beyond the end."""
        body = vector("cp.wbxml")
        for number in (b"\xFF\xFF\xFF\xFF\x7F", b"\x8F\xFF\xFF\xFF\x7F", b"\x87\xFF\xFF\xFF\x7F",
                       b"\xFF" * 9 + b"\x7F", b"\x80" * 200):
            self.attempt(b"\x01\x06" + number + body)
            self.attempt(b"\x01\x06\x20\x1F" + number + body)
            self.attempt(b"\x03\x0B\x6A" + number + body)
        self.assert_untouched()

    def test_a_file_of_another_kind_or_size_is_refused(self):
        """Nothing of a large file is kept, and zeros are no message."""
        for content in (b"", b"\0" * 100, b"<" * 65537, b"\x01\x06" + b"\x01" * 70000):
            self.attempt(content)


class CostTest(BlankHandsetTest):
    """Documents that are made to cost more than their length."""

    def document(self, pieces):
        """A value of that many pieces, each of which is the empty end of one long text."""
        table = b"x" * 2000 + b"\0"
        parms = b"\x87\x07\x06" + (b"\x83" + uintvar(2000)) * pieces + b"\x01"
        file = os.path.join(self.handset.home, f"pieces-{pieces}")
        with open(file, "wb") as stream:
            stream.write(b"\x03\x0B\x6A" + uintvar(len(table)) + table + b"\x45\xC6\x51\x01" + parms
                         + b"\x01\x01")
        return "dmclient", "bootstrap", file

    @unittest.skipUnless(CALLGRIND, "no valgrind")
    def test_twice_as_many_references_cost_twice_as_much(self):
        """Whatever they lead to."""
        self.assertLess(times_as_many(self.handset, self.document(1), self.document(5000),
                                      self.document(10000)), 3)


class SerialisedObjectsTest(BlankHandsetTest):
    """Messages of the DM profile whose trees are not what they seem."""

    def test_a_message_that_breaks_off_makes_nothing(self):
        """At places all over the message and the tree inside it, in both encodings."""
        for message in (message_wbxml, message_xml):
            whole = message(account(), serialised_access_point())
            for size in range(4, len(whole) - 1, 89):
                result = self.handset.dmclient("bootstrap", self.message(whole[:size]), "--yes")
                self.assertIn(result.returncode, (REFUSED, USAGE), size)
                self.assertEqual(harmful_in(result.stderr), [])
        self.assert_untouched()

    def test_an_object_reaches_no_other_place_than_its_own(self):
        """Neither by its name nor by its path."""
        for change in ({"name": "../DevInfo"}, {"name": "a/b"}, {"name": "a%2Fb"}, {"name": ".."},
                       {"path": "./DMAcc/../DevInfo"}, {"path": "./DevInfo"}, {"path": "."},
                       {"path": "./DevDetail/Ext/Conf/Conn/Profiles/"},
                       {"path": "./DevDetail/Ext/Conf/Conn/Profiles?prop=ACL"}):
            body = message_wbxml({**serialised_access_point(), **change})
            self.bootstrap(body, "--yes", status=REFUSED)
            self.assert_untouched()

    def test_a_tree_that_is_too_deep_or_too_crowded_is_refused(self):
        """Before anything of it is planned."""
        deep = leaf("x", "y")
        for _ in range(100):
            deep = interior("n", deep)
        crowd = interior("n", *(leaf("x", "") for _ in range(2001)))
        self.refused("elements inside", message_xml(deep), "--yes")
        self.refused("more than 2000 nodes", message_wbxml(crowd), "--yes")

    def test_nothing_of_an_object_steers_a_terminal(self):
        """Neither a name, nor a value, nor what is ignored, nor what is wrong."""
        for nodes in ([account(name=HOSTILE)], [account(server=HOSTILE)],
                      [account("id", "https://a.example/", "N", leaf(HOSTILE, "x"))],
                      [account(id=HOSTILE, **{"path": HOSTILE})], [serialised_access_point(HOSTILE)],
                      [account(acl=HOSTILE)], [leaf(HOSTILE, "x", path="./DMAcc")]):
            result = self.handset.dmclient("bootstrap", self.message(message_wbxml(*nodes)), "--yes")
            self.assertEqual(harmful_in(result.stdout + result.stderr), [])
            self.handset.dmclient("account", "remove", "N")

    def test_a_list_gives_no_right_beyond_its_object(self):
        """A list is of the node that it stands at, whatever it is called."""
        body = message_xml(account(acl="Add=*&Delete=*&Exec=*&Get=*&Replace=*"))
        self.bootstrap(body, "--yes")
        for node, acl in ((".", "Add=*&Get=*"), ("./DMAcc", ""), ("./DevInfo", "")):
            self.assertEqual(self.get("--prop", "ACL", node), [acl] if acl else [""])


class TextsForThePersonTest(BlankHandsetTest):
    """Names that are to deceive whoever reads the plan."""

    def test_nothing_in_a_name_steers_a_terminal(self):
        """Neither of a profile, nor of an account, nor of what is ignored."""
        for point in (access_point("Net", parm("NAME", HOSTILE), parm(HOSTILE, "x")),
                      access_point("Net", parm("AUTHTYPE", HOSTILE)), access_point(HOSTILE)):
            message = document(point, application("id", "https://a.example/", parm("NAME", HOSTILE)))
            result = self.handset.dmclient("bootstrap", self.message(message), "--yes")
            self.assertEqual(harmful_in(result.stdout + result.stderr), [])
            self.assertIn(b"a\\", result.stdout + result.stderr)

    def test_a_secret_is_in_nothing_that_is_printed_or_recorded(self):
        """Neither when it is applied, nor when it is refused."""
        record = os.path.join(self.handset.home, "record.jsonl")
        printed = []
        point = serialised_access_point("Net1", interior("Auth", interior("PAP", leaf("AuthPw", "pass"))))
        for message in (vector("cp.xml"), message_xml(account(), point), message_wbxml(account(), point)):
            self.setUp()
            for status in (SUCCESS, REFUSED):
                printed += self.bootstrap(message, "--yes", "--record", record, status=status)
                with open(record, encoding="utf-8") as file:
                    printed.append(file.read())
        for text in printed:
            for secret in ("srvpw", "devpw", '"pass"', "= pass"):
                self.assertNotIn(secret, text)


class ForeignAccountTest(BlankHandsetTest):
    """A message that wants to stand beside the account of the operator, or in its place."""

    def setUp(self):
        super().setUp()
        self.bootstrap(vector("cp.xml"), "--yes")
        self.before = self.accounts()

    def test_no_account_is_added_on_the_host_of_another(self):
        """However the host is written."""
        for address in ("https://dm.example.com/other", "https://DM.EXAMPLE.COM:8080/",
                        "https://dm.example.com./"):
            message = document(application("evil", address))
            self.bootstrap(message, "--yes", status=REFUSED)
            self.assertEqual(self.accounts(), self.before, address)

    def test_the_identifier_of_another_is_not_taken(self):
        """Nor would its rights be: they are given by the identifier."""
        _, errors = self.bootstrap(document(application(ID, "https://evil.example/")), "--yes",
                                   status=REFUSED)
        self.assertIn("there is an account of that server already", errors)
        self.assertEqual(self.accounts(), self.before)

    def test_the_profile_of_another_is_not_overwritten(self):
        """Not by its name, not by that of its link, and not by a name that the plug-in cuts short."""
        before = self.handset.export()
        for name in ("Kub Internet", "Kub Internet&amp;&amp;_x"):
            for point in (access_point(name), access_point("x", parm("NAME", name))):
                self.handset.dmclient("bootstrap", self.message(document(point)), "--yes")
        after = self.handset.export()
        self.assertEqual(after["Kub Internet"], before["Kub Internet"])

    def test_a_profile_that_the_tree_shows_under_another_name_is_not_overwritten(self):
        """The plug-in would take the stored one for the new one."""
        self.handset.add([{"name": "Ärzte", "editable": True,
                           "gprs": {"address": "mine", "authId": "", "authPassword": "",
                                    "dns1": "0.0.0.0", "dns2": "0.0.0.0", "linger": 0},
                           "csd": {}, "csd2": {}, "proxy1": {}, "proxy2": {}}])
        before = self.handset.profile("Ärzte")
        self.bootstrap(document(access_point("Ärzte")), "--yes", status=REFUSED)
        self.bootstrap(document(access_point("Other", parm("NAME", "Ärzte"))), "--yes")
        self.assertEqual(self.handset.profile("Ärzte"), before)
        self.assertEqual(json.loads(self.handset.dmclient("get", "--json", f"{CONN}/Other/Addr")
                                    .stdout)[0]["value"], "internet.example")


if __name__ == "__main__":
    unittest.main()
