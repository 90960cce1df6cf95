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


def lines_of(text):
    """The command lines of a document, each in one piece."""
    return ["".join(groups) for groups in COMMAND.findall(CONTINUED.sub(" ", text))]


def unknown_words(line):
    """What a command line names that its program does not have."""
    program, *words = words_of(line)
    command = next((word for word in words if word in commands_of(program)), None)
    # Options before the command may have values, which are not looked at.
    if (program in WITH_COMMANDS and words and not words[0].startswith("-") and words[0].islower()
            and command != words[0]):
        return [words[0]]
    known = help_of(program) + (help_of(program, command) if command else "")
    options = [word.split("=")[0] for word in words if re.match(r"--[a-z]", word)]
    return [option for option in options if not re.search(rf"{option}(?![\w-])", known)]


SAMPLE = """It ends with `napictl frobnicate`, or `dm-plugin-check LIBRARY --roots PATH`.

    sudo KUB_STATE_DIR=x dmclientd --stat x
    dmclient session Operator \\
        --frob=1 --trace FILE | tee --append log

$ napictl list \\
>     --frobs
"""


class DocumentedWordsTest(unittest.TestCase):
    def test_words_that_are_not_there_are_found_wherever_they_stand(self):
        self.assertEqual([word for line in lines_of(SAMPLE) for word in unknown_words(line)],
                         ["frobnicate", "--roots", "--stat", "--frob", "--frobs"])

    def test_what_documents_name_is_there(self):
        lines = [(document, line) for document in documents()
                 for line in lines_of(document.read_text(encoding="utf-8"))]
        self.assertEqual([f"{document.relative_to(TOP)}: {word} in {line}" for document, line in lines
                          for word in unknown_words(line)], [])
        self.assertGreater(len(lines), 50)


if __name__ == "__main__":
    unittest.main()
