"""What a file made to do harm may try, and what must hold."""

import json
import os
import sqlite3
import subprocess
import unittest

from handset import CONN, DMCLIENT, Handset, NAPICTL, PLUGIN, SECRET
from hostile_text import HOSTILE, harmful_in
from instructions import CALLGRIND, times_as_many
from sessions import SessionTest

REFUSED = 1


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
        refused = ({"name": HOSTILE * 9}, {"name": HOSTILE, HOSTILE: 1}, {"name": HOSTILE + "/"},
                   {"name": HOSTILE, "gprs": {HOSTILE: ""}}, {"name": HOSTILE, "gprs": HOSTILE})
        for one in refused:
            result = self.assert_harmless(NAPICTL, "import", "-", stdin=json.dumps(one).encode())
            self.assertEqual(result.returncode, REFUSED, result.stderr)
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


@unittest.skipUnless(CALLGRIND, "needs valgrind")
class FileThatCostsMoreThanItsLengthTest(unittest.TestCase):
    """Makes a file that is slow to read out of all proportion to its length."""

    SHORT, LONG, MOST = 20_000, 80_000, 5

    def setUp(self):
        self.handset = Handset()
        self.addCleanup(self.handset.close)

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


if __name__ == "__main__":
    unittest.main()
