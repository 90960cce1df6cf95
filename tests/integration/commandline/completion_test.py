"""What the Tab key does in bash, zsh and fish, each on a terminal of its own."""

import fcntl
import os
import subprocess
import tempfile
import termios
import unittest

from handset import DMCLIENT, NAPICTL, HandsetTest
from terminal import Terminal

COMPLETIONS = os.environ["COMPLETIONS"]  # folder of the scripts, as they are built
PROMPT = "ready:"

# How each shell is started, and made to know the scripts.
SHELLS = {
    "bash": (["bash", "--norc", "-i"],
             ["set -o emacs", "for f in {folder}/bash/*; do source $f; done", f"PS1={PROMPT}"]),
    "zsh": (["zsh", "-f", "-i"],
            ["fpath=({folder}/zsh $fpath)", "autoload -Uz compinit", "compinit -u -D", "bindkey -e",
             "unsetopt zle_bracketed_paste", f"PROMPT={PROMPT} RPROMPT="]),
    "fish": (["fish", "--no-config", "-i"],
             ["for f in {folder}/fish/*; source $f; end",
              f"function fish_prompt; echo -n {PROMPT}; end; set fish_greeting"]),
}
# Names that would do something, or be several words, in a shell that takes them as they are, by what
# somebody types of them.
HOSTILE = {"it\\'s": "it's $(touch x) \"q\" `touch x`", "two": "two words", "colon:": "colon:and=equals",
           "-": "-dash", "\\~": "~tilde", "ü": "ünï*[x]", "back": "back\\slash", "semi": "semi;touch x",
           "\\!": "!history", "\\#": "#comment", "\\$": "$HOME", "\\{": "{a,b}"}


class Shell:
    def __init__(self, test, name, folder):
        command, settings = SHELLS[name]
        self.terminal = Terminal(Starter(test, command, folder), environment={"TERM": "dumb"})
        for line in settings:
            self.terminal.type(line.format(folder=COMPLETIONS).encode() + b"\n")
        self.terminal.type(b"echo beg''un\n")
        self.terminal.wait_for("begun")

    def words(self, line):
        """The words that the shell has when Tab has been pressed at the end of the line."""
        # The line becomes the arguments of another command, which says what they are.
        self.terminal.type(f"{line}\t\x01printf '<%s>' begin''ning \x05 en''d\n".encode())
        self.terminal.wait_for("<beginning>")
        return self.terminal.wait_for("<end>")


