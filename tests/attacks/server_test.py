"""What a DM server with an account may try, and what must hold."""

import unittest

from commands import (HandsetTest, add, copy, delete, execute, get, rename, replace, run, set_acl)
from handset import CONN, PROXY, SECRET

OWN = "Add=a.example&Delete=a.example&Get=*&Replace=a.example"


class OwnProfileTest(HandsetTest):
    """Another server takes over a profile that a server has made or has made its own."""

    def setUp(self):
        super().setUp()
        self.assertEqual(run(self.handset, add(CONN + "/Mine"), add(CONN + "/Mine/Addr", "a.example"),
                             server="a.example").statuses, [200, 200])
        self.assertEqual(run(self.handset, set_acl(CONN + "/Home", OWN), server="a.example").statuses,
                         [200])
        self.before = [self.handset.profile(name) for name in ("Mine", "Home")]

    def tearDown(self):
        self.assertEqual([self.handset.profile(name) for name in ("Mine", "Home")], self.before)

    def refused(self, *commands):
        answers = run(self.handset, *commands, server="b.example")
        self.assertEqual(answers.statuses, [425] * len(commands), answers.text)

    def test_through_the_lists_of_the_profile_and_of_the_nodes_above_it(self):
        """It replaces the list of the profile, of its leaves and of every node above; none changes."""
        self.refused(*(set_acl(profile + rest, "Add=*&Delete=*&Get=*&Replace=*")
                       for profile in (CONN + "/Mine", CONN + "/Home") for rest in ("", "/Addr")),
                     set_acl(CONN, "Replace=*"), set_acl(CONN.rsplit("/", 1)[0], "Replace=*"))

    def test_by_changing_it(self):
        """It writes, adds, copies, renames and deletes; nothing of the profile changes."""
        for profile in (CONN + "/Mine", CONN + "/Home"):
            self.refused(replace(profile + "/Addr", "evil.example"), add(profile + "/DNS1", "10.9.9.9"),
                         copy(CONN + "/Office/Addr", profile + "/Addr"),
                         replace(profile + "?prop=Title", "x"), rename(profile, "Evil"),
                         delete(profile + "/Addr"), delete(profile))

    def test_by_giving_its_name_to_another_profile(self):
        """It renames another profile to the name, adds the name, and copies onto it; the name is
        taken."""
        answers = run(self.handset, rename(CONN + "/Office", "Mine"), add(CONN + "/Mine"),
                      server="b.example")
        self.assertEqual(answers.statuses, [418, 418])

    def test_through_the_other_root(self):
        """It uses the profile's node beneath the other root; the list goes for that one as well."""
        for name in ("Mine", "Home"):
            node = f"{PROXY}/{name}"
            self.refused(add(node + "/Ph1/Addr", "evil.example"), replace(node + "/UserEditable", "true"),
                         set_acl(node, "Replace=*"), rename(node, "Evil"), delete(node))

    def test_after_the_profile_was_renamed(self):
        """It waits until the owner of the device renames the profile; the list stays with it."""
        self.rename_stored("Home", "House")
        self.refused(set_acl(CONN + "/House", "Replace=*"), replace(CONN + "/House/Addr", "evil"),
                     delete(PROXY + "/House"))
        self.rename_stored("House", "Home")

    def test_its_owner_still_manages_it(self):
        """What the other one may not, the server whose profile it is may."""
        answers = run(self.handset, replace(CONN + "/Mine/Addr", "b.example"),
                      replace(CONN + "/Mine/Addr", "a.example"),
                      set_acl(CONN + "/Mine", "Get=*&Replace=a.example"), server="a.example")
        self.assertEqual(answers.statuses, [200, 200, 200])


class ProfileOfTheDeviceTest(HandsetTest):
    """A profile that was there before any server belongs to none of them."""

    def test_every_server_manages_it(self):
        """Two servers after each other change it, and the second deletes it."""
        self.assertEqual(run(self.handset, replace(CONN + "/Office/Addr", "one"),
                             server="a.example").statuses, [200])
        self.assertEqual(run(self.handset, replace(CONN + "/Office/Addr", "two"),
                             delete(CONN + "/Office"), server="b.example").statuses, [200, 200])


class SlashInANameTest(HandsetTest):
    """A profile Office/Evil is there, which the plug-in takes for Office beneath its node."""

    EVIL = CONN + "/Office%2FEvil"
    SECRET = "/Auth/PAP/AuthPw"

    def setUp(self):
        super().setUp()
        self.rename_stored("Home", "Office/Evil")
        run(self.handset, set_acl(CONN + "/Office", "Get=a.example&Replace=a.example"))
        self.before = self.handset.profile("Office")

    def tearDown(self):
        self.assertEqual(self.handset.profile("Office"), self.before)

    def test_no_command_gives_what_is_in_the_other_profile(self):
        """A server that may not read Office asks for its password by every command; none tells it."""
        for root in (CONN, PROXY):
            evil = root + "/Office%2FEvil"
            answers = run(self.handset, get(evil + self.SECRET), get(evil + "?list=StructData"),
                          get(evil + "?list=TNDS"), get(root + "?list=StructData"),
                          get(root + "?list=TNDS"), get(evil + self.SECRET + "?prop=Size"),
                          copy(evil + self.SECRET, CONN + "/%C3%84rzte/Addr"), server="b.example")
            self.assertNotIn(SECRET, answers.text)

    def test_no_command_changes_the_other_profile(self):
        """It replaces, adds, deletes, renames and executes beneath the name; Office stays as it is."""
        for evil in (self.EVIL, PROXY + "/Office%2FEvil"):
            answers = run(self.handset, replace(evil + "/Addr", "evil.example"),
                          replace(evil + self.SECRET, "mine"), add(evil + "/DNS1", "10.9.9.9"),
                          copy(CONN + "/Office/Addr", evil + "/Addr"), rename(evil, "Office"),
                          delete(evil + "/Addr"), delete(evil), execute(evil), server="b.example")
            self.assertNotIn(200, answers.statuses)


if __name__ == "__main__":
    unittest.main()
