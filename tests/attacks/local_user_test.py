"""What another user of the same device may try, and what must hold."""

import json
import os
import subprocess
import tempfile
import unittest

from commands import HandsetTest, delete, get, replace, run, set_acl
from sessions import DMCLIENT, PLUGIN, UNUSABLE, Handset
from handset import CONN, NAPICTL, PROFILES

OTHER_USER = 65534
OWN = "Delete=a.example&Get=a.example&Replace=a.example"


def as_another_user(action):
    """Runs a function as somebody else; skips the test where that is not allowed."""
    if os.geteuid() != 0:
        raise unittest.SkipTest("needs root, to act as a second user")
    child = os.fork()
    if child == 0:
        try:
            os.setgroups([])
            os.setgid(OTHER_USER)
            os.setuid(OTHER_USER)
            action()
            os._exit(0)
        except OSError:
            os._exit(1)
    _, status = os.waitpid(child, 0)
    assert status == 0, "the other user could not do it"


class LibraryInTheCurrentFolderTest(unittest.TestCase):
    """Lays files under the names of the programs' libraries into a folder and waits for somebody to
    run a program there."""

    def test_no_program_loads_a_library_from_the_folder_that_it_is_run_in(self):
        """Every library comes from the system or from beside the program."""
        handset = Handset()
        self.addCleanup(handset.close)
        for program in (DMCLIENT, NAPICTL):
            with self.subTest(program=program), tempfile.TemporaryDirectory() as folder:
                for library in self.libraries_of(program):
                    # The loader ends a program at a file that is not a library.
                    with open(os.path.join(folder, library), "w", encoding="ascii") as file:
                        file.write("planted")
                result = subprocess.run([program, "list" if program == NAPICTL else "tree"],
                                        env=handset.environment(), cwd=folder,
                                        capture_output=True, text=True)
                self.assertEqual(result.returncode, 0, result.stderr)

    @staticmethod
    def libraries_of(program):
        """The names of everything that the loader loads for the program, the plug-in's part too."""
        plugin = os.environ["PLUGIN"]
        lines = subprocess.run(["ldd", program, plugin], check=True, capture_output=True,
                               text=True).stdout.splitlines()
        return {line.split("=>")[0].strip() for line in lines if "=>" in line} | {
            os.path.basename(plugin)}


class PublicPlace(unittest.TestCase):
    """A folder such as /tmp: everybody may write to it, and nobody may rename what others made."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.place = os.path.join(folder.name, "public")
        os.chmod(folder.name, 0o755)
        os.mkdir(self.place)
        os.chmod(self.place, 0o1777)
        self.state = os.path.join(self.place, "handset")
        self.private = os.path.join(folder.name, "private")
        os.mkdir(self.private, 0o700)

    def run_program(self, *words):
        return subprocess.run(words, env={"HOME": self.private, "PATH": os.environ["PATH"]},
                              capture_output=True, text=True, timeout=60, check=False)

    def both_programs(self):
        return (self.run_program(NAPICTL, "--state", self.state, "create", "Office"),
                self.run_program(DMCLIENT, "--plugin", PLUGIN, "--state", self.state, "tree"))

    def assert_refused(self, path, reason):
        for result in self.both_programs():
            self.assertEqual(result.returncode, UNUSABLE, result.stderr)
            self.assertIn(f"cannot use {path}: {reason}", result.stderr)


class AFolderMadeFirst(PublicPlace):
    """The attacker makes the state directory before its owner does."""

    def test_a_state_directory_of_another_user_is_refused(self):
        """A folder of the attacker's, open to all, gets no file and no secret."""
        as_another_user(lambda: (os.mkdir(self.state), os.chmod(self.state, 0o777)))
        self.assert_refused(self.state, "it belongs to nobody, not to root")
        self.assertEqual(os.listdir(self.state), [])

    def test_a_folder_above_of_another_user_is_refused(self):
        """Whoever owns the folder above could put another state in place later."""
        as_another_user(lambda: (os.mkdir(self.state), os.chmod(self.state, 0o777)))
        above, self.state = self.state, os.path.join(self.state, "below")
        self.assert_refused(above, "it belongs to nobody, not to root")

    def test_a_link_of_another_user_is_not_followed(self):
        """A link in the place of the state directory does not send files to a folder of its maker's
        choice."""
        as_another_user(lambda: os.symlink(self.private, self.state))
        self.assert_refused(self.state, "it belongs to nobody, not to root")
        self.assertEqual(os.listdir(self.private), [])

    def test_a_place_without_the_sticky_bit_is_refused(self):
        """Where everybody may rename everything, no folder stays the one that was checked."""
        os.chmod(self.place, 0o777)
        self.assert_refused(self.state, f"everybody can write to {self.place}")

    def test_a_new_state_directory_lets_nobody_in(self):
        """A state that the owner makes in a public place cannot be listed, read or entered."""
        for result in self.both_programs():
            self.assertEqual(result.returncode, 0, result.stderr)
        as_another_user(lambda: self.assertRaises(PermissionError, os.listdir, self.state))
        for folder, _, files in os.walk(self.state):
            for name in ["", *files]:
                mode = os.stat(os.path.join(folder, name)).st_mode
                self.assertEqual(mode & 0o077, 0, os.path.join(folder, name))


