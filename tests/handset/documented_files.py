"""The files of a state directory, as the manual pages have them under FILES."""

import functools
import os
import pathlib
import re

PAGES = pathlib.Path(__file__).resolve().parents[2] / "docs" / "man"


def entries(page):
    """What the page has under FILES that does not begin with a slash: of the state directory."""
    text = page.read_text(encoding="utf-8")
    for section in re.findall(r"^\.SH FILES\n(.*?)(?=^\.SH)", text, re.MULTILINE | re.DOTALL):
        for heading in re.findall(r"^\.TP\n\.I (\S.*)$", section, re.MULTILINE):
            for name in heading.replace("\\-", "-").split(", "):
                if not name.startswith(("/", "share/")):
                    yield name


def expression(entry):
    """An asterisk and the word ID stand for anything within one name; a folder has all that is in it, and
    its name is known even where a test has put something else there."""
    pattern = re.sub(r"\\\*|\bID\b", "[^/]+", re.escape(entry.rstrip("/")))
    return pattern + "(/.*)?" if entry.endswith("/") else pattern


@functools.cache
def documented():
    return re.compile("|".join(expression(entry) for page in sorted(PAGES.glob("*.[18]"))
                               for entry in entries(page)))


def undocumented(state):
    """The files of a state directory that no page has."""
    found = []
    for folder, _, names in os.walk(state):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), state)
            if not documented().fullmatch(path):
                found.append(path)
    return sorted(found)
