"""What a file made to do harm may try, and what must hold."""

import os
import sqlite3
import unittest

from sessions import SessionTest

from handset import CONN, SECRET

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


if __name__ == "__main__":
    unittest.main()
