"""dmclient bootstrap: from a message to profiles and accounts, or to nothing."""

import json
import os
import unittest

from blank_handset import BlankHandsetTest
from handset import CONN, PROXY
from provisioning import (CONNECTIVITY_XML, access_point, application, characteristic, document,
                          half_octets, parm, push, vector)
from serialised_trees import (DM_WBXML, DM_XML, access_point as serialised_access_point, account, leaf,
                              message_wbxml, message_xml)
from sessions import REFUSED, SUCCESS, USAGE
from terminal import Terminal

PIN = b"1234"
IMSI = "310170123456789"
ID = "com.example.dm"


class BootstrapTest(BlankHandsetTest):
    # ---- What is made

    def test_a_push_gives_a_blank_handset_its_access_point_and_its_server(self):
        printed, errors = self.bootstrap(push(vector("cp.wbxml"), "USERPIN", PIN), "--pin", "-",
                                         "--yes", stdin=b"1234\n")
        self.assertIn("next: dmclient session 'Example DM'\n", printed)
        self.assertEqual(errors, "")
        profile = self.handset.profile("Kub Internet")
        self.assertEqual(profile["gprs"], {"address": "internet.example", "authId": "user",
                                           "authPassword": "pass", "dns1": "192.0.2.53",
                                           "dns2": "0.0.0.0", "linger": 300})
        self.assertEqual(profile["proxy1"], {"address": "192.0.2.80", "port": 8080})
        self.assertEqual(self.get(f"{CONN}/Kub Internet/Bearer", f"{PROXY}/Kub Internet/Ph1/Conn"),
                         ["GSM-GPRS", "Kub Internet"])
        acl = f"Delete={ID}&Get={ID}&Replace={ID}"
        self.assertEqual(self.get("--prop", "ACL", f"{CONN}/Kub Internet"), [acl])
        shown = json.loads(self.handset.dmclient("account", "show", "Example DM", "--json",
                                                 "--show-secrets").stdout)
        self.assertEqual(
            shown, {"name": "Example DM", "address": "https://dm.example.com/dm", "server-id": ID,
                    "title": "Example DM", "client-auth": "md5", "client-name": "dev1",
                    "client-secret": "devpw", "client-nonce": "bm9uY2Ux", "server-auth": "md5",
                    "server-name": ID, "server-secret": "srvpw", "server-nonce": "bm9uY2Uy"})
        self.assertIn("Kub Internet", self.handset.dmclient("tree", CONN).stdout.decode())

    def test_xml_and_wbxml_make_the_same(self):
        made = []
        for name in ("cp.xml", "cp.wbxml"):
            self.setUp()
            self.bootstrap(vector(name), "--yes")
            made.append((self.handset.export(), self.accounts()))
        self.assertEqual(made[0], made[1])
        self.assertEqual(len(made[0][0]), 1)

    def test_a_published_message_makes_its_access_points(self):
        mac = "AA2DC41FC48AEEF3FED7351B1EE704461A8894D4"
        message = push(vector("published-userpin.wbxml"), "USERPIN", mac=mac)
        self.bootstrap(message, "--pin", "-", "--yes", stdin=b"0000\n")
        exported = self.handset.export()
        self.assertEqual(sorted(exported), ["CHT_MMS", "CHT_emome"])
        self.assertEqual(exported["CHT_MMS"]["proxy1"], {"address": "10.1.1.1", "port": 8080})
        self.assertEqual(self.accounts(), [])

    def test_a_profile_without_a_server_has_the_rights_of_every_other(self):
        self.bootstrap(document(access_point("Net")), "--yes")
        self.assertEqual(self.get("--prop", "ACL", f"{CONN}/Net"),
                         ["Add=*&Delete=*&Get=*&Replace=*"])

    def test_json_has_the_plan_its_proof_and_what_became_of_it(self):
        message = push(vector("cp.wbxml"), "USERPIN", PIN)
        printed, _ = self.bootstrap(message, "--pin", "-", "--json", stdin=b"1234\n",
                                    status=REFUSED)
        plan = json.loads(printed)
        self.assertEqual((plan["proof"], plan["applied"]), ("USERPIN", False))
        self.assertEqual(plan["accounts"][0]["client-secret"], "********")
        self.assertEqual(len(plan["ignored"]), 1)
        self.assert_untouched()
        printed, _ = self.bootstrap(message, "--pin", "-", "--json", "--yes", stdin=b"1234\n")
        self.assertTrue(json.loads(printed)["applied"])
        self.assertEqual(len(self.accounts()), 1)

    # ---- What proves a message

    def test_a_message_of_the_network_is_proved_by_the_imsi(self):
        for security, key, words, stdin in (
                ("NETWPIN", half_octets(IMSI), ("--imsi", IMSI), None),
                ("USERNETWPIN", half_octets(IMSI) + PIN, ("--imsi", IMSI, "--pin", "-"), b"1234\n")):
            self.setUp()
            message = push(vector("cp.wbxml"), security, key)
            wrong = ("--imsi", IMSI[:-1] + "0", *words[2:])
            self.refused("MAC is wrong" if security == "NETWPIN" else "the PIN is wrong", message,
                         "--yes", *wrong, stdin=stdin)
            self.refused("--imsi says which", message, "--yes", status=USAGE)
            self.bootstrap(message, "--yes", *words, stdin=stdin)
            self.assertEqual(len(self.accounts()), 1)

    def test_a_wrong_pin_a_missing_one_and_one_for_nothing_are_refused(self):
        message = push(vector("cp.wbxml"), "USERPIN", PIN)
        self.refused("the PIN is wrong", message, "--yes", "--pin", "-", stdin=b"1235\n")
        self.refused("the message needs a PIN", message, "--yes", status=USAGE)
        self.refused("no proof that a PIN", vector("cp.wbxml"), "--yes", "--pin", "-", status=USAGE)
        self.refused("no proof that an IMSI", message, "--yes", "--imsi", IMSI, status=USAGE)
        self.refused("USERPINMAC", push(b"x", "USERPINMAC", mac="1"), "--yes", status=USAGE)

    def test_a_message_without_a_mac_says_so(self):
        _, errors = self.bootstrap(vector("cp.wbxml"), "--yes")
        self.assertIn("the message has no MAC", errors)

    # ---- All or nothing

    def test_nothing_is_applied_without_somebody_who_says_so(self):
        self.refused("nobody can be asked", vector("cp.xml"))

    def test_a_store_that_becomes_full_is_left_as_it_was(self):
        message = document(access_point("One"), access_point("Two"),
                           application("a", "https://a.example/"))
        printed = self.bootstrap(message, "--yes", status=REFUSED, KUB_NAPI_MAX="1")
        self.assertIn("nothing is applied: Add", printed[1])
        self.assertIn("Two", printed[1])
        self.assert_untouched()
        self.assertEqual(self.get(CONN), [])

    def test_an_account_that_cannot_be_kept_takes_the_profiles_along(self):
        self.handset.dmclient("account", "list")
        in_the_way = self.handset.client_file("accounts.json.new")
        os.mkdir(in_the_way)
        self.refused("nothing is applied: ", vector("cp.xml"), "--yes")
        self.assertEqual(self.get(CONN), [])
        os.rmdir(in_the_way)
        self.bootstrap(vector("cp.xml"), "--yes")

    def test_a_damaged_file_of_accounts_keeps_every_message_out(self):
        self.handset.dmclient("account", "list")
        with open(self.handset.client_file("accounts.json"), "w", encoding="ascii") as file:
            file.write("{")
        _, errors = self.bootstrap(vector("cp.xml"), "--yes", status=REFUSED)
        self.assertIn("no server may do anything as long as a state file is damaged", errors)
        self.assertEqual(self.handset.export(), {})

    def test_what_is_there_is_never_overwritten(self):
        self.bootstrap(vector("cp.xml"), "--yes")
        before = self.handset.export(), self.accounts()
        other = access_point("Other")
        for reason, message in (
                ("an account of that server", vector("cp.wbxml")),
                ("an account of that server", document(other, application(ID, "https://b.example/"))),
                ("on the host of the account",
                 document(other, application("b", "https://DM.example.com:444/x"))),
                ("an account Example DM already",
                 document(other, application("b", "https://b.example/", parm("NAME", "Example DM")))),
                ("a profile", document(other, access_point("x", parm("NAME", "Kub Internet"))))):
            _, errors = self.bootstrap(message, "--yes", status=REFUSED)
            self.assertIn(reason, errors)
            self.assertEqual((self.handset.export(), self.accounts()), before)

    def test_what_is_not_for_this_device_is_told_and_fails(self):
        printed, errors = self.bootstrap(document(characteristic("VENDORCONFIG")), "--yes",
                                         status=REFUSED)
        self.assertIn("ignored: VENDORCONFIG", printed)
        self.assertIn("nothing in the message for this device", errors)
        self.refused("a push of the media type", push(b"", media_type=0x3E), status=USAGE)

    def test_a_file_that_is_missing_and_standard_input(self):
        self.assertEqual(self.handset.dmclient("bootstrap", "/nonexistent").returncode, USAGE)
        result = self.handset.dmclient("bootstrap", "-", "--yes", stdin=vector("cp.xml"))
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        self.assertEqual(len(self.accounts()), 1)
        result = self.handset.dmclient("bootstrap", "-", "--pin", "-",
                                       stdin=push(vector("cp.wbxml"), "USERPIN", PIN))
        self.assertEqual(result.returncode, USAGE)

    def test_a_push_of_xml(self):
        self.bootstrap(push(vector("cp.xml"), "USERPIN", PIN, CONNECTIVITY_XML), "--pin", "-",
                       "--yes", stdin=b"1234\n")
        self.assertEqual(len(self.accounts()), 1)


