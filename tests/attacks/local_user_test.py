"""What another user of the same device may try, and what must hold."""

import json
import os
import pty
import re
import signal
import subprocess
import sys
import tempfile
import termios
import time
import unittest

from commands import delete, get, replace, run, set_acl
from hostile_text import HOSTILE, harmful_in
from handset import CONN, DMCLIENT, NAPICTL, PLUGIN, PROFILES, SECRET, Handset, HandsetTest
from sessions import UNUSABLE, SessionTest
from terminal import Terminal

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


class AFolderAboveOfTheAttackers(PublicPlace):
    """The state directory lies in a folder that the attacker owns, or whose group they are in."""

    def setUp(self):
        super().setUp()
        os.chmod(self.place, 0o755)
        self.above = os.path.join(self.place, "above")
        self.state = os.path.join(self.above, "handset")
        os.makedirs(self.state, 0o700)

    def test_a_state_directory_that_was_exchanged_for_a_link_is_refused(self):
        """A link that the attacker put in its place sends no file into another of the user's
        folders."""
        os.chown(self.above, OTHER_USER, -1)
        as_another_user(lambda: (os.rename(self.state, self.state + "-before"),
                                 os.symlink(self.private, self.state)))
        self.assert_refused(self.above, "it belongs to nobody, not to root")
        self.assertEqual(os.listdir(self.private), [])

    def test_a_state_directory_that_could_be_exchanged_is_refused(self):
        """Nothing is stored that the attacker could put aside later."""
        if os.geteuid() != 0:
            self.skipTest("needs root, to give files to a second user")
        os.chown(self.above, OTHER_USER, -1)
        self.assert_refused(self.above, "it belongs to nobody, not to root")
        os.chown(self.above, 0, OTHER_USER)
        os.chmod(self.above, 0o775)
        self.assert_refused(self.state, f"a group can write to {self.above}")
        self.assertEqual(os.listdir(self.state), [])


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
        self.handset.rename_stored("Office", "Branch")
        self.assertEqual(self.acl("Branch"), OWN)
        self.assertEqual(run(self.handset, get(CONN + "/Branch/Addr"), delete(CONN + "/Branch"),
                             server="b.example").statuses, [425, 425])

    def test_a_profile_that_has_no_bearer_for_a_while_keeps_its_rights(self):
        """The address of a profile's only bearer is taken away, so that no node shows it, and given
        back; it is still that server's."""
        run(self.handset, set_acl(CONN + "/Home", OWN))
        self.handset.napictl("set", "Home", "csd.address=")
        self.assertEqual(self.acl("Home"), None)
        run(self.handset, set_acl(CONN + "/Office", "Get=*"))
        self.handset.napictl("set", "Home", "csd.address=+4930123")
        self.assertEqual(self.acl("Home"), OWN)
        self.assertEqual(run(self.handset, replace(CONN + "/Home/Addr", "x"),
                             server="b.example").statuses, [425])

    def test_two_profiles_that_change_their_names_keep_their_own_rights(self):
        """Two profiles change names with each other; each keeps its list."""
        run(self.handset, set_acl(CONN + "/Office", OWN), set_acl(CONN + "/Home", "Get=*"))
        for name, new_name in (("Office", "aside"), ("Home", "Office"), ("aside", "Home")):
            self.handset.rename_stored(name, new_name)
        self.assertEqual((self.acl("Office"), self.acl("Home")), ("Get=*", OWN))

    def test_profiles_that_have_numbers_for_names_keep_their_own_rights(self):
        """The node PX1 of one profile becomes that of another, since one before it goes; the second
        does not get the list of the first."""
        self.handset.rename_stored("Home", "\u00d6kohof")
        run(self.handset, set_acl(CONN + "/PX1", OWN))
        self.handset.napictl("delete", PROFILES[1]["name"])
        self.assertEqual(self.acl("PX1"), "Add=*&Delete=*&Get=*&Replace=*")


