"""What a file made to do harm may try, and what must hold."""

import base64
import json
import os
import sqlite3
import subprocess
import unittest

import commands
from handset import CONN, DMCLIENT, NAPICTL, PLUGIN, SECRET, HandsetTest
from hostile_text import HOSTILE, harmful_in
from instructions import CALLGRIND, times_as_many
from sessions import SUCCESS, UNUSABLE, USAGE, SessionTest

REFUSED = 1


class ReservedStoredNameTest(SessionTest):
    """A store from elsewhere has profiles that are called like what an address writes for this node,
    the one above and all nodes."""

    def setUp(self):
        super().setUp()
        store = sqlite3.connect(os.path.join(self.handset.state, "profiles.db"))
        self.names = []
        with store:
            for name in (".", "..", "*"):
                cursor = store.execute(
                    "INSERT INTO profile(name, record) VALUES(?, ?)",
                    (name, b"\0" * 8 + b"evil.apn" + b"\0" * 1152))
                self.names.append(f"{name}~{cursor.lastrowid}")
        store.close()

    def test_every_name_that_is_listed_can_be_addressed(self):
        """None hides in a list: each is shown under a name that reads, changes and deletes it."""
        listed = self.handset.dmclient("get", CONN).stdout.decode().splitlines()
        self.assertEqual([name for name in listed if name[0] in ".*"], self.names)
        for name in self.names:
            address = f"{CONN}/{name}/Addr"
            self.assertEqual(self.handset.dmclient("get", address).stdout, b"evil.apn\n")
            self.assertEqual(self.handset.dmclient("delete", f"{CONN}/{name}").returncode, 0)
        self.assertEqual(self.handset.dmclient("get", CONN).stdout.decode().splitlines(),
                         [name for name in listed if name not in self.names])


class SlashInAStoredNameTest(SessionTest):
    """A store from elsewhere has a profile "Office/Evil", so that a path beneath that node reads as
    one beneath Office."""

    def setUp(self):
        super().setUp()
        store = sqlite3.connect(os.path.join(self.handset.state, "profiles.db"))
        with store:
            cursor = store.execute("INSERT INTO profile(name, record) VALUES('Office/Evil', ?)",
                                   (b"\0" * 8 + b"evil.apn" + b"\0" * 1152,))
        store.close()
        self.name = f"Office-Evil~{cursor.lastrowid}"

    def get(self, uri):
        result = self.handset.dmclient("get", uri)
        return result.returncode, result.stdout.decode()

    def test_the_tree_shows_the_profile_under_a_name_without_a_slash(self):
        """The plug-in never sees the slash; the profile's own values can be read."""
        listed = self.get(CONN)[1].split()
        self.assertIn(self.name, listed)
        self.assertNotIn("Office%2FEvil", listed)
        self.assertEqual(self.get(f"{CONN}/{self.name}/Addr"), (0, "evil.apn\n"))

    def test_nothing_of_office_is_read_through_the_other_profile(self):
        """No address with the slash gives the password of Office."""
        for name in ("Office%2FEvil", self.name):
            for leaf in ("Auth/PAP/AuthPw", "AuthPw"):
                self.assertNotIn(SECRET, self.get(f"{CONN}/{name}/{leaf}")[1])

    def test_office_is_not_changed_through_the_other_profile(self):
        """A Replace with the slash is refused, one beneath the shown name changes that profile."""
        before = self.handset.profile("Office")
        result = self.handset.dmclient("replace", f"{CONN}/Office%2FEvil/Addr", "stolen.apn")
        self.assertEqual(result.returncode, REFUSED)
        result = self.handset.dmclient("replace", f"{CONN}/{self.name}/Addr", "changed.apn")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.handset.profile("Office"), before)
        self.assertEqual(self.handset.profile(self.name)["gprs"]["address"], "changed.apn")

    def test_the_profile_can_be_deleted(self):
        """napictl reaches the profile by the name under which it lists it."""
        self.handset.napictl("delete", self.name)
        self.assertNotIn("Evil", self.handset.napictl("list"))


