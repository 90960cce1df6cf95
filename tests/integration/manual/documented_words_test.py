"""Commands and options of the programs that a document names are there."""

import functools
import os
import pathlib
import re
import shlex
import subprocess
import unittest

from handset import DMCLIENT, NAPICTL

TOP = pathlib.Path(__file__).resolve().parents[3]
WITH_COMMANDS = {"dmclient": DMCLIENT, "napictl": NAPICTL}
PROGRAMS = {**WITH_COMMANDS, "dmclientd": os.environ["DMCLIENTD"], "dm-plugin-check": os.environ["DM_PLUGIN_CHECK"]}
NAME = rf"(?:{'|'.join(PROGRAMS)}) "
# A line of a block of commands, perhaps behind the assignments and the program that it begins with, or a span of code
# within a sentence.
COMMAND = re.compile(rf"^(?:    |[$#] )?(?:\w+=\S* |sudo )*({NAME}.*)$|`({NAME}[^`]*)`", re.MULTILINE)
CONTINUED = re.compile(r"\\\n(?:> )?\s*")


def documents():
    listed = subprocess.run(["git", "ls-files", "*.md"], cwd=TOP, capture_output=True, text=True, check=True)
    return [TOP / name for name in listed.stdout.split()]


@functools.cache
def help_of(program, *command):
    words = ["help", *command] if program in WITH_COMMANDS else ["--help"]
    result = subprocess.run([PROGRAMS[program], *words], capture_output=True, text=True, timeout=60, check=False)
    return result.stdout if result.returncode == 0 else ""


def commands_of(program):
    if program not in WITH_COMMANDS:
        return []
    table = help_of(program).split("Commands:\n")[1].split("\n\n")[0]
    return re.findall(r"^  ([\w-]+)", table, re.MULTILINE) + (["stored", "quit"] if program == "dmclient" else [])


def words_of(line):
    """The words up to what another program gets."""
    first = re.split(r"[|;&<>]|\\$", line)[0]
    try:
        return shlex.split(first, comments=True)
    except ValueError:
        return first.split()


class DocumentedWordsTest(unittest.TestCase):
    def test_what_documents_name_is_there(self):
        unknown = []
        named = 0
        for document in documents():
            text = CONTINUED.sub(" ", document.read_text(encoding="utf-8"))
            for line in ("".join(groups) for groups in COMMAND.findall(text)):
                program, *words = words_of(line)
                command = next((word for word in words if word in commands_of(program)), None)
                options = [word.split("=")[0] for word in words if re.match(r"--[a-z]", word)]
                # Options before the command may have values, which are not looked at.
                if (program in WITH_COMMANDS and words and not words[0].startswith("-") and words[0].islower()
                        and command != words[0]):
                    unknown.append(f"{document.relative_to(TOP)}: {line}")
                known = help_of(program) + (help_of(program, command) if command else "")
                unknown += [f"{document.relative_to(TOP)}: {option} in {line}" for option in options
                            if not re.search(rf"{option}(?![\w-])", known)]
                named += 1
        self.assertEqual(unknown, [])
        self.assertGreater(named, 50)


if __name__ == "__main__":
    unittest.main()
