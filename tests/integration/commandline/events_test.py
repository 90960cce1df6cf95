"""The same event has the same words and the same exit status in dmclient and in napictl."""

import fcntl
import os
import pty
import re
import struct
import subprocess
import termios
import unittest

from handset import DMCLIENT, NAPICTL, HandsetTest

PROGRAMS = {"dmclient": DMCLIENT, "napictl": NAPICTL}
SUCCESS, FAILED, USAGE, UNUSABLE = range(4)

# A command of each program that fits into the same place.
WORDS = {
    "dmclient": {"READ": "tree", "REAED": "tere", "FILE": "process", "ONE": "delete", "TAKES": "URI"},
    "napictl": {"READ": "list", "REAED": "lsit", "FILE": "import", "ONE": "edit",
                "TAKES": "NAME [OPTION...]"},
}

# The words of a command line, the exit status, and the line on standard error. PROGRAM and the names
# above stand for what differs.
EVENTS = [
    ([], USAGE, "a command is missing; see 'PROGRAM help'"),
    (["frobnicate"], USAGE, "there is no command frobnicate; see 'PROGRAM help'"),
    (["frobnicate", "--help"], USAGE, "there is no command frobnicate; see 'PROGRAM help'"),
    (["help", "frobnicate"], USAGE, "help: there is no command frobnicate; see 'PROGRAM help'"),
    (["REAED"], USAGE, "there is no command REAED; did you mean READ?"),
    (["help", "REAED"], USAGE, "help: there is no command REAED; did you mean READ?"),
    (["hlep"], USAGE, "there is no command hlep; did you mean help?"),
    (["--frobnicate"], USAGE, "there is no option --frobnicate; see 'PROGRAM help'"),
    (["--stat", "x", "READ"], USAGE, "there is no option --stat; did you mean --state?"),
    (["READ", "--frobnicate"], USAGE,
     "READ: there is no option --frobnicate; see 'PROGRAM help READ'"),
    (["READ", "--backedn", "sqlite"], USAGE,
     "READ: there is no option --backedn; did you mean --backend?"),
    (["ONE", "-5"], USAGE,
     "ONE: there is no option -5; an argument that begins with a dash goes after --"),
    (["--state"], USAGE, "missing value after '--state'"),
    (["READ", "--help=x"], USAGE, "READ: unexpected value after '--help'"),
    (["--state", "", "READ"], USAGE, "--state names no directory"),
    (["READ", "--state="], USAGE, "READ: --state names no directory"),
    (["--backend", "paper", "READ"], USAGE, '--backend is sqlite or networkmanager, not "paper"'),
    (["ONE"], USAGE, "ONE: arguments are missing; usage: ONE TAKES"),
    (["ONE", "a", "b"], USAGE, "ONE: too many arguments; usage: ONE TAKES"),
    (["READ", b"\xff\xfe"], USAGE, "argument 2 is not UTF-8"),
    (["FILE", ""], USAGE, "FILE: FILE_ARGUMENT names no file"),
    (["FILE", "/nowhere/\x1b[2J"], USAGE,
     "FILE: cannot read /nowhere/\\x1b[2J: No such file or directory"),
    (["FILE", "/proc"], USAGE, "FILE: cannot read /proc: file to open is a directory"),
    (["--state", "/proc/self/status", "READ"], UNUSABLE, None),
]


