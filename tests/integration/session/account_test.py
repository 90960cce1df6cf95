"""DM accounts: from the command line, as nodes, and under a server's hands."""

import itertools
import json
import os
import stat
import unittest

from sessions import (ENCODINGS, REFUSED, SECRETS, SUCCESS, UNUSABLE, USAGE, DmServer, SessionTest,
                      scenario)


class AccountTest(SessionTest):
    def account(self, *words, status=SUCCESS, stdin=None):
        result = self.handset.dmclient("account", *words, stdin=stdin)
        self.assertEqual(result.returncode, status, result.stderr.decode())
        return result.stdout.decode() if status == SUCCESS else result.stderr.decode()

    def test_an_account_is_added_shown_changed_and_removed(self):
        self.add_account("https://dm.example/", client_auth="md5", title="Operator")
        self.assertEqual(self.account("list"), "Test  https://dm.example/\n")
        shown = self.account("show", "Test")
        self.assertIn("title=Operator\n", shown)
        self.assertIn("client-secret=********\n", shown)
        self.assertNotIn(SECRETS["client-secret"], shown)
        self.assertIn(f"client-secret={SECRETS['client-secret']}\n",
                      self.account("show", "Test", "--show-secrets"))
        self.account("set", "Test", "title=Another", "client-auth=hmac")
        self.assertIn("title=Another\n", self.account("show", "Test"))
        self.account("remove", "Test")
        self.assertEqual(self.account("list"), "")

    def test_accounts_as_json_have_their_fields_and_masked_secrets(self):
        self.assertEqual(json.loads(self.account("list", "--json")), [])
        self.add_account("https://dm.example/", client_auth="md5", title="Operator")
        listed = self.account("list", "--json")
        for secret in SECRETS.values():
            self.assertNotIn(secret, listed)
        [account] = json.loads(listed)
        self.assertEqual((account["name"], account["address"], account["title"],
                          account["client-auth"], account["client-secret"]),
                         ("Test", "https://dm.example/", "Operator", "md5", "********"))
        self.assertEqual(json.loads(self.account("show", "Test", "--json")), account)
        shown = json.loads(self.account("show", "Test", "--json", "--show-secrets"))
        self.assertEqual(shown, {**account, **SECRETS})
        self.account("set", "Test", "title=x", "--json", status=USAGE)

    def test_a_damaged_account_is_told_in_json(self):
        with open(self.handset.client_file("accounts.json"), "w", encoding="utf-8") as file:
            json.dump({"Bad": {"address": 7}}, file)
        os.chmod(self.handset.client_file("accounts.json"), 0o600)
        result = self.handset.dmclient("account", "list", "--json")
        self.assertEqual([(entry["name"], bool(entry["damaged"]))
                          for entry in json.loads(result.stdout)], [("Bad", True)])

    def test_no_account_command_loads_the_plug_in(self):
        for words in (("add", "A", "address=https://dm.example/", "server-id=a"), ("list",),
                      ("show", "A"), ("set", "A", "title=x"), ("set", "A", "server-id=b"),
                      ("remove", "A")):
            result = self.handset.dmclient("account", *words, plugin="/nonexistent/plugin.so")
            self.assertEqual(result.returncode, SUCCESS, (words, result.stderr))
        self.assertEqual(self.handset.dmclient("tree", plugin="/nonexistent/plugin.so").returncode,
                         UNUSABLE)

    def test_the_shell_keeps_accounts_and_shows_their_nodes(self):
        result = self.handset.dmclient("shell", stdin="\n".join((
            "account add A address=https://dm.example/ server-id=a title=First",
            "get ./DMAcc/A/Name", "account set A title=Second", "get ./DMAcc/A/Name",
            "account list", "account remove A", "get ./DMAcc/A/Name",
            "account add B address=https://dm.example/ server-id=b client-secret=-")) + "\n")
        self.assertEqual(result.stdout.decode().splitlines(), [
            "First", "get ./DMAcc/A/Name: 200 OK", "Second", "get ./DMAcc/A/Name: 200 OK",
            "A  https://dm.example/",
            "get ./DMAcc/A/Name: 404 Not Found: no node ./DMAcc/A/Name",
            "account: standard input is the shell's"])
        self.assertEqual(self.account("list"), "")

    def test_an_account_has_no_properties_of_an_earlier_one_of_its_name(self):
        new = ("add", "A", "address=https://dm.example/", "server-id=a")
        for plugin_is_loaded in (False, True):
            self.account(*new)
            self.handset.dmclient("replace", "./DMAcc/A?prop=ACL", "Get=*&Replace=evil.example")
            lines = ["account remove A", "account " + " ".join(new)]
            if plugin_is_loaded:
                self.handset.dmclient("shell", stdin="\n".join(lines))
            else:
                self.account("remove", "A")
                self.account(*new)
            acl = self.handset.dmclient("get", "./DMAcc/A?prop=ACL").stdout
            self.assertEqual(acl, b"Get=a&Replace=a\n")
            self.account("remove", "A")

    def test_a_server_that_loses_its_last_account_loses_its_rights(self):
        for last in (("remove", "A"), ("set", "A", "server-id=b")):
            self.account("add", "A", "address=https://dm.example/", "server-id=a")
            self.handset.dmclient("replace", "./DevDetail?prop=ACL", "Get=a+c")
            self.account(*last)
            acl = self.handset.dmclient("get", "./DevDetail?prop=ACL").stdout
            self.assertEqual(acl, b"Get=c\n")
        self.account("remove", "A")

    def test_secrets_can_come_from_standard_input(self):
        self.account("add", "Piped", "address=http://dm.example/", "server-id=dm.example",
                     "client-auth=basic", "client-name=me", "client-secret=-",
                     "server-auth=basic", "server-name=them", "server-secret=-",
                     stdin="first secret\nsecond secret\n")
        shown = self.account("show", "Piped", "--show-secrets")
        self.assertIn("client-secret=first secret\n", shown)
        self.assertIn("server-secret=second secret\n", shown)

    def test_the_file_is_its_owners_only(self):
        self.add_account("https://dm.example/", client_auth="md5")
        mode = stat.S_IMODE(os.stat(self.handset.client_file("accounts.json")).st_mode)
        self.assertEqual(mode, 0o600)

    def test_wrong_usage_is_explained(self):
        self.add_account("https://dm.example/")
        fields = ("the fields are address, server-id, title, client-auth, client-name, "
                  "client-secret, client-nonce, server-auth, server-name, server-secret, "
                  "server-nonce, polling-interval, polling-first-delay, polling-retry-delay, "
                  "polling-longest-retry-delay")
        for words, problem in (
                (["add", "Test", "title=x"], "Test is there already"),
                (["add", "Other", "title=x"], "the account has no address"),
                (["add", "Other", "nonsense=x"], f'"nonsense=x" is not FIELD=VALUE; {fields}'),
                (["add", "Other", "title"], f'"title" is not FIELD=VALUE; {fields}'),
                (["add", "a/b", "address=http://x/", "server-id=x"],
                 'an account cannot be called "a/b"'),
                (["set", "Test", "address=x"], "address is not an http or https URL"),
                (["set", "Test", "client-secret=-"], "no value for client-secret"),
                (["set", "Other", "title=x"], "no account Other"),
                (["show", "Other"], "no account Other"),
                (["remove", "Other"], "no account Other")):
            with self.subTest(words=words):
                self.assertEqual(self.account(*words, status=USAGE),
                                 f"dmclient: account: {problem}\n")
        for words in ([], ["frobnicate"], ["show"], ["list", "x"], ["add", "x"]):
            with self.subTest(words=words):
                self.assertIn("usage: account list", self.account(*words, status=USAGE))

    def test_the_tree_shows_accounts_without_their_secrets(self):
        self.add_account("https://dm.example/", client_auth="md5", server_auth="hmac")
        tree = self.handset.dmclient("tree", "./DMAcc", "--show-secrets").stdout.decode()
        self.assertIn("https://dm.example/", tree)
        for secret in SECRETS.values():
            self.assertNotIn(secret, tree)

    def test_a_server_manages_its_own_account(self):
        for encoding, kind in itertools.product(ENCODINGS, ("basic", "md5", "hmac")):
            with self.subTest(encoding=encoding, proof=kind):
                played = scenario("accounts", client_auth=kind, server_auth=kind)
                status, lines, report = self.play(played, "--encoding", encoding,
                                                  client_auth=kind, server_auth=kind)
                self.assertEqual(report["faults"], [], "\n".join(lines))
                self.assertEqual(status, REFUSED)
                for secret in (*SECRETS.values(), "NewSecret"):
                    self.assertNotIn(secret, json.dumps(report))
                self.assertIn("client-secret=NewSecret\n",
                              self.account("show", "Test", "--show-secrets"))

    def test_the_new_secret_is_for_the_next_session(self):
        packages = [{"commands": [{"replace": "./DMAcc/Test/AppAuth/1/AAuthSecret",
                                   "data": "NewSecret"}]},
                    {"commands": [{"get": "./DevInfo/Man"}]}]
        played = scenario("accounts", client_auth="hmac", packages=packages)
        status, _, report = self.play(played, client_auth="hmac")
        self.assertEqual((status, report["faults"]), (SUCCESS, []))
        with DmServer({**played, "client_secret": "NewSecret"}) as server:
            self.handset.dmclient("account", "set", "Test", f"address={server.url}")
            result = self.handset.dmclient("session", "Test")
            self.assertEqual(result.returncode, SUCCESS, result.stdout.decode())
            self.assertEqual(server.session.report()["faults"], [])

    def test_another_server_sees_nothing_of_an_account(self):
        self.handset.dmclient("account", "add", "Other", "address=http://other.example/",
                              "server-id=other.example", "client-auth=basic", "client-name=me",
                              "client-secret=hidden")
        packages = [{"commands": [
            {"get": "./DMAcc/Other/AppAddr/1/Addr", "expect": 425},
            {"replace": "./DMAcc/Other/AppAddr/1/Addr", "data": "http://evil.example/",
             "expect": 425},
            {"get": "./DMAcc?list=StructData"}]}]
        status, _, report = self.play(scenario("accounts", packages=packages))
        self.assertEqual((status, report["faults"]), (REFUSED, []))
        self.assertNotIn("other.example", json.dumps(report["results"]))

    def test_a_removed_account_takes_its_servers_rights_along(self):
        uri = "./DevDetail/Ext/Conf/Conn/Profiles/Office"
        packages = [{"commands": [{"replace": uri + "?prop=ACL",
                                   "data": "Get=*&Replace=dm.example+another"}]}]
        self.play(scenario("accounts", packages=packages))
        acl = self.handset.dmclient("get", uri, "--prop", "ACL").stdout.decode()
        self.assertEqual(acl, "Get=*&Replace=dm.example+another\n")
        self.account("remove", "Test")
        acl = self.handset.dmclient("get", uri, "--prop", "ACL").stdout.decode()
        self.assertEqual(acl, "Get=*&Replace=another\n")


if __name__ == "__main__":
    unittest.main()