class Starter:
    """Starts a shell where Terminal would start the client."""

    def __init__(self, test, command, folder):
        self.test = test
        self.command = command
        self.folder = folder
        self.addCleanup = test.addCleanup

    def start(self, environment, **options):
        path = f"{os.path.dirname(DMCLIENT)}:{os.environ['PATH']}"
        process = subprocess.Popen(self.command, cwd=self.folder, start_new_session=True,
                                   preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
                                   env=self.test.handset.environment(PATH=path, **environment), **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process


def in_each_shell(test):
    """A test that gets a shell, for each of them."""
    def for_each(self):
        for name in SHELLS:
            with self.subTest(name):
                test(self, Shell(self, name, self.folder))
    return for_each


class TabKeyTest(HandsetTest):
    PROFILES = [{"name": "Office", "gprs": {"address": "internet"}}]

    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.handset.succeed("dmclient", "account", "add", "Operator", "address=https://dm.example/",
                             "server-id=dm.example")

    @in_each_shell
    def test_words_of_the_tables(self, shell):
        self.assertEqual(shell.words("napictl prov"), "<napictl><provision>")
        self.assertEqual(shell.words("dmclient sess"), "<dmclient><session>")
        self.assertEqual(shell.words("napictl show --show-s"), "<napictl><show><--show-secrets>")
        self.assertEqual(shell.words("napictl --backend n"), "<napictl><--backend><networkmanager>")
        self.assertEqual(shell.words("napictl --backend=n"), "<napictl><--backend=networkmanager>")
        self.assertEqual(shell.words("napictl list -f id,na"), "<napictl><list><-f><id,name>")

    @in_each_shell
    def test_options_of_programs_without_commands(self, shell):
        with open(os.path.join(self.folder, "plugin.so"), "w", encoding="ascii"):
            pass
        self.assertEqual(shell.words("dmclientd --noti"), "<dmclientd><--notification-port>")
        self.assertEqual(shell.words("dmclientd --backend=s"), "<dmclientd><--backend=sqlite>")
        self.assertEqual(shell.words("dm-plugin-check plu"), "<dm-plugin-check><plugin.so>")
        self.assertEqual(shell.words("dm-plugin-check plugin.so --time"),
                         "<dm-plugin-check><plugin.so><--timeout>")

    @in_each_shell
    def test_fields_and_their_values(self, shell):
        self.assertEqual(shell.words("napictl set Office gprs.li"), "<napictl><set><Office><gprs.linger=>")
        self.assertEqual(shell.words("napictl set Office csd.lineType=I"),
                         "<napictl><set><Office><csd.lineType=Isdn>")
        self.assertEqual(shell.words("dmclient account add A client-auth=h"),
                         "<dmclient><account><add><A><client-auth=hmac>")

    @in_each_shell
    def test_profiles_accounts_and_addresses(self, shell):
        self.assertEqual(shell.words("napictl show Off"), "<napictl><show><Office>")
        self.assertEqual(shell.words("dmclient session Op"), "<dmclient><session><Operator>")
        self.assertEqual(shell.words("dmclient account show Op"), "<dmclient><account><show><Operator>")
        self.assertEqual(shell.words("dmclient get ./DevInfo/M"), "<dmclient><get><./DevInfo/M>",
                         "Man and Mod have no more in common")
        profiles = "./DevDetail/Ext/Conf/Conn/Profiles"
        self.assertEqual(shell.words(f"dmclient get {profiles}/Off"), f"<dmclient><get><{profiles}/Office>")
        self.assertEqual(shell.words(f"dmclient replace {profiles}/Office Line"),
                         f"<dmclient><replace><{profiles}/Office><LineType=>")

    @in_each_shell
    def test_names_do_nothing_but_stand_for_themselves(self, shell):
        for start, name in HOSTILE.items():
            self.handset.run("napictl", "create", "--", name)  # of the first shell
            self.assertEqual(shell.words(f"napictl show -- {start}"), f"<napictl><show><--><{name}>")
        self.assertEqual(os.listdir(self.folder), [])

    @in_each_shell
    def test_files_and_directories(self, shell):
        os.makedirs(os.path.join(self.folder, "directory"), exist_ok=True)
        with open(os.path.join(self.folder, "data file.json"), "w", encoding="ascii"):
            pass
        self.assertEqual(shell.words("napictl import dat"), "<napictl><import><data file.json>")
        self.assertRegex(shell.words("napictl --state dir"), "^<napictl><--state><directory/?>$")


class AskedProgramTest(HandsetTest):
    """What a program says when a shell asks it."""

    PROFILES = []

    def ask(self, program, *words):
        return subprocess.run([program, "--complete-words", *words], env=self.handset.environment(),
                              capture_output=True, timeout=60, check=True, encoding="utf-8")

    def asked(self, program, *words):
        result = self.ask(program, *words)
        self.assertEqual(result.stderr, "")
        return result.stdout.splitlines()

    def test_nothing_is_made_for_an_answer(self):
        for words in (["show", ""], ["get", "./"], ["session", ""], ["account", "show", ""], [""]):
            for program in (NAPICTL, DMCLIENT):
                self.asked(program, *words)
        self.assertFalse(os.path.exists(self.handset.state))

    def test_what_cannot_be_read_has_no_names(self):
        os.makedirs(self.handset.path("profiles.db"), mode=0o700)
        self.assertEqual(self.ask(NAPICTL, "show", "").stdout, "")
        self.assertNotIn("Profiles/", self.ask(DMCLIENT, "get", "./DevDetail/Ext/Conf/Conn/Profiles/").stdout)

    def test_options_choose_the_store(self):
        other = os.path.join(self.handset.home, "other")
        self.handset.succeed("napictl", "--state", other, "create", "Elsewhere")
        self.assertEqual(self.asked(NAPICTL, "--state", other, "show", ""), ["Elsewhere"])
        self.assertEqual(self.asked(NAPICTL, "show", "--state", other, "E"), ["Elsewhere"])
        self.assertEqual(self.asked(NAPICTL, "show", ""), [])

    def test_profile_that_is_named_already_is_not_offered_again(self):
        for name in ("one", "two"):
            self.handset.succeed("napictl", "create", name)
        self.assertEqual(self.asked(NAPICTL, "delete", "one", ""), ["two"])
        self.assertEqual(self.asked(NAPICTL, "rename", "one", ""), [])
        self.assertEqual(self.asked(NAPICTL, "create", ""), [])

    def test_secrets_are_not_offered(self):
        self.handset.succeed("napictl", "create", "Office", "gprs.authPassword=OhBehave")
        for words in (["set", "Office", "gprs.authPassword="], ["show", "Office", "gprs.authPassword=O"]):
            self.assertEqual(self.asked(NAPICTL, *words), [])


if __name__ == "__main__":
    unittest.main()