class AFolderThatOthersCanWriteTo(PublicPlace):
    """The owner's own state directory, with modes that let others in."""

    def test_a_state_directory_open_to_the_group_or_to_all_is_refused(self):
        """Others could have put anything there: nothing of it is used."""
        os.mkdir(self.state, 0o700)
        for mode in (0o770, 0o757, 0o777):
            os.chmod(self.state, mode)
            self.assert_refused(self.state, "other users can write to it")
        self.assertEqual(os.listdir(self.state), [])

    def test_folders_inside_are_held_to_the_same(self):
        """The client's folder and that of the settings files are checked like their parent."""
        for result in self.both_programs():
            self.assertEqual(result.returncode, 0, result.stderr)
        for name in ("client", "settings"):
            folder = os.path.join(self.state, name)
            os.chmod(folder, 0o777)
            result = self.both_programs()[1]
            self.assertEqual(result.returncode, UNUSABLE)
            self.assertIn(f"cannot use {folder}: other users can write to it", result.stderr)
            os.chmod(folder, 0o700)


class PropertiesOfAProfileTest(HandsetTest):
    """Somebody who manages the connections gives a profile the name of another one."""

    def acl(self, name):
        answers = run(self.handset, get(f"{CONN}/{name}?prop=ACL"))
        return answers.values.get(f"{CONN}/{name}?prop=ACL")

    def test_a_new_profile_of_a_deleted_ones_name_has_none_of_its_rights(self):
        """A profile that a server may change is deleted and another one made of that name; the
        server has no more rights on it than any other."""
        run(self.handset, set_acl(CONN + "/Office", OWN))
        self.handset.napictl("delete", "Office")
        self.handset.napictl("import", "-", stdin=json.dumps(PROFILES[:1]))
        self.assertEqual(self.acl("Office"), "Add=*&Delete=*&Get=*&Replace=*")
        self.assertEqual(run(self.handset, replace(CONN + "/Office/Addr", "x"),
                             server="b.example").statuses, [200])

    def test_a_renamed_profile_keeps_its_rights(self):
        """A profile of one server is renamed; no other server can change it under the new name."""
        run(self.handset, set_acl(CONN + "/Office", OWN))
        self.rename_stored("Office", "Branch")
        self.assertEqual(self.acl("Branch"), OWN)
        self.assertEqual(run(self.handset, get(CONN + "/Branch/Addr"), delete(CONN + "/Branch"),
                             server="b.example").statuses, [425, 425])

    def test_two_profiles_that_change_their_names_keep_their_own_rights(self):
        """Two profiles change names with each other; each keeps its list."""
        run(self.handset, set_acl(CONN + "/Office", OWN), set_acl(CONN + "/Home", "Get=*"))
        for name, new_name in (("Office", "aside"), ("Home", "Office"), ("aside", "Home")):
            self.rename_stored(name, new_name)
        self.assertEqual((self.acl("Office"), self.acl("Home")), ("Get=*", OWN))

    def test_profiles_that_have_numbers_for_names_keep_their_own_rights(self):
        """The node PX1 of one profile becomes that of another, since one before it goes; the second
        does not get the list of the first."""
        self.rename_stored("Home", "\u00d6kohof")
        run(self.handset, set_acl(CONN + "/PX1", OWN))
        self.handset.napictl("delete", PROFILES[1]["name"])
        self.assertEqual(self.acl("PX1"), "Add=*&Delete=*&Get=*&Replace=*")


if __name__ == "__main__":
    unittest.main()
