"""The commands of docs/from-nothing.md, one after the other, print what the page shows.

A block is "console": a line after "$ " is typed, one after "> " goes on with it, and what follows is printed. The
comment before a block that is not typed says why, and "installed only" stands before what needs the installed
packages ($INSTALLED is set where they are).
"""

import os
import re
import unittest

from typist import TOP, Typist, matches

PAGE = TOP / "docs" / "from-nothing.md"
BLOCK = re.compile(r"(?:^<!-- ([^\n]*) -->\n)?^```([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
INSTALLED = bool(os.environ.get("INSTALLED"))


def is_typed(mark):
    return not mark or (mark == "installed only" and INSTALLED)


def commands(text):
    """Pairs of what is typed and what is printed."""
    for part in re.split(r"^\$ ", text, flags=re.MULTILINE)[1:]:
        lines = part.splitlines(keepends=True)
        last = 0
        while lines[last].endswith("\\\n"):
            last += 1
        typed = [lines[0], *(line.removeprefix("> ") for line in lines[1:last + 1])]
        yield "".join(typed), "".join(lines[last + 1:])


class NewcomersPageTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.blocks = BLOCK.findall(PAGE.read_text(encoding="utf-8"))

    def typist(self):
        typist = Typist(self)
        if not INSTALLED:  # the package calls it so
            programs = typist.folder.parent / "programs"
            programs.mkdir()
            (programs / "dm-testserver").symlink_to(TOP / "tests" / "dmserver" / "dmserver.py")
            typist.programs.append(str(programs))
        return typist

    def test_commands_print_what_the_page_shows(self):
        typed = [pair for mark, _, text in self.blocks if is_typed(mark) for pair in commands(text)]
        self.assertGreater(len(typed), 10)
        script = "unset KUB_STATE_DIR\n" + "".join(f"echo '@@ {number}'\n{command}"
                                                   for number, (command, _) in enumerate(typed))
        typist = self.typist()
        printed = re.split(r"^@@ \d+\n", typist.type(script), flags=re.MULTILINE)[1:]
        for (command, shown), output in zip(typed, printed, strict=True):
            self.assertTrue(matches(output, shown), f"{command}prints\n{output}\nand not\n{shown}")
        self.assertEqual(os.listdir(os.path.join(typist.handset.home, ".local", "state")), [])

    def test_every_block_is_typed_or_says_why_not(self):
        self.assertEqual(len(self.blocks), PAGE.read_text(encoding="utf-8").count("\n```") // 2)
        for mark, kind, text in self.blocks:
            self.assertEqual(kind, "console", text)
            self.assertTrue(is_typed(mark) or mark == "installed only" or
                            re.fullmatch(r"not run: .+", mark), mark)


if __name__ == "__main__":
    unittest.main()
