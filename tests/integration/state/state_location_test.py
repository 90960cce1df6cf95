#!/usr/bin/python3
"""Both programs and the libraries in them use one state directory, whatever the environment lacks: that
of a shell, of a service, of cron, or none."""
import os
import pwd
import shlex
import subprocess
import tempfile
import unittest

from handset import CONN, PROGRAMS

# What a sanitized program needs to run.
KEPT = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
# As root, or as what is root in a user namespace: its home is hidden beneath an empty file system.
HOME = pwd.getpwuid(0).pw_dir
DEFAULT = ".local/state/kub-dm"
USAGE = 2

NAPICTL = ["napictl", "create", "Office", "gprs.address=internet"]
DMCLIENT = ["dmclient", "get", CONN]
MAPPING = "settings/kub_napdef_profilemapping.cfg"


def command_line(words, *options):
    return [*PROGRAMS[words[0]], *options, *words[1:]]


class StateLocationTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = os.path.realpath(directory.name)
        self.work = os.path.join(self.root, "work")
        aside = tempfile.TemporaryDirectory()
        self.addCleanup(aside.cleanup)
        self.aside = os.path.realpath(aside.name)

    def hide_home(self):
        """Shell lines that lay an empty home over the user's. Where the programs are in there, their
        folder stays to be seen."""
        home, aside = shlex.quote(HOME), shlex.quote(self.aside)
        lines = [f"mount --rbind {home} {aside} || exit 77",
                 f"mount -t tmpfs -o mode=700 tmpfs {home} || exit 77"]
        for program in (os.path.realpath(words[0]) for words in PROGRAMS.values()):
            if program.startswith(HOME + "/"):
                folder = shlex.quote(os.path.relpath(program, HOME).split("/")[0])
                lines.append(f"[ -d {home}/{folder} ] || {{ mkdir {home}/{folder} && "
                             f"mount --rbind {aside}/{folder} {home}/{folder}; }} || exit 77")
        return lines

    def run_in(self, environment, *commands, before=""):
        """Runs commands in a fresh working directory, with nothing in the environment but what is given
        and an empty home of the user. Returns what they said, and the state directories that they made."""
        names = ["--mount"] if os.geteuid() == 0 else ["--mount", "--user", "--map-root-user"]
        home = shlex.quote(HOME)
        lines = [*self.hide_home(),
                 f"rm -rf {self.root}/* && mkdir {self.work} && cd {self.work} || exit 77", before]
        assigned = [f"{name}={value}" for name, value in {**KEPT, **environment}.items()]
        for command in commands:
            lines.append(shlex.join(["env", "-i", *assigned, *command]) + " 2>&1 || echo status $?")
        # What the profile service, the client and the settings class have left.
        lines.append(f"find {home} {self.root} -xdev -name profiles.db -o -path '*/client/lock' "
                     "-o -name 'kub_napdef*.cfg' | sed 's/^/MADE /'")
        result = subprocess.run(["unshare", *names, "sh", "-c", "\n".join(lines)], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
                                check=False)
        if result.returncode == 77 or result.stdout.startswith("unshare"):
            self.skipTest("no file system of its own here: " + result.stdout)
        said = [line for line in result.stdout.splitlines() if not line.startswith("MADE ")]
        made = {line[5:] for line in result.stdout.splitlines() if line.startswith("MADE ")}
        return "\n".join(said), made

    def assert_state_is(self, expected, environment, *options):
        """The profile service alone, and the client with it and the settings class, use that directory
        and no other."""
        service = {f"{expected}/profiles.db"}
        everything = service | {f"{expected}/client/lock", f"{expected}/{MAPPING}"}
        napictl, dmclient = (command_line(words, *options) for words in (NAPICTL, DMCLIENT))
        for commands, used in (([napictl], service), ([napictl, dmclient], everything)):
            with self.subTest(environment=environment, options=options, commands=len(commands)):
                said, made = self.run_in(environment, *commands)
                self.assertEqual(made, used, said)
                self.assertNotIn("status", said)

    def test_an_empty_environment_means_the_home_of_the_user_database(self):
        self.assert_state_is(f"{HOME}/{DEFAULT}", {})

    def test_a_relative_or_empty_home_is_none(self):
        for home in ("relative", ""):
            self.assert_state_is(f"{HOME}/{DEFAULT}", {"HOME": home})

    def test_without_a_home_the_state_home_counts(self):
        self.assert_state_is(f"{self.root}/state/kub-dm", {"XDG_STATE_HOME": f"{self.root}/state"})

    def test_a_relative_or_empty_state_home_is_none(self):
        for state_home in ("relative", "./relative", ""):
            self.assert_state_is(f"{self.root}/home/{DEFAULT}",
                                 {"HOME": f"{self.root}/home", "XDG_STATE_HOME": state_home})
            self.assert_state_is(f"{HOME}/{DEFAULT}", {"XDG_STATE_HOME": state_home})

    def test_a_named_directory_counts_before_everything_else(self):
        elsewhere = {"HOME": f"{self.root}/home", "XDG_STATE_HOME": f"{self.root}/state"}
        for name, place in ROWS:
            expected = f"{self.work}/{place}"
            self.assert_state_is(expected, {**elsewhere, "KUB_STATE_DIR": name})
            self.assert_state_is(expected, {**elsewhere, "KUB_STATE_DIR": "/nowhere"},
                                 "--state", name)

    def test_an_empty_variable_counts_as_unset_and_an_empty_option_is_refused(self):
        self.assert_state_is(f"{self.root}/home/{DEFAULT}",
                             {"HOME": f"{self.root}/home", "KUB_STATE_DIR": ""})
        for words in (NAPICTL, DMCLIENT):
            said, made = self.run_in({"HOME": f"{self.root}/home"},
                                     command_line(words, "--state", ""))
            self.assertIn("--state names no directory", said)
            self.assertIn(f"status {USAGE}", said)
            self.assertEqual(made, set())

    def test_a_relative_directory_of_a_working_directory_that_is_gone_is_named_and_not_made(self):
        for words in (NAPICTL, DMCLIENT):
            for environment, options in (({"KUB_STATE_DIR": "gone/state"}, ()),
                                         ({}, ("--state", "gone/state"))):
                with self.subTest(program=words[0], options=options):
                    said, made = self.run_in(environment, command_line(words, *options),
                                             before=f"rmdir {self.work}")
                    self.assertIn("cannot use gone/state: it is relative to a working directory that is gone",
                                  said)
                    self.assertEqual(made, set())


# What a directory can be called, and where it lies in the working directory.
ROWS = (("state", "state"), ("./state//", "state"), ("a/../b/state", "b/state"),
        (":/state", ":/state"), ("stäte of a handset", "stäte of a handset"))

if __name__ == "__main__":
    unittest.main()