class DmProfileTest(BlankHandsetTest):
    """A serialised account and its access point in an Add to the Inbox."""

    MESSAGES = {DM_WBXML: message_wbxml, DM_XML: message_xml}

    def test_a_push_gives_a_blank_handset_its_access_point_and_its_server(self):
        for media_type, message in self.MESSAGES.items():
            self.setUp()
            body = message(account(), serialised_access_point())
            printed, errors = self.bootstrap(push(body, "USERPIN", PIN, media_type), "--pin", "-",
                                             "--yes", stdin=b"1234\n")
            self.assertIn("its server asks for a session at once", printed)
            self.assertIn("next: dmclient session 'Example DM'\n", printed)
            self.assertEqual(errors, "")
            self.assertEqual(self.handset.profile("Net1")["gprs"]["address"], "internet.example")
            self.assertEqual(self.handset.profile("Net1")["gprs"]["linger"], 300)
            self.assertEqual(self.get("--prop", "ACL", f"{CONN}/Net1"),
                             [f"Delete={ID}&Get={ID}&Replace={ID}"])
            shown = json.loads(self.handset.dmclient("account", "show", "Example DM", "--json",
                                                     "--show-secrets").stdout)
            self.assertEqual(
                shown, {"name": "Example DM", "address": "https://dm.example.com/dm", "server-id": ID,
                        "title": "Example DM", "client-auth": "md5", "client-name": "dev1",
                        "client-secret": "devpw", "client-nonce": "bm9uY2Ux", "server-auth": "md5",
                        "server-name": ID, "server-secret": "srvpw", "server-nonce": "bm9uY2Uy"})

    def test_a_message_of_the_network_is_proved_by_the_imsi_in_either_form(self):
        body = message_wbxml(account())
        for security, key, words, stdin in (
                ("NETWORKID", IMSI.encode(), (), None),
                ("NETWORKID", half_octets(IMSI), (), None),
                ("USERPIN_NETWORKID", PIN + b":" + IMSI.encode(), ("--pin", "-"), b"1234\n"),
                ("USERPIN_NETWORKID", PIN + b":" + half_octets(IMSI), ("--pin", "-"), b"1234\n")):
            self.setUp()
            message = push(body, security, key, DM_WBXML)
            wrong = IMSI[:-1] + "0"
            reason = "the PIN is wrong" if words else "MAC is wrong"
            self.refused(reason, message, "--yes", "--imsi", wrong, *words, stdin=stdin)
            self.bootstrap(message, "--yes", "--imsi", IMSI, *words, stdin=stdin)
            self.assertEqual(len(self.accounts()), 1)

    def test_the_lists_of_the_tree_are_those_of_the_nodes(self):
        body = message_xml(account(acl=f"Get={ID}"),
                           serialised_access_point("Net1", leaf("DNS1", "192.0.2.1",
                                                                acl=f"Get=other&Replace={ID}")))
        self.bootstrap(body, "--yes")
        self.assertEqual(self.get("--prop", "ACL", "./DMAcc/Example DM"), [f"Get={ID}"])
        self.assertEqual(self.get("--prop", "ACL", f"{CONN}/Net1/DNS1"), [f"Get=other&Replace={ID}"])
        self.assertEqual(self.get("--prop", "ACL", f"{CONN}/Net1"),
                         [f"Delete={ID}&Get={ID}&Replace={ID}"])

    def test_a_store_that_becomes_full_is_left_as_it_was(self):
        body = message_xml(serialised_access_point("One"), serialised_access_point("Two"), account())
        _, errors = self.bootstrap(body, "--yes", status=REFUSED, KUB_NAPI_MAX="1")
        self.assertIn("nothing is applied: Add", errors)
        self.assert_untouched()

    def test_an_account_that_cannot_be_kept_takes_the_profiles_along(self):
        self.handset.dmclient("account", "list")
        os.mkdir(self.handset.client_file("accounts.json.new"))
        self.refused("nothing is applied: ", message_xml(account(), serialised_access_point()), "--yes")
        self.assertEqual(self.get(CONN), [])

    def test_what_is_there_is_never_overwritten(self):
        self.bootstrap(vector("cp.xml"), "--yes")
        before = self.handset.export(), self.accounts()
        for reason, nodes in (
                ("an account of that server", [account()]),
                ("on the host of the account", [account("b", name="B")]),
                ("an account Example DM already", [account("b", "https://b.example/")]),
                ("a profile", [serialised_access_point("Kub Internet")])):
            other = serialised_access_point("Other")
            _, errors = self.bootstrap(message_wbxml(other, *nodes), "--yes", status=REFUSED)
            self.assertIn(reason, errors)
            self.assertEqual((self.handset.export(), self.accounts()), before)

    def test_an_object_that_this_device_has_no_place_for_is_told(self):
        printed, _ = self.bootstrap(message_wbxml(account(), account(id="urn:oma:mo:other:1.0")), "--yes")
        self.assertIn("ignored: ./Inbox/Srv1: nothing on this device keeps it\n", printed)
        self.assertEqual(len(self.accounts()), 1)