class LinksAndFilesInside(HandsetTest):
    """What the attacker put into the state directory while it was open, and its owner closed again."""

    MAPPING = "settings/kub_napdef_profilemapping.cfg"

    def setUp(self):
        super().setUp()
        self.assertEqual(self.handset.dmclient("tree").returncode, 0)
        self.handset.dmclient("account", "add", "Mine", "address=https://dm.example/",
                              "server-id=dm.example")
        self.target = os.path.join(self.handset.home, "target")

    def path(self, name):
        return os.path.join(self.handset.state, name)

    def plant_link(self, name):
        if os.path.lexists(self.path(name)):
            os.unlink(self.path(name))
        os.symlink(self.target, self.path(name))

    def napictl(self, *words):
        return subprocess.run([NAPICTL, *words], env=self.handset.environment(),
                              capture_output=True, timeout=60, check=False)

    def assert_target_untouched(self, name):
        with open(self.target, encoding="ascii") as file:
            self.assertEqual(file.read(), "the owner's other file\n", name)

    def test_no_link_is_followed_to_a_file_that_exists(self):
        """A link to another file of the owner's: it is neither read, nor changed, nor replaced."""
        for name in ("profiles.db", "profiles.db-wal", "profiles.db-shm", "profiles.db-journal",
                     "client/lock", "client/plugin.log", "client/device-id",
                     "client/accounts.json", "client/properties.json"):
            with self.subTest(file=name):
                with open(self.target, "w", encoding="ascii") as file:
                    file.write("the owner's other file\n")
                kept = self.path(name) + ".kept"
                if os.path.exists(self.path(name)):
                    os.rename(self.path(name), kept)
                self.plant_link(name)
                result = self.handset.dmclient("session", "Mine")
                if name.startswith("profiles"):
                    result = self.napictl("create", "New")
                elif name == "client/plugin.log":
                    result = self.handset.dmclient("tree")
                self.assertNotEqual(result.returncode, 0)
                self.assertIn(b"symbolic link", result.stderr)
                self.assertIn(name.encode(), result.stderr)
                self.assert_target_untouched(name)
                os.unlink(self.path(name))
                if os.path.exists(kept):
                    os.rename(kept, self.path(name))

    def test_no_link_makes_a_new_file_elsewhere(self):
        """A link to a file that is not there yet does not make it."""
        for name in ("profiles.db", "client/lock", "client/plugin.log", "client/device-id",
                     "client/accounts.json", "client/properties.json", self.MAPPING):
            with self.subTest(file=name):
                self.plant_link(name)
                self.handset.dmclient("replace", "./DevDetail?prop=Title", "x")
                self.handset.dmclient("account", "add", "New", "address=https://dm.example/",
                                      "server-id=dm.example")
                self.assertFalse(os.path.exists(self.target))
                if os.path.lexists(self.path(name)):
                    os.unlink(self.path(name))

    def test_a_mapping_file_that_is_a_link_is_replaced_and_not_followed(self):
        """The plug-in's files are rebuilt at every mount: the link goes, its target stays."""
        with open(self.target, "w", encoding="ascii") as file:
            file.write("the owner's other file\n")
        self.plant_link(self.MAPPING)
        self.assertEqual(self.handset.dmclient("tree").returncode, 0)
        self.assert_target_untouched(self.MAPPING)
        self.assertFalse(os.path.islink(self.path(self.MAPPING)))

    def test_files_of_another_user_are_refused(self):
        """A store, an account or a list of rights that somebody else wrote is not the owner's."""
        if os.geteuid() != 0:
            self.skipTest("needs root, to act as a second user")
        self.assertEqual(self.handset.dmclient("replace", f"{CONN}/Office?prop=Title",
                                               "mine").returncode, 0)
        for name in ("profiles.db", "client/lock", "client/device-id", "client/accounts.json",
                     "client/properties.json"):
            with self.subTest(file=name):
                os.chown(self.path(name), OTHER_USER, OTHER_USER)
                command = ("tree",) if name == "profiles.db" else ("session", "Mine")
                result = self.handset.dmclient(*command)
                self.assertEqual(result.returncode, UNUSABLE, result.stderr)
                self.assertIn(b"it belongs to nobody, not to root", result.stderr)
                os.chown(self.path(name), 0, 0)


