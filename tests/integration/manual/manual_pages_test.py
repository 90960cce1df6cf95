"""What the manual pages show happens, and dmclientd(8) has its options and exit statuses.

Each block of a page that is not filled (.nf to .fi) is typed into a shell, from top to bottom, on a handset
of the page's own, unless the comment before it says otherwise:

    .\\" printed             what the block before it prints; "..." stands for lines that are left out
    .\\" file: NAME          what is in a file that later blocks use
    .\\" first: COMMAND      it is typed after this command, which the reader does not see
    .\\" not run: REASON     it cannot be typed here
"""

import os
import pathlib
import re
import subprocess
import unittest

import documented_files
from typist import Typist, matches

TOP = pathlib.Path(__file__).resolve().parents[3]
PAGES = TOP / "docs" / "man"
# One more is written from what its commands print, by a test of its own.
WITH_EXAMPLES = ("dm-plugin-check.1", "dmclient.1", "dmclient-session.7", "dmclientd.8", "napictl.1")
BLOCK = re.compile(r'(?:^\.\\" ([^\n]*)\n)?^\.nf\n(?:\.RS\n)?(.*?)(?:^\.RE\n)?^\.fi$', re.MULTILINE | re.DOTALL)


def read(page):
    return (PAGES / page).read_text(encoding="utf-8")


def printed(roff):
    """The text as a terminal shows it."""
    return roff.replace("\\-", "-").replace("\\&", "").replace("\\e", "\\").replace("\\(aq", "'")


def blocks(page):
    return [(mark, printed(text)) for mark, text in BLOCK.findall(read(page))]


class ExamplesTest(unittest.TestCase):
    maxDiff = None

    def follow(self, page):
        """Types all of a page; the number of blocks that were."""
        typist = Typist(self)
        typed = 0
        output = None
        for mark, text in blocks(page):
            kind, _, words = mark.partition(": ")
            if kind == "printed":
                self.assertIsNotNone(output, f"{page}: nothing is typed before\n{text}")
                self.assertTrue(matches(output, text), f"{page} shows\n{text}\nand it prints\n{output}")
            elif kind == "file":
                typist.keep(words, text)
            elif kind == "not run":
                self.assertTrue(words, f"{page} does not say why it cannot be typed:\n{text}")
            else:
                self.assertIn(kind, ("", "first"), f"{page} has an unknown mark")
                if kind:
                    typist.type(words)
                output = typist.type(text)
                typed += 1
        return typed

    def test_examples_print_what_the_page_shows(self):
        for page in WITH_EXAMPLES:
            with self.subTest(page):
                self.assertEqual(read(page).count("\n.nf\n"), len(blocks(page)))
                runs = self.follow(page)
                self.assertTrue(runs or page == "dmclientd.8")

    def test_every_page_is_followed(self):
        self.assertEqual({page.name for page in PAGES.iterdir()} - set(WITH_EXAMPLES),
                         {"dmclient-surprises.7"})


class PageOfOptionsTest(unittest.TestCase):
    """The pages of programs with commands are compared with their tables elsewhere."""

    @staticmethod
    def section(page, name):
        return re.search(rf"^\.SH {name}\n(.*?)(?=^\.SH)", read(page), re.MULTILINE | re.DOTALL)[1]

    def pages(self):
        """Each page, with what its program's help has under a heading."""
        for page, program in (("dmclientd.8", "DMCLIENTD"), ("dm-plugin-check.1", "DM_PLUGIN_CHECK")):
            result = subprocess.run([os.environ[program], "--help"], capture_output=True, text=True,
                                    timeout=60, check=True)
            yield page, dict(re.findall(r"^(\w[\w ]+):\n((?:  .*\n)+)", result.stdout, re.MULTILINE))

    def test_has_the_options_of_help_and_no_other(self):
        for page, told in self.pages():
            offered = re.findall(r"^  (?:-., )?--[a-z-]+", told["Options"], re.MULTILINE)
            headings = re.findall(r"^\.TP\n\.BI?R? (.*)$", self.section(page, "OPTIONS"), re.MULTILINE)
            explained = re.findall(r"(?<![\w-])--?[a-z][a-z-]*", printed(" ".join(headings)))
            self.assertEqual(explained, re.findall(r"--?[a-z][a-z-]*", " ".join(offered)), page)

    def test_has_the_exit_statuses_of_help_and_no_other(self):
        for page, told in self.pages():
            self.assertEqual(re.findall(r"^\.TP\n\.B (\d+)$", self.section(page, "EXIT STATUS"), re.MULTILINE),
                             re.findall(r"^  (\d+) ", told["Exit status"], re.MULTILINE), page)


class FilesTest(unittest.TestCase):
    """That each file has its place in a page is found by every test with a handset; see handset.py."""

    def test_no_page_has_files_that_no_program_makes(self):
        sources = "".join(path.read_text(encoding="utf-8") for folder in ("client", "hostplatform", "support")
                          for path in (TOP / folder).rglob("*.[ch]*"))
        for entry in (entry for page in PAGES.iterdir() for entry in documented_files.entries(page)):
            for name in filter(None, re.split(r"[/*]|-\*|\bID\b", entry)):
                self.assertTrue(re.search(rf'"(?:[^"\n]*/)?{re.escape(name)}', sources), f"{entry}: {name}")


if __name__ == "__main__":
    unittest.main()