class BootstrapOnATerminalTest(BlankHandsetTest):
    def terminal(self, content):
        return Terminal(self, "bootstrap", self.message(content))

    def test_the_plan_is_shown_and_asked_about(self):
        for answer, status, count in (("no\n", REFUSED, 0), ("\n", REFUSED, 0), ("yes\n", SUCCESS, 1)):
            terminal = self.terminal(vector("cp.xml"))
            before = terminal.answer("yes or no: ", answer)
            self.assertIn("account Example DM", before)
            self.assertEqual(terminal.end()[0], status)
            self.assertEqual(len(self.accounts()), count)

    def test_a_pin_may_be_tried_three_times(self):
        message = push(vector("cp.wbxml"), "USERPIN", PIN)
        terminal = self.terminal(message)
        for _ in range(3):
            terminal.answer("PIN: ", "9999\n", hidden=True)
        status, screen = terminal.end()
        self.assertEqual(status, REFUSED)
        self.assertIn("it is discarded", screen)
        self.assertNotIn("9999", screen)
        terminal = self.terminal(message)
        for pin in ("9999\n", "99\n", "1234\n"):
            terminal.answer("PIN: ", pin, hidden=True)
        terminal.answer("yes or no: ", "y\n")
        self.assertEqual(terminal.end()[0], SUCCESS)
        self.assertEqual(len(self.accounts()), 1)


if __name__ == "__main__":
    unittest.main()