class HostileTextTest(SessionTest):
    """Files and folders, and names and values in them, that would steer a terminal."""

    def assert_harmless(self, *words, state=None, stdin=None):
        environment = {**self.handset.environment(), "KUB_STATE_DIR": state or self.handset.state}
        result = subprocess.run(words, env=environment, input=stdin, capture_output=True,
                                timeout=120, check=False)
        self.assertEqual(harmful_in(result.stdout + result.stderr), [], words)
        return result

    def test_import_of_hostile_names_and_values(self):
        """napictl shows what it takes, and what it refuses, escaped."""
        profile = {"name": HOSTILE, "gprs": {"address": HOSTILE}}
        refused = (({"name": HOSTILE * 9}, REFUSED), ({"name": HOSTILE, HOSTILE: 1}, USAGE),
                   ({"name": HOSTILE + "/"}, REFUSED),
                   ({"name": HOSTILE, "gprs": {HOSTILE: ""}}, USAGE),
                   ({"name": HOSTILE, "gprs": HOSTILE}, USAGE))
        for one, status in refused:
            result = self.assert_harmless(NAPICTL, "import", "-", stdin=json.dumps(one).encode())
            self.assertEqual(result.returncode, status, result.stderr)
        self.assert_harmless(NAPICTL, "import", "-", stdin=json.dumps(profile).encode())
        for words in (["list"], ["show", HOSTILE], ["show", "--json", HOSTILE], ["export"],
                      ["check"], ["create", HOSTILE], ["set", HOSTILE, HOSTILE + "=1"],
                      ["import", HOSTILE], [HOSTILE], ["list", "--" + HOSTILE]):
            self.assert_harmless(NAPICTL, *words)
        shown = json.loads(self.assert_harmless(NAPICTL, "show", "--json", HOSTILE).stdout)
        self.assertEqual((shown["name"], shown["gprs"]["address"]), (HOSTILE, HOSTILE))

    def test_files_and_folders_with_hostile_names(self):
        """Errors of the programs and of the libraries beneath them name them escaped."""
        folder = os.path.join(self.handset.home, HOSTILE)
        missing = os.path.join(folder, "file")
        dmclient = [DMCLIENT, "--plugin", PLUGIN]
        for words in (["process", missing], ["get", HOSTILE], ["replace", HOSTILE, "x"], [HOSTILE],
                      ["--" + HOSTILE], ["session", HOSTILE], ["session", "--ca", missing, "http://x/"],
                      ["session", "--trace", missing, "http://x/"], ["account", "show", HOSTILE],
                      ["account", "add", HOSTILE, HOSTILE]):
            self.assert_harmless(*dmclient, *words)
        self.assert_harmless(DMCLIENT, "--plugin", missing, "tree")
        os.mkdir(folder, 0o700)
        for file in ("profiles.db", "settings"):
            with open(os.path.join(folder, file), "w", encoding="utf-8") as output:
                output.write("rubbish\n" * 1000)
        for words in ([NAPICTL, "list"], [*dmclient, "tree"]):
            result = self.assert_harmless(*words, state=folder)
            self.assertIn(b"31m", result.stderr)


