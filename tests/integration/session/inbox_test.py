"""Objects that a server adds to the Inbox in a session."""

import base64
import json
import os
import unittest

from handset import CONN
from serialised_trees import (WBXML_TYPE, XML_TYPE, access_point, account, interior, leaf, tree_of,
                              tree_wbxml, xml)
from sessions import ENCODINGS, REFUSED, SUCCESS, SessionTest, scenario

ID = "com.example.dm"


def add(*nodes, expect=200, target="./Inbox", wbxml=False):
    if wbxml:
        return {"add": target, "format": "bin", "type": WBXML_TYPE, "expect": expect,
                "data": base64.b64encode(tree_wbxml(nodes)).decode()}
    return {"add": target, "format": "xml", "type": XML_TYPE, "expect": expect,
            "data": xml(tree_of(nodes))}


class InboxTest(SessionTest):
    def have(self, *words, status=SUCCESS):
        """A session with these commands in a package each, and with these options."""
        packages = [{"commands": [word]} for word in words if isinstance(word, dict)]
        options = [word for word in words if isinstance(word, str)]
        ended, lines, report = self.play(scenario("accounts", packages=packages), *options)
        self.assertEqual((ended, report["faults"]), (status, []), "\n".join(lines))
        return "\n".join(lines)

    def let_add_accounts(self, acl="Add=*&Get=*"):
        self.handset.dmclient("replace", "./DMAcc?prop=ACL", acl)

    def names(self):
        listed = json.loads(self.handset.dmclient("account", "list", "--json").stdout)
        return sorted(entry["name"] for entry in listed)

    def test_an_account_goes_to_its_place_in_both_encodings(self):
        self.let_add_accounts()
        for wbxml in (False, True):
            for encoding in ENCODINGS:
                printed = self.have(add(account(), wbxml=wbxml), "--encoding", encoding)
                self.assertEqual(self.names(), ["Example DM", "Test"])
                self.assertIn("left out: ./Inbox/Srv1: PrefConRef", printed)
                shown = self.handset.dmclient("account", "show", "Example DM", "--json",
                                              "--show-secrets")
                self.assertEqual(json.loads(shown.stdout)["client-secret"], "devpw")
                self.handset.dmclient("account", "remove", "Example DM")

    def test_the_new_account_is_not_the_server_s_that_added_it(self):
        self.let_add_accounts()
        self.have(add(account()), {"get": "./DMAcc/Example%20DM/ServerID", "expect": 425},
                  status=REFUSED)

    def test_no_secret_of_an_object_is_in_what_is_recorded(self):
        """Whether it is taken or refused, in both encodings of message and tree."""
        secrets = ("devpw", "srvpw", "bm9uY2Ux")
        spellings = [form for secret in secrets for form in
                     (secret, base64.b64encode(secret.encode()).decode().rstrip("="))]
        for acl in ("Add=*&Get=*", "Get=*"):
            self.let_add_accounts(acl)
            for wbxml in (False, True):
                for encoding in ENCODINGS:
                    record = os.path.join(self.handset.home, "record.jsonl")
                    taken = acl.startswith("Add")
                    self.have(add(account(), wbxml=wbxml, expect=200 if taken else 425), "--encoding",
                              encoding, "--record", record, status=SUCCESS if taken else REFUSED)
                    with open(record, encoding="utf-8") as file:
                        text = file.read()
                    for spelling in spellings:
                        self.assertNotIn(spelling, text, (acl, wbxml, encoding))
                    self.handset.dmclient("account", "remove", "Example DM")

    def test_only_a_server_whom_the_owner_lets_adds_an_account(self):
        self.have(add(account(), expect=425), status=REFUSED)
        self.assertEqual(self.names(), ["Test"])
        self.let_add_accounts("Add=another&Get=*")
        self.have(add(account(), expect=425), status=REFUSED)
        self.assertEqual(self.names(), ["Test"])

    def test_an_account_is_added_with_its_profile_or_not_at_all(self):
        self.have(add(access_point("New"), account(), expect=425), status=REFUSED)
        self.assertNotIn("New", self.handset.export())
        self.have(add(access_point("New")), {"get": CONN + "/New/Addr"})
        self.assertEqual(self.handset.profile("New")["gprs"]["address"], "internet.example")
        acl = self.handset.dmclient("get", "--prop", "ACL", CONN + "/New").stdout.decode()
        self.assertEqual(acl, "Add=dm.example&Delete=dm.example&Get=*&Replace=dm.example\n")

    def test_a_profile_needs_add_where_it_goes(self):
        self.handset.dmclient("replace", CONN + "?prop=ACL", "Get=*")
        self.have(add(access_point("New"), expect=425), status=REFUSED)
        self.assertNotIn("New", self.handset.export())

    def test_what_is_wrong_has_one_status_and_leaves_nothing(self):
        self.let_add_accounts()
        before = self.handset.export()
        for command in (
                add(access_point("Office"), expect=418),
                add(access_point("New"), access_point("Office"), expect=418),
                add(account(server="dm.example"), expect=418),
                add(account(address="ftp://x/"), expect=405),
                add(account(id="urn:oma:mo:other:1.0"), expect=406),
                add(access_point("New"), interior("Other", leaf("x", "y")), expect=406),
                add(access_point("New", leaf("Speed", "fast", "int")), expect=415),
                {**add(access_point("New"), expect=415), "type": "text/plain"},
                {**add(access_point("New"), expect=400), "data": "<MgmtTree/>"},
                add(access_point("New"), expect=404, target="./Inbox/New"),
                {"get": "./Inbox", "expect": 405}, {"get": "./Inbox/New", "expect": 405},
                {"delete": "./Inbox", "expect": 404},
                {"atomic": [add(access_point("New"), expect=405)], "expect": 507}):
            self.have(command, status=REFUSED)
            self.assertEqual((self.handset.export(), self.names()), (before, ["Test"]), command)


if __name__ == "__main__":
    unittest.main()