class LinkForTheHistoryTest(SessionTest):
    """What the attacker put in the place of the file that keeps the shell's lines."""

    def test_the_shell_neither_reads_nor_changes_what_the_link_points_at(self):
        """It says so, and keeps the lines for itself."""
        target = os.path.join(self.handset.home, "target")
        with open(target, "w", encoding="ascii") as file:
            file.write("_HiStOrY_V2_\nget\\040./DevInfo/DmV\n")
        self.assertEqual(self.handset.dmclient("tree").returncode, 0)
        os.symlink(target, self.handset.client_file("history"))
        terminal = Terminal(self, "shell")
        shown = terminal.answer("dm> ", "get ./DevInfo/Man\n")
        terminal.wait_for("get ./DevInfo/Man: 200 OK")
        terminal.answer("dm> ", "\x1b[A\x1b[A\n")  # recalls that line: there is none before it
        terminal.wait_for("get ./DevInfo/Man: 200 OK")
        terminal.answer("dm> ", "quit\n")
        terminal.end()
        self.assertIn("the lines are not kept", shown)
        self.assertIn("client/history: it is a symbolic link", shown)
        with open(target, encoding="ascii") as file:
            self.assertEqual(file.read(), "_HiStOrY_V2_\nget\\040./DevInfo/DmV\n")


WITH_PRIVATE_NETWORKMANAGER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..",
                                           "integration", "networkmanager",
                                           "with-private-networkmanager")
IS_SKIPPED = 77


class PasswordsOnTheBusTest(HandsetTest):
    """Asks NetworkManager on the system bus for everything that it tells every user about the
    connections in which profiles are stored."""

    PROFILES = []
    PASSWORDS = {"csd.authPassword": "s3cr3t-1", "csd2.authPassword": "s3cr3t-2"}
    NETWORKMANAGER = "org.freedesktop.NetworkManager"

    def run(self, result=None):
        """Runs the test itself again beside a NetworkManager of its own."""
        if "PRIVATE_NETWORKMANAGER" in os.environ:
            return super().run(result)
        return unittest.FunctionTestCase(self.run_beside_networkmanager,
                                         description=self.id()).run(result)

    def run_beside_networkmanager(self):
        name = f"{type(self).__name__}.{self._testMethodName}"
        outcome = subprocess.run([WITH_PRIVATE_NETWORKMANAGER, sys.executable, "-B",
                                  os.path.abspath(__file__), name],
                                 capture_output=True, text=True, timeout=300, check=False)
        if outcome.returncode == IS_SKIPPED:
            raise unittest.SkipTest(outcome.stderr.strip())
        self.assertEqual(outcome.returncode, 0, outcome.stderr)

    def setUp(self):
        super().setUp()
        os.environ["KUB_NAPI_BACKEND"] = "networkmanager"

    def napictl(self, *arguments):
        return self.handset.napictl("--backend", "networkmanager", *arguments)

    def ask_bus(self, path, method):
        return subprocess.run(["dbus-send", "--system", "--print-reply", "--dest=" + self.NETWORKMANAGER,
                               path, f"{self.NETWORKMANAGER}.Settings{method}"],
                              check=True, capture_output=True, text=True).stdout

    def told_to_everybody(self):
        settings = "/org/freedesktop/NetworkManager/Settings"
        paths = re.findall('object path "(.*)"', self.ask_bus(settings, ".ListConnections"))
        self.assertTrue(paths)
        return "".join(self.ask_bus(path, ".Connection.GetSettings") for path in paths)

    def assert_kept(self):
        stored = json.loads(self.napictl("show", "--json", "--show-secrets", "Office"))
        for field, password in self.PASSWORDS.items():
            part, name = field.split(".")
            self.assertEqual(stored[part][name], password)
            self.assertNotIn(password, self.told_to_everybody())
        database = os.path.join(self.handset.state, "networkmanager-ids.db")
        self.assertEqual(os.stat(database).st_mode & 0o777, 0o600)

    def test_passwords_that_are_stored(self):
        """The passwords of circuit-switched data are not among it."""
        self.napictl("create", "Office", "csd.address=1", "csd2.address=2",
                     *(f"{field}={password}" for field, password in self.PASSWORDS.items()))
        self.assert_kept()

    def test_passwords_that_were_stored_where_everybody_reads(self):
        """They are moved when a program reads the profile."""
        self.napictl("create", "Office", "csd.address=1", "csd2.address=2")
        folder = os.path.join(os.environ["PRIVATE_NETWORKMANAGER_DIR"], "system-connections")
        file, = (os.path.join(folder, name) for name in os.listdir(folder))
        with open(file, encoding="utf-8") as connection:
            text = connection.read()
        keys = "".join(f"kub-dm.{field}={password}\n" for field, password in self.PASSWORDS.items())
        with open(file, "w", encoding="utf-8") as connection:
            connection.write(text.replace("[user]\n", "[user]\n" + keys))
        subprocess.run(["nmcli", "connection", "reload"], check=True)
        for password in self.PASSWORDS.values():
            self.assertIn(password, self.told_to_everybody())
        self.assert_kept()