@unittest.skipUnless(CALLGRIND, "needs valgrind, and programs without sanitizers")
class FileThatCostsMoreThanItsLengthTest(HandsetTest):
    """Makes a file that is slow to read out of all proportion to its length."""

    SHORT, LONG, MOST = 20_000, 80_000, 5

    def file(self, name, text):
        path = os.path.join(self.handset.home, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def check(self, command_for):
        self.assertLess(times_as_many(self.handset, *map(command_for, (0, self.SHORT, self.LONG))),
                        self.MOST)

    def test_attributes_of_one_tag(self):
        """An operators' database whose one tag has thousands of attributes."""
        def command(size):
            attributes = "".join(f" a{i}=''" for i in range(size // 8))
            path = self.file(f"{size}.xml", "<serviceproviders format='2.0'><country code='zz'"
                             f"{attributes}/></serviceproviders>")
            return ("napictl", "provision", "--database", path, "--country", "zz")
        self.check(command)

    def test_namespaces_inside_each_other(self):
        """An operators' database whose elements stand inside each other, each with a namespace."""
        def command(size):
            count = size // 20
            path = self.file(
                f"{size}.xml", "<serviceproviders xmlns:p='u' format='2.0'>" +
                "".join(f"<p:a xmlns:n{i}='u'>" for i in range(count)) + "</p:a>" * count +
                "</serviceproviders>")
            return ("napictl", "provision", "--database", path, "--country", "zz")
        self.check(command)


class DamagedStateFile(SessionTest):
    """A state file holds what the client does not read: half of it is missing, or one value is wrong."""
    PLANTS_FILES = True

    HALF = '{"Test": {"addr'
    LONG_NONCE = base64.b64encode(bytes(300)).decode()

    def setUp(self):
        super().setUp()
        self.add_account("https://dm.example/", client_auth="md5")
        self.add_account_named("Other", "https://other.example/")
        acl = self.handset.dmclient("replace", "./DevDetail?prop=ACL", "Get=dm.example")
        self.assertEqual(acl.returncode, SUCCESS)

    def add_account_named(self, name, url):
        self.assertEqual(self.account("add", name, "address=" + url,
                                      "server-id=other.example").returncode, SUCCESS)

    def account(self, *words):
        return self.handset.dmclient("account", *words)

    def read(self, name):
        with open(self.handset.client_file(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, text):
        with open(self.handset.client_file(name), "w", encoding="utf-8") as file:
            file.write(text)

    def lengthen_nonce(self):
        accounts = json.loads(self.read("accounts.json"))
        accounts["Test"]["client-nonce"] = self.LONG_NONCE
        self.write("accounts.json", json.dumps(accounts))

    def assert_named(self, result, *texts):
        said = (result.stdout + result.stderr).decode()
        for text in texts:
            self.assertIn(text, said)

    def assert_reads_go_on(self, name):
        """tree and get run, and say which file is damaged, where, and how to set it aside."""
        path = self.handset.client_file(name)
        for words in (("tree",), ("get", "./DevDetail/SwV")):
            result = self.handset.dmclient(*words)
            self.assertEqual(result.returncode, SUCCESS, result.stderr)
            self.assertTrue(result.stdout)
            self.assert_named(result, path)
        return path

    def assert_no_server_comes_in(self, path):
        for words in (("session", "Other"), ("session", "http://127.0.0.1:9/"),
                      ("process", "--server-id", "dm.example", "-")):
            result = self.handset.dmclient(*words, stdin=commands.PACKAGE % commands.get("./DevInfo"))
            self.assertEqual(result.returncode, UNUSABLE, words)
            self.assertEqual(result.stdout, b"", words)
            self.assert_named(result, "no server may do anything", path)

    def test_half_a_file_of_accounts(self):
        """Everything but accounts and sessions goes on, and nothing is written over it."""
        self.write("accounts.json", self.HALF)
        path = self.assert_reads_go_on("accounts.json")
        for words in (("list",), ("show", "Test"), ("remove", "Test"), ("set", "Test", "title=x"),
                      ("add", "New", "address=https://new.example/", "server-id=new")):
            result = self.account(*words)
            self.assertEqual(result.returncode, UNUSABLE, words)
            self.assert_named(result, f"{path}: byte ", f"mv '{path}' '{path}.damaged'")
        self.assert_no_server_comes_in(path)
        self.assertEqual(self.read("accounts.json"), self.HALF)
        os.rename(path, path + ".damaged")
        self.add_account_named("New", "https://new.example/")

    def test_one_account_with_a_nonce_that_is_too_long(self):
        """It is listed as damaged and can be removed; the other one is used and changed as ever."""
        self.lengthen_nonce()
        self.assert_reads_go_on("accounts.json")
        damage = "client-nonce of account Test has more than 256 bytes"
        listed = self.account("list")
        self.assertEqual(listed.returncode, SUCCESS)
        self.assertEqual(listed.stdout.decode(),
                         f"Other  https://other.example/\nTest  damaged: {damage}\n")
        for words in (("show", "Test"), ("set", "Test", "title=x"),
                      ("add", "Test", "address=https://new.example/", "server-id=new")):
            result = self.account(*words)
            self.assertEqual(result.returncode, UNUSABLE, words)
            self.assert_named(result, damage)
        self.assertEqual(self.account("set", "Other", "title=x").returncode, SUCCESS)
        self.assertEqual(json.loads(self.read("accounts.json"))["Test"]["client-nonce"],
                         self.LONG_NONCE)
        self.assertEqual(self.handset.dmclient("session", "https://dm.example/").returncode, USAGE)
        self.assertEqual(self.account("remove", "Test").returncode, SUCCESS)
        self.assertEqual(self.account("list").stderr, b"")
        acl = self.handset.dmclient("get", "./DevDetail?prop=ACL").stdout
        self.assertEqual(acl, b"\n", "the rights of its server went with it")

    def test_damaged_properties(self):
        """Without the lists no server may do anything; the owner goes on, and nothing is overwritten."""
        for damage in (self.read("properties.json")[:-3],
                       self.read("properties.json").replace("Get=", "Grab=")):
            self.write("properties.json", damage)
            path = self.assert_reads_go_on("properties.json")
            self.assert_no_server_comes_in(path)
            self.assertEqual(self.account("list").returncode, SUCCESS)
            office = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr"
            for words in (("replace", office, "x"), ("replace", "./DevDetail?prop=Title", "x"),
                          ("replace", "./DevDetail?prop=ACL", "Get=*"),
                          ("shell",), ("get", "./DevDetail?prop=ACL")):
                result = self.handset.dmclient(*words, stdin=f"replace {office} y\n")
                self.assertNotEqual(result.returncode, SUCCESS, words)
                self.assert_named(result, path)
            self.assertEqual(self.handset.profile("Office")["gprs"]["address"], "y")
            self.assertEqual(self.read("properties.json"), damage)

    def test_removing_an_account_beside_damaged_properties(self):
        """The account goes; that its server's rights could not be taken away is said."""
        self.write("properties.json", self.HALF)
        result = self.account("remove", "Test")
        self.assertEqual(result.returncode, UNUSABLE)
        self.assert_named(result, self.handset.client_file("properties.json"))
        self.assertEqual(self.account("list").stdout, b"Other  https://other.example/\n")
        self.assertEqual(self.read("properties.json"), self.HALF)

    def test_a_device_identifier_that_is_empty(self):
        """As a full disk left it: the owner goes on, and no server hears of a device without a name."""
        self.write("device-id", "")
        path = self.assert_reads_go_on("device-id")
        self.assert_no_server_comes_in(path)
        result = self.handset.dmclient("process", "-",
                                       stdin=commands.PACKAGE % commands.get("./DevInfo"))
        self.assertEqual((result.returncode, result.stdout), (UNUSABLE, b""))
        os.rename(path, path + ".damaged")
        self.assertEqual(self.handset.dmclient("tree").stderr, b"")

    def test_a_device_identifier_that_is_no_line_of_text(self):
        """Zeros, two lines, control characters, bytes that are not UTF-8: none of it goes to a server."""
        for content in (bytes(46), b"a\nb\n", b"\nurn:a\n", b"urn:a\x1b[31m", b"urn:a\tb",
                        b"\377\376", "urn:\x85".encode(), "urn:\ufffe".encode()):
            with open(self.handset.client_file("device-id"), "wb") as file:
                file.write(content)
            path = self.assert_reads_go_on("device-id")
            self.assert_no_server_comes_in(path)
            said = self.handset.dmclient("get", "./DevInfo/DevId").stderr.decode()
            self.assertIn(f"mv '{path}' '{path}.damaged'", said, content)
            with open(path, "rb") as file:
                self.assertEqual(file.read(), content)

    def test_a_state_directory_with_an_apostrophe(self):
        """The way to set the file aside can be pasted into a shell as it stands."""
        state = os.path.join(self.handset.home, "it's; touch x")
        os.rename(self.handset.state, state)
        self.handset.state = state
        self.write("device-id", "")
        said = self.handset.dmclient("get", "./DevInfo/Man").stderr.decode()
        hint = said[said.index("mv '"):].splitlines()[0]
        subprocess.run(["sh", "-c", hint], cwd=self.handset.home, check=True, timeout=60)
        self.assertEqual(os.path.getsize(self.handset.client_file("device-id.damaged")), 0)
        self.assertEqual(sorted(os.listdir(self.handset.home)), [os.path.basename(state)])


if __name__ == "__main__":
    unittest.main()
