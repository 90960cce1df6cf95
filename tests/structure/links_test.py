"""Links of the documents lead to what is there: files of the sources, and headings within them.

Words in backquotes that look like a path of the sources are held to the same.
"""

import pathlib
import re
import subprocess
import sys
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "tests" / "handset"))
import documented_files
# The target of a link or an image, one of them perhaps around the other; a title may follow it.
LINK = re.compile(r"\]\(([^)\s]+)(?:\s+\"[^\"]*\")?\)")
# Two names with a slash between them that begin with a folder of the sources.
PATH = re.compile(r"`([\w.-]+/[\w./*-]+)`")


def documents():
    listed = subprocess.run(["git", "ls-files", "*.md"], cwd=TOP, capture_output=True, text=True, check=True)
    return [TOP / name for name in listed.stdout.split()]


def without_code(text):
    """Without blocks of code: fenced ones, and those that are indented, which list items go on with otherwise."""
    kept = []
    is_fenced = is_list = False
    for line in text.splitlines():
        if line.lstrip().startswith("```"):
            is_fenced = not is_fenced
        elif not is_fenced and (is_list or not line.startswith("    ")):
            kept.append(line)
            if line and not line.startswith(" "):
                is_list = bool(re.match(r"(?:[-*+]|\d+\.) ", line))
    return "\n".join(kept)


def without_spans(text):
    return re.sub(r"(`+).+?\1", "", without_code(text))


def anchors(document):
    """The anchors that a code host makes of headings."""
    headings = re.findall(r"^#+ (.*)$", without_code(document.read_text(encoding="utf-8")), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


SAMPLE = """[a](one) [![b](two.png)](three) [c](four "Title") `[d](none)`

- item

    [e](five)
    ```
    [f](none)
    ```

End.

    [g](none)
```
[h](none)
```
"""


class LinksTest(unittest.TestCase):
    def test_links_are_found_wherever_they_can_stand(self):
        self.assertEqual(LINK.findall(without_spans(SAMPLE)), ["one", "two.png", "three", "four", "five"])

    def test_links_lead_somewhere(self):
        lost = []
        for document in documents():
            for link in LINK.findall(without_spans(document.read_text(encoding="utf-8"))):
                file, _, anchor = link.partition("#")
                if re.match(r"[a-z]+:", link):
                    continue
                target = (document.parent / file).resolve() if file else document
                is_there = target.exists() and target.is_relative_to(TOP)
                if not is_there or (anchor and anchor not in anchors(target)):
                    lost.append(f"{document.relative_to(TOP)}: {link}")
        self.assertEqual(lost, [])

    def test_paths_are_those_of_the_sources(self):
        lost = []
        folders = {path.name for path in TOP.iterdir() if path.is_dir()} - {"build", ".git"}
        for document in documents():
            for path in PATH.findall(without_code(document.read_text(encoding="utf-8"))):
                stem = path.rstrip("/")
                # Some folders of a state directory have the names of ours.
                if path.split("/")[0] not in folders or documented_files.documented().fullmatch(stem):
                    continue
                if not (list(TOP.glob(stem)) or list(TOP.glob(stem + ".*"))):
                    lost.append(f"{document.relative_to(TOP)}: {path}")
        self.assertEqual(lost, [])


if __name__ == "__main__":
    unittest.main()