class EventsTest(HandsetTest):
    def run_program(self, program, *words, **options):
        return subprocess.run([PROGRAMS[program], *words], env=self.handset.environment(),
                              capture_output=True, timeout=120, check=False, **options)

    def test_each_event_has_one_end(self):
        for program, names in WORDS.items():
            def told(text, names=names, program=program):
                text = re.sub("|".join(names), lambda match: names[match[0]],
                              text.replace("FILE_ARGUMENT", "\0"))
                return text.replace("\0", "FILE").replace("PROGRAM", program)
            for words, status, line in EVENTS:
                words = [word if isinstance(word, bytes) else told(word) for word in words]
                with self.subTest(program=program, words=words):
                    result = self.run_program(program, *words)
                    self.assertEqual((result.returncode, result.stdout), (status, b""), result.stderr)
                    if line is not None:
                        self.assertEqual(result.stderr.decode(), f"{program}: {told(line)}\n")

    def test_output_that_is_lost_is_told(self):
        for program, names in WORDS.items():
            for words in ([names["READ"]], ["--help"], ["--version"], ["help", names["READ"]]):
                with self.subTest(program=program, words=words), open("/dev/full", "wb") as full:
                    result = subprocess.run([PROGRAMS[program], *words], stdout=full,
                                            stderr=subprocess.PIPE, env=self.handset.environment(),
                                            timeout=120, check=False)
                    self.assertEqual((result.returncode, result.stderr.decode()), (
                        UNUSABLE,
                        f"{program}: cannot write the output: No space left on device\n"))

    def test_each_way_to_ask_for_help_has_the_same_answer(self):
        for program, names in WORDS.items():
            command = names["READ"]
            for ways in ((["--help"], ["-h"], ["help"], ["--state", "/nowhere", "--help"]),
                         ([command, "--help"], [command, "-h"], ["--help", command], ["help", command],
                          [command, "a", "b", "c", "--help"])):
                answers = {self.answer(program, *words) for words in ways}
                self.assertEqual(len(answers), 1, ways)
                self.assertTrue(answers.pop().startswith(f"Usage: {program} "), ways)

    def answer(self, program, *words):
        result = self.run_program(program, *words)
        self.assertEqual((result.returncode, result.stderr), (SUCCESS, b""), words)
        return result.stdout.decode()

    def test_the_helps_have_the_same_headings_and_common_options(self):
        helps = {program: self.answer(program, "help") for program in PROGRAMS}
        headings = [re.findall("^[A-Z].*:$", text, re.MULTILINE) for text in helps.values()]
        self.assertEqual(*headings)
        for option in ("state DIR", "backend NAME", "-h, --help", "version"):
            explanations = {re.search(rf"{option} +((?:\S+\s)+)", text)[1] for text in helps.values()}
            self.assertEqual(len(explanations), 1, explanations)

    def test_both_have_one_version(self):
        versions = {program: self.answer(program, "--version") for program in PROGRAMS}
        self.assertEqual(versions["napictl"].split()[1:], versions["dmclient"].split()[1:])
        for program, text in versions.items():
            self.assertRegex(text, rf"^{program} \d+\.\d+\.\d+\n$")

    def test_options_stand_before_or_after_the_command(self):
        for program, names in WORDS.items():
            for words in (["--state", "/proc/self/status", names["READ"]],
                          [names["READ"], "--state", "/proc/self/status"],
                          [names["READ"], "--state=/proc/self/status"]):
                result = self.run_program(program, *words)
                self.assertEqual(result.returncode, UNUSABLE, words)
                self.assertIn(b"/proc/self/status", result.stderr)


class TerminalTest(HandsetTest):
    """What is shown on a terminal of a given width."""

    def shown(self, program, *words, columns=80, **changes):
        controller, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        environment = self.handset.environment(**{"TERM": "xterm", **changes})
        with subprocess.Popen([PROGRAMS[program], *words], env=environment, stdout=terminal,
                              stderr=terminal) as process:
            os.close(terminal)
            text = b""
            try:
                while chunk := os.read(controller, 65536):
                    text += chunk
            except OSError:  # the other end of the terminal is closed
                pass
            os.close(controller)
        return text.decode().replace("\r\n", "\n")

    def test_help_is_as_wide_as_the_terminal(self):
        for program in PROGRAMS:
            for columns in (60, 80, 120):
                for words in (["help"], ["help", WORDS[program]["FILE"]]):
                    lines = self.shown(program, *words, columns=columns).splitlines()
                    self.assertLessEqual(max(map(len, lines)), columns)
            widest = max(map(len, self.shown(program, "help", columns=120).splitlines()))
            self.assertGreater(widest, 80)

    def test_without_a_terminal_help_has_80_columns(self):
        for program in PROGRAMS:
            piped = subprocess.run([PROGRAMS[program], "help"], capture_output=True, check=True,
                                   env=self.handset.environment(COLUMNS="200")).stdout.decode()
            self.assertEqual(piped, self.shown(program, "help", columns=80))

    def test_failures_are_coloured_unless_colours_are_unwanted(self):
        for program in PROGRAMS:
            line = f"{program}: there is no command x; see '{program} help'"
            self.assertEqual(self.shown(program, "x"), f"\x1b[31m{line}\x1b[0m\n")
            for unwanted in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
                self.assertEqual(self.shown(program, "x", **unwanted), line + "\n")


if __name__ == "__main__":
    unittest.main()