class SecretOnTheCommandLineTest(SessionTest):
    """Reads the command lines of all processes in /proc, and what a user leaves in files."""

    LEAF = CONN + "/Office/Auth/PAP/AuthPw"
    # Each asks for one secret: words of the command, how to read it back, and what then holds it.
    COMMANDS = [
        ("dmclient", ["replace", LEAF, "-"], ["get", "--show-secrets", LEAF]),
        ("dmclient", ["replace", CONN + "/Office/Auth/PAP", "AuthId=me", "AuthPw=-"],
         ["get", "--show-secrets", LEAF]),
        ("napictl", ["set", "Office", "gprs.authPassword=-"], None),
        ("napictl", ["create", "Fresh", "gprs.authPassword=-"], None),
        ("dmclient", ["account", "add", "New", "address=https://dm.example/", "server-id=s",
                      "client-auth=basic", "client-name=me", "client-secret=-"],
         ["account", "show", "New", "--show-secrets"]),
    ]
    TYPED = "Typed at the prompt \u00e4"

    def begin(self, program, words, **streams):
        command = [DMCLIENT, "--plugin", PLUGIN] if program == "dmclient" else [NAPICTL]
        process = subprocess.Popen([*command, *words], env=self.handset.environment(TERM="xterm"),
                                   **streams)
        self.addCleanup(process.kill)
        return process

    def read_back(self, words, read):
        if read:
            return self.handset.dmclient(*read).stdout.decode()
        return self.handset.napictl("show", words[1], "--show-secrets")

    def test_a_secret_of_standard_input_is_in_no_command_line(self):
        """The value - is a line of standard input, and /proc shows the dash."""
        for program, words, read in self.COMMANDS:
            with self.subTest(words=words):
                process = self.begin(program, words, stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                shown = b""
                while process.poll() is None and not shown:  # empty while the program is started
                    with open(f"/proc/{process.pid}/cmdline", "rb") as file:
                        shown = file.read()
                output, _ = process.communicate(self.TYPED.encode() + b"\nthe next line\n")
                self.assertEqual((process.returncode, output), (0, b""))
                self.assertTrue(shown.endswith(b"-\0"), shown)
                self.assertIn(self.TYPED, self.read_back(words, read))

    def test_a_secret_that_is_typed_is_not_shown(self):
        """A terminal asks with the name of what is wanted, and has its echo off."""
        for program, words, read in self.COMMANDS[1:4]:
            with self.subTest(words=words):
                master, slave = pty.openpty()
                process = self.begin(program, words, stdin=slave, stdout=slave, stderr=slave)
                screen = b""
                while b": " not in screen:
                    screen += os.read(master, 4096)
                while termios.tcgetattr(slave)[3] & termios.ECHO:
                    self.assertIsNone(process.poll())
                os.write(master, self.TYPED.encode() + b"\n")
                self.assertEqual(process.wait(60), 0)
                self.assertTrue(termios.tcgetattr(slave)[3] & termios.ECHO)
                os.close(slave)
                try:
                    while data := os.read(master, 4096):
                        screen += data
                except OSError:
                    pass  # everything was read
                os.close(master)
                self.assertIn(b"uth", screen)
                self.assertNotIn(b"Typed", screen)
                self.assertIn(self.TYPED, self.read_back(words, read))

    def begin_to_ask(self, program, words):
        """The process with its echo off, and the two ends of its terminal."""
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, slave)
        process = self.begin(program, words, stdin=slave, stdout=slave, stderr=slave,
                             process_group=0)
        self.wait_for_echo(slave, False, process)
        return process, master, slave

    def wait_for_echo(self, terminal, wanted, process):
        end = time.monotonic() + 60
        while bool(termios.tcgetattr(terminal)[3] & termios.ECHO) != wanted:
            self.assertIsNone(process.poll())
            self.assertLess(time.monotonic(), end)

    def test_the_question_does_not_steer_the_terminal(self):
        """An address that somebody gave the user to type in is shown escaped."""
        uri = f"./{HOSTILE}\x1b[31m/AuthPw"
        process, master, _ = self.begin_to_ask("dmclient", ["replace", uri, "-"])
        shown = os.read(master, 4096)
        self.assertIn(b"/AuthPw: ", shown)
        self.assertEqual(harmful_in(shown), [])
        process.terminate()
        process.wait(60)

    def test_a_signal_at_the_question_leaves_the_terminal_as_it_was(self):
        """The program ends by the signal, and what is typed next is not hidden from its user, who
        would see nothing of what somebody has typed before."""
        for program, words, _ in self.COMMANDS:
            for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(words=words, signal=number):
                    process, _, terminal = self.begin_to_ask(program, words)
                    process.send_signal(number)
                    self.assertEqual(process.wait(60), -number)
                    self.assertTrue(termios.tcgetattr(terminal)[3] & termios.ECHO)

    def test_a_question_that_waits_in_the_background_lends_the_terminal_back(self):
        """Ctrl-Z shows what is typed until the program goes on, which then hides the answer."""
        program, words, _ = self.COMMANDS[2]
        process, master, terminal = self.begin_to_ask(program, words)
        for _ in range(2):
            process.send_signal(signal.SIGTSTP)
            os.waitpid(process.pid, os.WUNTRACED)
            self.assertTrue(termios.tcgetattr(terminal)[3] & termios.ECHO)
            process.send_signal(signal.SIGCONT)
            self.wait_for_echo(terminal, False, process)
        os.write(master, self.TYPED.encode() + b"\n")
        self.assertEqual(process.wait(60), 0)
        self.assertIn(self.TYPED, self.read_back(words, None))

    def test_a_signal_that_is_ignored_does_not_end_the_question(self):
        """A program that was started to ignore SIGHUP is asked on, with its echo off."""
        program, words, _ = self.COMMANDS[2]
        before = signal.signal(signal.SIGHUP, signal.SIG_IGN)
        self.addCleanup(signal.signal, signal.SIGHUP, before)
        process, master, terminal = self.begin_to_ask(program, words)
        process.send_signal(signal.SIGHUP)
        os.write(master, self.TYPED.encode() + b"\n")
        self.assertEqual(process.wait(60), 0)
        self.assertTrue(termios.tcgetattr(terminal)[3] & termios.ECHO)

    def test_no_line_is_an_error(self):
        """Standard input that ends changes nothing."""
        before = self.handset.profile("Office")
        for program, words, _ in self.COMMANDS:
            with self.subTest(words=words):
                process = self.begin(program, words, stdin=subprocess.DEVNULL,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                self.assertIn(b"no value for", process.communicate()[0])
                self.assertEqual(process.returncode, 2)
        self.assertEqual(self.handset.profile("Office"), before)

    def test_no_file_of_the_program_is_taken_for_closed_standard_input(self):
        """Who starts the program without standard input gets the same error, and not what the
        first file that the program opens holds."""
        before = self.handset.profile("Office")
        for program, words, _ in self.COMMANDS:
            with self.subTest(words=words):
                process = self.begin(program, words, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, preexec_fn=lambda: os.close(0))
                self.assertIn(b"no value for", process.communicate(timeout=60)[0])
                self.assertEqual(process.returncode, 2)
        self.assertEqual(self.handset.profile("Office"), before)

    def test_no_file_of_the_program_is_taken_for_a_closed_output(self):
        """What the program prints and complains about goes to none of its files, and lost output is
        an error."""
        self.handset.dmclient("get", CONN)
        before = self.stored()
        for program, words in (("dmclient", ["get", CONN]), ("napictl", ["list"])):
            for closed in ([1], [2], [1, 2], [0, 1, 2]):
                with self.subTest(program=program, closed=closed):
                    process = self.begin(
                        program, words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                        stderr=subprocess.PIPE,
                        preexec_fn=lambda: [os.close(stream) for stream in closed])
                    process.communicate(timeout=60)
                    self.assertEqual(process.returncode, UNUSABLE if 1 in closed else 0)
        self.assertEqual(self.stored(), before)

    def stored(self):
        """What the files of the handset hold, by their names, but for the log of each mount."""
        contents = {}
        for folder, _, names in os.walk(self.handset.state):
            for name in set(names) - {"plugin.log"}:
                with open(os.path.join(folder, name), "rb") as file:
                    contents[file.name] = file.read()
        return contents

    def test_a_dash_can_be_a_secret_or_another_value(self):
        """A line that is a dash is that secret; a leaf that holds none takes the dash as it is."""
        self.handset.dmclient("replace", self.LEAF, "-", stdin="-\n")
        self.handset.dmclient("replace", CONN + "/Office/Addr", "-")
        gprs = self.handset.profile("Office")["gprs"]
        self.assertEqual((gprs["authPassword"], gprs["address"]), ("-", "-"))

    def test_a_script_of_the_shell_is_not_asked(self):
        """Its lines are commands, and none of them becomes a secret."""
        script = f"replace {self.LEAF} -\nget ./DevInfo/Man\n"
        result = self.handset.dmclient("shell", stdin=script)
        self.assertEqual(result.stdout.decode().splitlines(),
                         ["replace: standard input is the shell's", "kub",
                          "get ./DevInfo/Man: 200 OK"])
        self.assertEqual(self.handset.profile("Office")["gprs"]["authPassword"], SECRET)

    def test_no_secret_stays_in_the_history(self):
        """Lines of the shell that carry a secret are not kept, also where its name is mistyped."""
        terminal = Terminal(self, "shell")
        lines = [f"replace {self.LEAF} Hidden-1", f"replace {CONN}/Office/Auth/PAP AuthPw=Hidden-2",
                 f"replace {CONN}/Office/Auth/PAP/Auth%50w Hidden-3",
                 f"replace {self.LEAF}/ Hidden-4", "account set X server-secret=Hidden-5",
                 f"add {CONN}/Office/Auth/PAP/authpw Hidden-6", "account set X Client-Secret=Hidden-7",
                 "account set X client_secret=Hidden-8", "account set X clientsecret=Hidden-9",
                 "account set X client-secret = Hidden-10", "replace ./DMAcc/X/Secret/ Hidden-11",
                 "replace ./DMAcc/X/S%65cret Hidden-12", "account show X --show-secrets",
                 "get ./DevInfo/Man", "quit"]
        for line in lines:
            terminal.answer("dm> ", line + "\n")
        terminal.end()
        with open(self.handset.client_file("history"), encoding="utf-8") as file:
            history = file.read()
        self.assertNotIn("Hidden", history)
        self.assertIn("get", history)
        self.assertIn("show-secrets", history)


class SecretOnTheScreenTest(SessionTest):
    """Looks over a user's shoulder, or into what a script has printed."""

    LEAF = CONN + "/Office/Auth/PAP/AuthPw"

    def test_get_masks_a_password(self):
        """get prints ******** as tree does; --show-secrets prints the password."""
        self.assertEqual(self.handset.dmclient("get", self.LEAF).stdout, b"********\n")
        self.assertEqual(self.handset.dmclient("get", "--show-secrets", self.LEAF).stdout.decode(),
                         SECRET + "\n")
        script = f"get {self.LEAF}\nget --show-secrets {self.LEAF}\n"
        self.assertEqual(self.handset.dmclient("shell", stdin=script).stdout.decode().splitlines(),
                         ["********", f"get {self.LEAF}: 200 OK",
                          SECRET, f"get {self.LEAF}: 200 OK"])

    def test_an_empty_password_is_no_secret(self):
        """An empty line tells that there is none."""
        self.handset.dmclient("replace", self.LEAF, "")
        self.assertEqual(self.handset.dmclient("get", self.LEAF).stdout, b"\n")


if __name__ == "__main__":
    unittest.main()
