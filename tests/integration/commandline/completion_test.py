"""What bash offers for a word of dmclient and of napictl."""

import os
import subprocess
import tempfile
import unittest

COMPLETIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "packaging",
                           "completions")

# Calls the function as bash does when the Tab key is pressed after the last word. Which options bash
# is given then (compopt) is part of the answer.
SCRIPT = """
compopt() { echo "compopt $*"; }
source "$1"; program=$2; shift 2
COMP_WORDS=("$program" "$@"); COMP_CWORD=$#
"_$program"
printf '%s\\n' "${COMPREPLY[@]}"
"""


class CompletionTest(unittest.TestCase):
    def offered(self, program, *words, folder=None):
        result = subprocess.run(["bash", "--norc", "-uc", SCRIPT, "bash", os.path.join(COMPLETIONS, program),
                                 program, *words], capture_output=True, text=True, timeout=60,
                                check=False, cwd=folder)
        self.assertEqual(result.stderr, "")
        return result.stdout.split()

    def test_commands(self):
        self.assertEqual(self.offered("napictl", "p"), ["provision"])
        self.assertEqual(self.offered("dmclient", "re"),
                         ["replace", "rename", "replay", "record", "report"])
        self.assertEqual(self.offered("napictl", "--state", "d", "che"), ["check"])
        self.assertEqual(self.offered("napictl", "--state", "=", "d", "che"), ["check"])
        self.assertEqual(self.offered("dmclient", "help", "sh"), ["shell"])
        self.assertEqual(self.offered("dmclient", "help", "shell", "s"), [])

    def test_commands_of_a_shell_line_are_not_offered(self):
        self.assertEqual(self.offered("dmclient", "q"), [])

    def test_options(self):
        self.assertEqual(self.offered("napictl", "--s"), ["--state"])
        self.assertEqual(self.offered("napictl", "show", "--s"), ["--show-secrets", "--state"])
        self.assertEqual(self.offered("dmclient", "session", "Test", "--m"),
                         ["--max-msg-size", "--max-obj-size"])
        self.assertEqual(self.offered("dmclient", "ddf", "--p"), ["--plugin", "--plugins"])

    def test_values(self):
        self.assertEqual(self.offered("napictl", "--backend", ""), ["sqlite", "networkmanager"])
        self.assertEqual(self.offered("napictl", "--backend", "="), ["sqlite", "networkmanager"])
        self.assertEqual(self.offered("napictl", "list", "--backend", "=", "n"), ["networkmanager"])
        self.assertEqual(self.offered("dmclient", "get", ".", "--prop", "T"), ["Title", "TStamp", "Type"])
        self.assertEqual(self.offered("dmclient", "session", "--timeout", ""), [])

    def test_fields(self):
        self.assertEqual(self.offered("napictl", "set", "Office", "gprs.dn"),
                         ["compopt", "-o", "nospace", "gprs.dns1=", "gprs.dns2="])
        self.assertEqual(self.offered("napictl", "set", "gprs"), [], "which is the name of a profile")
        self.assertEqual(self.offered("napictl", "set", "Office", "gprs.dns1", "="), [])
        self.assertEqual(self.offered("napictl", "set", "Office", "gprs.dns1", "=", "1"), [])
        self.assertEqual(self.offered("dmclient", "account", "s"), ["show", "set"])
        self.assertEqual(self.offered("dmclient", "account", "add", "Test", "addr"),
                         ["compopt", "-o", "nospace", "address="])

    def test_files_and_directories(self):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(os.path.join(folder, "dir"))
            with open(os.path.join(folder, "data.json"), "w", encoding="ascii"):
                pass
            names = ["compopt", "-o", "filenames"]
            self.assertEqual(sorted(self.offered("napictl", "import", "d", folder=folder)),
                             sorted([*names, "dir", "data.json"]))
            self.assertEqual(self.offered("napictl", "import", "data.json", "d", folder=folder), [])
            self.assertEqual(self.offered("dmclient", "--state", "d", folder=folder), [*names, "dir"])
            self.assertEqual(self.offered("dmclient", "session", "--ca", "=", "da", folder=folder),
                             [*names, "data.json"])


if __name__ == "__main__":
    unittest.main()
